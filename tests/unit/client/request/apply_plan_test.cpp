// SPDX-License-Identifier: MIT
// What is wanted against what is listed, queued, replaced, gone.
#include "client/request/apply_plan.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>

#include "tests/unit/client/pins/pins_test.h"

namespace client {

namespace {

using Texts = std::vector<std::string>;

class ApplyPlanTest : public PinsTest {
  protected:
    // Plans for these lines, read by the model as it is now.
    ApplyPlan Plan(const std::string& lines, bool prune = false) {
        std::filesystem::create_directories(dir_ / "conf.d");
        WriteFile(dir_ / "conf.d/a.conf", lines);
        PinConf conf;
        EXPECT_EQ(ReadPinConf(dir_ / "conf.d", conf), 0);
        wanted_ = FindWanted(conf, {}, volumes_);
        devices_ = ReadDevices(state_, volumes_);
        return PlanApply(conf, wanted_, devices_, prune);
    }
    static Texts Names(const std::vector<FileRef>& files) {
        Texts names;
        for (const FileRef& file : files) {
            names.push_back(file.relative);
        }
        return names;
    }
    static Texts Names(const std::vector<PinnedFile>& files) {
        Texts names;
        for (const PinnedFile& file : files) {
            names.push_back(file.entry.relative + " " + FateName(file.fate));
        }
        return names;
    }

    WantedFiles wanted_;
    std::vector<DeviceState> devices_;
};

TEST_F(ApplyPlanTest, WhatIsMissingQueuedHeldAndPinnedByHand) {
    Pinned("held", {{0, kUnit}});
    Pinned("hand", {{kUnit, kUnit}});
    Pinned("grew", {{2 * kUnit, 2 * kUnit}});
    WriteBitmap({0, 1, 2});
    File("new", {{5 * kUnit, kUnit}});
    File("asked", {{6 * kUnit, kUnit}});
    Queue("asked");
    const std::string lines =
        mount_ + "/held\n" + mount_ + "/grew\n" + mount_ + "/new\n" + mount_ + "/asked\n";
    const ApplyPlan plan = Plan(lines);
    EXPECT_EQ(Names(plan.pins), (Texts{"grew", "new"}));
    EXPECT_EQ(Names(plan.unpins), Texts());
    EXPECT_EQ(plan.held, 1U);
    EXPECT_EQ(plan.queued, 1U);
    EXPECT_EQ(plan.byHand, 1U);
    const ApplyPlan pruned = Plan(lines, true);
    EXPECT_EQ(Names(pruned.pins), (Texts{"grew", "new"}));
    EXPECT_EQ(Names(pruned.unpins), Texts{"hand"});
    EXPECT_EQ(pruned.unpins[0].extents.size(), 1U) << "known, so that sharers can be found";
    EXPECT_EQ(pruned.byHand, 0U);
}

TEST_F(ApplyPlanTest, OnADeviceWithNothingPinnedEverythingIsMissing) {
    File("a", {{0, kUnit}});
    EXPECT_EQ(Names(Plan(mount_ + "/a\n").pins), Texts{"a"});
}

TEST_F(ApplyPlanTest, AReplacedFileIsPinnedAnewAndItsOldEntryIsTold) {
    File("a", {{0, kUnit}});
    List("a", 4711);
    File("other", {{kUnit, kUnit}});
    List("other", 4712);
    WriteBitmap({0, 1});
    const ApplyPlan plan = Plan(mount_ + "/a\n", true);
    EXPECT_EQ(Names(plan.pins), Texts{"a"});
    EXPECT_EQ(Names(plan.replaced), Texts{"a replaced"});
    EXPECT_EQ(Names(plan.unpins), Texts()) << "a request would name the file that is there now";
    EXPECT_EQ(Names(plan.left), Texts{"other replaced"});
}

TEST_F(ApplyPlanTest, PruningGoesByWhereAFileLiesNow) {
    Pinned("in/a", {{0, kUnit}});
    Pinned("out/b", {{kUnit, kUnit}});
    Pinned("gone", {{2 * kUnit, kUnit}});
    Pinned("bad", {{3 * kUnit, kUnit}});
    WriteBitmap({0, 1, 2, 3});
    std::filesystem::rename(mount_ + "/in/a", mount_ + "/out/a");
    std::filesystem::rename(mount_ + "/out/b", mount_ + "/in/b");
    std::filesystem::rename(mount_ + "/bad", mount_ + "/a blank");
    unlink((mount_ + "/gone").c_str());
    const ApplyPlan plan = Plan(mount_ + "/in\n", true);
    EXPECT_EQ(Names(plan.pins), Texts());
    EXPECT_EQ(plan.held, 1U) << "pinned under its old name";
    EXPECT_EQ(Names(plan.unpins), Texts{"out/a"});
    EXPECT_EQ(Names(plan.left), (Texts{"gone gone", "bad renamed"})) << "in the order of the list";
}

TEST_F(ApplyPlanTest, WhatIsWantedAndCannotBePinnedNowIsNotUnpinned) {
    Pinned("d/emptied", {{0, kUnit}});
    Pinned("d/my", {{kUnit, kUnit}});
    WriteBitmap({0, 1});
    WriteFile(mount_ + "/d/emptied", "");
    std::filesystem::rename(mount_ + "/d/my", mount_ + "/d/my file");
    const ApplyPlan plan = Plan(mount_ + "/d\n", true);
    EXPECT_EQ(Names(plan.unpins), Texts());
    EXPECT_EQ(Names(plan.left), Texts());
    EXPECT_EQ(wanted_.refused.size(), 1U);
}

}  // namespace

}  // namespace client
