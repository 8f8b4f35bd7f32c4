// SPDX-License-Identifier: MIT
#include "client/request/file_job.h"

#include <algorithm>
#include <iterator>
#include <map>
#include <set>

#include "client/pins/device_report.h"
#include "client/pins/listed_paths.h"
#include "client/request/refusals.h"
#include "client/show/exit_status.h"
#include "client/show/output.h"
#include "client/volume/plain_links.h"

namespace client {

namespace {

void SayRefusals(const FileList& list) {
    for (const std::string& note : list.notes) {
        Say(note);
    }
    SayRefused("refused", list.refusals);
}

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
        why = why.empty() ? WhyNotUnpinnable(pinned) : why;
        if (seen.insert({pinned.mountPath, pinned.entry.inode}).second) {
            job.entries.push_back(pinned);
        }
    }
    return why;
}

Record DescribeRefusal(const Refusal& refusal) {
    return Record().Add("path", refusal.path).Add("reason", refusal.reason);
}

}  // namespace

void RefuseUnservable(FileJob& job) {
    std::map<const Volume*, bool> keepsPins;  // each volume is asked once
    Mapper mapper;
    std::vector<FileRef> kept;
    for (FileRef& file : job.list.files) {
        std::string why;
        const auto [keeps, isNew] = keepsPins.insert({file.volume, false});
        keeps->second = isNew ? VolumeKeepsPins(*file.volume) : keeps->second;
        if (!keeps->second) {
            // The service would drop the request and forget all that is pinned on the volume.
            why = "its volume " + Printable(file.volume->mountPath) +
                  " has no cache that keeps pins now";
        }
        // Nobody reads it but the service at its start. One that is pinned can be unpinned.
        if (job.type == kRequestPinFiles && IsBitmapFile(file)) {
            why = "is the bitmap file in which the service notes what is pinned";
        }
        if (why.empty() && MapForRequest(mapper, file, why)) {
            kept.push_back(std::move(file));
        } else {
            job.list.refusals.push_back({file.path, why});
        }
    }
    job.list.files = std::move(kept);
}

int CollectJob(const FileListOptions& options, FileJob& job) {
    std::string why;
    if (!ListVolumes(job.volumes)) {
        Say("the volumes cannot be listed");
        return kExitNoService;
    }
    if (!CollectFiles(options, job.volumes, job.list, why)) {
        Say(why);
        return kExitUsage;
    }
    RefuseUnservable(job);
    return kExitDone;
}

void LinkFiles(bool keepGoing, FileJob& job) {
    std::vector<FileRef> kept;
    for (FileRef& file : job.list.files) {
        std::string why;
        const bool named = WhyNotStorable(file.volume->mountPath, file.relative).empty();
        const bool stop = !keepGoing && !job.list.refusals.empty();
        if (named || stop || MakeLink(file, why)) {
            file.relative = named || stop ? file.relative : LinkName(file.inode);
            kept.push_back(std::move(file));
        } else {
            job.list.refusals.push_back({file.path, why});
        }
    }
    job.list.files = std::move(kept);
}

int PackJob(bool keepGoing, FileJob& job) {
    const bool any = !job.list.files.empty();
    SayRefusals(job.list);
    job.messages = PackFiles(job.type, job.list.files);
    // All or nothing, unless the others are wanted.
    if (job.list.refusals.empty() || (keepGoing && any)) {
        return kExitDone;
    }
    Say(any ? "nothing was sent; --keep-going sends the other files" : "nothing was sent");
    return kExitRefused;
}

void PackRepinned(FileJob& job) {
    const std::vector<Message> more = PackFiles(kRequestPinFiles, job.repinned);
    job.messages.insert(job.messages.end(), more.begin(), more.end());
}

