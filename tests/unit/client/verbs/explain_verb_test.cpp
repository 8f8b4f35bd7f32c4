// SPDX-License-Identifier: MIT
// explain: a file that is there, and an entry whose file is not.
#include <gtest/gtest.h>
#include <unistd.h>

#include "client/show/exit_status.h"
#include "tests/unit/client/verbs/verbs_test.h"
#include "tests/unit/support/fake_platform.h"

namespace client {

namespace {

class ExplainVerbTest : public VerbsTest {};

TEST_F(ExplainVerbTest, ExplainTellsExtentsUnitsAndNeighbours) {
    const std::string path = PinHalf();
    const std::string other = Make("b");
    Place(other, {{5 * kUnit, 8}});
    const Json::Value file = Report({"explain", other}, 0)["file"];
    EXPECT_EQ(Shape(file),
              "extents:a fate:0 inode:n path:s pathReplaced:b pinned:b queued:a shares:a size:n "
              "unitRuns:a units:n unitsResident:0 unitsSet:n unitsWithDriver:0 volume:s "
              "whyNotResident:s");
    EXPECT_EQ(file["pinned"], false);
    EXPECT_EQ(Shape(file["extents"][0]), "deviceSector:n fileSector:n sectors:n written:b");
    EXPECT_EQ(file["unitRuns"][0][0], 5);
    EXPECT_EQ(file["unitRuns"][0][1], 5);
    EXPECT_EQ(Shape(file["shares"][0]), "path:s units:n");
    EXPECT_EQ(file["shares"][0]["path"], path);
    const Json::Value itself = Report({"explain", path}, 0)["file"];
    EXPECT_EQ(itself["pinned"], true);
    EXPECT_EQ(itself["fate"], "there");
    const Json::Value refused = Report({"explain", mount_ + "/nothing"}, 5);
    EXPECT_EQ(refused["refused"].size(), 1U);
    EXPECT_EQ(refused["entries"].size(), 0U);
    unlink(path.c_str());
    const Json::Value gone = Report({"explain", path}, 5);
    ASSERT_EQ(gone["entries"].size(), 1U) << "it is on the list all the same";
    EXPECT_EQ(Shape(gone["entries"][0]), "fate:s inode:n path:s reason:s volume:s");
    EXPECT_EQ(gone["entries"][0]["fate"], "gone");
}

TEST_F(ExplainVerbTest, AFileIsExplainedInWords) {
    const std::string path = PinHalf();
    const std::string other = MakeAt("b", 5);
    const CallResult result = Run({"explain", other});
    EXPECT_EQ(result.status, kExitDone) << result.talk;
    EXPECT_EQ(result.out.substr(0, other.size() + 1), other + "\n");
    EXPECT_NE(result.out.find("1 unit with " + path + "\n"), std::string::npos) << result.out;
    EXPECT_NE(result.out.find("1, set 0"), std::string::npos) << result.out;
}

TEST_F(ExplainVerbTest, ADirectoryIsRefusedWithoutAnOptionOfOtherVerbs) {
    const CallResult result = Run({"explain", mount_});
    EXPECT_EQ(result.status, kExitRefused);
    EXPECT_NE(result.talk.find(": is a directory; list and check tell of whole volumes\n"),
              std::string::npos)
        << result.talk;
}

TEST_F(ExplainVerbTest, AFileOfAVolumeWithoutACacheHasItsUnitsAllTheSame) {
    const std::string path = MakeAt("b", 5, 3);
    g_platform.configs.clear();
    const Json::Value file = Report({"explain", path}, kExitDone)["file"];
    EXPECT_EQ(file["units"], 3);
    EXPECT_EQ(file["unitsSet"], 0);
}

TEST_F(ExplainVerbTest, AListedEntryWhoseFileIsGoneIsSaidBesideTheRefusal) {
    const std::string path = PinHalf();
    const uint32_t inode = InodeOf(path);
    unlink(path.c_str());
    const CallResult gone = Run({"explain", path});
    EXPECT_EQ(gone.status, kExitRefused);
    EXPECT_EQ(gone.out, "");
    EXPECT_NE(gone.talk.find("refused " + path + ": "), std::string::npos) << gone.talk;
    EXPECT_NE(gone.talk.find("inode " + std::to_string(inode) +
                             " is on the service's list and gone; "
                             "check --repair takes it off"),
              std::string::npos)
        << gone.talk;
    const CallResult never = Run({"explain", mount_ + "/never"});
    EXPECT_EQ(never.status, kExitRefused);
    EXPECT_EQ(never.talk.find("inode"), std::string::npos) << never.talk;
}

TEST_F(ExplainVerbTest, WithoutTheListWhatIsKnownIsStillSaid) {
    const std::string other = MakeAt("b", 5);
    config_ = dir_ / "missing";
    const Json::Value report = Report({"explain", other}, kExitNoService);
    EXPECT_TRUE(report["file"]["pinned"].isNull());
    EXPECT_EQ(report["file"]["units"], 1);
}

}  // namespace

}  // namespace client
