// SPDX-License-Identifier: MIT
// In which state the pins of a device are: each word, its exit status, and what hides what.
#include "client/pins/pin_health.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <functional>

#include "tests/unit/client/pins/pins_test.h"
#include "tests/unit/support/fake_platform.h"

namespace client {

namespace {

class PinHealthTest : public PinsTest {};

struct HealthRow {
    const char* what;
    std::function<void()> change;
    PinHealth health;
    int status;
};

// Sixteen units are what the cache of these tests holds.
std::vector<uint64_t> FirstUnits(uint64_t count) {
    std::vector<uint64_t> units;
    for (uint64_t unit = 0; unit < count; ++unit) {
        units.push_back(unit);
    }
    return units;
}

TEST_F(PinHealthTest, EachStateHasItsWordAndItsExitStatus) {
    const HealthRow rows[] = {
        {"no list, no bit", [] {}, PinHealth::kNothing, 0},
        {"a mute cache is believed",
         [&] {
             Pinned("a", {{0, 2 * kUnit}});
             WriteBitmap({0, 1});
         },
         PinHealth::kPinned, 0},
        {"all of it in the cache", [&] { LetTheCacheTell("\x03", "\x03"); }, PinHealth::kCached, 0},
        {"one unit is not", [&] { WriteFile(dir_ / "resident", "\x01"); }, PinHealth::kNotCached,
         6},
        {"nothing is", [&] { WriteFile(dir_ / "resident", ""); }, PinHealth::kNotCached, 6},
        {"the driver lacks a bit", [&] { WriteFile(dir_ / "pinned", "\x01"); },
         PinHealth::kNotInForce, 8},
        {"the driver has one more", [&] { WriteFile(dir_ / "pinned", "\x07"); },
         PinHealth::kDiffers, 1},
        {"as many units as the cache holds",
         [&] {
             Pinned("b", {{2 * kUnit, 14 * kUnit}});
             WriteBitmap(FirstUnits(16));
             WriteFile(dir_ / "pinned", "\xff\xff");
         },
         PinHealth::kNotCached, 6},
        {"one more, whatever is in it",
         [&] {
             Pinned("c", {{16 * kUnit, kUnit}});
             WriteBitmap(FirstUnits(17));
             WriteFile(dir_ / "pinned", "\xff\xff\x01");
         },
         PinHealth::kOverfull, 7},
        {"a bit is missing",
         [&] {
             Pinned("d", {{20 * kUnit, kUnit}});
         },
         PinHealth::kDiffers, 1},
        {"it is missing, and the cache does not serve",
         [] { g_platform.stats["/dev/ssd1"].state = 0; }, PinHealth::kNotInForce, 8},
        {"the volume lost its cache", [] { g_platform.configs.clear(); }, PinHealth::kNotInForce,
         8},
    };
    for (const HealthRow& row : rows) {
        row.change();
        const PinHealth health = HealthOf(Read());
        EXPECT_EQ(health, row.health) << row.what << ": " << PinHealthName(health);
        EXPECT_EQ(ExitStatusOf(health), row.status) << row.what;
        EXPECT_EQ(RemedyFor(health).empty(), row.status == 0) << row.what;
    }
}

TEST_F(PinHealthTest, ACacheThatKeepsNoPinsOrHasNoSizeIsNotInForce) {
    Pinned("a", {{0, kUnit}});
    WriteBitmap({0});
    EXPECT_EQ(WhyNotInForce(Read().view, 1), "");
    g_platform.stats["/dev/ssd1"].supportPin = 0;
    EXPECT_NE(WhyNotInForce(Read().view, 1).find("does not keep pins"), std::string::npos);
    g_platform.stats["/dev/ssd1"].supportPin = 1;
    VolumeView view = Read().view;
    view.deviceSize = 0;
    EXPECT_NE(WhyNotInForce(view, 1).find("size of the cached device"), std::string::npos);
    EXPECT_EQ(WhyNotInForce(VolumeView(), 0), "") << "nothing is pinned";
    EXPECT_EQ(WhyNotInForce(VolumeView(), 1), "the volume has no cache");
}

TEST_F(PinHealthTest, WhatWasNeverWrittenNeedNotBeInTheCache) {
    const std::string path = Pinned("a", {{0, kUnit}, {kUnit, kUnit}});
    g_platform.mappings[InodeOf(path)][0].entries[1].uninitialized = 1;
    WriteBitmap({0, 1});
    LetTheCacheTell("\x01", "\x03");
    EXPECT_EQ(Read().absent.Count(), 0U);
    EXPECT_EQ(HealthOf(Read()), PinHealth::kCached);
    EXPECT_EQ(FindAbsent(state_, volumes_[0], Read().view).Count(), 0U);
    WriteFile(dir_ / "resident", "");
    EXPECT_EQ(Read().absent.Count(), 1U);
    EXPECT_EQ(FindAbsent(state_, volumes_[0], Read().view).Count(), 1U);
    EXPECT_EQ(FindAbsent({}, volumes_[0], Read().view).Count(), 2U) << "nobody's are all meant";
}

TEST_F(PinHealthTest, WithoutTheFilesOnlyAListWithoutBitsIsSeenToDiffer) {
    Pinned("a", {{0, 2 * kUnit}});
    EXPECT_EQ(HealthOf(Read().view, 1, 0), PinHealth::kDiffers);
    WriteBitmap({0});
    EXPECT_EQ(HealthOf(Read().view, 1, 0), PinHealth::kPinned);
    EXPECT_EQ(HealthOf(Read()), PinHealth::kDiffers);
}

}  // namespace

}  // namespace client
