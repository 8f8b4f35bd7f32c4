// SPDX-License-Identifier: MIT
#include "client/request/unneeded_links.h"

#include <set>

#include "client/volume/plain_links.h"

namespace client {

namespace {

void AddInodes(const std::vector<StoredFile>& files, std::set<uint32_t>& inodes) {
    for (const StoredFile& file : files) {
        inodes.insert(file.inode);
    }
}

}  // namespace

void RemoveLinksOf(const std::vector<FileRef>& unpinned, const ConfigState& state) {
    for (const VolumeFiles& group : GroupByVolume(unpinned)) {
        const std::string& mountPath = group.volume->mountPath;
        const auto listed = state.pinned.find(mountPath);
        std::set<uint32_t> pinned;
        AddInodes(QueuedToPin(state, mountPath), pinned);
        if (listed != state.pinned.end()) {
            AddInodes(listed->second, pinned);
        }
        for (const FileRef& file : group.files) {
            if (IsLinkName(file.relative) && pinned.count(file.inode) == 0) {
                RemoveLink(mountPath, file.inode);
            }
        }
        RemoveLastNames(mountPath);
    }
}

std::vector<std::string> RemoveUnneededLinks(const std::string& mountPath,
                                             const ConfigState& state) {
    std::set<uint32_t> named;
    std::vector<std::string> removed;
    for (const auto& [path, files] : state.pinned) {
        AddInodes(files, named);
    }
    for (const StoredRequest& request : state.queue) {
        AddInodes(ParseStoredFiles(request.data), named);
    }
    for (const uint32_t inode : LinkedInodes(mountPath)) {
        if (named.count(inode) == 0 && RemoveLink(mountPath, inode)) {
            removed.push_back(LinkName(inode));
        }
    }
    return removed;
}

}  // namespace client
