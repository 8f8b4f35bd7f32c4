// SPDX-License-Identifier: MIT
// map: the picture of a volume.
#include <unistd.h>

#include "client/map/picture.h"
#include "client/show/exit_status.h"
#include "client/show/output.h"
#include "client/show/progress.h"
#include "client/show/report.h"
#include "client/verbs/verbs.h"
#include "client/volume/volume_view.h"

namespace client {

namespace {

Record Describe(const VolumeView& view) {
    const bool tells = view.residency.known;
    return Record()
        .Add("volume", view.mountPath)
        .Add("units", view.bits.Room())
        .Add("unitBytes", kUnitBytes)
        .Add("unitsSet", view.bits.Count())
        .Add("setRuns", RunsToJson(view.bits.Runs()))
        .Add("residentRuns", tells ? RunsToJson(view.residency.resident.Runs()) : Json::Value())
        .Add("cacheBytes", IfKnown(tells, view.residency.cacheSize));
}

// Draws on the terminal or into the file. Returns an exit status.
int Draw(const VolumeView& view, const MapOptions& options, Record& report) {
    std::string why;
    if (options.output.empty()) {
        // The runs are the picture's JSON form.
        if (!options.common.json) {
            PrintMap(view, options.width > 0 ? options.width : TerminalColumns(STDOUT_FILENO));
        }
        return kExitDone;
    }
    if (!WriteSvg(MakePicture(view), options.output, why)) {
        return Fail(report, kExitPartly, Printable(why));
    }
    report.Line("written to " + Printable(options.output));
    return kExitDone;
}

}  // namespace

int MapVerb(const MapOptions& options) {
    Record report;
    std::vector<Volume> volumes;
    std::string why;
    int status = kExitRefused;
    ListVolumes(volumes);
    const Volume* const volume = ResolveVolume(options.volume, volumes, why);
    const VolumeView view = volume == nullptr ? VolumeView() : LookAt(*volume);
    if (volume == nullptr) {
        Refuse(report, options.volume, why);
        // With either of them there is something to draw.
    } else if (view.deviceSize == 0 && !view.hasBitmap) {
        Refuse(report, volume->mountPath, "it has neither a cache nor a bitmap file");
    } else {
        report = Describe(view);
        status = Draw(view, options, report);
    }
    return Finish("map", report, options.common.json, status);
}

}  // namespace client
