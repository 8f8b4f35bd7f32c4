// SPDX-License-Identifier: MIT
// Ranges of a bitmap beside memset, and the walk of an empty bitmap beside reading its words.
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <vector>

#include "bench/bench.h"
#include "daemon/cache_warming.h"
#include "daemon/service.h"
#include "util/pin_bitmap.h"

namespace {

constexpr int64_t kSizes[] = {int64_t{64} << 10, int64_t{1} << 20, int64_t{16} << 20,
                              int64_t{128} << 20};
constexpr uint64_t kSectorsOfByte = uint64_t{8} << kPinUnitSectorShift;

// A bitmap whose pages are all there.
class Bitmap {
  public:
    explicit Bitmap(int64_t size) : bytes_(static_cast<size_t>(size), 1) {
        memset(bytes_.data(), 0, bytes_.size());
        record = {bytes_.data(), static_cast<uint32_t>(size)};
    }

    PinBitmap record = {};

  private:
    std::vector<uint8_t> bytes_;
};

void SetAll(benchmark::State& state, int64_t size) {
    Bitmap bitmap(size);
    for (auto _ : state) {
        BitmapSetRange(&bitmap.record, 0, static_cast<uint64_t>(size) * kSectorsOfByte);
        benchmark::ClobberMemory();
    }
}

void FillAll(benchmark::State& state, int64_t size) {
    Bitmap bitmap(size);
    for (auto _ : state) {
        memset(bitmap.record.data, 0xff, bitmap.record.size);
        benchmark::ClobberMemory();
    }
}

// 16 units at a time, over and over from the start to the end.
void SetTwoBytes(benchmark::State& state, int64_t size) {
    Bitmap bitmap(size);
    uint64_t byte = 0;
    for (auto _ : state) {
        BitmapSetRange(&bitmap.record, byte * kSectorsOfByte, 2 * kSectorsOfByte);
        byte = (byte + 2) % static_cast<uint64_t>(size);
        benchmark::ClobberMemory();
    }
}

void FillTwoBytes(benchmark::State& state, int64_t size) {
    Bitmap bitmap(size);
    uint64_t byte = 0;
    size_t count = 2;
    benchmark::DoNotOptimize(count);  // a call of memset, as nobody knows how many bytes come
    for (auto _ : state) {
        memset(bitmap.record.data + byte, 0xff, count);
        byte = (byte + 2) % static_cast<uint64_t>(size);
        benchmark::ClobberMemory();
    }
}

void Reload(benchmark::State& state, int64_t size) {
    Bitmap bitmap(size);
    for (auto _ : state) {
        if (ReloadPinBlocksToCache(&bitmap.record, BenchDevice(), BenchMountPath()) != 0) {
            state.SkipWithError("the reload failed");
            break;
        }
    }
}

void ReloadBesidePending(benchmark::State& state, int64_t size) {
    ServiceAddPendingSpaceAtomic("/another");
    Reload(state, size);
    ServiceRemovePendingSpaceAtomic("/another");
}

void ReadWords(benchmark::State& state, int64_t size) {
    Bitmap bitmap(size);
    for (auto _ : state) {
        uint64_t seen = 0;
        for (uint32_t byte = 0; byte < bitmap.record.size; byte += sizeof(uint64_t)) {
            uint64_t word = 0;
            memcpy(&word, bitmap.record.data + byte, sizeof word);
            seen |= word;
        }
        benchmark::DoNotOptimize(seen);
    }
}

}  // namespace

void RegisterBitmaps() {
    for (int64_t size : kSizes) {
        Register("set-all", "ours", size, SetAll);
        Register("set-all", "peer", size, FillAll);
        Register("reload", "ours", size, Reload);
        Register("reload", "peer", size, ReadWords);
        Register("reload-beside-pending", "ours", size, ReloadBesidePending);
        Register("reload-beside-pending", "peer", size, ReadWords);
    }
    Register("set-16-units", "ours", kSizes[1], SetTwoBytes);
    Register("set-16-units", "peer", kSizes[1], FillTwoBytes);
}
