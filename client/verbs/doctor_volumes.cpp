// SPDX-License-Identifier: MIT
// The part of the examination that concerns volumes and their caches.
#include "client/pins/pin_health.h"
#include "client/request/file_check.h"
#include "client/service/config_state.h"
#include "client/show/output.h"
#include "client/verbs/doctor.h"
#include "client/volume/volume_view.h"
#include "util/space.h"

namespace client {

namespace {

// Whether there is something to say of the volume: it has a cache, a bitmap file, or pinned files.
bool Concerns(const Volume& volume, const VolumeView& view, const ConfigState& state) {
    return !view.cachePath.empty() || view.hasBitmap || state.pinned.count(volume.mountPath) > 0;
}

std::string CacheText(const VolumeView& view) {
    std::string text = "cached device " + Printable(view.cachePath);
    if (view.residency.known) {
        text += ", cache of " + HumanBytes(view.residency.cacheSize) + " holding " +
                Counted(view.residency.resident.Count(), "unit");
    }
    return text;
}

// What is pinned on the volume's device, and how far that is in force.
Finding ExaminePins(const DeviceState& device) {
    const VolumeView& view = device.view;
    const PinHealth pins = HealthOf(device);
    const std::string why = WhyNotInForce(view, device.listed.size());
    const std::string text = CacheText(view) + ", " + Counted(view.bits.Count(), "unit") +
                             " pinned: " + PinHealthName(pins) + (why.empty() ? "" : ": " + why);
    const Health health = ExitStatusOf(pins) == kExitDone ? Health::kGood
                          : pins == PinHealth::kNotCached ? Health::kDoubtful
                                                          : Health::kBad;
    return {"", health, text, RemedyFor(pins), pins};
}

// Says what is wrong with the volume itself. Returns whether what is pinned can be examined.
bool ExamineVolume(const Volume& volume, const DeviceState& device, const std::string& subject,
                   std::vector<Finding>& findings) {
    const VolumeView& view = device.view;
    const PinHealth pins = HealthOf(device);
    const auto add = [&](const std::string& text, const std::string& remedy, PinHealth state) {
        findings.push_back({subject, Health::kBad, text, remedy, state});
    };
    const std::string whyNot = WhyNotMountPath(volume.mountPath);
    if (!whyNot.empty()) {
        add(whyNot, "mount it elsewhere", PinHealth::kNothing);
    }
    // Without a cache there is nothing else to look at.
    if (view.cachePath.empty()) {
        add("no cache is configured for it",
            "attach one; the service forgets the volume's pinned files at its next request", pins);
        return false;
    }
    // Attached and out of order: the service drops requests just as without one.
    if (!view.keepsPins) {
        add(CacheText(view) + ": it does not serve now, or does not keep pins",
            "bring the cache up; the service drops requests until then", pins);
    }
    if (view.deviceSize == 0) {
        add("the size of " + Printable(view.cachePath) + " cannot be read",
            "see whether the device is there and readable", pins);
    }
    if (device.fileTooLong && view.deviceSize > 0) {
        add(Printable(view.bitmapPath) + " has " + std::to_string(view.fileBytes) +
                " bytes, the bitmap " + std::to_string(view.bits.Bytes().size()) +
                ": every request fails",
            "remove the file, then pin again what is to be pinned", PinHealth::kNothing);
    }
    return view.keepsPins && whyNot.empty() && view.deviceSize > 0 && !device.fileTooLong;
}

}  // namespace

void ExamineVolumes(const ConfigState& state, std::vector<Finding>& findings) {
    std::vector<Volume> volumes;
    size_t others = 0;
    bool anyCache = false;
    if (!ListVolumes(volumes)) {
        findings.push_back({"volumes", Health::kBad, "cannot be listed", "see the system log"});
        return;
    }
    for (const Volume& volume : volumes) {
        const VolumeView view = LookAt(volume);
        anyCache = anyCache || !view.cachePath.empty();
        if (!Concerns(volume, view, state)) {
            ++others;
            continue;
        }
        const std::string subject = "volume " + Printable(volume.mountPath);
        const DeviceState device = ReadDevice(state, volume, volumes);
        if (ExamineVolume(volume, device, subject, findings)) {
            findings.push_back(ExaminePins(device));
            findings.back().subject = subject;
        }
    }
    // The service forgets what is pinned on a volume that it meets without a cache.
    for (const std::string& path : UnmountedPaths(state, volumes)) {
        findings.push_back(
            {"volume " + Printable(path), Health::kBad,
             Counted(state.pinned.at(path).size(), "file") + " pinned, and it is not mounted",
             "mount it before the service meets a request for it"});
    }
    if (!anyCache) {
        findings.push_back({"volumes", Health::kDoubtful, "none of them has a cache",
                            "attach one to a volume: quorsoftcache(1)"});
    } else if (others > 0) {
        findings.push_back(
            {"volumes", Health::kGood, Counted(others, "other") + " without a cache", ""});
    }
}

}  // namespace client
