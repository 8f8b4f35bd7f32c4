// SPDX-License-Identifier: MIT
// reload, pend, release: requests about a whole volume.
#include <set>

#include "client/pins/pin_health.h"
#include "client/request/file_check.h"
#include "client/request/packing.h"
#include "client/request/reading.h"
#include "client/request/sending.h"
#include "client/service/config_state.h"
#include "client/service/queue.h"
#include "client/show/exit_status.h"
#include "client/show/output.h"
#include "client/show/poll.h"
#include "client/show/report.h"
#include "client/verbs/verbs.h"
#include "client/volume/volume_view.h"

namespace client {

namespace {

struct VolumeVerb {
    const char* name;
    RequestType type;
    bool needsCache;  // without one the service would drop the request and forget the volume
};

// Stores the volume that is meant. Returns false, with the reason in `why`, when no request may
// name it.
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

// Describes what a reload came to. Returns an exit status.
int AddReloaded(const Volume& volume, Record& report) {
    const VolumeView view = LookAt(volume);
    const UnitCounts counts = CountUnits(view, view.bits);
    // |A mute cache is believed: the request was done, and nothing says otherwise.
    const bool good = !counts.cacheTells ||
                      (counts.resident == counts.units && counts.withDriver == counts.units);
    report.Headline(Toned(Tone::kStrong, Printable(volume.mountPath)) + ": " +
                    Toned(good ? Tone::kGood : Tone::kBad, "reloaded"));
    AddCounts(counts, report);
    return good ? kExitDone : kExitPartly;
}

int SendVolumeRequest(const VolumeVerb& verb, const VolumeVerbOptions& options,
                      const Volume& volume, Record& report) {
    // Nothing is sent that could not be waited for.
    const ServiceState before =
        options.send.wait ? ReadServiceState(options.common.configPath) : ServiceState();
    if (options.send.wait && !before.known) {
        return Fail(report, kExitNoService, "--wait: " + before.why + "; nothing was sent");
    }
    std::vector<Message> messages = {VolumeMessage(verb.type, volume.mountPath)};
    if (options.send.wait) {
        // For the progress bar alone: the service reads every set unit.
        messages[0].reading = ReadingOf(LookAt(volume).bits);
    }
    size_t sent = 0;
    const int status = SendAndWait(messages, before.configPath, options.send, sent);
    report.Add("sent", sent);
    if (status == kExitDone && options.send.wait) {
        return AddReloaded(volume, report);
    }
    if (status == kExitDone) {
        report.Line(Printable(volume.mountPath) + ": " + verb.name + " sent");
    }
    return status;
}

int RunVolumeVerb(const VolumeVerb& verb, const VolumeVerbOptions& options) {
    Record report;
    Volume volume;
    std::string why;
    int status = kExitRefused;
    report.Add("sent", 0);
    if (ChooseVolume(verb, options.volume, volume, why)) {
        report.Add("volume", volume.mountPath);
        status = SendVolumeRequest(verb, options, volume, report);
    } else {
        Refuse(report, options.volume, why);
    }
    return Finish(verb.name, report, options.common.json, status);
}

// The volumes of which pinned units are not in the cache, one of each device.
std::vector<Volume> FindIncomplete(const std::vector<Volume>& volumes) {
    std::vector<Volume> incomplete;
    std::set<std::string> seen;
    for (const Volume& volume : volumes) {
        const VolumeView view = LookAt(volume);
        const UnitCounts counts = CountUnits(view, view.bits);
        if (counts.cacheTells && counts.resident < counts.units && VolumeKeepsPins(volume) &&
            WhyNotMountPath(volume.mountPath).empty() && seen.insert(view.cachePath).second) {
            incomplete.push_back(volume);
        }
    }
    return incomplete;
}

// The volumes with bits that no cache keeps, and why, in words.
std::vector<std::string> FindNotInForce(const std::vector<Volume>& volumes) {
    std::vector<std::string> texts;
    for (const Volume& volume : volumes) {
        const VolumeView view = LookAt(volume);
        const std::string why = view.bits.Count() == 0 ? "" : WhyNotInForce(view, 0);
        if (!why.empty()) {
            texts.push_back(Printable(volume.mountPath) +
                            ": what is pinned is not in force: " + why);
        }
    }
    return texts;
}

// Right after its start the service may have yet to make its queue.
void WaitForQueue(unsigned patience) {
    std::string why;
    const SignalNote note;
    const Poll poll(0.1, patience, &note);
    while (OpenServerQueue(why) < 0 && poll.Again()) {
    }
}

int ReloadMissing(const VolumeVerbOptions& options) {
    Record report;
    std::vector<Volume> volumes;
    std::vector<Message> messages;
    std::vector<std::string> names;
    size_t sent = 0;
    int status = kExitDone;
    if (!ListVolumes(volumes)) {
        return Finish("reload", report, options.common.json,
                      Fail(report, kExitNoService, "the volumes cannot be listed"));
    }
    for (const Volume& volume : FindIncomplete(volumes)) {
        messages.push_back(VolumeMessage(kRequestReloadPinBlocks, volume.mountPath));
        messages.back().reading = ReadingOf(LookAt(volume).bits);
        names.push_back(volume.mountPath);
        report.Line(Printable(volume.mountPath) + ": reload of what is missing");
    }
    // Where no cache keeps the pins, nothing can be read into it.
    const std::vector<std::string> lacking = FindNotInForce(volumes);
    for (const std::string& text : lacking) {
        Say(text);
    }
    if (messages.empty()) {
        report.Line(lacking.empty() ? "all pinned units are in their caches" : "nothing was sent");
        status = lacking.empty() ? kExitDone : kExitNotInForce;
    } else {
        WaitForQueue(options.send.patience);
        const ServiceState before =
            options.send.wait ? ReadServiceState(options.common.configPath) : ServiceState();
        status = options.send.wait && !before.known
                     ? Fail(report, kExitNoService, "--wait: " + before.why + "; nothing was sent")
                     : SendAndWait(messages, before.configPath, options.send, sent);
    }
    report.Add("sent", Json::UInt64{sent}).Add("volumes", TextsToJson(names));
    return Finish("reload", report, options.common.json, status);
}

}  // namespace

int ReloadVerb(const VolumeVerbOptions& options) {
    if (options.missing) {
        return ReloadMissing(options);
    }
    return RunVolumeVerb({"reload", kRequestReloadPinBlocks, true}, options);
}

int PendVerb(const VolumeVerbOptions& options) {
    return RunVolumeVerb({"pend", kRequestAddPendingSpace, false}, options);
}

int ReleaseVerb(const VolumeVerbOptions& options) {
    return RunVolumeVerb({"release", kRequestRemovePendingSpace, false}, options);
}

}  // namespace client
