// SPDX-License-Identifier: MIT
// apply: what it reads, sends, holds back and tells.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "client/show/exit_status.h"
#include "client/volume/plain_links.h"
#include "tests/unit/client/verbs/verbs_test.h"
#include "tests/unit/support/fake_files.h"
#include "tests/unit/support/fake_platform.h"

namespace client {

namespace {

class ApplyVerbTest : public VerbsTest {
  protected:
    void SetUp() override {
        VerbsTest::SetUp();
        RedirectPath("/etc/fstab", dir_ / "fstab");
        std::filesystem::create_directory(dir_ / "conf.d");
    }
    void Conf(const std::string& lines) { WriteFile(dir_ / "conf.d/a.conf", lines); }
    Json::Value Apply(int status, std::vector<std::string> more = {}) {
        more.insert(more.begin(), {"apply", "--from", dir_ / "conf.d"});
        return Report(more, status);
    }
};

TEST_F(ApplyVerbTest, TellsWhatItAskedFor) {
    const std::string path = MakeAt("a", 3);
    Conf(path + "\n");
    const int queue = MakeQueue();
    const auto service = Serve();
    const Json::Value dry = Apply(0, {"--dry-run"});
    EXPECT_EQ(Shape(dry),
              "byHand:n dryRun:b exitStatus:n held:n left:a notFitting:a notMounted:a pins:a "
              "pruneHeldBack:b "
              "queued:n refused:a repinned:a replaced:a requests:n schema:n sent:n unpins:a verb:s "
              "wanted:n wrong:a");
    EXPECT_EQ(Shape(dry["pins"][0]), "inode:n path:s size:n volume:s");
    EXPECT_EQ(dry["requests"], 1);
    EXPECT_EQ(dry["sent"], 0);
    EXPECT_EQ(Waiting(queue), 0U);
    EXPECT_EQ(Apply(0)["sent"], 1);
    EXPECT_EQ(Waiting(queue), 1U);
    const CallResult text = Run({"apply", "--from", dir_ / "conf.d", "-n"});
    EXPECT_EQ(text.out,
              "1 file wanted: 0 pinned, 0 asked for already, 1 to be pinned\n"
              "to be pinned: " +
                  path +
                  "\n"
                  "nothing was sent: this was a dry run\n");
}

TEST_F(ApplyVerbTest, WrongLinesAndRefusedFilesMakeItPartly) {
    const std::string path = MakeAt("a", 3);
    Conf("no path\n" + path + "\n" + mount_ + "/nothing\n");
    MakeQueue();
    const auto service = Serve();
    const Json::Value report = Apply(kExitPartly);
    EXPECT_EQ(report["sent"], 1);
    ASSERT_EQ(report["wrong"].size(), 1U);
    EXPECT_EQ(Shape(report["wrong"][0]), "line:s path:0 reason:s");
    EXPECT_EQ(report["wrong"][0]["line"], (dir_ / "conf.d/a.conf") + ":1");
    ASSERT_EQ(report["refused"].size(), 1U);
    EXPECT_EQ(report["refused"][0]["path"], mount_ + "/nothing");
}

TEST_F(ApplyVerbTest, ALineThatAllowsLinksIsAppliedByThem) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "needs root: the directory of links must be root's";
    }
    const std::string path = MakeAt("my file", 3);
    Conf("link " + path + "\n");
    const int queue = MakeQueue();
    const auto service = Serve();
    EXPECT_EQ(Apply(0, {"--dry-run"})["pins"][0]["path"], path);
    EXPECT_FALSE(HasLink(mount_, InodeOf(path))) << "it was a dry run";
    EXPECT_EQ(Apply(0)["sent"], 1);
    EXPECT_TRUE(HasLink(mount_, InodeOf(path)));
    EXPECT_EQ(Waiting(queue), 1U);
    // Where no link can be made the line is named.
    const std::string other = MakeAt("other file", 4);
    chmod((mount_ + "/.quorcachepin").c_str(), 0755);
    Conf("#\nlink " + other + "\n");
    const Json::Value report = Apply(kExitPartly);
    EXPECT_EQ(report["sent"], 0);
    ASSERT_EQ(report["refused"].size(), 1U);
    EXPECT_EQ(report["refused"][0]["line"], (dir_ / "conf.d/a.conf") + ":2");
    EXPECT_EQ(report["refused"][0]["reason"], mount_ + "/.quorcachepin: is not root's alone");
}

