// SPDX-License-Identifier: MIT
// Which slots the table on the SSD does not speak for at the moment.
//
// A slot is in here from the first change of it, or of its unit on the backing, until a checkpoint
// has brought unit and backing to stable storage and written the slot's line of the table. Before
// the line on the SSD can mislead, the slot has to be *noted*: named as open in a head on stable
// storage. A line that says "empty" misleads nobody, so a slot that was free needs no note.
//
// Bookkeeping only: no input or output, and no locks (the caller serialises).
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <unordered_map>
#include <vector>

namespace softcache {

class SlotJournal {
  public:
    // Whether the slot must be noted before it, or its unit on the backing, may be changed.
    // `isFree`: it holds no unit.
    bool NeedsNote(uint32_t slot, bool isFree) const;

    // These slots are to be noted. Returns the number of the note that has them all.
    uint64_t Note(const std::vector<uint32_t>& slots);
    uint64_t LastNote() const { return lastNote_; }
    void NotesAreStable(uint64_t upTo) { stableNote_ = upTo; }
    bool IsStable(uint64_t note) const { return note <= stableNote_; }

    // A new note without those that were closed meanwhile.
    uint64_t Renew() { return ++lastNote_; }

    std::vector<uint32_t> Noted() const;
    std::vector<uint32_t> Idle() const;  // those that no operation is changing

    // The number of slots that are noted, and of all that a crash now would cost.
    size_t NotedSlots() const { return noted_; }
    size_t Size() const { return slots_.size(); }

    // An operation changes the slot from Enter to Leave.
    void Enter(uint32_t slot);
    void Leave(uint32_t slot);

    // A checkpoint takes the slots that no operation is changing. Settled: and none has since.
    std::vector<uint32_t> BeginCheckpoint();
    bool IsSettled(uint32_t slot) const;  // also of a slot that is not in here
    // Takes out what is settled. Returns whether any of it was noted.
    bool EndCheckpoint();
    void AbandonCheckpoint();

    void Clear();

  private:
    struct State {
        uint32_t users = 0;
        uint64_t note = 0;          // 0 = none
        bool inCheckpoint = false;  // its line is being written
        bool changedSince = false;  // since that checkpoint began
    };

    std::unordered_map<uint32_t, State> slots_;
    size_t noted_ = 0;
    uint64_t lastNote_ = 0;
    uint64_t stableNote_ = 0;
};

}  // namespace softcache
