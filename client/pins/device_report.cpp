// SPDX-License-Identifier: MIT
#include "client/pins/device_report.h"

#include <algorithm>

#include "client/pins/pin_health.h"
#include "client/show/output.h"
#include "client/volume/plain_links.h"

namespace client {

namespace {

uint64_t MissingOf(const DeviceState& device, const PinnedFile& pinned) {
    return device.missing.CountIn(pinned.units);
}

Record DescribeListed(const DeviceState& device, const PinnedFile& pinned) {
    return DescribeEntry(pinned)
        .Add("units", CountUnits(pinned.units))
        .Add("unitsMissing", MissingOf(device, pinned))
        .Add("unitsAbsent",
             IfKnown(device.view.residency.known, device.absent.CountIn(pinned.units)));
}

// What keeps the pins from being in force, or in the cache.
void AddCacheFindings(const DeviceState& device, Record& record) {
    const VolumeView& view = device.view;
    const std::string notInForce = WhyNotInForce(view, device.listed.size());
    if (!notInForce.empty()) {
        record.Line(Toned(Tone::kBad, notInForce));
    }
    if (IsMoreThanCache(view.residency, view.bits.Count())) {
        record.Line(Toned(Tone::kBad, HumanBytes(view.bits.Count() * kUnitBytes) +
                                          " are pinned, the cache holds " +
                                          HumanBytes(view.residency.cacheSize)));
    }
    if (const uint64_t absent = device.absent.Count()) {
        record.Line(Toned(Tone::kWarn, Counted(absent, "unit") + " of " +
                                           std::to_string(view.bits.Count()) +
                                           " not in the cache"));
    }
}

// One line for each way in which bitmap file, driver and list differ.
void AddFindings(const DeviceState& device, Record& record) {
    const VolumeView& view = device.view;
    const auto bad = [&record](const std::string& text) { record.Line(Toned(Tone::kBad, text)); };
    const auto warn = [&record](const std::string& text) { record.Line(Toned(Tone::kWarn, text)); };
    // Missing units stand with their files, these belong to none.
    if (const uint64_t surplus = device.surplus.Count()) {
        bad(Counted(surplus, "unit") + " set that no pinned file needs: " +
            HumanBytes(surplus * kUnitBytes) + " of the cache held for nothing");
    }
    AddCacheFindings(device, record);
    if (const uint64_t lacks = device.driverLacks.Count()) {
        bad(Counted(lacks, "unit") + " set in the file and not in the driver's bitmap");
    }
    if (const uint64_t driver = device.driverSurplus.Count()) {
        bad(Counted(driver, "unit") + " set in the driver's bitmap and not in the file");
    }
    if (device.fileTooLong) {
        bad(Printable(view.bitmapPath) + " has " + std::to_string(view.fileBytes) +
            " bytes, the bitmap " + std::to_string(view.bits.Bytes().size()) +
            ": every request fails until the file is removed or repaired");
    }
    // Without a cache the bitmap's end is not known, so nothing is known to lie behind it.
    if (device.withoutBit > 0 && view.deviceSize > 0) {
        warn(Counted(device.withoutBit, "unit") +
             " at the device's end, for which there are no bits");
    }
    // A request that is still queued explains what it has not done yet.
    if (device.requests > 0) {
        warn(Counted(device.requests, "request") +
             " of the volume still queued; differences may be theirs");
    }
    if (!device.uncertain.empty()) {
        warn(device.uncertain);
    }
}

void AddNumbers(const DeviceState& device, Record& record) {
    // Zero would say that the driver lacks nothing, which nobody knows of a mute one.
    const bool tells = device.view.residency.known;
    record.Add("requestsQueued", device.requests)
        .Add("unitsSet", device.view.bits.Count())
        .Add("unitsNeeded", device.needed.Count())
        .Add("unitsMissing", device.missing.Count())
        .Add("unitsAbsent", IfKnown(tells, device.absent.Count()))
        .Add("cacheBytes", IfKnown(tells, device.view.residency.cacheSize))
        .Add("unitsSurplus", device.surplus.Count())
        .Add("unitsWithoutBit", device.withoutBit)
        .Add("unitsDriverLacks", IfKnown(tells, device.driverLacks.Count()))
        .Add("unitsDriverSurplus", IfKnown(tells, device.driverSurplus.Count()))
        .Add("bitmapFileTooLong", device.fileTooLong)
        .Add("uncertain", IfAny(device.uncertain));
}

// The mount path by which the device is known here: the first with listed files, else the first.
std::string MainPath(const DeviceState& device) {
    for (const Volume* const mount : device.mounts) {
        for (const PinnedFile& pinned : device.listed) {
            if (pinned.mountPath == mount->mountPath) {
                return mount->mountPath;
            }
        }
    }
    return device.mounts.front()->mountPath;
}

// A file is good when it lies where it was, all its bits are set and in force, and what was written
// of it is in the cache, as far as that tells.
bool IsGood(const DeviceState& device, const PinnedFile& pinned, bool inForce) {
    return inForce && Remark(device, pinned).empty() && device.absent.CountIn(pinned.units) == 0;
}

// The headline: the word for the state, and the numbers.
std::string Summary(const DeviceState& device, PinHealth health, const std::string& name) {
    const auto good =
        std::count_if(device.listed.begin(), device.listed.end(), [&](const PinnedFile& pinned) {
            return IsGood(device, pinned, health != PinHealth::kNotInForce);
        });
    std::string text = PinHealthName(health);
    if (health != PinHealth::kNothing) {
        text += ": " + std::to_string(good) + " of " + Counted(device.listed.size(), "file") +
                " good, " + Counted(device.view.bits.Count(), "unit") + " set";
    }
    for (const Volume* const mount : device.mounts) {
        // An operator who looks for a path should find it here.
        text += mount->mountPath == name ? "" : "; also mounted at " + Printable(mount->mountPath);
    }
    return text;
}

Json::Value MountPaths(const DeviceState& device) {
    Json::Value paths(Json::arrayValue);
    for (const Volume* const mount : device.mounts) {
        paths.append(mount->mountPath);
    }
    return paths;
}

}  // namespace

std::string Remark(const DeviceState& device, const PinnedFile& pinned) {
    // Fate and units are two matters: a renamed file may lack units as well.
    const uint64_t missing = MissingOf(device, pinned);
    std::string text = pinned.fate == Fate::kThere ? "" : FateName(pinned.fate);
    text += pinned.why.empty() ? "" : ": " + pinned.why;
    if (missing > 0) {
        text += (text.empty() ? "" : "; ") + Counted(missing, "unit") + " of " +
                std::to_string(CountUnits(pinned.units)) +
                " not set: it grew, was rewritten, or a unit it shares was cleared";
    }
    return text;
}

Record DescribeEntry(const PinnedFile& pinned) {
    return Record()
        .Add("path", ListedPath(pinned))
        .Add("volume", pinned.mountPath)
        .Add("inode", pinned.entry.inode)
        .Add("fate", FateName(pinned.fate))
        .Add("reason", IfAny(pinned.why));
}

Record DescribeDevice(const DeviceState& device) {
    Record record;
    std::vector<Record> files;
    const PinHealth health = HealthOf(device);
    const std::string name = MainPath(device);
    const std::string remedy = RemedyFor(health);
    record
        .Headline(Toned(Tone::kStrong, Printable(name)) + ": " +
                  Toned(ToneOf(health), Summary(device, health, name)))
        .Add("volume", name)
        .Add("mountPaths", MountPaths(device))
        .Add("mounted", true)
        .Add("state", PinHealthName(health))
        .Add("agrees", Agrees(device))
        .Add("remedy", IfAny(remedy));
    for (const PinnedFile& pinned : device.listed) {
        const std::string remark = Remark(device, pinned);
        files.push_back(DescribeListed(device, pinned));
        // Good files are only counted: thousands of lines would hide the bad one.
        if (!remark.empty()) {
            const std::string path = pinned.mountPath == name && !IsLinkName(pinned.entry.relative)
                                         ? pinned.entry.relative
                                         : ListedPath(pinned);
            record.Line(Printable(path) + ": " + Toned(Tone::kBad, remark));
        }
    }
    record.List("files", files);
    AddNumbers(device, record);
    AddFindings(device, record);
    return remedy.empty() ? record : record.Line("remedy: " + remedy);
}

Record DescribeUnmounted(const std::string& mountPath, const std::vector<PinnedFile>& entries) {
    return Record()
        .Headline(Toned(Tone::kStrong, Printable(mountPath)) + ": " +
                  Toned(Tone::kBad, Counted(entries.size(), "file") +
                                        " listed, cannot be looked at: the volume " +
                                        WhyNotThere(mountPath)))
        .Add("volume", mountPath)
        .Add("mounted", false)
        .Add("state", "not mounted")
        .Add("agrees", false)
        .List("files", RecordsOf(entries, DescribeEntry));
}

}  // namespace client