TEST_F(ApplyVerbTest, AFileThatCannotBeMappedIsRefusedWithItsLine) {
    const std::string path = Make("a");
    g_platform.mappings[InodeOf(path)] = {FakeMapping()};
    Conf("#\n" + path + "\n");
    MakeQueue();
    const Json::Value report = Apply(kExitPartly);
    EXPECT_EQ(report["sent"], 0);
    ASSERT_EQ(report["refused"].size(), 1U);
    EXPECT_EQ(report["refused"][0]["line"], (dir_ / "conf.d/a.conf") + ":2");
}

TEST_F(ApplyVerbTest, WhatDoesNotFitIntoTheCacheIsNotAskedFor) {
    const std::string small = MakeAt("small", 0, 8);
    const std::string large = MakeAt("large", 16, 9);
    LetTheCacheTell("", "");  // sixteen units
    const int queue = MakeQueue();
    const auto service = Serve();
    Conf(small + "\n" + large + "\n");
    const Json::Value refused = Apply(kExitPartly);
    EXPECT_EQ(refused["sent"], 0);
    ASSERT_EQ(refused["notFitting"].size(), 1U);
    const std::string why = mount_ +
                            ": 0 bytes pinned or queued and 1.1 MiB more do not fit into the cache "
                            "of 1.0 MiB";
    EXPECT_EQ(refused["notFitting"][0], why);
    const CallResult said = Run({"apply", "--from", dir_ / "conf.d"});
    EXPECT_NE(said.talk.find("not pinned " + why + "; --overcommit pins it all the same\n"),
              std::string::npos)
        << said.talk;
    EXPECT_EQ(Waiting(queue), 0U);
    EXPECT_EQ(Apply(kExitDone, {"--overcommit"})["sent"], 1);
    Conf(small + "\n");
    EXPECT_EQ(Apply(kExitDone)["sent"], 1);
}

TEST_F(ApplyVerbTest, PruningUnpinsFirstAndPinsAgainWhatSharesUnits) {
    const std::string hand = MakeAt("hand", 3);
    const std::string shares = Make("shares");
    Place(shares, {{3 * kUnit + 8, 8}});
    List({"hand", "shares"});
    WriteBitmap({3});
    Conf(shares + "\n" + MakeAt("new", 5) + "\n");
    const int queue = MakeQueue();
    const auto service = Serve();
    EXPECT_EQ(Apply(0)["byHand"], 1);
    EXPECT_EQ(Waiting(queue), 1U) << "the new one's";
    const Json::Value report = Apply(0, {"--prune"});
    ASSERT_EQ(report["unpins"].size(), 1U);
    EXPECT_EQ(report["unpins"][0]["path"], hand);
    ASSERT_EQ(report["repinned"].size(), 1U);
    EXPECT_EQ(report["repinned"][0]["path"], shares);
    EXPECT_EQ(report["sent"], 3);
}

TEST_F(ApplyVerbTest, NothingIsUnpinnedBesideWhatCannotBeRead) {
    MakeAt("hand", 3);
    List({"hand"});
    WriteBitmap({3});
    const int queue = MakeQueue();
    for (const char* const lines : {"", "# a comment alone\n", "!*.tmp\n", "wrong\n/proc/none\n"}) {
        Conf(lines);
        const Json::Value report = Apply(kExitPartly, {"--prune"});
        EXPECT_EQ(report["pruneHeldBack"], true) << lines;
        EXPECT_EQ(report["byHand"], 1) << lines;
    }
    EXPECT_EQ(Waiting(queue), 0U);
}

TEST_F(ApplyVerbTest, ADirectoryThatIsNamedMustBeThere) {
    const CallResult result = Run({"apply", "--from", dir_ / "missing"});
    EXPECT_EQ(result.status, kExitRefused);
    EXPECT_EQ(result.talk, "quorcachepinctl: " + (dir_ / "missing") +
                               ": No such file or directory; nothing was sent\n");
}

TEST_F(ApplyVerbTest, VolumesOfTheTableThatAreNotMountedAreLeftAlone) {
    WriteFile(dir_ / "fstab", "/dev/x " + mount_ + "/sub ext4 nofail 0 0\n");
    Conf(MakeAt("sub/a", 3) + "\n");
    const int queue = MakeQueue();
    const Json::Value report = Apply(kExitPartly);
    ASSERT_EQ(report["notMounted"].size(), 1U);
    EXPECT_EQ(report["notMounted"][0]["reason"], "its volume " + mount_ + "/sub is not mounted");
    EXPECT_EQ(report["wanted"], 0);
    EXPECT_EQ(Waiting(queue), 0U);
}

}  // namespace

}  // namespace client
