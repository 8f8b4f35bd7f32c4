// SPDX-License-Identifier: MIT
// reload, pend, release: requests about a whole volume.
#include "client/exit_status.h"
#include "client/output.h"
#include "client/sending.h"
#include "client/verbs.h"

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

int RunVolumeVerb(const VolumeVerb& verb, const VolumeVerbOptions& options) {
    Json::Value report = NewReport(verb.name);
    Volume volume;
    std::string why;
    size_t sent = 0;
    int status = kExitRefused;
    if (!ChooseVolume(verb, options.volume, volume, why)) {
        Say(Printable(options.volume) + ": " + why);
        report["refused"]["path"] = Printable(options.volume);
        report["refused"]["reason"] = why;
    } else {
        status = SendAll({VolumeMessage(verb.type, volume.mountPath)}, options.sendPatience, sent);
        report["volume"] = volume.mountPath;
    }
    report["sent"] = static_cast<Json::UInt64>(sent);
    if (options.common.json) {
        PrintReport(report, status);
    } else if (sent > 0) {
        Print(Printable(volume.mountPath) + ": " + verb.name + " sent");
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
