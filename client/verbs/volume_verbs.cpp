// SPDX-License-Identifier: MIT
// reload, pend, release: requests about a whole volume.
#include "client/request/file_job.h"
#include "client/request/sending.h"
#include "client/service/service_state.h"
#include "client/show/exit_status.h"
#include "client/show/output.h"
#include "client/verbs/verbs.h"
#include "client/volume/volume_view.h"
#include "util/pin_bitmap.h"

namespace client {

namespace {

struct VolumeVerb {
    const char* name;
    RequestType type;
    bool needsCache;  // without one the service would drop the request and forget the volume
};

// Stores the volume that is meant. Returns false, with the reason in `why`, when the service must
// not be told of it.
bool ChooseVolume(const VolumeVerb& verb, const std::string& given, Volume& volume,
                  std::string& why) {
    std::vector<Volume> volumes;
    if (!ListVolumes(volumes)) {
        why = "the volumes cannot be listed";
        return false;
    }
    const Volume* const found = ResolveVolume(given, volumes, why);
    if (found == nullptr) {
        return false;
    }
    volume = *found;
    why = WhyNotMountPath(volume.mountPath);
    if (why.empty() && verb.needsCache && !VolumeKeepsPins(volume)) {
        why = "volume " + Printable(volume.mountPath) +
              " has no cache that keeps pins now; the service would drop the request and forget "
              "the volume's pinned files";
    }
    return why.empty();
}

// What a reload reads: the runs of set bits, as extents.
std::vector<FileMappingEntry> ReadingOf(const UnitSet& bits) {
    std::vector<FileMappingEntry> reading;
    for (const UnitRun& run : bits.Runs()) {
        reading.push_back({0, (run.last - run.first + 1) << kPinUnitSectorShift,
                           run.first << kPinUnitSectorShift, 0});
    }
    return reading;
}

// Shows what a reload came to. Returns an exit status.
int ShowReloaded(const Volume& volume, bool json, Json::Value& report) {
    const VolumeView view = LookAt(volume);
    const uint64_t set = view.bits.Count();
    const uint64_t resident = set - view.bits.CountWithout(view.residency.resident);
    const uint64_t driver = set - view.bits.CountWithout(view.residency.pinned);
    const bool tells = view.residency.known;
    report["unitsSet"] = static_cast<Json::UInt64>(set);
    report["unitsWithDriver"] = tells ? Json::Value(Json::UInt64{driver}) : Json::Value();
    report["unitsResident"] = tells ? Json::Value(Json::UInt64{resident}) : Json::Value();
    const bool good = !tells || (resident == set && driver == set);
    if (!json) {
        std::string text = "reloaded, " + Counted(set, "unit") + " set";
        if (tells) {
            text += ", with the driver " + std::to_string(driver) + ", in the cache " +
                    std::to_string(resident);
        }
        Print(Toned(Tone::kStrong, Printable(volume.mountPath)) + ": " +
              Toned(good ? Tone::kGood : Tone::kBad, text));
    }
    return good ? kExitDone : kExitPartly;
}

int SendVolumeRequest(const VolumeVerb& verb, const VolumeVerbOptions& options,
                      const Volume& volume, Json::Value& report) {
    const ServiceState before =
        options.send.wait ? ReadServiceState(options.common.configPath) : ServiceState();
    if (options.send.wait && !before.known) {
        Say("--wait: " + before.why + "; nothing was sent");
        return kExitNoService;
    }
    std::vector<Message> messages = {VolumeMessage(verb.type, volume.mountPath)};
    if (options.send.wait) {
        messages[0].reading = ReadingOf(LookAt(volume).bits);
    }
    size_t sent = 0;
    const int status = SendAndWait(messages, before.configPath, options.send, sent);
    report["sent"] = static_cast<Json::UInt64>(sent);
    if (status != kExitDone) {
        return status;
    }
    if (options.send.wait) {
        return ShowReloaded(volume, options.common.json, report);
    }
    if (!options.common.json) {
        Print(Printable(volume.mountPath) + ": " + verb.name + " sent");
    }
    return status;
}

int RunVolumeVerb(const VolumeVerb& verb, const VolumeVerbOptions& options) {
    Json::Value report = NewReport(verb.name);
    Volume volume;
    std::string why;
    int status = kExitRefused;
    report["sent"] = 0;
    if (ChooseVolume(verb, options.volume, volume, why)) {
        report["volume"] = volume.mountPath;
        status = SendVolumeRequest(verb, options, volume, report);
    } else {
        Say(TonedError(Tone::kBad, "refused") + " " + Printable(options.volume) + ": " + why);
    }
    if (options.common.json) {
        PrintReport(report, status);
    }
    return status;
}

}  // namespace

int ReloadVerb(const VolumeVerbOptions& options) {
    return RunVolumeVerb({"reload", kRequestReloadPinBlocks, true}, options);
}

int PendVerb(const VolumeVerbOptions& options) {
    return RunVolumeVerb({"pend", kRequestAddPendingSpace, false}, options);
}

int ReleaseVerb(const VolumeVerbOptions& options) {
    return RunVolumeVerb({"release", kRequestRemovePendingSpace, false}, options);
}

}  // namespace client
