// SPDX-License-Identifier: MIT
// What a repair at rest makes of lists and bitmaps.
#include "client/pins/rest_plan.h"

#include <gtest/gtest.h>

namespace client {

namespace {

using Texts = std::vector<std::string>;
using Units = std::vector<uint64_t>;

constexpr size_t kBytes = 4;  // of the bitmap: 32 units

UnitSet SetOf(const Units& units, size_t bytes = kBytes) {
    UnitSet set(bytes);
    for (const uint64_t unit : units) {
        set.Put(unit);
    }
    return set;
}

Units UnitsOf(const UnitSet& set) {
    Units units;
    for (uint64_t unit = 0; unit < set.Room(); ++unit) {
        if (set.Has(unit)) {
            units.push_back(unit);
        }
    }
    return units;
}

class RestPlanTest : public testing::Test {
  protected:
    RestPlanTest() {
        device_.mounts = {&volume_};
        device_.view.mountPath = volume_.mountPath;
        device_.view.cachePath = "/dev/cached";
        device_.view.deviceSize = kBytes << 19;
    }
    // Adds an entry to the device's list; `now` is the path that the file was found at.
    void List(Fate fate, const std::string& relative, uint32_t inode, const std::string& now = "") {
        PinnedFile pinned;
        pinned.entry = {relative, inode};
        pinned.mountPath = "/mnt/a";
        pinned.fate = fate;
        pinned.why = "for some reason";
        pinned.file.volume = &volume_;
        pinned.file.path = "/mnt/a/" + now;
        pinned.file.relative = now;
        device_.listed.push_back(pinned);
    }
    ListPlan Plan(const Followers& followers = {}) { return PlanLists({device_}, followers); }
    // The planned list of /mnt/a, as "path#inode".
    static Texts ListOf(const ListPlan& plan) {
        Texts texts;
        for (const StoredFile& file : plan.lists.at("/mnt/a")) {
            texts.push_back(file.relative + "#" + std::to_string(file.inode));
        }
        return texts;
    }

