// SPDX-License-Identifier: MIT
#include "client/request/followers.h"

#include "client/request/file_check.h"
#include "client/request/file_job.h"

namespace client {

Followers FindFollowers(const std::vector<DeviceState>& devices,
                        const std::vector<Volume>& volumes) {
    Followers followers;
    Mapper mapper;
    for (const DeviceState& device : devices) {
        for (const PinnedFile& pinned : device.listed) {
            if (pinned.fate != Fate::kReplaced) {
                continue;
            }
            const std::string path = ListedPath(pinned);
            Follower& follower = followers[path];
            if (ExamineFile(path, volumes, follower.file, follower.why)) {
                MapForRequest(mapper, follower.file, follower.why);
            }
        }
    }
    return followers;
}

}  // namespace client
