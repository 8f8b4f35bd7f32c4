// SPDX-License-Identifier: MIT
// ready: whether a service that starts now finds every volume that it would otherwise forget.
#include <algorithm>
#include <set>

#include "client/service/config_state.h"
#include "client/service/service_process.h"
#include "client/show/exit_status.h"
#include "client/show/output.h"
#include "client/show/report.h"
#include "client/verbs/verbs.h"
#include "client/volume/volumes.h"

namespace client {

namespace {

// A volume that list or queue name and that is not as the service needs it.
struct Absent {
    std::string mountPath;
    bool mounted = false;  // then its cache is what lacks
    uint64_t files = 0;    // on the list
    uint64_t requests = 0;
};

std::vector<Absent> FindAbsent(const ConfigState& state, const std::vector<Volume>& volumes) {
    std::vector<Absent> found;
    std::set<std::string> named;
    for (const auto& [mountPath, files] : state.pinned) {
        named.insert(mountPath);
    }
    for (const StoredRequest& request : state.queue) {
        named.insert(request.mountPath);
    }
    for (const std::string& mountPath : named) {
        const Volume* const volume = FindMounted(mountPath, volumes);
        if (volume != nullptr && VolumeKeepsPins(*volume)) {
            continue;
        }
        const auto list = state.pinned.find(mountPath);
        const auto requests = std::count_if(
            state.queue.begin(), state.queue.end(),
            [&](const StoredRequest& request) { return request.mountPath == mountPath; });
        found.push_back({mountPath, volume != nullptr,
                         list == state.pinned.end() ? 0 : uint64_t{list->second.size()},
                         static_cast<uint64_t>(requests)});
    }
    return found;
}

std::string TextOf(const Absent& absent) {
    return Printable(absent.mountPath) +
           (absent.mounted ? " has no cache that keeps pins now" : " is not mounted") + " (" +
           Counted(absent.files, "pinned file") + ", " +
           Counted(absent.requests, "queued request") + ")";
}

Record Describe(const Absent& absent) {
    Record record;
    record.Add("volume", absent.mountPath)
        .Add("mounted", absent.mounted)
        .Add("files", Json::UInt64{absent.files})
        .Add("requests", Json::UInt64{absent.requests})
        .Line(TextOf(absent));
    return record;
}

// One line, as it goes into the journal.
std::string Complaint(const std::vector<Absent>& absent) {
    std::string text = "not ready: ";
    for (const Absent& one : absent) {
        text += (&one == absent.data() ? "" : ", ") + TextOf(one);
    }
    return text + "; a service that met a request for what is missing would forget its pins";
}

}  // namespace

int ReadyVerb(const ReadyOptions& options) {
    Record report;
    std::vector<Volume> volumes;
    ConfigState state;
    std::string path = options.common.configPath;
    std::string why;
    // One that is given may have yet to be written: then nothing is pinned.
    if (path.empty() && !FindConfigPath("", path, why)) {
        return Finish("ready", report, options.common.json, Fail(report, kExitNoService, why));
    }
    if (!ListVolumes(volumes)) {
        return Finish("ready", report, options.common.json,
                      Fail(report, kExitPartly, "the volumes cannot be listed"));
    }
    if (!ReadConfigState(path, state, why)) {
        return Finish("ready", report, options.common.json, Fail(report, kExitNoService, why));
    }
    const std::vector<Absent> absent = FindAbsent(state, volumes);
    report.List("absent", RecordsOf(absent, Describe));
    if (absent.empty()) {
        report.Line("ready: all volumes are there with their caches");
        return Finish("ready", report, options.common.json, kExitDone);
    }
    Say(Complaint(absent));
    return Finish("ready", report, options.common.json, kExitPartly);
}

}  // namespace client
