// SPDX-License-Identifier: MIT
#include "softcache/store/slot_journal.h"

namespace softcache {

bool SlotJournal::NeedsNote(uint32_t slot, bool isFree) const {
    const auto found = slots_.find(slot);
    if (found == slots_.end()) {
        return !isFree;
    }
    const State& state = found->second;
    return state.note == 0 ? state.inCheckpoint : !IsStable(state.note);
}

uint64_t SlotJournal::Note(const std::vector<uint32_t>& slots) {
    const uint64_t next = lastNote_ + 1;
    uint64_t newest = 0;
    for (const uint32_t slot : slots) {
        State& state = slots_[slot];
        if (state.note == 0) {
            state.note = lastNote_ = next;
            ++noted_;
        }
        newest = state.note > newest ? state.note : newest;
    }
    return newest;
}

std::vector<uint32_t> SlotJournal::Noted() const {
    std::vector<uint32_t> slots;
    slots.reserve(noted_);
    for (const auto& [slot, state] : slots_) {
        if (state.note != 0) {
            slots.push_back(slot);
        }
    }
    return slots;
}

std::vector<uint32_t> SlotJournal::Idle() const {
    std::vector<uint32_t> slots;
    for (const auto& [slot, state] : slots_) {
        if (state.users == 0) {
            slots.push_back(slot);
        }
    }
    return slots;
}

void SlotJournal::Enter(uint32_t slot) {
    State& state = slots_[slot];
    ++state.users;
    state.changedSince = true;
}

void SlotJournal::Leave(uint32_t slot) {
    const auto found = slots_.find(slot);
    if (found != slots_.end() && found->second.users > 0) {  // cleared meanwhile otherwise
        --found->second.users;
        found->second.changedSince = true;
    }
}

std::vector<uint32_t> SlotJournal::BeginCheckpoint() {
    std::vector<uint32_t> taken;
    for (auto& [slot, state] : slots_) {
        state.inCheckpoint = state.users == 0;
        state.changedSince = false;
        if (state.inCheckpoint) {
            taken.push_back(slot);
        }
    }
    return taken;
}

bool SlotJournal::IsSettled(uint32_t slot) const {
    const auto found = slots_.find(slot);
    return found == slots_.end() || (found->second.inCheckpoint && !found->second.changedSince);
}

bool SlotJournal::EndCheckpoint() {
    bool any = false;
    for (auto it = slots_.begin(); it != slots_.end();) {
        State& state = it->second;
        const bool settled = state.inCheckpoint && !state.changedSince;
        state.inCheckpoint = false;
        if (!settled) {
            ++it;
            continue;
        }
        any = any || state.note != 0;
        noted_ -= state.note != 0 ? 1 : 0;
        it = slots_.erase(it);
    }
    return any;
}

void SlotJournal::AbandonCheckpoint() {
    for (auto& [slot, state] : slots_) {
        state.inCheckpoint = false;
    }
}

void SlotJournal::Clear() {
    slots_.clear();
    noted_ = 0;
}

}  // namespace softcache
