// SPDX-License-Identifier: MIT
#include "softcache/serve/snapshots.h"

#include <set>

namespace softcache {

uint64_t OpenSnapshots::Keep(uid_t user, const std::function<std::string()>& make) {
    const std::lock_guard<std::mutex> making(making_);
    auto content = std::make_shared<const std::string>(make());
    const std::lock_guard<std::mutex> lock(mutex_);
    const std::shared_ptr<const std::string> last = last_.lock();
    if (last != nullptr && *last == *content) {
        content = last;
    }
    last_ = content;
    snapshots_[++lastHandle_] = {user, std::move(content)};
    MakeRoom(user);
    return lastHandle_;
}

// From the newest to the oldest of this user's: what comes after the bound is passed goes.
void OpenSnapshots::MakeRoom(uid_t user) {
    std::set<const std::string*> kept;
    size_t bytes = 0;
    for (auto it = snapshots_.end(); it != snapshots_.begin();) {
        --it;
        const std::string* content = it->second.content.get();
        if (it->second.user != user || kept.count(content) != 0) {
            continue;
        }
        if (kept.size() >= kAlwaysKept && bytes + content->size() > kMostKeptBytes) {
            it = snapshots_.erase(it);
            continue;
        }
        kept.insert(content);
        bytes += content->size();
    }
}

std::shared_ptr<const std::string> OpenSnapshots::Content(uint64_t handle) const {
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto found = snapshots_.find(handle);
    return found == snapshots_.end() ? nullptr : found->second.content;
}

void OpenSnapshots::Drop(uint64_t handle) {
    const std::lock_guard<std::mutex> lock(mutex_);
    snapshots_.erase(handle);
}

}  // namespace softcache
