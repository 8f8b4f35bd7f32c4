// SPDX-License-Identifier: MIT
#include "client/pins/explanation.h"

#include "client/pins/sharing.h"
#include "client/show/output.h"

namespace client {

namespace {

void ReadList(Explanation& explanation) {
    const ConfigState& state = explanation.service.state;
    const FileRef& file = explanation.file;
    const auto pinned = state.pinned.find(file.volume->mountPath);
    if (pinned != state.pinned.end()) {
        for (const StoredFile& stored : pinned->second) {
            if (stored.inode == file.inode) {
                explanation.pinned = true;
                explanation.pinnedAs = stored.relative == file.relative ? "" : stored.relative;
            } else if (stored.relative == file.relative) {
                explanation.pathReplaced = true;
            }
        }
    }
    for (size_t place = 0; place < state.queue.size(); ++place) {
        const StoredRequest& request = state.queue[place];
        for (const StoredFile& stored : ParseStoredFiles(request.data)) {
            if (request.mountPath == file.volume->mountPath && stored.inode == file.inode) {
                explanation.queued.push_back("request " + Printable(request.number) + " (" +
                                             Printable(request.type) + "), place " +
                                             std::to_string(place + 1) + " of " +
                                             std::to_string(state.queue.size()));
                explanation.queuedToPin = request.type == "pinFiles";
            }
        }
    }
}

void CountAll(Explanation& explanation) {
    const VolumeView& view = explanation.view;
    UnitSet wanted(view.bits.Bytes().size());
    explanation.runs = RunsOf(explanation.file.extents);
    explanation.units = CountUnits(explanation.runs);
    wanted.Put(explanation.runs);
    explanation.withBit = wanted.Count();
    explanation.set = view.bits.CountIn(explanation.runs);
    explanation.driver = view.residency.pinned.CountIn(explanation.runs);
    explanation.resident = view.residency.resident.CountIn(explanation.runs);
    explanation.neverWritten =
        BytesOf(explanation.file.extents) - BytesOf(WrittenOf(explanation.file.extents));
}

void FindSharers(const std::vector<Volume>& volumes, Mapper& mapper, Explanation& explanation) {
    const Volume& volume = *explanation.file.volume;
    for (const PinnedNow& now : LookAtPinned(explanation.service.state, volume, volumes, mapper)) {
        const uint64_t common = CountUnits(CommonRuns(RunsOf(now.file.extents), explanation.runs));
        if (now.stored.inode != explanation.file.inode && common > 0) {
            explanation.sharers.push_back(
                {PathOnVolume(volume.mountPath, now.stored.relative), common});
        }
    }
}

}  // namespace

void FillExplanation(const std::string& configPath, const std::vector<Volume>& volumes,
                     Explanation& explanation) {
    Mapper mapper;
    explanation.mapped = MapForRequest(mapper, explanation.file, explanation.whyNotMapped);
    explanation.service = ReadServiceState(configPath);
    explanation.view = LookAt(*explanation.file.volume);
    ReadList(explanation);
    CountAll(explanation);
    FindSharers(volumes, mapper, explanation);
}

std::string WhyNotResident(const Explanation& explanation) {
    const VolumeView& view = explanation.view;
    if (view.cachePath.empty()) {
        return "the volume has no cache";
    }
    if (view.residency.known && explanation.resident == explanation.units) {
        return "";
    }
    if (explanation.queuedToPin) {
        return "its request is not done yet";
    }
    if (!explanation.service.known) {
        return "whether it is pinned is not known: " + explanation.service.why;
    }
    if (!explanation.pinned && explanation.pathReplaced) {
        return "the file that was pinned at this path was replaced by this one; check --repair "
               "follows it";
    }
    if (!explanation.pinned) {
        return "it is not pinned, so nothing keeps it there";
    }
    if (explanation.set < explanation.withBit) {
        return Counted(explanation.withBit - explanation.set, "unit") +
               " not set: it grew, was rewritten, or a unit it shares was cleared; check --repair "
               "pins it again";
    }
    if (!view.residency.known) {
        return "";
    }
    if (explanation.driver < explanation.set) {
        return "the driver has not the bitmap that the file holds; check --repair hands it over";
    }
    if (explanation.neverWritten > 0) {
        return HumanBytes(explanation.neverWritten) +
               " of it were never written, and the service does not read those";
    }
    return view.bits.Count() * kUnitBytes > view.residency.cacheSize
               ? "more is pinned than the cache holds"
               : "it was not read since the cache began, or the reading was interrupted or failed; "
                 "reload reads it";
}

}  // namespace client
