// SPDX-License-Identifier: MIT
#include "client/request/unpin_match.h"

#include <map>
#include <set>

#include "client/pins/listed_paths.h"
#include "client/show/output.h"

namespace client {

namespace {

constexpr size_t kMostSaid = 10;  // files that were not pinned, a line each

using Named = std::multimap<std::string, PinnedFile>;

// A mount path and an inode: what identifies a file to the service.
using Identity = std::pair<std::string, uint32_t>;

// What is on the list, or queued to be.
std::set<Identity> PinnedFiles(const ConfigState& state, const std::vector<Volume>& volumes) {
    std::set<Identity> pinned;
    for (const auto& [mountPath, files] : state.pinned) {
        for (const StoredFile& file : files) {
            pinned.insert({mountPath, file.inode});
        }
    }
    for (const Volume& volume : volumes) {
        for (const StoredFile& file : QueuedToPin(state, volume.mountPath)) {
            pinned.insert({volume.mountPath, file.inode});
        }
    }
    return pinned;
}

std::vector<std::string> AllPaths(const FileList& list) {
    std::vector<std::string> paths;
    for (const Refusal& refusal : list.refusals) {
        paths.push_back(refusal.path);
    }
    for (const FileRef& file : list.files) {
        paths.push_back(file.path);
    }
    return paths;
}

// Adds the entries that the path names, none twice. Returns why the first one's file does not lie
// there; empty when there is none.
std::string TakeEntries(const Named& named, const std::string& path, std::set<Identity>& seen,
                        FileJob& job) {
    std::string why;
    const auto range = named.equal_range(path);
    for (auto entry = range.first; entry != range.second; ++entry) {
        const PinnedFile& pinned = entry->second;
        why = why.empty() ? WhyNotThere(pinned) : why;
        if (seen.insert({pinned.mountPath, pinned.entry.inode}).second) {
            job.entries.push_back(pinned);
        }
    }
    return why;
}

}  // namespace

void MatchWithList(const ConfigState& state, FileJob& job) {
    const std::set<Identity> pinned = PinnedFiles(state, job.volumes);
    const Named named = EntriesNamed(AllPaths(job.list), state, job.volumes);
    std::set<Identity> seen;
    std::vector<FileRef> kept;
    for (Refusal& refusal : job.list.refusals) {
        const std::string why = TakeEntries(named, refusal.path, seen, job);
        refusal.reason = why.empty() ? refusal.reason : why;
    }
    for (FileRef& file : job.list.files) {
        const bool known = pinned.count({file.volume->mountPath, file.inode}) > 0;
        const std::string why = TakeEntries(named, file.path, seen, job);
        if (!known && !why.empty()) {
            job.passedOver.push_back({file.path, why});
            continue;
        }
        if (!known) {
            job.notPinned.push_back(file.path);
        }
        kept.push_back(std::move(file));
    }
    job.list.files = std::move(kept);
}

void SayMatch(const FileJob& job) {
    for (const Refusal& passed : job.passedOver) {
        Say(TonedError(Tone::kBad, "not sent") + " " + Printable(passed.path) + ": " +
            passed.reason);
    }
    for (size_t i = 0; i < job.notPinned.size() && i < kMostSaid; ++i) {
        Say(Printable(job.notPinned[i]) + " was not pinned");
    }
    if (job.notPinned.size() > kMostSaid) {
        Say("and " + std::to_string(job.notPinned.size() - kMostSaid) + " more were not pinned");
    }
}

}  // namespace client
