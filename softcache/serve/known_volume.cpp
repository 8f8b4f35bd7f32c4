// SPDX-License-Identifier: MIT
#include "softcache/serve/known_volume.h"

#include <string.h>

#include <algorithm>
#include <charconv>

#include "softcache/store/cache_files.h"

namespace softcache {

constexpr uint64_t kBeginning = 128 << 10;  // every file system says within it which one it is

// The 16 bytes that a UUID is on a device; empty for what has another shape.
static std::string BytesOf(std::string uuid) {
    uuid.erase(std::remove(uuid.begin(), uuid.end(), '-'), uuid.end());
    constexpr size_t kDigits = 32;
    std::string bytes;
    for (size_t i = 0; uuid.size() == kDigits && i < kDigits; i += 2) {
        uint8_t byte = 0;
        const char* end = uuid.data() + i + 2;
        if (std::from_chars(uuid.data() + i, end, byte, 16).ptr != end) {
            return "";
        }
        bytes += static_cast<char>(byte);
    }
    return bytes;
}

KnownVolume::KnownVolume(const Disk& backing, SsdStore& store) : backing_(backing), store_(store) {}

void KnownVolume::Written(const void* data, size_t size, uint64_t offset) {
    if (offset >= kBeginning) {
        return;
    }
    const std::lock_guard<std::mutex> lock(mutex_);
    wasWritten_ = true;
    const bool isTheSame = data != nullptr && !uuidBytes_.empty() &&
                           memmem(data, size, uuidBytes_.data(), uuidBytes_.size()) != nullptr;
    mayBeAnother_ = mayBeAnother_ || !isTheSame;
}

void KnownVolume::BeforeSync() {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (mayBeAnother_) {
        Learn();
    }
}

void KnownVolume::Settle() {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (wasWritten_) {
        Learn();
    }
}

// What cannot be found out, or not be written down, is tried again the next time.
void KnownVolume::Learn() {
    std::string uuid;
    if (ReadBackingUuid(backing_, uuid) && store_.SetUuid(uuid) == 0) {
        uuidBytes_ = BytesOf(uuid);
        wasWritten_ = mayBeAnother_ = false;
    }
}

}  // namespace softcache
