// SPDX-License-Identifier: MIT
// list: the listed files and their fates.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utime.h>

#include <algorithm>
#include <filesystem>

#include "client/show/exit_status.h"
#include "tests/unit/client/verbs/verbs_test.h"
#include "tests/unit/support/fake_platform.h"

namespace client {

namespace {

class ListVerbTest : public VerbsTest {};

TEST_F(ListVerbTest, ListTellsFilesByVolume) {
    const std::string path = PinHalf();
    const Json::Value report = Report({"list"}, 0);
    EXPECT_EQ(Shape(report), "exitStatus:n schema:n verb:s volumes:a");
    EXPECT_EQ(Shape(report["volumes"][0]), "files:a mounted:b volume:s");
    const Json::Value& file = report["volumes"][0]["files"][0];
    EXPECT_EQ(Shape(file), "fate:s inode:n path:s reason:0 relativePath:s size:n volume:s");
    EXPECT_EQ(file["path"], path);
    EXPECT_EQ(file["fate"], "there");
    unlink(path.c_str());
    const Json::Value gone = Report({"list"}, 0)["volumes"][0]["files"][0];
    EXPECT_EQ(gone["fate"], "gone");
    EXPECT_TRUE(gone["reason"].isString());
    EXPECT_TRUE(gone["size"].isNull());
    EXPECT_EQ(Shape(Report({"list", "/nowhere"}, 5)), kRefusedShape);
    config_ = dir_.path();  // cannot be read
    EXPECT_EQ(Shape(Report({"list"}, 3)), "error:s exitStatus:n schema:n verb:s");
}

TEST_F(ListVerbTest, TheFateStandsBesideAFileThatIsNotThere) {
    for (const char* const name : {"renamed", "replaced", "stays", "vanished"}) {
        Make(name, "12345");
    }
    List({"renamed", "replaced", "stays", "vanished"});
    std::filesystem::rename(mount_ + "/renamed", mount_ + "/elsewhere");
    Make("other");
    std::filesystem::rename(mount_ + "/other", mount_ + "/replaced");
    unlink((mount_ + "/vanished").c_str());
    const CallResult result = Run({"list"});
    EXPECT_EQ(result.status, kExitDone);
    EXPECT_EQ(result.talk, "");
    const char* const order[] = {
        ": 4 files pinned\n", "renamed   renamed: lies at ",
        "/elsewhere\n",       "replaced  replaced: ",
        "  stays\n",          "vanished  gone: is nowhere on its volume\n"};
    size_t at = 0;
    for (const char* const text : order) {
        at = result.out.find(text, at);
        ASSERT_NE(at, std::string::npos) << text << "\n" << result.out;
    }
}

TEST_F(ListVerbTest, FilesOfAVolumeThatIsNotMountedCannotBeLookedAt) {
    WriteFile(config_, R"({"volumes":{"/mnt/away":{"files":{"5":"x"}}}})");
    const CallResult result = Run({"list"});
    EXPECT_EQ(result.status, kExitDone);
    EXPECT_NE(result.out.find("/mnt/away: 1 file pinned, the volume is not mounted\n"),
              std::string::npos)
        << result.out;
    EXPECT_NE(result.out.find("cannot be looked at: "), std::string::npos) << result.out;
    const Json::Value volume = Report({"list", "/mnt/away"}, kExitDone)["volumes"][0];
    EXPECT_EQ(volume["mounted"], false);
    EXPECT_EQ(volume["files"][0]["fate"], "cannot be looked at");
    EXPECT_TRUE(volume["files"][0]["size"].isNull());
}

TEST_F(ListVerbTest, AnEmptyListAndAVolumeWithoutFilesAreNoFailure) {
    EXPECT_EQ(Run({"list"}).out, "nothing is pinned\n");
    WriteFile(config_, R"({"volumes":{"/mnt/away":{"files":{"5":"x"}}}})");
    const CallResult other = Run({"list", mount_});
    EXPECT_EQ(other.status, kExitDone);
    EXPECT_EQ(other.out, "nothing is pinned\n");
    const CallResult none = Run({"list", "/nowhere"});
    EXPECT_EQ(none.status, kExitRefused);
    EXPECT_EQ(none.out, "");
    EXPECT_NE(none.talk.find("refused /nowhere: "), std::string::npos) << none.talk;
}

TEST_F(ListVerbTest, TheLongListTellsWhatOfEachFileIsInTheCache) {
    MakeAt("half", 0, 4);
    const std::string none = MakeAt("none", 16, 2);
    // Preallocated, and never written: nobody reads it.
    g_platform.mappings[InodeOf(none)][0].entries.push_back({2 * kUnit, kUnit, 40 * kUnit, 1});
    const std::string full = MakeAt("full", 8, 8);
    WriteFile(full, std::string(5000, 'x'));
    struct utimbuf times = {1700000000, 1700000000};
    ASSERT_EQ(utime(full.c_str(), &times), 0);
    List({"full", "half", "none"});
    // Units 0, 1 and the second byte's.
    LetTheCacheTell(std::string("\x03\xff") + std::string(126, '\0'), std::string(128, '\0'));
    const Json::Value files = Report({"list", "-l"}, kExitDone)["volumes"][0]["files"];
    ASSERT_EQ(files.size(), 3U);
    EXPECT_EQ(Shape(files[0]),
              "fate:s inode:n lastRead:n path:s percent:n reason:0 relativePath:s size:n "
              "unitsResident:n unitsWanted:n volume:s");
    EXPECT_EQ(files[0]["lastRead"], 1700000000);
    EXPECT_EQ(files[0]["percent"], 100);
    EXPECT_EQ(files[1]["unitsWanted"], 4);
    EXPECT_EQ(files[1]["unitsResident"], 2);
    EXPECT_EQ(files[1]["percent"], 50);
    EXPECT_EQ(files[2]["unitsWanted"], 2);
    const std::string out = Run({"list", "--long", "--sort", "missing"}).out;
    EXPECT_NE(out.find("units  in cache"), std::string::npos) << out;
    EXPECT_NE(out.find(" 50%  "), std::string::npos) << out;
    // Both lack two units: of equals the list's order holds.
    EXPECT_LT(out.find("half\n"), out.find("none\n")) << out;
    EXPECT_LT(out.find("none\n"), out.find("full\n")) << out;
    const std::string bySize = Run({"list", "--sort", "size"}).out;
    EXPECT_LT(bySize.find("full\n"), bySize.find("half\n")) << bySize;
    EXPECT_EQ(Run({"list", "--paths", "--sort", "missing"}).out,
              mount_ + "/half\n" + mount_ + "/none\n" + full + "\n");
    EXPECT_EQ(Run({"list", "--sort", "colour"}).status, kExitUsage);
}

TEST_F(ListVerbTest, WhatACacheDoesNotTellIsNotKnown) {
    PinHalf();
    const Json::Value file = Report({"list", "-l"}, kExitDone)["volumes"][0]["files"][0];
    EXPECT_EQ(file["unitsWanted"], 2);
    EXPECT_TRUE(file["unitsResident"].isNull());
    EXPECT_TRUE(file["percent"].isNull());
    unlink((mount_ + "/photos/a.jpg").c_str());
    const Json::Value gone = Report({"list", "-l"}, kExitDone)["volumes"][0]["files"][0];
    EXPECT_TRUE(gone["unitsWanted"].isNull());
    EXPECT_TRUE(gone["lastRead"].isNull());
}

TEST_F(ListVerbTest, VolumesAreThoseThatHaveACacheOrPinnedFiles) {
    EXPECT_EQ(Run({"list", "--volumes"}).out, mount_ + "\n") << "nothing is pinned there";
    WriteFile(config_, R"({"volumes":{"/mnt/away":{"files":{"5":"x"}}}})");
    g_platform.spaces.push_back({"/mnt/plain", "uuid-plain"});
    const std::pair<std::string, std::string> both = std::minmax(mount_, std::string("/mnt/away"));
    EXPECT_EQ(Run({"list", "--volumes"}).out, both.first + "\n" + both.second + "\n");
    EXPECT_EQ(Run({"list", "--volumes", "-0"}).out,
              both.first + std::string(1, '\0') + both.second + std::string(1, '\0'));
    const Json::Value report = Report({"list", "--volumes"}, kExitDone);
    ASSERT_EQ(report["volumes"].size(), 2U);
    for (const Json::Value& volume : report["volumes"]) {
        EXPECT_EQ(Shape(volume), "mounted:b volume:s");
        EXPECT_EQ(volume["mounted"], volume["volume"] == mount_);
    }
    EXPECT_EQ(Run({"list", "--volumes", mount_}).status, kExitUsage);
}

TEST_F(ListVerbTest, AFileListedByALinkIsPrintedByItsOwnName) {
    const std::string path = MakeAt("my file", 3);
    MakeAt("b", 4);
    EXPECT_EQ(mkdir((mount_ + "/.quorcachepin").c_str(), 0700), 0);
    const std::string link = ".quorcachepin/" + std::to_string(InodeOf(path));
    ASSERT_EQ(::link(path.c_str(), (mount_ + "/" + link).c_str()), 0);
    List({link, "b"});
    EXPECT_EQ(Run({"list", "--paths"}).out, mount_ + "/b\n" + path + "\n");
    EXPECT_EQ(Run({"list", "-0"}).out,
              mount_ + "/b" + std::string(1, '\0') + path + std::string(1, '\0'));
}

}  // namespace

}  // namespace client
