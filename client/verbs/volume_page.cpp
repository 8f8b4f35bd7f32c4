// SPDX-License-Identifier: MIT
#include "client/verbs/volume_page.h"

#include <time.h>
#include <unistd.h>

#include <algorithm>

#include "client/map/page.h"
#include "client/pins/device_report.h"
#include "client/pins/pin_health.h"
#include "client/verbs/health.h"
#include "client/volume/cached_files.h"
#include "client/volume/volume_view.h"

namespace client {

namespace {

constexpr double kWalkSeconds = 20;
constexpr size_t kMostPinned = 1000;  // files in a table
constexpr size_t kMostOthers = 25;

std::string Share(uint64_t part, uint64_t whole) {
    char text[16];
    snprintf(text, sizeof(text), "%.1f %%",
             100 * static_cast<double>(part) / static_cast<double>(whole));
    return whole == 0 ? "-" : text;
}

// A file as the page's tables name it: a phone has little room.
std::string NameOn(const std::string& mountPath, const std::string& path) {
    const std::string below = PathBelow(mountPath, path);
    return Printable(below.empty() ? path : below);
}

// The files that lack most in the cache come first.
Record DescribePinned(const DeviceState& device) {
    const Residency& residency = device.view.residency;
    std::vector<std::pair<uint64_t, const PinnedFile*>> files;  // units not in the cache
    for (const PinnedFile& pinned : device.listed) {
        files.emplace_back(residency.known
                               ? CountUnits(pinned.units) - residency.resident.CountIn(pinned.units)
                               : 0,
                           &pinned);
    }
    std::stable_sort(files.begin(), files.end(),
                     [](const auto& left, const auto& right) { return left.first > right.first; });
    std::vector<Record> rows;
    for (const auto& [lacking, pinned] : files) {
        if (rows.size() == kMostPinned) {
            break;
        }
        const uint64_t units = CountUnits(pinned->units);
        const std::string remark = Remark(device, *pinned);
        Record row;
        const std::string path = ListedPath(*pinned);
        row.Shown("path", path, "file", NameOn(device.view.mountPath, path))
            .Add("units", units, "units");
        if (residency.known) {
            row.Add("unitsResident", units - lacking, "in the cache")
                .Shown("unitsAbsent", lacking, "share", Share(units - lacking, units));
        }
        rows.push_back(remark.empty() ? row : row.Line(remark));
    }
    Record record;
    record.List("files", rows, Layout::kHeadedRows);
    if (files.empty()) {
        return record.Line("None is on the list.");
    }
    return files.size() == rows.size()
               ? record
               : record.Line("and " + Counted(files.size() - rows.size(), "more file") +
                             ", of which no more units lack than of those");
}

// What the cache holds beside what is pinned.
Record DescribeOthers(const Picture& picture, const CachedFiles& others) {
    std::vector<Record> rows;
    uint64_t rest = 0;
    for (const CachedFile& file : others.files) {
        if (rows.size() < kMostOthers) {
            rows.push_back(
                Record()
                    .Shown("path", file.path, "file", NameOn(picture.mountPath, file.path))
                    .Add("size", file.size, "size", Unit::kBytes)
                    .Add("unitsResident", file.count, "units in the cache"));
        } else {
            rest += file.count;
        }
    }
    Record record;
    record.List("others", rows, Layout::kHeadedRows);
    if (rest > 0) {
        record.Line("and " + AmountText(rest) + " of " +
                    Counted(others.files.size() - rows.size(), "more file"));
    }
    if (const uint64_t ownerless = picture.besides.CountWithout(others.units)) {
        record.Line(AmountText(ownerless) +
                    " of no file that was found: the file system's own, or of files that are gone");
    }
    if (others.passedOver > 0) {
        record.Line(Counted(others.passedOver, "file") + " could not be looked at, or not in " +
                    std::to_string(static_cast<int>(kWalkSeconds)) + " seconds");
    }
    return picture.besides.Count() > 0 ? record : record.Line("Nothing.");
}

// What the cache has counted since it was started.
Record DescribeCache(const VolumeView& view) {
    const std::map<std::string, uint64_t> stats = ReadCacheStats(view.cachePath);
    const auto number = [&stats](const char* name) {
        const auto found = stats.find(name);
        return found == stats.end() ? Json::Value() : Json::Value(Json::UInt64{found->second});
    };
    Record record;
    if (stats.empty()) {
        return record.Line(view.cachePath.empty() ? "The volume has no cache."
                                                  : "The cache does not tell.");
    }
    const uint64_t hits = number("hits").asUInt64();
    const uint64_t read = hits + number("misses").asUInt64() + number("bypasses").asUInt64();
    return record
        .Row("hit rate", Share(hits, read) + (read > 0 ? " of " + Counted(read, "unit") + " read"
                                                       : ": nothing was read yet"))
        .Add("hits", number("hits"), "from the SSD")
        .Add("misses", number("misses"), "from the disk into the cache")
        .Add("bypasses", number("bypasses"), "from the disk past the cache")
        .Add("residentUnits", number("residentUnits"), "units in the cache")
        .Add("cacheUnits", number("cacheUnits"), "room for units")
        .Add("ssdErrors", number("ssdErrors"), "errors of the SSD");
}

Record DescribeHealth(const DeviceState& device, const Status& status) {
    Record record = DescribeDevice(device);
    for (const std::string& problem : FindProblems(status)) {
        record.Line(problem);
    }
    return record;
}

FilePlaces PlacesOf(const DeviceState& device, const CachedFiles& others) {
    std::vector<FilePlace> places;
    for (const PinnedFile& pinned : device.listed) {
        places.push_back({ListedPath(pinned), pinned.units});
    }
    for (const CachedFile& file : others.files) {
        places.push_back({file.path, file.units});
    }
    return FilePlaces(places);
}

std::string HostName() {
    char name[256] = "";
    return gethostname(name, sizeof(name) - 1) == 0 ? name : "";
}

}  // namespace

std::string MakeVolumePage(const Volume& volume, const std::vector<Volume>& volumes,
                           const CommonOptions& options) {
    const Status status = ReadServiceStatus(options.configPath);
    const DeviceState device = ReadDevice(status.stored.state, volume, volumes);
    const PinHealth health = HealthOf(device);
    Page page;
    page.host = HostName();
    page.state = PinHealthName(health);
    page.tone = ToneOf(health);
    page.picture = MakePicture(device.view, time(nullptr), kPageColumns, kPageRows);
    const CachedFiles others = FindCachedFiles(volume, page.picture.besides, kWalkSeconds);
    page.files = PlacesOf(device, others);
    page.before = {{"Health", DescribeHealth(device, status)}};
    page.after = {{"Pinned files", DescribePinned(device)},
                  {"What else is in the cache", DescribeOthers(page.picture, others)},
                  {"Cache", DescribeCache(device.view)}};
    return PageText(page);
}

}  // namespace client
