// SPDX-License-Identifier: MIT
#include "softcache/serve/control_record.h"

namespace softcache {

template <typename T>
static void KeepLast(std::deque<T>& entries, size_t most) {
    while (entries.size() > most) {
        entries.pop_front();
    }
}

void ControlRecord::AddRequest(ControlKind kind, int result, uint64_t amount) {
    evidence_.requests.push_back({++lastSeq_, kind, result, amount});
    KeepLast(evidence_.requests, kMaxRequests);
    if (result != 0) {
        ++evidence_.refused;
    }
}

void ControlRecord::AddBitmap(int result, uint32_t bytes, std::vector<uint8_t> bitmap) {
    const std::lock_guard<std::mutex> lock(mutex_);
    AddRequest(ControlKind::kBitmap, result, bytes);
    if (result == 0) {
        ++evidence_.bitmaps;
        evidence_.bitmap = std::move(bitmap);
    }
}

void ControlRecord::AddUnpin(int result, const std::vector<UnpinRange>& ranges) {
    const std::lock_guard<std::mutex> lock(mutex_);
    AddRequest(ControlKind::kUnpin, result, ranges.size());
    if (result == 0) {
        ++evidence_.unpins;
        std::deque<UnpinRange>& released = evidence_.releasedRanges;
        released.insert(released.end(), ranges.begin(), ranges.end());
        KeepLast(released, kMaxReleasedRanges);
    }
}

void ControlRecord::Restore(std::vector<uint8_t> bitmap) {
    const std::lock_guard<std::mutex> lock(mutex_);
    evidence_.bitmap = std::move(bitmap);
}

void ControlRecord::Reset() {
    const std::lock_guard<std::mutex> lock(mutex_);
    ControlEvidence fresh;
    fresh.bitmap = std::move(evidence_.bitmap);
    evidence_ = std::move(fresh);
    lastSeq_ = 0;
}

ControlEvidence ControlRecord::Evidence() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return evidence_;
}

std::vector<uint8_t> ControlRecord::Bitmap() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return evidence_.bitmap.value_or(std::vector<uint8_t>());
}

size_t ControlRecord::BitmapBytes() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return evidence_.bitmap ? evidence_.bitmap->size() : 0;
}

}  // namespace softcache
