// SPDX-License-Identifier: MIT
// metrics: what a monitoring system follows, as numbers. Rates and shares are left to its queries.
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <optional>
#include <set>

#include "client/service/repair_record.h"
#include "client/service/store_copies.h"
#include "client/show/exit_status.h"
#include "client/show/exposition.h"
#include "client/show/output.h"
#include "client/show/report.h"
#include "client/verbs/status.h"
#include "client/verbs/verbs.h"
#include "client/volume/replace_file.h"
#include "util/request.h"

namespace client {

namespace {

constexpr auto kGauge = Metric::kGauge;
constexpr auto kCounter = Metric::kCounter;

constexpr Metric kVersion = {kGauge, "quorcachepin_build_info", "Version of quorcachepinctl."};
constexpr Metric kWritten = {kGauge, "quorcachepin_written_timestamp_seconds",
                             "When these numbers were read."};
constexpr Metric kUnit = {kGauge, "quorcachepin_unit_bytes", "Size of a unit."};
constexpr Metric kUp = {kGauge, "quorcachepin_service_up", "Whether the service's process runs."};
constexpr Metric kIntake = {kGauge, "quorcachepin_intake_alive",
                            "Whether the service takes messages: its intake lives and does not "
                            "stand still before one that waits."};
constexpr Metric kWorker = {kGauge, "quorcachepin_worker_alive",
                            "Whether the service's worker lives."};
constexpr Metric kMessages = {kGauge, "quorcachepin_messages_waiting",
                              "Messages that the service has not taken yet."};
constexpr Metric kRoom = {kGauge, "quorcachepin_messages_limit",
                          "Messages that the queue has room for."};
constexpr Metric kReadable = {kGauge, "quorcachepin_store_readable",
                              "Whether the service's configuration file can be read."};
constexpr Metric kDefects = {kGauge, "quorcachepin_store_defects",
                             "Entries of the configuration file that end the worker or do not "
                             "belong there."};
constexpr Metric kNumbered = {kCounter, "quorcachepin_requests_stored_total",
                              "Requests that were ever stored, modulo 2147483646."};
constexpr Metric kOldest = {kGauge, "quorcachepin_requests_oldest_number",
                            "Number of the first queued request; as long as it stays the same, "
                            "that request waits or runs."};
constexpr Metric kQueued = {kGauge, "quorcachepin_requests_queued",
                            "Stored requests of the volume that are not done."};
constexpr Metric kFiles = {kGauge, "quorcachepin_pinned_files",
                           "Files of the volume on the list of pinned files."};
constexpr Metric kCopied = {kGauge, "quorcachepin_copied_files",
                            "Files of the volume in the last good copy of that list."};
constexpr Metric kCopyMade = {kGauge, "quorcachepin_copy_timestamp_seconds",
                              "When the last good copy of the list was made."};
constexpr Metric kRepaired = {kGauge, "quorcachepin_repair_timestamp_seconds",
                              "When check --repair last set something right."};
constexpr Metric kRepairLeft = {kGauge, "quorcachepin_repair_left",
                                "Things that it could not set right then."};
constexpr Metric kMounted = {kGauge, "quorcachepin_volume_mounted",
                             "Whether the volume is mounted."};
constexpr Metric kCached = {kGauge, "quorcachepin_volume_cached",
                            "Whether the volume has a cache."};
constexpr Metric kSet = {kGauge, "quorcachepin_pinned_units",
                         "Units that are set in the volume's bitmap file."};
constexpr Metric kWithDriver = {kGauge, "quorcachepin_pinned_driver_units",
                                "Those of the pinned units that the driver was given."};
constexpr Metric kResident = {kGauge, "quorcachepin_pinned_resident_units",
                              "Those of the pinned units that are in the cache."};

// What the cache counts itself, by its own names.
constexpr struct {
    const char* name;
    Metric metric;
} kCacheMetrics[] = {
    {"cacheUnits", {kGauge, "quorcachepin_cache_slots", "Units that the cache has room for."}},
    {"retiredUnits",
     {kGauge, "quorcachepin_cache_retired_slots", "Slots given up after errors of the SSD."}},
    {"residentUnits", {kGauge, "quorcachepin_cache_resident_units", "Units in the cache."}},
    {"unsettledUnits",
     {kGauge, "quorcachepin_cache_unsettled_units", "Units that a crash now would cost."}},
    {"reads", {kCounter, "quorcachepin_cache_reads_total", "Reads that reached the cache."}},
    {"writes", {kCounter, "quorcachepin_cache_writes_total", "Writes that reached the cache."}},
    {"hits", {kCounter, "quorcachepin_cache_hits_total", "Units read from the SSD."}},
    {"misses",
     {kCounter, "quorcachepin_cache_misses_total", "Units read from the disk into the cache."}},
    {"bypasses",
     {kCounter, "quorcachepin_cache_bypasses_total", "Units read from the disk past the cache."}},
    {"ssdErrors",
     {kCounter, "quorcachepin_cache_ssd_errors_total", "Reads and writes of the SSD that failed."}},
};

Labels OfVolume(const std::string& mountPath) {
    return {{"volume", mountPath}};
}

uint64_t Seconds(time_t moment) {
    return moment > 0 ? static_cast<uint64_t>(moment) : 0;
}

void AddService(const Status& status, Exposition& out) {
    const auto& services = status.services;
    // Of others' processes only root sees where they run: not seen is not down.
    if (services.empty() && geteuid() != 0) {
        return;
    }
    const auto all = [&services](bool ServiceProcess::*alive) {
        return !services.empty() &&
               std::all_of(services.begin(), services.end(),
                           [alive](const ServiceProcess& one) { return one.*alive; });
    };
    out.Add(kUp, services.empty() ? 0 : 1);
    out.Add(kIntake, all(&ServiceProcess::intakeAlive) && !status.standsStill ? 1 : 0);
    out.Add(kWorker, all(&ServiceProcess::workerAlive) ? 1 : 0);
}

void AddStore(const Status& status, Exposition& out) {
    const ConfigState& state = status.stored.state;
    if (status.queueKnown) {
        out.Add(kMessages, status.queue.messages);
        out.Add(kRoom, status.queue.limit / sizeof(Request));
    }
    out.Add(kReadable, status.stored.known ? 1 : 0);
    if (!status.stored.known) {
        return;
    }
    out.Add(kDefects, state.defects.size());
    out.Add(kNumbered, static_cast<uint64_t>(std::max<int64_t>(state.nextNumber, 0)));
    if (!state.queue.empty()) {
        out.Add(kOldest, strtoull(state.queue.front().number.c_str(), nullptr, 10));
    }
}

// What list, copies and queue say, by mount path.
struct Stored {
    std::map<std::string, uint64_t> files;
    std::map<std::string, uint64_t> requests;
    std::map<std::string, size_t> copied;
    std::set<std::string> mountPaths;  // all that one of them names
};

Stored ReadStored(const ServiceState& service, Exposition& out) {
    Stored stored;
    for (const auto& [mountPath, files] : service.state.pinned) {
        stored.files[mountPath] = files.size();
        stored.mountPaths.insert(mountPath);
    }
    for (const StoredRequest& request : service.state.queue) {
        ++stored.requests[request.mountPath];
        stored.mountPaths.insert(request.mountPath);
    }
    const std::vector<StoreCopy> copies = ListCopies(service.configPath);
    if (const StoreCopy* const copy = NewestGood(copies)) {
        stored.copied = copy->volumes;
        out.Add(kCopyMade, Seconds(copy->made));
    }
    if (const std::optional<RepairRecord> repair = ReadRepairRecord(service.configPath)) {
        out.Add(kRepaired, Seconds(repair->at));
        out.Add(kRepairLeft, repair->left);
    }
    for (const auto& [mountPath, files] : stored.copied) {
        stored.mountPaths.insert(mountPath);
    }
    return stored;
}

void AddStored(const Stored& stored, const std::string& mountPath, Exposition& out) {
    const Labels labels = OfVolume(mountPath);
    const auto number = [&mountPath](const auto& numbers) -> uint64_t {
        const auto found = numbers.find(mountPath);
        return found == numbers.end() ? 0 : found->second;
    };
    out.Add(kQueued, number(stored.requests), labels);
    out.Add(kFiles, number(stored.files), labels);
    out.Add(kCopied, number(stored.copied), labels);
}

void AddDevice(const VolumeView& view, Exposition& out) {
    const Labels labels = OfVolume(view.mountPath);
    const UnitCounts counts = CountUnits(view, view.bits);
    out.Add(kSet, counts.set, labels);
    // What a mute cache holds is not known, which is not 0.
    if (counts.cacheTells) {
        out.Add(kWithDriver, counts.withDriver, labels);
        out.Add(kResident, counts.resident, labels);
    }
    const std::map<std::string, uint64_t> stats = ReadCacheStats(view.cachePath);
    for (const auto& one : kCacheMetrics) {
        const auto found = stats.find(one.name);
        if (found != stats.end()) {
            out.Add(one.metric, found->second, labels);
        }
    }
}

void AddPresence(const std::string& mountPath, bool mounted, bool cached, Exposition& out) {
    out.Add(kMounted, mounted ? 1 : 0, OfVolume(mountPath));
    out.Add(kCached, cached ? 1 : 0, OfVolume(mountPath));
}

// A device that is mounted at several paths is counted once, at the first of them that list or
// queue name, so that a sum over the volumes holds.
void AddVolumes(const ServiceState& service, Exposition& out) {
    std::vector<Volume> volumes;
    std::set<std::string> devices;
    std::set<std::string> seen;  // a path may be mounted over
    const bool listable = ListVolumes(volumes);
    const Stored stored = service.known ? ReadStored(service, out) : Stored();
    std::set<std::string> named = stored.mountPaths;
    std::stable_partition(volumes.begin(), volumes.end(), [&stored](const Volume& volume) {
        return stored.mountPaths.count(volume.mountPath) > 0;
    });
    for (const Volume& volume : volumes) {
        const VolumeView view = LookAt(volume);
        const bool cached = !view.cachePath.empty();
        if ((!cached && named.count(volume.mountPath) == 0) ||
            !seen.insert(volume.mountPath).second) {
            continue;
        }
        named.insert(volume.mountPath);
        AddPresence(volume.mountPath, true, cached, out);
        if (cached && devices.insert(view.cachePath).second) {
            AddDevice(view, out);
        }
    }
    for (const std::string& mountPath : named) {
        if (service.known) {
            AddStored(stored, mountPath, out);
        }
        if (listable && seen.count(mountPath) == 0) {
            AddPresence(mountPath, false, false, out);
        }
    }
}

std::string Measure(const std::string& configPath) {
    Exposition out;
    const Status status = ReadServiceStatus(configPath);
    out.Add(kVersion, 1, {{"version", QUOR_VERSION}});
    out.Add(kWritten, Seconds(time(nullptr)));
    out.Add(kUnit, kUnitBytes);
    AddService(status, out);
    AddStore(status, out);
    AddVolumes(status.stored, out);
    return out.Text();
}

}  // namespace

int MetricsVerb(const MetricsOptions& options) {
    Record report;
    std::string why;
    std::string text = Measure(options.common.configPath);
    int status = kExitDone;
    report.Add("text", text).Add("written", IfAny(options.output));
    if (options.output.empty()) {
        text.pop_back();  // the last line is ended by the report
        report.Line(text);
    } else if (!ReplaceFile(options.output, text, "", why)) {
        status = Fail(report, kExitPartly, why);
    }
    return Finish("metrics", report, options.common.json, status);
}

}  // namespace client