void MatchWithList(const ConfigState& state, bool listMayChange, FileJob& job) {
    const std::set<Identity> pinned = PinnedFiles(state, job.volumes);
    const Named named = EntriesNamed(AllPaths(job.list), state, job.volumes);
    std::set<Identity> seen;
    std::vector<FileRef> kept;
    std::vector<Refusal> refusals;
    for (Refusal& refusal : job.list.refusals) {
        const std::string why = TakeEntries(named, refusal.path, seen, job);
        const auto entry = named.lower_bound(refusal.path);
        // Of the entries named only an empty file is there: what is there otherwise can be sent.
        if (!listMayChange || why.empty() || entry->second.fate != Fate::kThere) {
            refusals.push_back({refusal.path, why.empty() ? refusal.reason : why});
        }
    }
    job.list.refusals = std::move(refusals);
    std::copy_if(job.entries.begin(), job.entries.end(), std::back_inserter(job.emptied),
                 [listMayChange](const PinnedFile& entry) {
                     return listMayChange && entry.fate == Fate::kThere;
                 });
    for (FileRef& file : job.list.files) {
        const bool known = pinned.count({file.volume->mountPath, file.inode}) > 0;
        const std::string why = TakeEntries(named, file.path, seen, job);
        // A request for this path would unpin the new file, which nobody pinned.
        if (!known && !why.empty()) {
            job.passedOver.push_back({file.path, why});
            continue;
        }
        // Sent all the same: the list may be behind, and the request harms nothing.
        if (!known) {
            job.notPinned.push_back(file.path);
        }
        kept.push_back(std::move(file));
    }
    job.list.files = std::move(kept);
}

void NotePinned(const ConfigState& state, FileJob& job) {
    const std::set<Identity> pinned = PinnedFiles(state, job.volumes);
    for (const FileRef& file : job.list.files) {
        if (pinned.count({file.volume->mountPath, file.inode}) > 0) {
            job.pinnedAlready.push_back(file.path);
        }
    }
}

void SayMatch(const FileJob& job) {
    SayRefused("not sent", job.passedOver);
    if (!job.pinnedAlready.empty()) {
        const bool one = job.pinnedAlready.size() == 1;
        Say(FirstOf(job.pinnedAlready[0], job.pinnedAlready.size()) +
            (one ? " is pinned already; pinning it again reads it into the cache again"
                 : " are pinned already; pinning them again reads them into the cache again"));
    }
    for (size_t i = 0; i < job.notPinned.size() && i < kMostSaid; ++i) {
        Say(Printable(job.notPinned[i]) + " was not pinned");
    }
    if (job.notPinned.size() > kMostSaid) {
        Say("and " + std::to_string(job.notPinned.size() - kMostSaid) + " more were not pinned");
    }
}

Record DescribeFile(const FileRef& file) {
    return Record()
        .Add("path", file.path)
        .Add("volume", file.volume->mountPath)
        .Add("inode", file.inode)
        .Add("size", file.size);
}

void AddJob(const FileJob& job, Record& report) {
    std::vector<Refusal> refusals = job.list.refusals;
    // To a program it is one thing: a path that was given and not sent.
    refusals.insert(refusals.end(), job.passedOver.begin(), job.passedOver.end());
    report.List("files", RecordsOf(job.list.files, DescribeFile))
        .List("repinned", RecordsOf(job.repinned, DescribeFile))
        .List("refused", RecordsOf(refusals, DescribeRefusal))
        .List("entries", RecordsOf(job.entries, DescribeEntry))
        .Add("notPinned", TextsToJson(job.notPinned))
        .Add("pinnedAlready", TextsToJson(job.pinnedAlready))
        .Add("requests", job.messages.size())
        .Add("sent", job.sent);
}

void AddSent(const FileJob& job, const char* verb, Record& report) {
    std::map<std::string, std::pair<size_t, size_t>> perVolume;  // files, requests
    size_t repinning = 0;                                        // requests
    for (size_t i = 0; i < job.sent; ++i) {
        const Message& message = job.messages[i];
        if (message.type != job.type) {  // of an unpin: what is pinned again behind it
            ++repinning;
            continue;
        }
        auto& [files, requests] = perVolume[message.mountPath];
        files += message.numFiles;
        ++requests;
    }
    for (const auto& [volume, counts] : perVolume) {
        report.Line(Printable(volume) + ": " + verb + " of " + Counted(counts.first, "file") +
                    " sent in " + Counted(counts.second, "request"));
    }
    // When some did not go, the caller has said so.
    if (repinning > 0 && job.sent == job.messages.size()) {
        report.Line(Counted(job.repinned.size(), "pinned file shares", "pinned files share") +
                    " units with them; pinned again by " + Counted(repinning, "request"));
    }
    if (job.messages.empty()) {
        report.Line("no files, nothing sent");
    }
}

}  // namespace client
