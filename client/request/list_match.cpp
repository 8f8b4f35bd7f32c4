// SPDX-License-Identifier: MIT
#include "client/request/list_match.h"

#include <errno.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>

#include "client/show/output.h"
#include "client/pins/sharing.h"

namespace client {

namespace {

constexpr size_t kMostSaid = 10;  // of one kind, a line each

// The path with its directory resolved as far as it exists, empty when that cannot be done.
std::string ResolvedAsFarAsItGoes(const std::string& path) {
    std::error_code error;
    const std::filesystem::path given(path);
    const std::filesystem::path directory = std::filesystem::weakly_canonical(
        std::filesystem::absolute(given, error).parent_path(), error);
    return error ? "" : (directory / given.filename()).string();
}

// What became of the file of an entry that a plain request cannot name.
std::string StateOf(const StaleEntry& entry) {
    struct stat status = {};
    const std::string path = PathOnVolume(entry.volume->mountPath, entry.stored.relative);
    if (lstat(path.c_str(), &status) != 0) {
        return errno == ENOENT || errno == ENOTDIR ? "gone" : "out of reach";
    }
    if (!S_ISREG(status.st_mode) || static_cast<uint32_t>(status.st_ino) != entry.stored.inode) {
        return "replaced";
    }
    return status.st_size == 0 ? "empty" : "out of reach of a plain request";
}

// Gathers entries, none twice, but for those whose file a plain request names.
class Gatherer {
  public:
    explicit Gatherer(const std::vector<FileRef>& files) {
        for (const FileRef& file : files) {
            seen_.insert({file.volume, file.inode});
        }
    }
    // Returns whether there is any entry.
    bool Take(const std::vector<StaleEntry>& entries) {
        for (const StaleEntry& entry : entries) {
            if (seen_.insert({entry.volume, entry.stored.inode}).second) {
                stale_.push_back(entry);
                stale_.back().state = StateOf(entry);
            }
        }
        return !entries.empty();
    }
    std::vector<StaleEntry>& Stale() { return stale_; }

  private:
    std::set<std::pair<const Volume*, uint32_t>> seen_;
    std::vector<StaleEntry> stale_;
};

void SayUpTo(const std::vector<std::string>& lines, const char* rest) {
    for (size_t i = 0; i < lines.size() && i < kMostSaid; ++i) {
        Say(lines[i]);
    }
    if (lines.size() > kMostSaid) {
        Say("and " + std::to_string(lines.size() - kMostSaid) + " more " + rest);
    }
}

}  // namespace

ListIndex::ListIndex(const ConfigState& state, const std::vector<Volume>& volumes)
    : volumes_(volumes) {
    std::set<std::string> done;
    for (const Volume& volume : volumes) {
        // Without a cache the service would drop the request and forget all that is pinned there.
        if (done.insert(volume.mountPath).second && VolumeKeepsPins(volume)) {
            TakeVolume(state, volume);
        }
    }
}

void ListIndex::TakeVolume(const ConfigState& state, const Volume& volume) {
    const auto pinned = state.pinned.find(volume.mountPath);
    std::set<uint32_t>& inodes = inodes_[&volume];
    if (pinned != state.pinned.end()) {
        for (const StoredFile& stored : pinned->second) {
            inodes.insert(stored.inode);
            entries_.insert(
                {PathOnVolume(volume.mountPath, stored.relative), {&volume, stored, ""}});
        }
    }
    for (const StoredFile& stored : QueuedToPin(state, volume.mountPath)) {
        inodes.insert(stored.inode);
    }
}

std::vector<StaleEntry> ListIndex::Named(const std::string& path) const {
    std::vector<StaleEntry> found;
    const auto range = entries_.equal_range(path);
    for (auto entry = range.first; entry != range.second; ++entry) {
        found.push_back(entry->second);
    }
    return found;
}

std::vector<StaleEntry> ListIndex::At(const std::string& path) const {
    std::vector<StaleEntry> found = Named(path);
    const std::string resolved = entries_.empty() ? "" : ResolvedAsFarAsItGoes(path);
    const Volume* const volume = FindVolumeOf(resolved, volumes_);
    const std::string name =
        volume == nullptr
            ? path
            : PathOnVolume(volume->mountPath, PathBelow(volume->mountPath, resolved));
    if (name != path) {
        const std::vector<StaleEntry> more = Named(name);
        found.insert(found.end(), more.begin(), more.end());
    }
    for (StaleEntry& entry : found) {
        entry.state = StateOf(entry);
    }
    return found;
}

bool ListIndex::Has(const FileRef& file) const {
    const auto inodes = inodes_.find(file.volume);
    return inodes != inodes_.end() && inodes->second.count(file.inode) > 0;
}

ListMatch MatchList(const ConfigState& state, FileJob& job) {
    const ListIndex index(state, job.volumes);
    Gatherer gatherer(job.list.files);
    ListMatch match;
    std::vector<Refusal>& refusals = job.list.refusals;
    for (const std::string& path : job.list.named) {
        gatherer.Take(index.Named(path));
    }
    for (const FileRef& file : job.list.files) {
        const bool known =
            gatherer.Take(index.Named(PathOnVolume(file.volume->mountPath, file.relative)));
        if (!known && !index.Has(file)) {
            match.notPinned.push_back(file.path);
        }
    }
    refusals.erase(std::remove_if(refusals.begin(), refusals.end(),
                                  [&](const Refusal& refusal) {
                                      return gatherer.Take(index.At(refusal.path));
                                  }),
                   refusals.end());
    match.stale = std::move(gatherer.Stale());
    return match;
}

void SayMatch(const ListMatch& match) {
    std::vector<std::string> stale;
    std::vector<std::string> notPinned;
    for (const StaleEntry& entry : match.stale) {
        stale.push_back(Printable(PathOnVolume(entry.volume->mountPath, entry.stored.relative)) +
                        " (inode " + std::to_string(entry.stored.inode) + ") is " + entry.state +
                        "; only its entry can be taken off the list");
    }
    for (const std::string& path : match.notPinned) {
        notPinned.push_back(Printable(path) + " was not pinned");
    }
    SayUpTo(stale, "entries of that kind");
    SayUpTo(notPinned, "were not pinned");
}

Json::Value StaleToJson(const std::vector<StaleEntry>& entries) {
    Json::Value list(Json::arrayValue);
    for (const StaleEntry& entry : entries) {
        Json::Value item;
        item["path"] = Printable(PathOnVolume(entry.volume->mountPath, entry.stored.relative));
        item["volume"] = entry.volume->mountPath;
        item["inode"] = entry.stored.inode;
        item["state"] = entry.state;
        list.append(item);
    }
    return list;
}

}  // namespace client
