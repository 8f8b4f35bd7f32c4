// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include "client/show/exit_status.h"
#include "tests/unit/client/verbs/verbs_test.h"
#include "tests/unit/support/fake_platform.h"

namespace client {

namespace {

constexpr char kEnd[] =
    "; a service that met a request for what is missing would forget its pins\n";

class ReadyVerbTest : public VerbsTest {};

TEST_F(ReadyVerbTest, WithAllVolumesThereItIs) {
    PinHalf();
    const CallResult result = Run({"ready"});
    EXPECT_EQ(result.status, kExitDone) << result.talk;
    EXPECT_EQ(result.out, "ready: all volumes are there with their caches\n");
    EXPECT_EQ(Shape(Report({"ready"}, kExitDone)), "absent:a exitStatus:n schema:n verb:s");
}

TEST_F(ReadyVerbTest, AFileThatIsYetToBeWrittenNamesNothing) {
    config_ = dir_ / "missing";
    EXPECT_EQ(Run({"ready"}).status, kExitDone);
}

TEST_F(ReadyVerbTest, OneThatCannotBeReadIsNoAnswer) {
    WriteFile(config_, "{");
    EXPECT_EQ(Run({"ready"}).status, kExitNoService);
}

TEST_F(ReadyVerbTest, AVolumeWhoseCacheDoesNotServeIsNamedInOneLine) {
    PinHalf();
    g_platform.stats["/dev/ssd1"].state = 0;
    const CallResult result = Run({"ready"});
    EXPECT_EQ(result.status, kExitPartly);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.talk,
              "quorcachepinctl: not ready: " + mount_ +
                  " has no cache that keeps pins now (1 pinned file, 1 queued request)" + kEnd);
}

// A queue names volumes as a list does.
TEST_F(ReadyVerbTest, VolumesThatAreNotMountedAreNamedWhoeverNamesThem) {
    WriteFile(config_, R"({"nextRequestNum": 3, "requestQueue": ["2"],
        "requests": {"2": {"type": "reloadPinBlocks", "mountPath": "/mnt/queued", "data": null}},
        "volumes": {"/mnt/listed": {"files": {"12": "a", "13": "b"}}, ")" +
                           mount_ + R"(": {"files": {"14": "c"}}}})");
    const CallResult result = Run({"ready"});
    EXPECT_EQ(result.status, kExitPartly);
    EXPECT_EQ(
        result.talk,
        std::string("quorcachepinctl: not ready: /mnt/listed is not mounted (2 pinned files, 0 "
                    "queued requests), /mnt/queued is not mounted (0 pinned files, 1 queued "
                    "request)") +
            kEnd);
    const Json::Value absent = Report({"ready"}, kExitPartly)["absent"];
    ASSERT_EQ(absent.size(), 2U);
    EXPECT_EQ(Shape(absent[0]), "files:n mounted:b requests:n volume:s");
    EXPECT_EQ(absent[1]["volume"], "/mnt/queued");
}

}  // namespace

}  // namespace client
