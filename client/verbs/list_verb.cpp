// SPDX-License-Identifier: MIT
// list: the pinned files, as the service keeps them.
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <optional>
#include <set>

#include "client/pins/device_report.h"
#include "client/service/config_state.h"
#include "client/show/exit_status.h"
#include "client/show/output.h"
#include "client/show/text.h"
#include "client/verbs/verbs.h"
#include "client/volume/plain_links.h"
#include "client/volume/volume_view.h"

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

// A listed file and, where that was asked for, how far it has come into the cache.
struct ListRow {
    PinnedFile pinned;
    std::optional<uint64_t> wanted;    // units that hold what was ever written of it
    std::optional<uint64_t> resident;  // of these, in the cache
    std::optional<time_t> lastRead;
};

Json::Value Known(const std::optional<uint64_t>& count) {
    return IfKnown(count.has_value(), count.value_or(0));
}

// What of a file is not in the cache; of what is not known, less than any.
int64_t MissingOf(const ListRow& row) {
    return row.wanted && row.resident ? static_cast<int64_t>(*row.wanted - *row.resident) : -1;
}

void TakeUnits(const Residency& residency, Mapper& mapper, ListRow& row) {
    struct stat status = {};
    MapPinned(row.pinned, mapper);
    if (!IsFound(row.pinned) || stat(row.pinned.file.path.c_str(), &status) != 0) {
        return;
    }
    const UnitRuns wanted = RunsOf(WrittenOf(row.pinned.file.extents));
    row.wanted = CountUnits(wanted);
    row.lastRead = status.st_atime;
    if (residency.known) {
        row.resident = residency.resident.CountIn(wanted);
    }
}

// The volume's files in the order that was asked for.
std::vector<ListRow> ReadRows(const std::string& mountPath, const std::vector<StoredFile>& entries,
                              const std::vector<Volume>& volumes, const ListOptions& options) {
    std::vector<ListRow> rows;
    Mapper mapper;
    const Volume* const volume = FindMounted(mountPath, volumes);
    for (PinnedFile& pinned : InspectListed(entries, mountPath, volumes)) {
        rows.push_back({std::move(pinned), {}, {}, {}});
    }
    if (volume != nullptr && (options.details || options.sort == kSortByMissing)) {
        const VolumeView view = LookAt(*volume);
        for (ListRow& row : rows) {
            TakeUnits(view.residency, mapper, row);
        }
    }
    std::stable_sort(rows.begin(), rows.end(), [&options](const auto& left, const auto& right) {
        return options.sort == kSortBySize      ? left.pinned.file.size > right.pinned.file.size
               : options.sort == kSortByMissing ? MissingOf(left) > MissingOf(right)
                                                : false;  // the list goes by path
    });
    return rows;
}

// The paths that the list has; of a file that is listed by a link, its own, which takes a search.
std::vector<std::string> PathsOf(const std::string& mountPath, const std::vector<StoredFile>& files,
                                 const std::vector<Volume>& volumes, const ListOptions& options) {
    std::vector<StoredFile> links;
    std::vector<std::string> paths;
    if (!options.sort.empty()) {
        for (const ListRow& row : ReadRows(mountPath, files, volumes, options)) {
            paths.push_back(ListedPath(row.pinned));
        }
        return paths;
    }
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

void AddDetails(const ListRow& row, Record& record) {
    std::optional<unsigned> percent;
    if (row.wanted && row.resident) {
        percent = Percent(*row.resident, *row.wanted);
    }
    record.Add("unitsWanted", Known(row.wanted), "units")
        .Add("unitsResident", Known(row.resident), "in cache")
        .Shown("percent", Known(percent), "", percent ? std::to_string(*percent) + "%" : "-")
        .Shown("lastRead", Known(row.lastRead), "last read",
               row.lastRead ? TimeText(*row.lastRead) : "-");
}

Record DescribeRow(const ListRow& row, bool details) {
    const PinnedFile& pinned = row.pinned;
    const bool known = IsFound(pinned);
    const std::string fate = FateName(pinned.fate);
    Record record = DescribeEntry(pinned);
    record.Shown("size", IfKnown(known, pinned.file.size), "size",
                 known ? HumanBytes(pinned.file.size) : "-");
    if (details) {
        AddDetails(row, record);
    }
    return record.Add("inode", pinned.entry.inode, "inode")
        .Add("relativePath", pinned.entry.relative, "path")
        .Row("", pinned.fate == Fate::kThere ? "" : Toned(Tone::kBad, fate + ": " + pinned.why));
}

Record DescribeVolume(const std::string& mountPath, const std::vector<StoredFile>& entries,
                      const std::vector<Volume>& volumes, const ListOptions& options) {
    const std::vector<ListRow> rows = ReadRows(mountPath, entries, volumes, options);
    const bool mounted = FindMounted(mountPath, volumes) != nullptr;
    return Record()
        .Headline(Toned(Tone::kStrong, Printable(mountPath)) + ": " +
                  Counted(entries.size(), "file") + " pinned" +
                  (mounted ? "" : ", " + Toned(Tone::kBad, "the volume " + WhyNotThere(mountPath))))
        .Add("volume", mountPath)
        .Add("mounted", mounted)
        .List(
            "files",
            RecordsOf(rows, [&](const ListRow& row) { return DescribeRow(row, options.details); }),
            options.details ? Layout::kHeadedRows : Layout::kRows);
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
            PrintPaths(PathsOf(mountPath, files, volumes, options), options.nulSeparated);
        }
        return kExitDone;
    }
    for (const auto& [mountPath, entries] : lists) {
        described.push_back(DescribeVolume(mountPath, entries, volumes, options));
    }
    report.List("volumes", described, Layout::kBlocks);
    if (described.empty()) {
        report.Line("nothing is pinned");
    }
    return Finish("list", report, options.common.json, kExitDone);
}

}  // namespace client
