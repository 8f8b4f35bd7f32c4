// SPDX-License-Identifier: MIT
// What a pin or an unpin would cost.
#include "client/pins/price.h"

#include <gtest/gtest.h>

#include <numeric>

#include "tests/unit/client/pins/pins_test.h"

namespace client {

namespace {

class PriceTest : public PinsTest {
  protected:
    // The price of files of the one volume, as a program sees it.
    Json::Value Price(bool pin, const std::vector<FileRef>& files,
                      const std::vector<FileRef>& repinned = {}) {
        const std::vector<Record> prices =
            DescribePrices(pin, files, repinned, {{mount_, 2}, {"/elsewhere", 7}});
        EXPECT_EQ(prices.size(), 1U);
        EXPECT_EQ(prices.at(0).ToJson()["volume"], mount_);
        EXPECT_EQ(prices.at(0).ToJson()["requests"].asInt(), 2);
        return prices.at(0).ToJson();
    }
    // Demands these members, in this order of their names.
    static void Expect(const Json::Value& price,
                       const std::vector<std::pair<const char*, uint64_t>>& members) {
        for (const auto& [name, value] : members) {
            EXPECT_EQ(price[name].asUInt64(), value) << name;
        }
    }
};

TEST_F(PriceTest, APinCostsTheUnitsThatItsFilesLieIn) {
    const FileRef a = File("a", {{0, 8}, {10 * kUnit, kUnit}});
    const FileRef b = File("b", {{8, 8}});
    const FileRef tail = File("tail", {{1023 * kUnit, 2 * kUnit}});
    WriteBitmap({10, 500});
    const Json::Value price = Price(true, {a, b, tail});
    Expect(price, {{"files", 3},
                   {"extents", 4},
                   {"bytes", (16 + 3 * kUnit) * 512},
                   {"units", 4},  // a shared unit is paid once
                   {"unitsWithoutBit", 1},
                   {"unitsSet", 1},
                   {"pinnedUnitsNow", 2},
                   {"pinnedUnitsThen", 4},
                   {"repinnedFiles", 0}});
    EXPECT_TRUE(price["cacheBytes"].isNull());
}

TEST_F(PriceTest, AnUnpinGivesBackWhatNoOtherFileNeeds) {
    const FileRef a = File("a", {{0, 3 * kUnit}});
    const FileRef b = File("b", {{2 * kUnit, 8}});
    WriteBitmap({0, 1, 2, 9});
    LetTheCacheTell("", "");
    Expect(Price(false, {a}, {b}), {{"files", 1},
                                    {"repinnedFiles", 1},
                                    {"unitsSet", 3},
                                    {"pinnedUnitsNow", 4},
                                    {"pinnedUnitsThen", 2},
                                    {"cacheBytes", 1048576}});
    Expect(Price(false, {a}), {{"repinnedFiles", 0}, {"pinnedUnitsThen", 1}});
}

TEST_F(PriceTest, FilesThatShareAUnitAreNotRounded) {
    const FileRef a = File("a", {{0, kUnit}});
    const FileRef again = File("b", {{0, kUnit}});
    WriteBitmap({});
    Expect(Price(true, {a, again}), {{"units", 1}, {"roundingBytes", 0}});
}

TEST_F(PriceTest, WhatIsPinnedAgainAtAnotherMountPathIsPricedThere) {
    const FileRef a = File("a", {{0, kUnit}});
    const std::string again = MountAgain();
    const FileRef b = Examine(mount_ + "/a", volumes_);
    FileRef other = b;
    other.volume = FindMounted(again, volumes_);
    FileRef here = b;
    here.volume = FindMounted(mount_, volumes_);
    here.extents = other.extents = a.extents;
    WriteBitmap({0});
    const std::vector<Record> prices = DescribePrices(false, {here}, {other}, {{again, 1}});
    ASSERT_EQ(prices.size(), 2U);
    EXPECT_EQ(prices[0].ToJson()["requests"].asInt(), 0);
    EXPECT_EQ(prices[1].ToJson()["volume"], again);
    Expect(prices[1].ToJson(), {{"files", 0}, {"repinnedFiles", 1}, {"requests", 1}});
}

TEST_F(PriceTest, ThePriceIsShownInBothForms) {
    WriteBitmap({});
    LetTheCacheTell("", "");
    Record record =
        DescribePrices(true, {File("a", {{0, 17 * kUnit - 8}})}, {}, {{mount_, 2}}).at(0);
    Expect(record.ToJson(), {{"roundingBytes", 4096}, {"cacheBytes", 1048576}});
    testing::internal::CaptureStdout();
    record.Print();
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              mount_ +
                  ": 1 file, 1 extent\n"
                  "  data            1.1 MiB\n"
                  "  units           17 of 64 KiB = 1.1 MiB; rounding adds 4.0 KiB\n"
                  "  pinned already  0 units\n"
                  "  cache           1.0 MiB; pinned now 0.0 %, afterwards 106.2 %  more than "
                  "the cache holds\n"
                  "  requests        2\n");
}

TEST_F(PriceTest, WhatIsOutOfTheOrdinaryHasALineOfItsOwn) {
    const FileRef tail = File("tail", {{1023 * kUnit, 2 * kUnit}});
    const FileRef other = File("other", {{1023 * kUnit, 8}});
    WriteBitmap({1023});
    Record record = DescribePrices(false, {tail}, {other}, {}).at(0);
    testing::internal::CaptureStdout();
    record.Print();
    const std::string text = testing::internal::GetCapturedStdout();
    EXPECT_NE(text.find("  without a bit   1 unit at the device's end, which cannot be pinned\n"),
              std::string::npos)
        << text;
    EXPECT_NE(text.find("  pinned again    1 file that shares units\n"), std::string::npos) << text;
    EXPECT_NE(text.find("its size is not known here; pinned now 64.0 KiB, afterwards 64.0 KiB\n"),
              std::string::npos)
        << text;
}

TEST_F(PriceTest, WhatIsPinnedAndQueuedAndNewMustFitTheCache) {
    LetTheCacheTell("", "");  // sixteen units
    const FileRef a = File("a", {{0, 16 * kUnit}});
    const FileRef b = File("b", {{16 * kUnit, kUnit}});
    EXPECT_TRUE(FindOvercommits(state_, {a}).empty());
    const std::vector<Overcommit> both = FindOvercommits(state_, {a, b});
    ASSERT_EQ(both.size(), 1U);
    EXPECT_EQ(both[0].volume, a.volume);
    EXPECT_EQ(both[0].why,
              mount_ +
                  ": 0 bytes pinned or queued and 1.1 MiB more do not fit into the cache "
                  "of 1.0 MiB");
    Queue("a");
    EXPECT_EQ(FindOvercommits(state_, {b}).size(), 1U);
    EXPECT_TRUE(FindOvercommits(state_, {a}).empty()) << "it is asked for already";
    WriteBitmap({100, 101});
    EXPECT_TRUE(FindOvercommits(state_, {a}).empty()) << "too much, yet no more than before";
}

TEST_F(PriceTest, WhatIsUnpinnedMakesRoom) {
    LetTheCacheTell("", "");  // sixteen units
    const FileRef old = File("old", {{0, 16 * kUnit}});
    const FileRef fresh = File("fresh", {{16 * kUnit, 16 * kUnit}});
    const FileRef large = File("large", {{16 * kUnit, 17 * kUnit}});
    std::vector<uint64_t> units(16);
    std::iota(units.begin(), units.end(), 0);
    WriteBitmap(units);
    EXPECT_EQ(FindOvercommits(state_, {fresh}).size(), 1U);
    EXPECT_TRUE(FindOvercommits(state_, {fresh}, {old}).empty());
    EXPECT_EQ(FindOvercommits(state_, {large}, {old}).size(), 1U);
    // What shares units with it is pinned again, and counts among the files.
    EXPECT_EQ(FindOvercommits(state_, {fresh, old}, {old}).size(), 1U);
}

}  // namespace

}  // namespace client
