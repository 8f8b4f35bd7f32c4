// SPDX-License-Identifier: MIT
// How far what is pinned on a device is in force: one word and one exit status, whichever verb is
// asked. List, bitmap file, driver and cache all have their say.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <string>

#include "client/pins/device_state.h"
#include "client/show/exit_status.h"
#include "client/show/output.h"

namespace client {

// From the best to the worst; where several hold, the worst counts.
enum class PinHealth {
    kNothing,     // nothing is pinned
    kCached,      // pinned, in force, and in the cache
    kPinned,      // pinned and in force, by a cache that does not tell what it holds
    kNotCached,   // in force, and units are not in the cache yet
    kOverfull,    // in force, and more than the cache holds
    kDiffers,     // files, list and bitmap file do not agree
    kNotInForce,  // there is no cache, it does not serve or keeps no pins, or it lacks bits
};

// Returns the word that every verb uses, as in "pinned and in the cache".
const char* PinHealthName(PinHealth health);

// Returns kExitDone up to kPinned, kExitPartly for kDiffers; each other has a status of its own.
ExitStatus ExitStatusOf(PinHealth health);

Tone ToneOf(PinHealth health);

// Returns what helps, a command or a few words; empty when nothing is wrong.
std::string RemedyFor(PinHealth health);

// Judges a device.
PinHealth HealthOf(const DeviceState& device);

// Judges a volume by what its cache and its bitmap file show, without its files: `listed` are on
// the list, `absent` units are known not to be in the cache. Whether the files' extents agree with
// the bitmap is then not known: kDiffers says that files are listed and no bit is set, or that the
// driver has bits that the bitmap file has not.
PinHealth HealthOf(const VolumeView& view, size_t listed, uint64_t absent);

// Returns why the pins are not in force, as the rest of a sentence; empty when they are, or when
// nothing is pinned.
std::string WhyNotInForce(const VolumeView& view, size_t listed);

}  // namespace client
