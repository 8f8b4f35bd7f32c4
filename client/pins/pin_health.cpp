// SPDX-License-Identifier: MIT
#include "client/pins/pin_health.h"

namespace client {

namespace {

constexpr struct {
    const char* name;
    ExitStatus status;
    Tone tone;
    const char* remedy;
} kHealths[] = {
    {"nothing pinned", kExitDone, Tone::kGood, ""},
    {"pinned and in the cache", kExitDone, Tone::kGood, ""},
    {"pinned", kExitDone, Tone::kGood, ""},
    {"pinned, not in the cache yet", kExitNotCached, Tone::kWarn,
     "quorcachepinctl reload --missing"},
    {"more pinned than the cache holds", kExitOverfull, Tone::kBad,
     "unpin files, or start the cache with a larger --ssd-size"},
    {"list and bitmap differ", kExitPartly, Tone::kBad, "quorcachepinctl check --repair"},
    {"pinned, not in force", kExitNotInForce, Tone::kBad,
     "bring the cache up, then quorcachepinctl check --repair --restart"},
};

const auto& RowOf(PinHealth health) {
    return kHealths[static_cast<size_t>(health)];
}

}  // namespace

const char* PinHealthName(PinHealth health) {
    return RowOf(health).name;
}

ExitStatus ExitStatusOf(PinHealth health) {
    return RowOf(health).status;
}

Tone ToneOf(PinHealth health) {
    return RowOf(health).tone;
}

std::string RemedyFor(PinHealth health) {
    return RowOf(health).remedy;
}

std::string WhyNotInForce(const VolumeView& view, size_t listed) {
    const uint64_t set = view.bits.Count();
    if (listed == 0 && set == 0) {
        return "";
    }
    if (view.cachePath.empty()) {
        return "the volume has no cache";
    }
    if (!view.keepsPins) {
        return "the cache does not serve now, or does not keep pins";
    }
    if (view.deviceSize == 0) {
        return "the size of the cached device cannot be read";
    }
    if (view.residency.known && view.bits.CountWithout(view.residency.pinned) > 0) {
        return "the driver lacks bits of the bitmap file";
    }
    return "";
}

PinHealth HealthOf(const VolumeView& view, size_t listed, uint64_t absent) {
    if (!WhyNotInForce(view, listed).empty()) {
        return PinHealth::kNotInForce;
    }
    const uint64_t set = view.bits.Count();
    // Pins that nobody asked for any more take room, and keep nothing else from being in force.
    if (view.residency.known && view.residency.pinned.CountWithout(view.bits) > 0) {
        return PinHealth::kDiffers;
    }
    if (set == 0) {
        return listed > 0 ? PinHealth::kDiffers : PinHealth::kNothing;
    }
    if (IsMoreThanCache(view.residency, set)) {
        return PinHealth::kOverfull;
    }
    if (!view.residency.known) {
        return PinHealth::kPinned;
    }
    return absent > 0 ? PinHealth::kNotCached : PinHealth::kCached;
}

PinHealth HealthOf(const DeviceState& device) {
    const PinHealth health = HealthOf(device.view, device.listed.size(), device.absent.Count());
    // Of these two the pins that nothing enforces are the worse.
    return health != PinHealth::kNotInForce && !Agrees(device) ? PinHealth::kDiffers : health;
}

}  // namespace client
