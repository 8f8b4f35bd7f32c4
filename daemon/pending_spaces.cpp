// SPDX-License-Identifier: MIT
#include "daemon/pending_spaces.h"

#include <utility>

std::shared_ptr<const PendingSpaceList::Spaces> PendingSpaceList::Snapshot() const {
    if (!hasSpaces_.load(std::memory_order_acquire)) {
        return nullptr;
    }
    return std::atomic_load(&spaces_);
}

void PendingSpaceList::Publish(std::shared_ptr<const Spaces> spaces) {
    bool hasSpaces = spaces != nullptr && !spaces->empty();

    std::atomic_store(&spaces_, std::move(spaces));
    hasSpaces_.store(hasSpaces, std::memory_order_release);
    version_.fetch_add(1, std::memory_order_release);  // last: who sees it sees the new list
}
