// SPDX-License-Identifier: MIT
// map: the picture of a volume.
#include <unistd.h>

#include "client/map/picture.h"
#include "client/request/file_job.h"
#include "client/show/exit_status.h"
#include "client/show/output.h"
#include "client/show/progress.h"
#include "client/verbs/verbs.h"

namespace client {

namespace {

Json::Value RunsToJson(const UnitSet& set) {
    Json::Value list(Json::arrayValue);
    for (const UnitRun& run : set.Runs()) {
        Json::Value pair(Json::arrayValue);
        pair.append(Json::UInt64{run.first});
        pair.append(Json::UInt64{run.last});
        list.append(pair);
    }
    return list;
}

void AddToReport(const VolumeView& view, Json::Value& report) {
    report["volume"] = view.mountPath;
    report["units"] = Json::UInt64{view.bits.Room()};
    report["unitBytes"] = Json::UInt64{kUnitBytes};
    report["unitsSet"] = Json::UInt64{view.bits.Count()};
    report["setRuns"] = RunsToJson(view.bits);
    report["residentRuns"] =
        view.residency.known ? RunsToJson(view.residency.resident) : Json::Value();
    report["cacheBytes"] =
        view.residency.known ? Json::Value(Json::UInt64{view.residency.cacheSize}) : Json::Value();
}

}  // namespace

int MapVerb(const MapOptions& options) {
    Json::Value report = NewReport("map");
    std::vector<Volume> volumes;
    std::string why;
    int status = kExitDone;
    ListVolumes(volumes);
    const Volume* const volume = ResolveVolume(options.volume, volumes, why);
    const VolumeView view = volume == nullptr ? VolumeView() : LookAt(*volume);
    if (volume == nullptr) {
        status = kExitRefused;
        why = options.volume + ": " + why;
    } else if (view.deviceSize == 0 && !view.hasBitmap) {
        status = kExitRefused;
        why = volume->mountPath + ": it has neither a cache nor a bitmap file";
    } else if (!options.output.empty() && !WriteSvg(MakePicture(view), options.output, why)) {
        status = kExitPartly;
    }
    if (status != kExitDone) {
        Say(Printable(why));
        report["error"] = Printable(why);
    }
    if (options.common.json) {
        if (volume != nullptr) {
            AddToReport(view, report);
        }
        PrintReport(report, status);
    } else if (status == kExitDone && options.output.empty()) {
        PrintMap(view, options.width > 0 ? options.width : TerminalColumns(STDOUT_FILENO));
    } else if (status == kExitDone) {
        Print("written to " + Printable(options.output));
    }
    return status;
}

}  // namespace client
