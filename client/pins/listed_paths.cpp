// SPDX-License-Identifier: MIT
#include "client/pins/listed_paths.h"

#include <filesystem>
#include <set>

namespace client {

namespace {

// The path of an entry as `list` prints it, for one that is given in another form; empty when it
// has none.
std::string AsListed(const std::string& path, const std::vector<Volume>& volumes) {
    // The file may be gone and its directory with it: as much is resolved as exists. The last
    // component stays as it is, since a link would lead to another file.
    std::error_code error;
    const std::filesystem::path given(path);
    const std::filesystem::path directory = std::filesystem::weakly_canonical(
        std::filesystem::absolute(given, error).parent_path(), error);
    if (error) {
        return "";
    }
    const std::string resolved = (directory / given.filename()).string();
    const Volume* const volume = FindVolumeOf(resolved, volumes);
    return volume == nullptr
               ? resolved
               : PathOnVolume(volume->mountPath, PathBelow(volume->mountPath, resolved));
}

}  // namespace

std::multimap<std::string, PinnedFile> EntriesNamed(const std::vector<std::string>& paths,
                                                    const ConfigState& state,
                                                    const std::vector<Volume>& volumes) {
    std::map<std::string, std::set<std::string>> given;  // by the path as it is listed
    for (const std::string& path : paths) {
        given[path].insert(path);
        given[AsListed(path, volumes)].insert(path);
    }
    std::multimap<std::string, PinnedFile> named;
    for (const auto& [mountPath, files] : state.pinned) {
        std::vector<StoredFile> entries;
        for (const StoredFile& file : files) {
            if (given.count(PathOnVolume(mountPath, file.relative)) > 0) {
                entries.push_back(file);
            }
        }
        // Only those named are looked for, and a volume is searched once for all of them.
        for (const PinnedFile& pinned : InspectListed(entries, mountPath, volumes)) {
            if (pinned.fate == Fate::kThere && pinned.file.size > 0) {
                continue;
            }
            for (const std::string& path : given[PathOnVolume(mountPath, pinned.entry.relative)]) {
                named.insert({path, pinned});
            }
        }
    }
    return named;
}

std::string WhyNotUnpinnable(const PinnedFile& pinned) {
    const std::string text = std::string("is on the service's list and ") + FateName(pinned.fate);
    switch (pinned.fate) {
        case Fate::kThere:
            return "is empty, so that no request takes it off the service's list: the service "
                   "would "
                   "wait a minute for its blocks; unpin takes it off while no service runs";
        case Fate::kGone:
            return text + "; check --repair takes it off";
        case Fate::kReplaced:
            return text + ": " + pinned.why + "; check --repair follows it";
        default:
            return text + ": " + pinned.why;
    }
}

}  // namespace client
