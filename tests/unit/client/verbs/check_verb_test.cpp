// SPDX-License-Identifier: MIT
// check: findings, and what a repair comes to.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <filesystem>

#include "client/service/repair_record.h"
#include "client/show/exit_status.h"
#include "tests/unit/client/service/impostor.h"
#include "tests/unit/client/verbs/verbs_test.h"
#include "tests/unit/support/fake_platform.h"

namespace client {

namespace {

class CheckVerbTest : public VerbsTest {
  protected:
    // Gives the file its link of plain name; returns the link's path.
    std::string Link(const std::string& path) const {
        const std::string directory = mount_ + "/.quorcachepin";
        std::filesystem::create_directory(directory);
        EXPECT_EQ(chmod(directory.c_str(), 0700), 0);
        const std::string link = directory + "/" + std::to_string(InodeOf(path));
        EXPECT_EQ(::link(path.c_str(), link.c_str()), 0);
        return link;
    }
};

TEST_F(CheckVerbTest, CheckTellsFatesAndCounts) {
    PinHalf();
    const Json::Value report = Report({"check"}, 1);
    EXPECT_EQ(Shape(report), "exitStatus:n schema:n verb:s volumes:a");
    const Json::Value& volume = report["volumes"][0];
    EXPECT_EQ(Shape(volume),
              "agrees:b bitmapFileTooLong:b cacheBytes:0 files:a mountPaths:a mounted:b remedy:s "
              "requestsQueued:n state:s uncertain:0 unitsAbsent:0 unitsDriverLacks:0 "
              "unitsDriverSurplus:0 unitsMissing:n unitsNeeded:n unitsSet:n unitsSurplus:n "
              "unitsWithoutBit:n volume:s");
    EXPECT_EQ(Shape(volume["files"][0]),
              "fate:s inode:n path:s reason:0 units:n unitsAbsent:0 unitsMissing:n volume:s");
    EXPECT_EQ(volume["volume"], mount_);
    EXPECT_EQ(volume["mountPaths"][0], mount_);
    EXPECT_EQ(volume["files"][0]["fate"], "there");
    EXPECT_EQ(volume["files"][0]["unitsMissing"], 1);
    EXPECT_EQ(volume["requestsQueued"], 1);
    EXPECT_EQ(volume["state"], "list and bitmap differ");
    EXPECT_EQ(volume["remedy"], "quorcachepinctl check --repair");
    WriteBitmap({4, 5});
    EXPECT_EQ(Report({"check"}, 0)["volumes"][0]["agrees"], true);
    EXPECT_EQ(Shape(Report({"check", "/nowhere"}, 5)), kRefusedShape);
}

TEST_F(CheckVerbTest, RepairTellsWhatItDid) {
    PinHalf();
    const Json::Value report = Report({"check", "--repair"}, 0);
    EXPECT_EQ(Shape(report["repair"]), "actions:a left:a requests:n unitsCleared:n unitsSet:n");
    EXPECT_EQ(report["repair"]["requests"], 0);
    EXPECT_EQ(report["repair"]["unitsSet"], 1);
    Json::Value after = report["volumesAfterRepair"][0];
    EXPECT_TRUE(after["remedy"].isNull());
    after["remedy"] = "";
    EXPECT_EQ(Shape(report["volumes"][0]), Shape(after));
}

TEST_F(CheckVerbTest, WhatAgreesAndWhatDoesNotIsSaidInWords) {
    EXPECT_EQ(Run({"check"}).out, "nothing is pinned, nothing to check\n");
    PinHalf();
    const CallResult half = Run({"check"});
    EXPECT_EQ(half.status, kExitPartly);
    EXPECT_NE(half.out.find(mount_ + ": list and bitmap differ: 0 of 1 file good, 1 unit set\n"),
              std::string::npos)
        << half.out;
    EXPECT_NE(half.out.find("  photos/a.jpg: 1 unit of 2 not set: "), std::string::npos)
        << half.out;
    EXPECT_NE(half.out.find("1 request of the volume still queued"), std::string::npos);
    WriteBitmap({4, 5, 9});
    const CallResult surplus = Run({"check", mount_});
    EXPECT_EQ(surplus.status, kExitPartly);
    EXPECT_NE(surplus.out.find("1 unit set that no pinned file needs: 64.0 KiB of the cache"),
              std::string::npos)
        << surplus.out;
    WriteBitmap({4, 5});
    const CallResult good = Run({"check"});
    EXPECT_EQ(good.status, kExitDone);
    EXPECT_NE(good.out.find(": pinned: 1 of 1 file good, 2 units set\n"), std::string::npos)
        << good.out;
}

TEST_F(CheckVerbTest, AVolumeThatIsNotMountedCannotBeLookedAtAndIsNotWell) {
    WriteFile(config_, R"({"volumes":{"/mnt/away":{"files":{"5":"x","6":"y"}}}})");
    const CallResult result = Run({"check"});
    EXPECT_EQ(result.status, kExitPartly);
    EXPECT_EQ(result.out,
              "/mnt/away: 2 files listed, cannot be looked at: the volume is not mounted\n");
    const Json::Value volume = Report({"check"}, kExitPartly)["volumes"][0];
    EXPECT_EQ(Shape(volume), "agrees:b files:a mounted:b state:s volume:s");
    EXPECT_EQ(volume["files"][1]["path"], "/mnt/away/y");
    EXPECT_EQ(Run({"check", mount_}).status, kExitDone) << "it was not asked about";
}

TEST_F(CheckVerbTest, PinsThatNothingEnforcesAreNotGoodAndSoIsACacheThatLacksThem) {
    PinHalf();
    WriteBitmap({4, 5});
    EXPECT_EQ(Run({"check"}).status, kExitDone);
    g_platform.stats["/dev/ssd1"].state = 0;
    const CallResult dead = Run({"check"});
    EXPECT_EQ(dead.status, kExitNotInForce);
    EXPECT_NE(dead.out.find(mount_ + ": pinned, not in force: 0 of 1 file good, 2 units set\n"),
              std::string::npos)
        << dead.out;
    EXPECT_NE(dead.out.find("  the cache does not serve now"), std::string::npos) << dead.out;
    EXPECT_NE(dead.out.find("  remedy: bring the cache up"), std::string::npos) << dead.out;
    EXPECT_EQ(Report({"check", "--repair"}, kExitNotInForce)["volumesAfterRepair"][0]["state"],
              "pinned, not in force");
}

TEST_F(CheckVerbTest, WithoutTheListNothingIsChecked) {
    config_ = dir_ / "missing";
    const CallResult result = Run({"check", "--repair"});
    EXPECT_EQ(result.status, kExitNoService);
    EXPECT_EQ(result.out, "");
    EXPECT_NE(result.talk.find("No such file"), std::string::npos) << result.talk;
}

TEST_F(CheckVerbTest, ARepairSaysWhatItDidAndWhatHoldsAfterwards) {
    PinHalf();
    const CallResult result = Run({"check", "--repair"});
    EXPECT_EQ(result.status, kExitDone) << result.talk;
    const size_t before = result.out.find(": 0 of 1 file good");
    const size_t repair = result.out.find("  repair: ");
    const size_t again = result.out.find("checked again:\n");
    const size_t after = result.out.find(": 1 of 1 file good, 2 units set\n");
    EXPECT_LT(before, repair) << result.out;
    EXPECT_LT(repair, again) << result.out;
    EXPECT_LT(again, after) << result.out;
    EXPECT_NE(after, std::string::npos) << result.out;
    EXPECT_EQ(Run({"check", "--repair"}).out.find("repair"), std::string::npos)
        << "nothing is left to do";
}

TEST_F(CheckVerbTest, ARepairTakesLastNamesAway) {
    const std::string path = MakeAt("my file", 3);
    const std::string link = Link(path);
    // What waits in the queue may name it.
    const int queue = MakeQueue();
    ASSERT_EQ(Run({"pin", path}).status, kExitNoService);
    ASSERT_EQ(Waiting(queue), 1U);
    EXPECT_EQ(Report({"check", "--repair"}, 0)["linksRemoved"].size(), 0U);
    unlink(path.c_str());
    EXPECT_FALSE(Report({"check"}, 0).isMember("linksRemoved"));
    EXPECT_EQ(Report({"check", "--repair"}, 0)["linksRemoved"][0], link);
    EXPECT_NE(access(link.c_str(), F_OK), 0);
}

TEST_F(CheckVerbTest, ARepairAtRestTakesUnneededLinksAway) {
    const std::string path = MakeAt("my file", 3);
    const std::string link = Link(path);
    const std::string pinned = MakeAt("your file", 4);
    Link(pinned);
    List({LinkName(InodeOf(pinned))});
    WriteBitmap({4});
    std::filesystem::create_symlink("/bin/sh", dir_ / "quorcachepinfiled");
    {
        const Impostor service(dir_ / "quorcachepinfiled", {"-f", config_});
        EXPECT_EQ(Report({"check", "--repair"}, 0)["linksRemoved"].size(), 0U);
    }
    const Json::Value removed = Report({"check", "--repair"}, 0)["linksRemoved"];
    ASSERT_EQ(removed.size(), 1U);
    EXPECT_EQ(removed[0], link);
    EXPECT_NE(access(link.c_str(), F_OK), 0);
    EXPECT_EQ(access(path.c_str(), F_OK), 0);
}

TEST_F(CheckVerbTest, ARepairThatDidSomethingIsNoted) {
    MakeAt("a", 4);
    List({"a"});
    WriteBitmap({4});
    Report({"check", "--repair"}, 0);
    EXPECT_FALSE(ReadRepairRecord(config_).has_value()) << "there was nothing to repair";
    WriteBitmap({4, 9});
    Report({"check", "--repair"}, 0);
    const std::optional<RepairRecord> record = ReadRepairRecord(config_);
    ASSERT_TRUE(record.has_value());
    EXPECT_NEAR(static_cast<double>(record->at), static_cast<double>(time(nullptr)), 600);
    EXPECT_EQ(record->left, 0U);
}

}  // namespace

}  // namespace client
