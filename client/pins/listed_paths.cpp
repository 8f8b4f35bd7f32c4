// SPDX-License-Identifier: MIT
#include "client/pins/listed_paths.h"

#include <filesystem>

namespace client {

namespace {

// The path of an entry as `list` prints it, for one that is given in another form; empty when it
// has none.
std::string AsListed(const std::string& path, const std::vector<Volume>& volumes) {
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
    std::multimap<std::string, std::string> given;  // by the path as it is listed
    for (const std::string& path : paths) {
        const std::string listed = AsListed(path, volumes);
        given.insert({path, path});
        if (!listed.empty() && listed != path) {
            given.insert({listed, path});
        }
    }
    std::multimap<std::string, PinnedFile> named;
    for (const auto& [mountPath, files] : state.pinned) {
        std::vector<StoredFile> entries;
        for (const StoredFile& file : files) {
            if (given.count(PathOnVolume(mountPath, file.relative)) > 0) {
                entries.push_back(file);
            }
        }
        for (const PinnedFile& pinned : InspectListed(entries, mountPath, volumes)) {
            const auto range = given.equal_range(PathOnVolume(mountPath, pinned.entry.relative));
            for (auto path = range.first; path != range.second; ++path) {
                named.insert({path->second, pinned});
            }
        }
    }
    return named;
}

std::string WhyNotThere(const PinnedFile& pinned) {
    const std::string text = std::string("is on the service's list and ") + FateName(pinned.fate);
    switch (pinned.fate) {
        case Fate::kThere:
            return "";
        case Fate::kGone:
            return text + "; check --repair takes it off";
        case Fate::kReplaced:
            return text + ": " + pinned.why + "; check --repair follows it";
        default:
            return text + ": " + pinned.why;
    }
}

}  // namespace client
