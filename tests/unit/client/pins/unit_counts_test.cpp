// SPDX-License-Identifier: MIT
#include "client/pins/unit_counts.h"

#include <gtest/gtest.h>

namespace client {

namespace {

VolumeView View(bool cacheTells) {
    VolumeView view;
    view.bits = UnitSet(std::vector<uint8_t>{0x0f, 0});
    view.residency.known = cacheTells;
    view.residency.pinned = UnitSet(std::vector<uint8_t>{0x07, 0});
    view.residency.resident = UnitSet(std::vector<uint8_t>{0xf1, 0xff});
    return view;
}

TEST(UnitCounts, EachStationIsCountedForTheUnitsAskedAbout) {
    UnitSet units(2);
    units.Put({{2, 4}});
    const UnitCounts counts = CountUnits(View(true), units);
    EXPECT_EQ(counts.units, 3U);
    EXPECT_EQ(counts.set, 2U);
    EXPECT_EQ(counts.withDriver, 1U);
    EXPECT_EQ(counts.resident, 1U);
    Record record;
    AddCounts(counts, record);
    EXPECT_EQ(record.ToJson()["units"].asInt(), 3);
    EXPECT_EQ(record.ToJson()["unitsSet"].asInt(), 2);
    EXPECT_EQ(record.ToJson()["unitsWithDriver"].asInt(), 1);
    EXPECT_EQ(record.ToJson()["unitsResident"].asInt(), 1);
}

TEST(UnitCounts, OfAMuteCacheNothingIsKnown) {
    UnitSet units(2);
    units.Put({{0, 0}});
    const UnitCounts counts = CountUnits(View(false), units);
    EXPECT_EQ(counts.set, 1U);
    Record record;
    AddCounts(counts, record);
    EXPECT_TRUE(record.ToJson()["unitsWithDriver"].isNull());
    EXPECT_TRUE(record.ToJson()["unitsResident"].isNull());
    testing::internal::CaptureStdout();
    record.Print();
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "units  1, set 1\n");
}

}  // namespace

}  // namespace client
