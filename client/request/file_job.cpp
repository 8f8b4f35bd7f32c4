// SPDX-License-Identifier: MIT
#include "client/request/file_job.h"

#include <map>

#include "client/show/exit_status.h"
#include "client/show/output.h"
#include "client/volume/plain_links.h"

namespace client {

namespace {

void SayRefusals(const FileList& list) {
    for (const std::string& note : list.notes) {
        Say(note);
    }
    for (const Refusal& refusal : list.refusals) {
        Say(TonedError(Tone::kBad, "refused") + " " + Printable(refusal.path) + ": " +
            refusal.reason);
    }
}

}  // namespace

bool MapForRequest(Mapper& mapper, FileRef& file, std::string& why) {
    switch (mapper.Map(file)) {
        case MapOutcome::kMapped:
            return true;
        case MapOutcome::kNothing:
            why =
                "has no place on the device (empty, or all hole): the service would wait a "
                "minute for it and then drop the whole request";
            return false;
        default:
            why = "its extents cannot be told (ext4 and XFS tell them)";
            return false;
    }
}

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

}  // namespace client
