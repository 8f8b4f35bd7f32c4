// SPDX-License-Identifier: MIT
// The cache against a model that is too simple to be wrong: random operations, and after each of
// them the same bytes, the same resident units, the same counts.
#include <linux/falloc.h>

#include <algorithm>

#include "tests/unit/softcache/cache_fixture.h"

namespace softcache {
namespace {

// A device of bytes and a list of units, least recently used first.
struct Model {
    Bytes device;
    Bytes pins;
    std::vector<uint32_t> order;
    size_t slots = 0;
    uint64_t hits = 0;
    uint64_t misses = 0;
    uint64_t bypasses = 0;

    bool Pinned(uint32_t unit) const {
        return unit / 8 < pins.size() && ((pins[unit / 8] >> (unit % 8)) & 1) != 0;
    }

    bool MakeRoom() {
        if (order.size() < slots) {
            return true;
        }
        const auto victim = std::find_if(order.begin(), order.end(),
                                         [this](uint32_t unit) { return !Pinned(unit); });
        if (victim == order.end()) {
            return false;
        }
        order.erase(victim);
        return true;
    }

    bool Use(uint32_t unit) {
        const auto found = std::find(order.begin(), order.end(), unit);
        if (found == order.end()) {
            return false;
        }
        order.erase(found);
        order.push_back(unit);
        return true;
    }

    void Read(uint32_t unit) {
        if (Use(unit)) {
            ++hits;
        } else if (MakeRoom()) {
            ++misses;
            order.push_back(unit);
        } else {
            ++bypasses;
        }
    }

    void Punch(uint32_t unit, bool whole) {
        if (whole && !Pinned(unit)) {
            order.erase(std::remove(order.begin(), order.end(), unit), order.end());
        } else {
            Use(unit);
        }
    }

    std::vector<uint32_t> Resident() const {
        std::vector<uint32_t> sorted = order;
        std::sort(sorted.begin(), sorted.end());
        return sorted;
    }

    size_t PinnedResident() const {
        return static_cast<size_t>(std::count_if(order.begin(), order.end(),
                                                 [this](uint32_t unit) { return Pinned(unit); }));
    }
};

struct Shape {
    const char* name;
    uint64_t deviceSize;
    uint32_t slots;
};

void PrintTo(const Shape& shape, std::ostream* out) {
    *out << shape.name;
}

class BlockCacheModelTest : public CacheOnFiles, public ::testing::WithParamInterface<Shape> {
  protected:
    uint64_t Random(uint64_t below) {
        return std::uniform_int_distribution<uint64_t>(0, below - 1)(random_);
    }

    // A range on the device: often small, often on unit borders, sometimes most of the device.
    void RandomRange(uint64_t& offset, size_t& size) {
        const uint64_t deviceSize = model_.device.size();
        offset = Random(deviceSize);
        if (Random(3) == 0) {
            offset -= offset % kUnitSize;
        }
        const uint64_t wanted = Random(4) == 0   ? kUnitSize * (1 + Random(5))
                                : Random(2) == 0 ? 1 + Random(4096)
                                                 : 1 + Random(3 * kUnitSize);
        size = static_cast<size_t>(std::min(wanted, deviceSize - offset));
    }

    template <typename Act>
    void ForEachUnit(uint64_t offset, size_t size, Act act) {
        for (uint64_t unit = offset / kUnitSize; unit <= (offset + size - 1) / kUnitSize; ++unit) {
            act(static_cast<uint32_t>(unit));
        }
    }

    void Read(uint64_t offset, size_t size) {
        Bytes got(size, 0xEE);
        ASSERT_EQ(cache_->Read(got.data(), size, offset), 0);
        ForEachUnit(offset, size, [this](uint32_t unit) { model_.Read(unit); });
        ASSERT_EQ(memcmp(got.data(), model_.device.data() + offset, size), 0);
    }

