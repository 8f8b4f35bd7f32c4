// SPDX-License-Identifier: MIT
// What a pin or an unpin would cost.
#include "client/pins/price.h"

#include <gtest/gtest.h>

#include "tests/unit/client/pins/pins_test.h"

namespace client {

namespace {

using PriceTest = PinsTest;

TEST_F(PriceTest, APinCostsTheUnitsThatItsFilesLieIn) {
    const FileRef a = File("a", {{0, 8}, {10 * kUnit, kUnit}});
    const FileRef b = File("b", {{8, 8}});
    const FileRef tail = File("tail", {{1023 * kUnit, 2 * kUnit}});
    WriteBitmap({10, 500});
    const std::vector<Price> prices = PriceOf(true, {a, b, tail}, {});
    ASSERT_EQ(prices.size(), 1U);
    EXPECT_EQ(prices[0].volume, mount_);
    EXPECT_EQ(prices[0].files, 3U);
    EXPECT_EQ(prices[0].extents, 4U);
    EXPECT_EQ(prices[0].bytes, (16 + 3 * kUnit) * 512);
    EXPECT_EQ(prices[0].units, 4U) << "a shared unit is paid once";
    EXPECT_EQ(prices[0].withoutBit, 1U);
    EXPECT_EQ(prices[0].unitsSet, 1U);
    EXPECT_EQ(prices[0].pinnedNow, 2U);
    EXPECT_EQ(prices[0].pinnedThen, 4U);
    EXPECT_EQ(prices[0].cacheSize, 0U);
}

TEST_F(PriceTest, AnUnpinGivesBackWhatNoOtherFileNeeds) {
    const FileRef a = File("a", {{0, 3 * kUnit}});
    const FileRef b = File("b", {{2 * kUnit, 8}});
    WriteBitmap({0, 1, 2, 9});
    LetTheCacheTell("", "");
    const std::vector<Price> prices = PriceOf(false, {a}, {b});
    ASSERT_EQ(prices.size(), 1U);
    EXPECT_EQ(prices[0].files, 1U);
    EXPECT_EQ(prices[0].repinnedFiles, 1U);
    EXPECT_EQ(prices[0].pinnedNow, 4U);
    EXPECT_EQ(prices[0].pinnedThen, 2U);
    EXPECT_EQ(prices[0].cacheSize, 1048576U);
}

TEST_F(PriceTest, ThePriceIsShownInBothForms) {
    WriteBitmap({});
    LetTheCacheTell("", "");
    Price price = PriceOf(true, {File("a", {{0, 17 * kUnit - 8}})}, {}).at(0);
    price.requests = 2;
    Record record = DescribePrice(price);
    EXPECT_EQ(record.ToJson()["roundingBytes"].asInt(), 4096);
    EXPECT_EQ(record.ToJson()["cacheBytes"].asInt(), 1048576);
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

}  // namespace

}  // namespace client
