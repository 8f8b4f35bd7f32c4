// SPDX-License-Identifier: MIT
// list: the pinned files, as the service keeps them.
#include <stdio.h>
#include <unistd.h>

#include <set>

#include "client/pins/device_report.h"
#include "client/service/config_state.h"
#include "client/show/exit_status.h"
#include "client/show/output.h"
#include "client/verbs/verbs.h"
#include "client/volume/plain_links.h"

namespace client {

namespace {

using PinnedLists = std::map<std::string, std::vector<StoredFile>>;

// Narrows the lists to the volume that was given. Returns false, with the reason, when none is
// meant.
bool Narrow(const std::string& given, const std::vector<Volume>& volumes, PinnedLists& lists,
            std::string& why) {
    // A listed mount path can be named whether or not anything is mounted there.
    auto chosen = lists.find(given);
    if (chosen == lists.end()) {
        const Volume* const volume = ResolveVolume(given, volumes, why);
        if (volume == nullptr) {
            return false;
        }
        chosen = lists.find(volume->mountPath);
    }
    lists = chosen == lists.end() ? PinnedLists() : PinnedLists({*chosen});
    return true;
}

// The paths that the list has; of a file that is listed by a link, its own, which takes a search.
std::vector<std::string> PathsOf(const std::string& mountPath, const std::vector<StoredFile>& files,
                                 const std::vector<Volume>& volumes) {
    std::vector<StoredFile> links;
    std::vector<std::string> paths;
    for (const StoredFile& file : files) {
        if (IsLinkName(file.relative)) {
            links.push_back(file);
        } else {
            paths.push_back(PathOnVolume(mountPath, file.relative));
        }
    }
    if (!links.empty()) {
        for (const PinnedFile& pinned : InspectListed(links, mountPath, volumes)) {
            paths.push_back(ListedPath(pinned));
        }
    }
    return paths;
}

void PrintPaths(const std::vector<std::string>& paths, bool nul) {
    // Raw names are for other programs; a terminal gets them with nothing that could write to it.
    const bool raw = nul || isatty(STDOUT_FILENO) == 0;
    for (const std::string& path : paths) {
        fputs((raw ? path : Printable(path)).c_str(), stdout);
        fputc(nul ? '\0' : '\n', stdout);
    }
}

// What a verb can be given as its volume.
std::vector<std::string> MountPaths(const PinnedLists& lists, const std::vector<Volume>& volumes) {
    std::set<std::string> paths;
    for (const auto& [mountPath, files] : lists) {
        paths.insert(mountPath);
    }
    for (const Volume& volume : volumes) {
        if (VolumeKeepsPins(volume)) {
            paths.insert(volume.mountPath);
        }
    }
    return {paths.begin(), paths.end()};
}

Record DescribeFile(const PinnedFile& pinned) {
    const bool known = IsFound(pinned);
    const std::string fate = FateName(pinned.fate);
    return DescribeEntry(pinned)
        .Shown("size", IfKnown(known, pinned.file.size), "",
               known ? HumanBytes(pinned.file.size) : "-")
        .Add("inode", pinned.entry.inode, "")
        .Add("relativePath", pinned.entry.relative, "")
        .Row("", pinned.fate == Fate::kThere ? "" : Toned(Tone::kBad, fate + ": " + pinned.why));
}

Record DescribeVolume(const std::string& mountPath, const std::vector<StoredFile>& entries,
                      const std::vector<Volume>& volumes) {
    const std::vector<PinnedFile> files = InspectListed(entries, mountPath, volumes);
    const bool mounted = FindMounted(mountPath, volumes) != nullptr;
    return Record()
        .Headline(Toned(Tone::kStrong, Printable(mountPath)) + ": " +
                  Counted(entries.size(), "file") + " pinned" +
                  (mounted ? "" : ", " + Toned(Tone::kBad, "the volume " + WhyNotThere(mountPath))))
        .Add("volume", mountPath)
        .Add("mounted", mounted)
        .List("files", RecordsOf(files, DescribeFile), Layout::kRows);
}

int ListMountPaths(const ListOptions& options, const std::vector<std::string>& paths,
                   const std::vector<Volume>& volumes) {
    const auto describe = [&volumes](const std::string& path) {
        return Record().Add("volume", path).Add("mounted", FindMounted(path, volumes) != nullptr);
    };
    Record report;
    if (!options.common.json) {
        PrintPaths(paths, options.nulSeparated);
        return kExitDone;
    }
    report.List("volumes", RecordsOf(paths, describe), Layout::kRows);
    return Finish("list", report, options.common.json, kExitDone);
}

}  // namespace

int ListVerb(const ListOptions& options) {
    ServiceState service = ReadServiceState(options.common.configPath);
    PinnedLists& lists = service.state.pinned;
    std::vector<Volume> volumes;
    std::vector<Record> described;
    std::string why;
    Record report;
    if (!service.known) {
        return Finish("list", report, options.common.json,
                      Fail(report, kExitNoService, service.why));
    }
    // Without volumes the list is what it is, and no file of it can be looked at.
    ListVolumes(volumes);
    if (!options.volume.empty() && !Narrow(options.volume, volumes, lists, why)) {
        return Finish("list", report, options.common.json, Refuse(report, options.volume, why));
    }
    if (options.volumes) {
        return ListMountPaths(options, MountPaths(lists, volumes), volumes);
    }
    if ((options.paths || options.nulSeparated) && !options.common.json) {
        for (const auto& [mountPath, files] : lists) {
            PrintPaths(PathsOf(mountPath, files, volumes), options.nulSeparated);
        }
        return kExitDone;
    }
    for (const auto& [mountPath, entries] : lists) {
        described.push_back(DescribeVolume(mountPath, entries, volumes));
    }
    report.List("volumes", described, Layout::kBlocks);
    if (described.empty()) {
        report.Line("nothing is pinned");
    }
    return Finish("list", report, options.common.json, kExitDone);
}

}  // namespace client
