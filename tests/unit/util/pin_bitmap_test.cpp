// SPDX-License-Identifier: MIT
// Bits and ranges, beside a naive model. Files: pin_bitmap_file_test.cpp; how a bitmap comes to be:
// pin_bitmap_load_test.cpp.
#include "util/pin_bitmap.h"

#include <errno.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "tests/unit/support/log_capture.h"
#include "tests/unit/support/unit_test.h"
#include "tests/unit/util/bitmap_model.h"

namespace {

constexpr size_t kMiB = 1 << 20;
constexpr size_t kSizes[] = {0, 1, 2, 4095, 4096, 4097, 2 * kMiB};

class PinBitmapTest : public UnitTest {};

struct RangeRow {
    const char* why;
    uint64_t start;
    uint64_t count;
    std::vector<uint64_t> bits;
};

std::vector<uint64_t> UpTo(uint64_t first, uint64_t last) {
    std::vector<uint64_t> bits;
    for (uint64_t bit = first; bit <= last; ++bit) {
        bits.push_back(bit);
    }
    return bits;
}

// Ranges in a bitmap of 2 bytes: bits 0 to 15, sectors 0 to 2047.
std::vector<RangeRow> RangeRows() {
    return {
        {"a whole unit", 0, 128, {0}},
        {"one sector", 0, 1, {0}},
        {"the last sector of a unit", 127, 1, {0}},
        {"the first sector of the next", 128, 1, {1}},
        {"across a border", 127, 2, {0, 1}},
        {"a unit and a sector", 0, 129, {0, 1}},
        {"a unit's length off the grid", 1, 128, {0, 1}},
        {"the second byte", 1024, 128, {8}},
        {"across bytes", 1023, 2, {7, 8}},
        {"all there is", 0, 2048, UpTo(0, 15)},
        {"the last sector there is", 2047, 1, {15}},
        {"beyond the last bit: the part that exists", 1920, 1000000, {15}},
        {"from the middle to far behind the end", 1030, uint64_t{1} << 40, UpTo(8, 15)},
        {"behind the end: a tail without bits", 2048, 128, {}},
        {"far behind the end", uint64_t{1} << 50, 128, {}},
        {"the last sector of all", UINT64_MAX, 1, {}},
        {"all sectors", 0, UINT64_MAX, UpTo(0, 15)},
        // Meant, as in the arithmetic of the target: an empty range may touch a bit.
        {"no sectors, within a unit: that unit", 5, 0, {0}},
        {"no sectors, within another unit", 300, 0, {2}},
        {"no sectors, at the last sector of a unit", 255, 0, {1}},
        {"no sectors, at a border: nothing", 128, 0, {}},
        {"no sectors, at another border: nothing", 1920, 0, {}},
        {"no sectors at the start: wraps to every bit", 0, 0, UpTo(0, 15)},
        {"a range that wraps into its own unit", 130, UINT64_MAX, {1}},
        {"a range that wraps before its start: nothing", 1000, UINT64_MAX - 500, {}},
    };
}

TEST_F(PinBitmapTest, ARangeSetsTheBitsOfTheUnitsItTouches) {
    for (const RangeRow& row : RangeRows()) {
        SCOPED_TRACE(row.why);
        GuardedBitmap guarded(2);
        EXPECT_EQ(BitmapSetRange(&guarded.bitmap, row.start, row.count), 0);
        EXPECT_EQ(guarded.Bits(), row.bits);
        EXPECT_TRUE(guarded.GuardsStand());
    }
}

TEST_F(PinBitmapTest, ARangeClearsTheSameBits) {
    for (const RangeRow& row : RangeRows()) {
        SCOPED_TRACE(row.why);
        GuardedBitmap guarded(2, 0xff);
        EXPECT_EQ(BitmapUnsetRange(&guarded.bitmap, row.start, row.count), 0);
        std::vector<uint64_t> left = UpTo(0, 15);
        left.erase(std::remove_if(left.begin(), left.end(),
                                  [&](uint64_t bit) {
                                      return std::count(row.bits.begin(), row.bits.end(), bit) != 0;
                                  }),
                   left.end());
        EXPECT_EQ(guarded.Bits(), left);
        EXPECT_TRUE(guarded.GuardsStand());
    }
}

// The pages of the bytes that nobody touches are never there.
TEST_F(PinBitmapTest, BitsBeyond2To32) {
    const size_t size = (size_t{1} << 29) + 8;
    const uint64_t start = ((UINT64_C(1) << 32) + 3) * 128;
    auto* bytes = static_cast<uint8_t*>(calloc(size, 1));
    ASSERT_NE(bytes, nullptr);
    PinBitmap bitmap = {bytes, static_cast<uint32_t>(size)};

    BitmapSetRange(&bitmap, start, 128 + 1);
    EXPECT_EQ(bytes[0], 0);
    EXPECT_EQ(bytes[size - 8], 0x18);
    EXPECT_TRUE(BitmapHasBit(bitmap, start / 128));
    BitmapUnsetRange(&bitmap, start, 1);
    EXPECT_EQ(bytes[size - 8], 0x10);
    free(bytes);
}

TEST_F(PinBitmapTest, RangesOf2TiB) {
    GuardedBitmap guarded(2);

    BitmapSetRange(&guarded.bitmap, 128, UINT64_C(1) << 32);
    EXPECT_EQ(guarded.Bytes(), (std::vector<uint8_t>{0xfe, 0xff}));
    BitmapUnsetRange(&guarded.bitmap, 256, UINT64_C(1) << 32);
    EXPECT_EQ(guarded.Bytes(), (std::vector<uint8_t>{0x02, 0}));
    BitmapSetRange(&guarded.bitmap, UINT64_C(1) << 32, 128);
    BitmapUnsetRange(&guarded.bitmap, (UINT64_C(1) << 32) + 128, 128);
    EXPECT_EQ(guarded.Bytes(), (std::vector<uint8_t>{0x02, 0}));
}

TEST_F(PinBitmapTest, TheLeastSignificantBitComesFirst) {
    GuardedBitmap guarded(3);

    BitmapSetRange(&guarded.bitmap, 0, 1);
    EXPECT_EQ(guarded.Bytes(), (std::vector<uint8_t>{0x01, 0, 0}));
    BitmapSetRange(&guarded.bitmap, 7 * 128, 1);
    EXPECT_EQ(guarded.Bytes(), (std::vector<uint8_t>{0x81, 0, 0}));
    BitmapSetRange(&guarded.bitmap, 9 * 128, 2 * 128);
    EXPECT_EQ(guarded.Bytes(), (std::vector<uint8_t>{0x81, 0x06, 0}));
    BitmapSetRange(&guarded.bitmap, 23 * 128, 128);
    EXPECT_EQ(guarded.Bytes(), (std::vector<uint8_t>{0x81, 0x06, 0x80}));
}

TEST_F(PinBitmapTest, OnlyOperation1Sets) {
    for (int operation : {0, 2, -1, 255, 257, INT32_MIN}) {
        GuardedBitmap guarded(1, 0xff);
        EXPECT_EQ(BitmapMemOperation(&guarded.bitmap, 128, 128, operation), 0);
        EXPECT_EQ(guarded.Bytes(), std::vector<uint8_t>{0xfd}) << operation;
    }
    GuardedBitmap guarded(1);
    EXPECT_EQ(BitmapMemOperation(&guarded.bitmap, 128, 128, 1), 0);
    EXPECT_EQ(guarded.Bytes(), std::vector<uint8_t>{0x02});
}

// Two files in one unit share its bit; clearing does not look at the other: meant.
TEST_F(PinBitmapTest, ASharedUnitIsClearedForBoth) {
    GuardedBitmap guarded(1);

    BitmapSetRange(&guarded.bitmap, 0, 64);
    BitmapSetRange(&guarded.bitmap, 64, 64);
    BitmapUnsetRange(&guarded.bitmap, 0, 64);
    EXPECT_EQ(guarded.Bits(), std::vector<uint64_t>());
}

// A start within the bitmap mostly, at its borders and behind it now and then.
uint64_t RandomSector(std::mt19937_64& random, uint64_t numSectors) {
    switch (random() % 8) {
        case 0:
            return random() % (numSectors / 128 + 2) * 128;
        case 1:
            return numSectors + random() % 256;
        case 2:
            return random() >> random() % 64;
        default:
            return random() % (numSectors + 1);
    }
}

TEST_F(PinBitmapTest, RandomRangesDoAsTheModel) {
    std::mt19937_64 random(20240229);

    for (size_t size : kSizes) {
        uint64_t numSectors = uint64_t{size} * 8 * 128;
        int rounds = size > kMiB ? 4 : 60;
        GuardedBitmap guarded(size);
        NaiveModel model(size);

        for (int round = 0; round < rounds; ++round) {
            uint64_t start = RandomSector(random, numSectors);
            uint64_t count = 1 + random() % (numSectors / (1 + random() % 1000) + 300);
            count = std::min(count, UINT64_MAX - start);
            bool set = random() % 3 != 0;
            model.Change(start, count, set);
            int result = set ? BitmapSetRange(&guarded.bitmap, start, count)
                             : BitmapUnsetRange(&guarded.bitmap, start, count);
            EXPECT_EQ(result, 0);
            ASSERT_TRUE(guarded.Bytes() == model.Bytes())
                << size << " bytes, round " << round << ": " << (set ? "set " : "clear ") << start
                << " + " << count;
        }
        EXPECT_TRUE(guarded.GuardsStand()) << size;
    }
}

TEST_F(PinBitmapTest, EdgesOfEverySize) {
    for (size_t size : kSizes) {
        uint64_t numBits = uint64_t{size} * 8;
        GuardedBitmap guarded(size);

        // Across the end: the last bit is the only one there.
        BitmapSetRange(&guarded.bitmap, numBits == 0 ? 0 : (numBits - 1) * 128, 1280);
        if (size != 0) {
            EXPECT_EQ(guarded.Bits(), std::vector<uint64_t>{numBits - 1});
        }
        EXPECT_TRUE(guarded.GuardsStand()) << size;
        // Every bit by the range that wraps.
        BitmapSetRange(&guarded.bitmap, 0, 0);
        EXPECT_EQ(guarded.Bytes(), std::vector<uint8_t>(size, 0xff));
        BitmapUnsetRange(&guarded.bitmap, 0, UINT64_MAX);
        EXPECT_EQ(guarded.Bytes(), std::vector<uint8_t>(size, 0));
        EXPECT_TRUE(guarded.GuardsStand()) << size;
    }
}

TEST_F(PinBitmapTest, OperationsAreLoggedAtTheMostVerboseLevelOnly) {
    GuardedBitmap guarded(1);

    AtEveryLogSetting([&](LogCapture& log) {
        BitmapMemOperation(&guarded.bitmap, 18446744073709551615ULL, 1, 1);
        EXPECT_TRUE(log.Shows({kUtilLog.Debug(
            "BitmapMemOperation", "Disk start sector=18446744073709551615 num sectors=1\n")}));
        BitmapSetRange(&guarded.bitmap, 0, 4294967297);
        BitmapUnsetRange(&guarded.bitmap, 128, 0);
        EXPECT_TRUE(log.Shows(
            {kUtilLog.Debug("BitmapMemOperation", "Disk start sector=0 num sectors=4294967297\n"),
             kUtilLog.Debug("BitmapMemOperation", "Disk start sector=128 num sectors=0\n")}));
    });
}

// A bitmap of the C heap; without data when `size` is -1.
PinBitmap* NewBitmap(int size) {
    auto* bitmap = static_cast<PinBitmap*>(calloc(1, sizeof(PinBitmap)));
    if (size >= 0) {
        bitmap->data = static_cast<uint8_t*>(malloc(static_cast<size_t>(size) + 1));
        bitmap->size = static_cast<uint32_t>(size);
    }
    return bitmap;
}

TEST_F(PinBitmapTest, ReleasingIsSilentWhenAllIsThere) {
    AtEveryLogSetting([](LogCapture& log) {
        BitmapFree(NewBitmap(0));
        BitmapFree(NewBitmap(4096));
        EXPECT_TRUE(log.Shows({}));
    });
}

TEST_F(PinBitmapTest, ReleasingNothingIsAnError) {
    AtEveryLogSetting([](LogCapture& log) {
        BitmapFree(nullptr);
        EXPECT_TRUE(log.Shows({kUtilLog.Error("BitmapFree", "Bitmap is already NULL")}));
    });
}

TEST_F(PinBitmapTest, ReleasingARecordWithoutDataWarnsAndReleasesIt) {
    AtEveryLogSetting([](LogCapture& log) {
        BitmapFree(NewBitmap(-1));
        EXPECT_TRUE(log.Shows({kUtilLog.Error("BitmapFree", "Warning: data is NULL for free")}));
    });
}

}  // namespace
