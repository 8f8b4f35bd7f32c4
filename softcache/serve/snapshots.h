// SPDX-License-Identifier: MIT
// The contents of the open files that are only looked at, each as it was when the file was opened.
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <sys/types.h>

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>

namespace softcache {

// Anybody may open these files and keep them open, so what one user can make the cache remember is
// bounded: of more than kMostKeptBytes the oldest contents go, but never the last kAlwaysKept.
// Equal contents in a row are one.
//
// They are kept here rather than behind the file handle alone: the kernel reports the last closes
// late, or not at all when serving ends. Safe to use from any number of threads.
class OpenSnapshots {
  public:
    static constexpr size_t kMostKeptBytes = 32u << 20;
    static constexpr size_t kAlwaysKept = 8;

    // Makes the content for a file that this user opens, one after another, and returns the handle
    // by which it is found until it is dropped.
    uint64_t Keep(uid_t user, const std::function<std::string()>& make);

    // Null when the content had to make room. Shared: the caller may close the file once he has the
    // bytes, before the reply's call has returned.
    std::shared_ptr<const std::string> Content(uint64_t handle) const;

    void Drop(uint64_t handle);

  private:
    struct Snapshot {
        uid_t user;
        std::shared_ptr<const std::string> content;
    };

    void MakeRoom(uid_t user);

    mutable std::mutex mutex_;
    std::mutex making_;  // many at once would take many times the memory
    uint64_t lastHandle_ = 0;
    std::weak_ptr<const std::string> last_;
    std::map<uint64_t, Snapshot> snapshots_;  // by handle, the oldest first
};

}  // namespace softcache