    void Write(uint64_t offset, size_t size) {
        const Bytes bytes = RandomBytes(size, static_cast<uint32_t>(random_()));
        ASSERT_EQ(cache_->Write(bytes.data(), size, offset), 0);
        ForEachUnit(offset, size, [this](uint32_t unit) { model_.Use(unit); });
        memcpy(model_.device.data() + offset, bytes.data(), size);
    }

    void Punch(uint64_t offset, size_t size) {
        ASSERT_EQ(cache_->Allocate(FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE, offset, size), 0);
        ForEachUnit(offset, size, [&](uint32_t unit) {
            const uint64_t begin = uint64_t{unit} * kUnitSize;
            const uint64_t end = std::min<uint64_t>(begin + kUnitSize, model_.device.size());
            model_.Punch(unit, begin >= offset && end <= offset + size);
        });
        memset(model_.device.data() + offset, 0, size);
    }

    // Few bits or many, up to more than there are slots; shorter than the device's bitmap or not.
    void Pin() {
        Bytes bitmap(static_cast<size_t>(Random(cache_->MaxPinBytes() + 1)), 0);
        for (uint64_t bits = Random(2 * GetParam().slots + 1); bits > 0 && !bitmap.empty();
             --bits) {
            const auto bit = static_cast<size_t>(Random(bitmap.size() * 8));
            bitmap[bit / 8] = static_cast<uint8_t>(bitmap[bit / 8] | (1u << (bit % 8)));
        }
        cache_->SetPins(bitmap);
        model_.pins = bitmap;
    }

    void Step() {
        uint64_t offset;
        size_t size;
        RandomRange(offset, size);
        const uint64_t what = Random(100);
        if (what < 60) {
            Read(offset, size);
        } else if (what < 88) {
            Write(offset, size);
        } else if (what < 93) {
            Punch(offset, size);
        } else {
            Pin();
        }
    }

    void Compare() {
        const CacheCounters counters = cache_->Counters();
        const CacheLevels levels = cache_->Levels();
        ASSERT_EQ(Resident(), model_.Resident());
        ASSERT_EQ(counters.hits, model_.hits);
        ASSERT_EQ(counters.misses, model_.misses);
        ASSERT_EQ(counters.bypasses, model_.bypasses);
        ASSERT_EQ(levels.resident, model_.order.size());
        ASSERT_EQ(levels.pinnedResident, model_.PinnedResident());
        ASSERT_EQ(levels.pinned, BitsSet(model_.pins).size());
    }

    std::mt19937_64 random_;
    Model model_;
};

TEST_P(BlockCacheModelTest, AgreesWithTheModelAfterEveryOperation) {
    for (const uint64_t seed : {1u, 2u, 3u}) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        random_.seed(seed);
        Make(GetParam().deviceSize, GetParam().slots);
        model_ = Model();
        model_.device = content_;
        model_.slots = GetParam().slots;
        for (int step = 0; step < 700; ++step) {
            SCOPED_TRACE("step " + std::to_string(step));
            ASSERT_NO_FATAL_FAILURE(Step());
            ASSERT_NO_FATAL_FAILURE(Compare());
        }
        EXPECT_EQ(FileBytes(dir_ / "backing"), model_.device);
        EXPECT_EQ(cache_->Counters().ssdErrors, 0u);
    }
}

INSTANTIATE_TEST_SUITE_P(Shapes, BlockCacheModelTest,
                         ::testing::Values(Shape{"OneSlot", 16 * kUnitSize, 1},
                                           Shape{"FewSlots", 40 * kUnitSize, 5},
                                           Shape{"ShortLastUnit", 19 * kUnitSize + 4097, 7},
                                           Shape{"NoPinBits", 7 * kUnitSize - 1, 3},
                                           Shape{"CacheAsLargeAsDevice", 24 * kUnitSize, 24},
                                           Shape{"CacheLargerThanDevice", 9 * kUnitSize, 30}),
                         [](const auto& shape) { return std::string(shape.param.name); });

}  // namespace
}  // namespace softcache
