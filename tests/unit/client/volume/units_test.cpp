// SPDX-License-Identifier: MIT
// Sets and runs of units against a model that is nothing but a set of numbers.
#include "client/volume/units.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <random>
#include <set>

#include "tests/unit/support/unit_test.h"

namespace client {

namespace {

using Model = std::set<uint64_t>;

Model ModelOf(const UnitRuns& runs) {
    Model model;
    for (const UnitRun& run : runs) {
        for (uint64_t unit = run.first; unit <= run.last; ++unit) {
            model.insert(unit);
        }
    }
    return model;
}

Model ModelOf(const UnitSet& set) {
    Model model;
    for (uint64_t unit = 0; unit < set.Room(); ++unit) {
        if (set.Has(unit)) {
            model.insert(unit);
        }
    }
    return model;
}

Model Units(const std::vector<FileMappingEntry>& extents) {
    Model model;
    for (const FileMappingEntry& extent : extents) {
        for (uint64_t sector = 0; sector < extent.numSectors; ++sector) {
            model.insert((extent.deviceStartSector + sector) / 128);
        }
    }
    return model;
}

std::vector<FileMappingEntry> RandomExtents(std::mt19937& random) {
    std::uniform_int_distribution<uint64_t> start(0, 100000);
    std::uniform_int_distribution<uint64_t> length(0, 900);
    std::vector<FileMappingEntry> extents(random() % 12);
    for (FileMappingEntry& extent : extents) {
        extent = {0, length(random), start(random), static_cast<uint32_t>(random() % 2)};
    }
    return extents;
}

Model Without(const Model& left, const Model& right) {
    Model result;
    std::set_difference(left.begin(), left.end(), right.begin(), right.end(),
                        std::inserter(result, result.end()));
    return result;
}

Model Common(const Model& left, const Model& right) {
    return Without(left, Without(left, right));
}

Model Below(const Model& model, uint64_t room) {
    return Model(model.begin(), model.lower_bound(room));
}

void ExpectApart(const UnitRuns& runs) {
    for (size_t i = 1; i < runs.size(); ++i) {
        EXPECT_GT(runs[i].first, runs[i - 1].last + 1) << "runs touch or overlap";
    }
}

TEST(Units, RunsOfExtentsAreTheUnitsOfTheirSectors) {
    std::mt19937 random(1);
    for (int round = 0; round < 300; ++round) {
        const std::vector<FileMappingEntry> extents = RandomExtents(random);
        const UnitRuns runs = RunsOf(extents);
        EXPECT_EQ(ModelOf(runs), Units(extents));
        EXPECT_EQ(CountUnits(runs), Units(extents).size());
        ExpectApart(runs);
    }
}

TEST(Units, SetsDoWhatSetsDo) {
    std::mt19937 random(2);
    for (int round = 0; round < 200; ++round) {
        const size_t bytes = random() % 110;  // up to 880 units, of about 790 that extents reach
        const UnitRuns left = RunsOf(RandomExtents(random));
        const UnitRuns right = RunsOf(RandomExtents(random));
        UnitSet a(bytes);
        UnitSet b(bytes);
        a.Put(left);
        b.Put(right);
        const Model modelA = Below(ModelOf(left), bytes * 8);
        const Model modelB = Below(ModelOf(right), bytes * 8);
        EXPECT_EQ(ModelOf(a), modelA);
        EXPECT_EQ(a.Count(), modelA.size());
        EXPECT_EQ(ModelOf(a.Runs()), modelA);
        ExpectApart(a.Runs());
        EXPECT_EQ(ModelOf(a.Without(b)), Without(modelA, modelB));
        EXPECT_EQ(a.CountWithout(b), Without(modelA, modelB).size());
        EXPECT_EQ(a.RoomFor(right), Below(ModelOf(right), bytes * 8).size());
        EXPECT_EQ(a.CountIn(right), Common(modelA, ModelOf(right)).size());
        EXPECT_EQ(ModelOf(CommonRuns(left, right)), Common(ModelOf(left), ModelOf(right)));
        const uint64_t first = random() % 900;
        const uint64_t end = first + random() % 200;
        EXPECT_EQ(
            a.CountBetween(first, end),
            static_cast<size_t>(std::distance(modelA.lower_bound(first), modelA.lower_bound(end))));
    }
}

TEST(Units, BitsAreTheLeastSignificantFirst) {
    const UnitSet set(std::vector<uint8_t>{0x01, 0x80});
    EXPECT_EQ(ModelOf(set), (Model{0, 15}));
    UnitSet other(2);
    other.Put(0);
    other.Put(15);
    EXPECT_EQ(other.Bytes(), set.Bytes());
}

TEST(Units, WhatHasNoBitIsLeftAlone) {
    UnitSet set(1);
    set.Put(8);
    set.Put({{6, 20}});
    EXPECT_EQ(set.Bytes(), (std::vector<uint8_t>{0xc0}));
    EXPECT_FALSE(set.Has(8));
    EXPECT_EQ(UnitSet().Room(), 0U);
    EXPECT_EQ(UnitSet().CountWithout(set), 0U);
    EXPECT_EQ(set.CountWithout(UnitSet()), 2U);
}

TEST(Units, AnExtentThatTouchesAUnitHasIt) {
    EXPECT_EQ(ModelOf(RunsOf({{0, 2, 127, 0}})), (Model{0, 1}));
    EXPECT_EQ(ModelOf(RunsOf({{0, 128, 0, 0}})), (Model{0}));
    EXPECT_EQ(ModelOf(RunsOf({{0, 0, 500, 0}})), Model());
    EXPECT_EQ(ModelOf(RunsOf({})), Model());
}

TEST(Units, WrittenBytesLeaveOutWhatWasNeverWritten) {
    const std::vector<FileMappingEntry> extents = {{0, 8, 0, 0}, {8, 16, 100, 1}};
    EXPECT_EQ(BytesOf(extents), 24U * 512);
    EXPECT_EQ(BytesOf(WrittenOf(extents)), 8U * 512);
}

TEST(Units, AFileOfRawBitsIsReadWhole) {
    const TempDir dir;
    std::string bytes(3000000, '\x5a');
    WriteFile(dir / "bits", bytes);
    UnitSet set;
    ASSERT_TRUE(ReadUnitSet(dir / "bits", set));
    EXPECT_EQ(std::string(set.Bytes().begin(), set.Bytes().end()), bytes);
    EXPECT_EQ(set.Count(), bytes.size() * 4);
    EXPECT_FALSE(ReadUnitSet(dir / "nothing", set));
}

}  // namespace

}  // namespace client
