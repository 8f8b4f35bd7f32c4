// SPDX-License-Identifier: MIT
// What requests leave behind on the SSD: slots are opened before they change, and closed by a
// checkpoint.
#include "softcache/core/block_cache.h"

#include <string.h>

#include <algorithm>
#include <chrono>

namespace softcache {

constexpr std::chrono::seconds kSettleAfter(1);
constexpr std::chrono::milliseconds kLeastPause(20);

std::vector<uint32_t> BlockCache::SlotsOf(uint64_t offset, uint64_t length) const {
    const std::lock_guard<std::mutex> lock(mutex_);
    std::vector<uint32_t> slots;
    for (const uint32_t unit : table_.ResidentIn(UnitAt(offset), UnitAt(offset + length - 1))) {
        slots.push_back(table_.Find(unit));
    }
    return slots;
}

// Returns when all of them are open on the SSD, or the SSD is lost and nothing on it counts.
void BlockCache::Open(const std::vector<uint32_t>& slots) {
    Lock lock(mutex_);
    MakeRoomInJournal(lock, slots.size());
    if (ssdIsLost_) {
        changed_.wait(lock, [this] { return tableIsInvalid_; });
        return;
    }
    std::vector<uint32_t> unnoted;
    for (const uint32_t slot : slots) {
        if (journal_.NeedsNote(slot, table_.IsFree(slot))) {
            unnoted.push_back(slot);
        }
        journal_.Enter(slot);
    }
    if (!unnoted.empty()) {
        WriteNotes(lock, journal_.Note(unnoted));
    }
    changed_.wait(lock, [this] { return !ssdIsLost_ || tableIsInvalid_; });
}

void BlockCache::Leave(const std::vector<uint32_t>& slots) {
    if (slots.empty()) {
        return;
    }
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        for (const uint32_t slot : slots) {
            journal_.Leave(slot);
        }
    }
    changed_.notify_all();
}

// A slot to load a unit into, entered in the journal; kNoSlot when there is none. Where a unit
// makes room for it, those that will go next are opened along with it: one head for all of them.
uint32_t BlockCache::TakeSlot() {
    Lock lock(mutex_);
    const size_t ahead = 1 + tolerated_ / 8;
    MakeRoomInJournal(lock, ahead + 1);
    const auto isClaimed = [this](uint32_t unit) { return claims_.IsClaimed(unit); };
    for (uint32_t slot = table_.NextRoom(isClaimed); slot != kNoSlot;
         slot = table_.NextRoom(isClaimed)) {
        if (!journal_.NeedsNote(slot, table_.IsFree(slot))) {
            table_.Take(slot);
            journal_.Enter(slot);
            ++counters_.misses;
            return slot;
        }
        if (journal_.NotedSlots() + ahead + 1 > kMostOpen) {
            MakeRoomInJournal(lock, ahead + 1);
            continue;
        }
        std::vector<uint32_t> unnoted = {slot};
        for (const uint32_t next : table_.NextToGo(ahead)) {
            if (next != slot && journal_.NeedsNote(next, false)) {
                unnoted.push_back(next);
            }
        }
        WriteNotes(lock, journal_.Note(unnoted));
    }
    ++counters_.bypasses;
    return kNoSlot;
}

// On return the journal takes so many more notes, or the SSD is lost.
void BlockCache::MakeRoomInJournal(Lock& lock, size_t notes) {
    if (journal_.Size() >= tolerated_) {
        RunCheckpoint(lock);
    }
    while (!ssdIsLost_ && journal_.NotedSlots() + notes > kMostOpen) {
        if (RunCheckpoint(lock) != 0) {
            LoseSsd(lock, "cannot be kept in step with the backing");
        } else if (journal_.NotedSlots() + notes > kMostOpen) {
            changed_.wait_for(lock, kLeastPause);  // all of them are being changed
        }
    }
}

// Returns when the note is on the SSD, or the SSD is lost. Notes that come while a head is written
// share the next one.
void BlockCache::WriteNotes(Lock& lock, uint64_t note) {
    while (!ssdIsLost_ && !journal_.IsStable(note)) {
        if (writingHead_) {
            changed_.wait(lock);
            continue;
        }
        writingHead_ = true;
        const uint64_t upTo = journal_.LastNote();
        std::vector<uint32_t> open = journal_.Noted();
        lock.unlock();
        const int result = store_.WriteHead(std::move(open));
        lock.lock();
        writingHead_ = false;
        if (result == 0) {
            journal_.NotesAreStable(upTo);
        } else {
            LoseSsd(lock, std::string("takes no more notes: ") + strerror(-result));
        }
        changed_.notify_all();
    }
}

