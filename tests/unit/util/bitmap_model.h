// SPDX-License-Identifier: MIT
// A bitmap that shows writes past its ends, and the naive model that ranges are compared with.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <algorithm>
#include <vector>

#include "util/pin_bitmap.h"

// A bitmap between two stretches of guard bytes, which show a step too far in every build.
class GuardedBitmap {
  public:
    explicit GuardedBitmap(size_t size, uint8_t fill = 0) : memory_(kGuard, kGuardByte) {
        memory_.insert(memory_.end(), size, fill);
        memory_.insert(memory_.end(), kGuard, kGuardByte);
        memory_.shrink_to_fit();
        bitmap.data = memory_.data() + kGuard;
        bitmap.size = static_cast<uint32_t>(size);
    }

    bool GuardsStand() const {
        auto isGuard = [](uint8_t byte) { return byte == kGuardByte; };
        return std::all_of(memory_.begin(), memory_.begin() + kGuard, isGuard) &&
               std::all_of(memory_.end() - kGuard, memory_.end(), isGuard);
    }

    std::vector<uint8_t> Bytes() const {
        return std::vector<uint8_t>(bitmap.data, bitmap.data + bitmap.size);
    }

    // Numbers of the bits that are set.
    std::vector<uint64_t> Bits() const {
        std::vector<uint64_t> bits;
        for (uint64_t bit = 0; bit < uint64_t{bitmap.size} * 8; ++bit) {
            if (BitmapHasBit(bitmap, bit)) {
                bits.push_back(bit);
            }
        }
        return bits;
    }

    PinBitmap bitmap = {};

  private:
    static constexpr ptrdiff_t kGuard = 64;
    static constexpr uint8_t kGuardByte = 0xa5;

    std::vector<uint8_t> memory_;
};

// One entry a unit, looked at unit by unit: a unit belongs to a range when it holds a sector of it.
class NaiveModel {
  public:
    explicit NaiveModel(size_t bitmapSize) : units_(bitmapSize * 8, 0) {}

    void Change(uint64_t start, uint64_t count, bool value) {
        for (uint64_t unit = 0; unit < units_.size(); ++unit) {
            uint64_t firstSector = unit * 128;
            uint64_t lastSector = firstSector + 127;
            if (count != 0 && start <= lastSector && start + (count - 1) >= firstSector) {
                units_[unit] = value ? 1 : 0;
            }
        }
    }

    std::vector<uint8_t> Bytes() const {
        std::vector<uint8_t> bytes(units_.size() / 8, 0);
        for (size_t unit = 0; unit < units_.size(); ++unit) {
            if (units_[unit] != 0) {
                bytes[unit / 8] = static_cast<uint8_t>(bytes[unit / 8] + (1 << unit % 8));
            }
        }
        return bytes;
    }

  private:
    std::vector<uint8_t> units_;  // 1 = set
};
