// SPDX-License-Identifier: MIT
// The last pin bitmap on disk: `<ssd>.pins`, the raw bytes as they were received and nothing else.
// It is all of the cache's state that outlives the process.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <string>
#include <vector>

namespace softcache {

// The file for the cache on `ssdPath`.
std::string PinStorePath(const std::string& ssdPath);

// Replaces the file atomically; on stable storage when it returns 0. Else -errno, and the old one
// stands (the new one does when only the directory could not be brought to stable storage).
int StorePins(const std::string& path, const std::vector<uint8_t>& bitmap);

enum class PinLoad {
    kLoaded,
    kAbsent,    // no such file: nothing was ever pinned
    kUnusable,  // too long for this device, or not to be read; `reason` says which
};

// Reads a bitmap of at most `maxBytes`, the device's own size (a shorter one is from before the
// device grew). `bitmap` is touched only by kLoaded, `reason` only by kUnusable.
PinLoad LoadPins(const std::string& path, size_t maxBytes, std::vector<uint8_t>& bitmap,
                 std::string& reason);

}  // namespace softcache
