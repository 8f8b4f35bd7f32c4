// SPDX-License-Identifier: MIT
// The part of the examination that concerns volumes and their caches.
#include "client/pins/device_state.h"
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

void ExamineVolume(const Volume& volume, const VolumeView& view, std::vector<Finding>& findings) {
    const std::string subject = "volume " + Printable(volume.mountPath);
    const auto add = [&](Health health, const std::string& text, const std::string& remedy) {
        findings.push_back({subject, health, text, remedy});
    };
    const std::string whyNot = WhyNotMountPath(volume.mountPath);
    if (!whyNot.empty()) {
        add(Health::kBad, whyNot, "mount it elsewhere");
    }
    // Without a cache there is nothing else to look at.
    if (view.cachePath.empty()) {
        add(Health::kBad, "no cache is configured for it",
            "attach one; the service forgets the volume's pinned files at its next request");
        return;
    }
    // Attached and out of order: the service drops requests just as without one.
    if (!VolumeKeepsPins(volume)) {
        add(Health::kBad, CacheText(view) + ": it does not serve now, or does not keep pins",
            "bring the cache up; the service drops requests until then");
    }
    if (view.deviceSize == 0) {
        add(Health::kBad, "the size of " + Printable(view.cachePath) + " cannot be read",
            "see whether the device is there and readable");
    }
    const uint64_t bytes = view.bits.Bytes().size();
    if (view.deviceSize > 0 && view.fileBytes > bytes) {
        add(Health::kBad,
            Printable(view.bitmapPath) + " has " + std::to_string(view.fileBytes) +
                " bytes, the bitmap " + std::to_string(bytes) + ": every request fails",
            "remove the file, then pin again what is to be pinned");
        return;
    }
    if (VolumeKeepsPins(volume) && whyNot.empty() && view.deviceSize > 0) {
        add(Health::kGood, CacheText(view) + ", " + Counted(view.bits.Count(), "unit") + " pinned",
            "");
    }
}

}  // namespace

void ExamineVolumes(const std::string& configPath, std::vector<Finding>& findings) {
    std::vector<Volume> volumes;
    ConfigState state;
    std::string why;
    size_t others = 0;
    // A file that cannot be read has a finding of its own; the volumes are examined without it.
    if (!configPath.empty()) {
        ReadConfigState(configPath, state, why);
    }
    if (!ListVolumes(volumes)) {
        findings.push_back({"volumes", Health::kBad, "cannot be listed", "see the system log"});
        return;
    }
    for (const Volume& volume : volumes) {
        const VolumeView view = LookAt(volume);
        if (Concerns(volume, view, state)) {
            ExamineVolume(volume, view, findings);
        } else {
            ++others;
        }
    }
    // The service forgets what is pinned on a volume that it meets without a cache.
    for (const std::string& path : UnmountedPaths(state, volumes)) {
        findings.push_back(
            {"volume " + Printable(path), Health::kBad,
             Counted(state.pinned.at(path).size(), "file") + " pinned, and it is not mounted",
             "mount it before the service meets a request for it"});
    }
    if (others > 0) {
        findings.push_back(
            {"volumes", Health::kGood, Counted(others, "other") + " without a cache", ""});
    }
}

}  // namespace client
