// SPDX-License-Identifier: MIT
// What the control requests said: the evidence that stats.json and `pinned` show.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <deque>
#include <mutex>
#include <optional>
#include <vector>

#include "platform/quorflashcache.h"

namespace softcache {

enum class ControlKind { kBitmap, kUnpin };

// One control request as it was answered.
struct ControlRequest {
    uint64_t seq;  // from 1 on, since the start or the last reset
    ControlKind kind;
    int result;       // 0 or -errno
    uint64_t amount;  // bytes of the bitmap, or ranges of the batch, as far as they could be read
};

// Everything on record at one moment.
struct ControlEvidence {
    uint64_t bitmaps = 0;                        // accepted
    uint64_t unpins = 0;                         // accepted batches
    uint64_t refused = 0;                        // answered with an error, whatever it was
    std::deque<ControlRequest> requests;         // the last kMaxRequests
    std::deque<UnpinRange> releasedRanges;       // the last kMaxReleasedRanges that were accepted
    std::optional<std::vector<uint8_t>> bitmap;  // the one in force, as it was received
};

constexpr size_t kMaxRequests = 4096;
constexpr size_t kMaxReleasedRanges = 65536;

// Safe to use from any number of threads.
class ControlRecord {
  public:
    // A bitmap request was answered with `result`. `bytes` is the length the caller gave; the
    // bitmap itself is kept when it was accepted.
    void AddBitmap(int result, uint32_t bytes, std::vector<uint8_t> bitmap);

    // An unpin batch was answered with `result`; its ranges are kept when it was accepted.
    void AddUnpin(int result, const std::vector<UnpinRange>& ranges);

    // A bitmap of an earlier run is in force again; no request is counted.
    void Restore(std::vector<uint8_t> bitmap);

    // Forgets requests and ranges. The bitmap stays: it is in force.
    void Reset();

    ControlEvidence Evidence() const;
    std::vector<uint8_t> Bitmap() const;  // empty when there is none
    size_t BitmapBytes() const;

  private:
    void AddRequest(ControlKind kind, int result, uint64_t amount);

    mutable std::mutex mutex_;
    uint64_t lastSeq_ = 0;
    ControlEvidence evidence_;
};

}  // namespace softcache
