// SPDX-License-Identifier: MIT
// The storage spaces that are being changed and must be left alone meanwhile.
//
// A space is its mount path as a message gave it, compared byte for byte. The list is empty at
// every start.
#pragma once

#include <stdint.h>

#include <atomic>
#include <memory>
#include <string>
#include <vector>

// Readers take no service mutex and run while the other thread changes the list, even while the
// process exits. So a list is never changed: each change publishes a new one.
class PendingSpaceList {
  public:
    using Spaces = std::vector<std::string>;  // in order of insertion

    PendingSpaceList() : spaces_() {}
    // Leaves the list as it is. The process exits from a signal handler, which may have interrupted
    // a change of the list, and the worker still asks: nothing may lock or free here.
    ~PendingSpaceList() {}
    PendingSpaceList(const PendingSpaceList&) = delete;
    PendingSpaceList& operator=(const PendingSpaceList&) = delete;

    // Returns the list of now, or null when it is empty, which is nearly always and costs one load.
    std::shared_ptr<const Spaces> Snapshot() const;

    // A number that each change of the list replaces by another one: while it is the same, so is
    // the list.
    uint32_t Version() const { return version_.load(std::memory_order_acquire); }

    // Replaces the list. Writers exclude each other by the service mutex.
    void Publish(std::shared_ptr<const Spaces> spaces);

  private:
    std::atomic<bool> hasSpaces_{false};
    std::atomic<uint32_t> version_{0};
    union {
        std::shared_ptr<const Spaces> spaces_;  // only by atomic_load and atomic_store
    };
};