int BlockCache::Checkpoint() {
    Lock lock(mutex_);
    return RunCheckpoint(lock);
}

// One at a time; when one is under way, it is waited for. Returns 0 or -errno of the backing.
int BlockCache::RunCheckpoint(Lock& lock) {
    if (inCheckpoint_) {
        changed_.wait(lock, [this] { return !inCheckpoint_; });
        return 0;
    }
    if (ssdIsLost_ || journal_.Size() == 0) {
        return 0;
    }
    inCheckpoint_ = true;
    const std::vector<uint32_t> slots = journal_.BeginCheckpoint();
    const int result = SyncBoth(lock);
    if (result == 0 && !ssdIsLost_) {
        WriteLines(lock, slots);
    }
    if (result != 0 || ssdIsLost_) {
        journal_.AbandonCheckpoint();
    } else if (journal_.EndCheckpoint()) {
        WriteNotes(lock, journal_.Renew());
    }
    inCheckpoint_ = false;
    changed_.notify_all();
    return result;
}

// What the units' lines will say must be there first, on both sides.
int BlockCache::SyncBoth(Lock& lock) {
    const bool isBehind = syncedWrites_ != backingWrites_;
    lock.unlock();
    const int backing = isBehind ? SyncBacking(true) : 0;
    const int ssd = backing == 0 ? store_.Ssd().Sync() : 0;
    lock.lock();
    if (backing != 0) {
        unreportedError_ = backing;
    }
    if (ssd != 0) {
        LoseSsd(lock, std::string("cannot be written: ") + strerror(-ssd));
    }
    return backing;
}

// A slot that has changed since the checkpoint began gets an empty line: it is open, or was empty.
std::vector<TableEntry> BlockCache::Lines(uint32_t first, uint32_t count) const {
    std::vector<TableEntry> lines(count);
    for (uint32_t i = 0; i < count && first + i < table_.Slots(); ++i) {
        const uint32_t slot = first + i;
        if (table_.UnitIn(slot) != kNoUnit && journal_.IsSettled(slot)) {
            lines[i] = {table_.UnitIn(slot), table_.LastUse(slot)};
        }
    }
    return lines;
}

void BlockCache::WriteLines(Lock& lock, const std::vector<uint32_t>& slots) {
    std::vector<uint32_t> pages;
    pages.reserve(slots.size());
    for (const uint32_t slot : slots) {
        pages.push_back(slot / kPageEntries);
    }
    std::sort(pages.begin(), pages.end());
    pages.erase(std::unique(pages.begin(), pages.end()), pages.end());
    int result = 0;
    for (const uint32_t page : pages) {
        const std::vector<TableEntry> lines = Lines(page * kPageEntries, kPageEntries);
        lock.unlock();
        result = result == 0 ? store_.WriteTablePage(seed_, page, lines.data()) : result;
        lock.lock();
    }
    lock.unlock();
    result = result == 0 ? store_.Ssd().Sync() : result;
    lock.lock();
    if (result != 0) {
        LoseSsd(lock, std::string("cannot be written: ") + strerror(-result));
    }
}

// Once. Whoever comes later waits, at the latest before he changes the backing, until the table is
// invalid or is known to stay.
void BlockCache::LoseSsd(Lock& lock, const std::string& why) {
    if (ssdIsLost_) {
        return;
    }
    ssdIsLost_ = true;
    ++counters_.ssdErrors;
    table_.RetireAll();
    journal_.Clear();
    changed_.notify_all();
    lock.unlock();
    store_.InvalidateTable();
    // The second one goes to the other place, where the first may have failed.
    const bool invalid = store_.WriteHead({}) == 0 || store_.WriteHead({}) == 0;
    if (tellSsdIsLost_) {
        tellSsdIsLost_(why, invalid);
    }
    lock.lock();
    tableIsInvalid_ = true;
    changed_.notify_all();
}

bool BlockCache::WaitForUnsettled() {
    Lock lock(mutex_);
    changed_.wait_for(lock, kLeastPause, [this] { return noWaiting_; });
    changed_.wait(lock, [this] { return noWaiting_ || journal_.Size() > 0; });
    changed_.wait_for(lock, kSettleAfter,
                      [this] { return noWaiting_ || 2 * journal_.Size() >= tolerated_; });
    return !noWaiting_;
}

void BlockCache::StopWaiting() {
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        noWaiting_ = true;
    }
    changed_.notify_all();
}

void BlockCache::Close() {
    Lock lock(mutex_);
    if (RunCheckpoint(lock) == 0 && journal_.Size() == 0 && !ssdIsLost_ &&
        store_.WriteTable(seed_, Lines(0, table_.Slots())) == 0) {
        store_.WriteLastHead(backing_);
    }
}

}  // namespace softcache