    Volume volume_{"/mnt/a", "uuid-1"};
    DeviceState device_;
};

struct FateRow {
    Fate fate;
    Followers followers;
    Texts list;  // afterwards; empty = the entry is the only one and goes
    bool changes;
    Texts actions;
    Texts left;
};

TEST_F(RestPlanTest, EveryFateHasItsTreatment) {
    Follower file;
    file.file.inode = 99;
    Follower directory;
    directory.why = "is a directory";
    const std::string path = "/mnt/a/d/x";
    const FateRow rows[] = {
        {Fate::kThere, {}, {"d/x#5"}, false, {}, {}},
        {Fate::kGone, {}, {}, true, {path + ": gone, taken off the list"}, {}},
        {Fate::kReplaced,
         {{path, file}},
         {"d/x#99"},
         true,
         {path + ": replaced, the file that is there now takes its place"},
         {}},
        {Fate::kReplaced,
         {{path, directory}},
         {},
         true,
         {path + ": replaced, taken off the list"},
         {path + ": what is there now is not pinned: is a directory"}},
        {Fate::kReplaced,
         {},
         {},
         true,
         {path + ": replaced, taken off the list"},
         {path + ": what is there now is not pinned: it is not known"}},
        {Fate::kRenamed,
         {},
         {"e/new#5"},
         true,
         {path + ": renamed, listed at its new path /mnt/a/e/new"},
         {}},
        {Fate::kUnknown,
         {},
         {"d/x#5"},
         false,
         {},
         {path + ": cannot be looked at: for some reason"}},
    };
    for (const FateRow& row : rows) {
        SCOPED_TRACE(FateName(row.fate));
        device_.listed.clear();
        List(row.fate, "d/x", 5, "e/new");
        const ListPlan plan = Plan(row.followers);
        EXPECT_EQ(plan.actions, row.actions);
        EXPECT_EQ(plan.left, row.left);
        ASSERT_EQ(plan.lists.size(), row.changes ? 1U : 0U);
        if (row.changes) {
            EXPECT_EQ(ListOf(plan), row.list);
        }
    }
}

TEST_F(RestPlanTest, TheOtherEntriesOfAListThatChangesStay) {
    List(Fate::kThere, "a", 1);
    List(Fate::kGone, "b", 2);
    List(Fate::kUnknown, "c", 3);
    EXPECT_EQ(ListOf(Plan()), (Texts{"a#1", "c#3"}));
}

TEST_F(RestPlanTest, AFollowerThatIsListedItselfIsListedOnce) {
    Follower file;
    file.file.inode = 7;
    List(Fate::kReplaced, "a", 1);
    List(Fate::kThere, "a", 7);
    EXPECT_EQ(ListOf(Plan({{"/mnt/a/a", file}})), (Texts{"a#7", "a#7"}))
        << "the stored list has an inode once";
}

TEST_F(RestPlanTest, EachMountPathHasItsOwnListAndAFormerOneStays) {
    const Volume again{"/mnt/again", "uuid-1"};
    device_.mounts.push_back(&again);
    List(Fate::kThere, "a", 1);
    List(Fate::kGone, "b", 2);
    device_.listed.back().mountPath = "/mnt/again";
    List(Fate::kGone, "c", 3);
    device_.listed.back().mountPath = "/mnt/former";
    const ListPlan plan = Plan();
    ASSERT_EQ(plan.lists.size(), 1U);
    EXPECT_TRUE(plan.lists.at("/mnt/again").empty());
    EXPECT_EQ(plan.actions, Texts{"/mnt/again/b: gone, taken off the list"});
}

TEST_F(RestPlanTest, WithoutACacheNothingChanges) {
    List(Fate::kGone, "a", 1);
    device_.view.deviceSize = 0;
    EXPECT_TRUE(Plan().lists.empty());
    EXPECT_EQ(Plan().left,
              Texts{"/mnt/a: left as it is, as the size of its cached device is not known"});
    device_.view.cachePath.clear();
    EXPECT_TRUE(Plan().lists.empty());
    EXPECT_EQ(Plan().left, Texts{"/mnt/a: left as it is, as it has no cache now"});
    EXPECT_TRUE(Plan().actions.empty());
}

struct BitmapRow {
    const char* what;
    Units before;
    uint64_t fileBytes;  // 0 = there is no file
    Units needed;
    bool uncertain;
    const char* driver;  // "same" as the file had, "other", "mute"
    Units after;
    bool write;
    bool hand;
};

TEST_F(RestPlanTest, TheBitmapBecomesWhatIsNeeded) {
    const BitmapRow rows[] = {
        {"as it should be", {1, 2}, 4, {1, 2}, false, "same", {1, 2}, false, false},
        {"surplus", {1, 2, 31}, 4, {2}, false, "same", {2}, true, true},
        {"missing", {1}, 4, {0, 1, 31}, false, "same", {0, 1, 31}, true, true},
        {"both", {1, 9}, 4, {1, 8}, false, "mute", {1, 8}, true, true},
        {"surplus and uncertain", {1, 2}, 4, {2}, true, "same", {1, 2}, false, false},
        {"missing and uncertain", {1, 2}, 4, {2, 5}, true, "same", {1, 2, 5}, true, true},
        {"nothing needed", {1, 2}, 4, {}, false, "same", {}, true, true},
        {"no file", {}, 0, {}, false, "same", {}, false, false},
        {"no file and missing", {}, 0, {3}, false, "same", {3}, true, true},
        {"too long", {1}, 5, {1}, false, "same", {1}, true, true},
        {"too long and uncertain", {1}, 5, {}, true, "mute", {1}, true, true},
        {"too short", {1}, 3, {1}, false, "same", {1}, true, true},
        {"the driver has another", {1}, 4, {1}, false, "other", {1}, false, true},
        {"the driver has one without a file", {}, 0, {}, false, "other", {}, false, true},
        {"a mute driver", {1}, 4, {1}, false, "mute", {1}, false, false},
    };
    for (const BitmapRow& row : rows) {
        SCOPED_TRACE(row.what);
        VolumeView& view = device_.view;
        view.bits = SetOf(row.before);
        view.hasBitmap = row.fileBytes > 0;
        view.fileBytes = row.fileBytes;
        view.residency.known = std::string(row.driver) != "mute";
        view.residency.pinned = std::string(row.driver) == "other" ? SetOf({7}) : view.bits;
        device_.needed = SetOf(row.needed);
        device_.surplus = view.bits.Without(device_.needed);
        device_.uncertain = row.uncertain ? "a cannot be looked at" : "";
        const BitmapPlan plan = PlanBitmap(device_, false);
        EXPECT_EQ(UnitsOf(plan.bits), row.after);
        EXPECT_EQ(plan.bits.Bytes().size(), kBytes);
        EXPECT_EQ(plan.write, row.write);
        EXPECT_EQ(plan.hand, row.hand);
        EXPECT_EQ(plan.set, SetOf(row.after).CountWithout(view.bits));
        EXPECT_EQ(plan.cleared, view.bits.CountWithout(SetOf(row.after)));
        const bool kept = row.uncertain && device_.surplus.Count() > 0;
        EXPECT_EQ(plan.left,
                  kept ? Texts{"/mnt/a: 1 unit not cleared: a cannot be looked at"} : Texts{});
    }
}

TEST_F(RestPlanTest, WhatTheCacheDoesNotHoldIsNotSet) {
    VolumeView& view = device_.view;
    view.bits = SetOf({1, 5});
    view.hasBitmap = true;
    view.fileBytes = kBytes;
    view.residency.known = true;
    view.residency.cacheSize = 2 * kUnitBytes;
    view.residency.pinned = view.bits;
    device_.needed = SetOf({1, 2, 3});
    device_.surplus = SetOf({5});
    const BitmapPlan plan = PlanBitmap(device_, false);
    EXPECT_EQ(UnitsOf(plan.bits), (std::vector<uint64_t>{1})) << "cleared is what nobody needs";
    EXPECT_EQ(plan.set, 0U);
    EXPECT_EQ(plan.cleared, 1U);
    EXPECT_EQ(
        plan.left,
        Texts{"/mnt/a: 64.0 KiB pinned or queued and 128.0 KiB more do not fit into the cache "
              "of 128.0 KiB; --overcommit pins it all the same"});
    const BitmapPlan all = PlanBitmap(device_, true);
    EXPECT_EQ(UnitsOf(all.bits), (std::vector<uint64_t>{1, 2, 3}));
    EXPECT_TRUE(all.left.empty());
    device_.needed = SetOf({1, 2});
    EXPECT_EQ(PlanBitmap(device_, false).set, 1U) << "it fits";
}

}  // namespace

}  // namespace client
