// SPDX-License-Identifier: MIT
// map: the picture of a volume.
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include "client/map/picture.h"
#include "client/map/picture_svg.h"
#include "client/show/exit_status.h"
#include "client/show/output.h"
#include "client/show/progress.h"
#include "client/show/report.h"
#include "client/show/text.h"
#include "client/verbs/verbs.h"
#include "client/verbs/volume_page.h"
#include "client/volume/replace_file.h"
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

bool IsThere(const std::string& path) {
    struct stat status = {};
    return lstat(path.c_str(), &status) == 0;
}

// Writes the picture. What came into its place meanwhile stays, unless it may be replaced.
int Write(const std::string& text, const MapOptions& options, Record& report) {
    std::string why;
    const std::string& path = options.output;
    const bool written = options.force && IsThere(path) ? ReplaceFile(path, text, path, why)
                                                        : CreateFile(path, text, why);
    if (!written) {
        return Fail(report, kExitPartly, why);
    }
    report.Line("written to " + Printable(path));
    return kExitDone;
}

// Whether the picture is to be written where something is that it must not replace.
bool IsInTheWay(const MapOptions& options) {
    return !options.output.empty() && !options.force && IsThere(options.output);
}

// Draws on the terminal or into the file. Returns an exit status.
int Draw(const VolumeView& view, const Volume& volume, const std::vector<Volume>& volumes,
         const MapOptions& options, Record& report) {
    const time_t now = time(nullptr);
    if (EndsWith(options.output, ".html")) {
        return Write(MakeVolumePage(volume, volumes, options.common), options, report);
    }
    if (!options.output.empty()) {
        return Write(DrawSvg(MakePicture(view, now, kSvgColumns, kSvgRows)), options, report);
    }
    // The runs are the picture's JSON form.
    if (!options.common.json) {
        PrintMap(view, now, options.width > 0 ? options.width : TerminalColumns(STDOUT_FILENO));
    }
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
    } else if (IsInTheWay(options)) {
        Refuse(report, options.output, "is there already; --force replaces it");
    } else {
        report = Describe(view);
        status = Draw(view, *volume, volumes, options, report);
    }
    return Finish("map", report, options.common.json, status);
}

}  // namespace client
