// SPDX-License-Identifier: MIT
// map: runs, the picture on the terminal and in a file.
#include <gtest/gtest.h>
#include <unistd.h>

#include "client/show/exit_status.h"
#include "tests/unit/client/verbs/verbs_test.h"
#include "tests/unit/support/fake_platform.h"

namespace client {

namespace {

class MapVerbTest : public VerbsTest {};

TEST_F(MapVerbTest, MapTellsRuns) {
    WriteBitmap({1, 2, 3, 9});
    const Json::Value report = Report({"map", mount_}, 0);
    EXPECT_EQ(Shape(report),
              "cacheBytes:0 exitStatus:n residentRuns:0 schema:n setRuns:a unitBytes:n units:n "
              "unitsSet:n verb:s volume:s");
    EXPECT_EQ(report["units"], 1024);
    ASSERT_EQ(report["setRuns"].size(), 2U);
    EXPECT_EQ(report["setRuns"][0][0], 1);
    EXPECT_EQ(report["setRuns"][0][1], 3);
    EXPECT_EQ(report["setRuns"][1][0], 9);
    EXPECT_EQ(Shape(Report({"map", "/nowhere"}, 5)), kRefusedShape);
}

TEST_F(MapVerbTest, ThePictureIsDrawnOnTheTerminalOrIntoAFile) {
    WriteBitmap({1, 2, 3, 9});
    const CallResult drawn = Run({"map", mount_, "--width", "40"});
    EXPECT_EQ(drawn.status, kExitDone);
    EXPECT_NE(drawn.out.find(mount_), std::string::npos) << drawn.out;
    const std::string file = dir_ / "picture.svg";
    const CallResult written = Run({"map", mount_, "-o", file});
    EXPECT_EQ(written.status, kExitDone);
    EXPECT_EQ(written.out, "written to " + file + "\n");
    EXPECT_NE(ReadFile(file).find("<svg"), std::string::npos);
    const CallResult refused = Run({"map", mount_, "-o", file});
    EXPECT_EQ(refused.status, kExitRefused) << "what is there stays";
    EXPECT_EQ(refused.out, "");
    EXPECT_EQ(refused.talk,
              "quorcachepinctl: refused " + file + ": is there already; --force replaces it\n");
    WriteFile(file, "precious");
    EXPECT_EQ(Run({"map", mount_, "-o", file}).status, kExitRefused);
    EXPECT_EQ(ReadFile(file), "precious");
    EXPECT_EQ(Run({"map", mount_, "-o", file, "--force"}).status, kExitDone);
    EXPECT_NE(ReadFile(file).find("<svg"), std::string::npos);
    EXPECT_EQ(Run({"map", mount_, "--force"}).status, kExitUsage) << "there is nothing to replace";
    const CallResult nowhere = Run({"map", mount_, "-o", dir_ / "none/picture.svg"});
    EXPECT_EQ(nowhere.status, kExitPartly);
    EXPECT_EQ(nowhere.out, "");
    EXPECT_NE(nowhere.talk.find("none/picture.svg"), std::string::npos) << nowhere.talk;
}

TEST_F(MapVerbTest, AVolumeWithNothingToDrawIsRefused) {
    g_platform.configs.clear();
    const CallResult result = Run({"map", mount_});
    EXPECT_EQ(result.status, kExitRefused);
    EXPECT_EQ(result.out, "");
    EXPECT_NE(result.talk.find("it has neither a cache nor a bitmap file"), std::string::npos);
    WriteBitmap({1});
    EXPECT_EQ(Run({"map", mount_}).status, kExitDone) << "the bitmap file alone will do";
}

}  // namespace

}  // namespace client
