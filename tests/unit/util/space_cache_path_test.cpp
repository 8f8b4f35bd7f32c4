// SPDX-License-Identifier: MIT
// The cached block device of a space.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/unit/support/fake_platform.h"
#include "tests/unit/support/log_capture.h"
#include "tests/unit/support/unit_test.h"
#include "util/scoped.h"
#include "util/space.h"

namespace {

using Calls = std::vector<std::string>;

constexpr LogSource kLog = kUtilLog;
constexpr char kAskConfig[] = "QUORFlashCacheConfigTmpGet(2, uuid)";
constexpr char kFreeConfig[] = "QUORFlashCacheConfigFree()";
constexpr char kAskPath[] = "QUORFlashcacheGetCachePath(/dev/ssd, 512 zeroed)";

class SpaceCachePathTest : public UnitTest {
  protected:
    void SetUp() override {
        UnitTest::SetUp();
        g_platform.AddVolume("/mnt/volume", "uuid", "/dev/ssd", "/dev/cache");
    }

    // Calls since the last question.
    static Calls TakeCalls() {
        Calls calls;
        calls.swap(g_platform.calls);
        return calls;
    }
};

TEST_F(SpaceCachePathTest, TheCachePathIsTheDeviceOfTheSsd) {
    AtEveryLogSetting([](LogCapture& log) {
        EXPECT_STREQ(CString(SpaceGetCachePath("uuid")).get(), "/dev/cache");
        EXPECT_TRUE(log.Shows({}));
        EXPECT_EQ(TakeCalls(), (Calls{kAskConfig, kFreeConfig, kAskPath}));
    });
}

TEST_F(SpaceCachePathTest, OnlyTheResult1IsACachePath) {
    for (int result : {0, -1, 2, 10}) {
        g_platform.cachePaths["/dev/ssd"].result = result;
        AtEveryLogSetting([](LogCapture& log) {
            EXPECT_EQ(SpaceGetCachePath("uuid"), nullptr);
            EXPECT_TRUE(log.Shows({kLog.Error("SpaceGetCachePath", "Can't get cache path")}));
        });
    }
}

TEST_F(SpaceCachePathTest, WithoutAnSsdPathThereIsNoCachePath) {
    g_platform.configs["uuid"].hasSsdPath = false;
    AtEveryLogSetting([](LogCapture& log) {
        EXPECT_EQ(SpaceGetCachePath("uuid"), nullptr);
        EXPECT_TRUE(log.Shows({kLog.Error("SpaceGetCachePath", "Can't get cache's ssd path")}));
        EXPECT_EQ(TakeCalls(), (Calls{kAskConfig, kFreeConfig}));
    });
}

TEST_F(SpaceCachePathTest, ACachePathHas511CharactersAtMost) {
    for (size_t length : {511U, 512U, 513U, 5000U}) {
        g_platform.cachePaths["/dev/ssd"].path = std::string(length, 'c');
        EXPECT_EQ(std::string(CString(SpaceGetCachePath("uuid")).get()), std::string(511, 'c'));
    }
}

TEST_F(SpaceCachePathTest, TheCachePathOfAMountPath) {
    const ExpectedLine uuid = kLog.Verbose("SpaceGetUUID", "Get UUID = uuid");

    AtEveryLogSetting([&](LogCapture& log) {
        EXPECT_STREQ(CString(SpaceGetCachePathByMountPath("/mnt/volume")).get(), "/dev/cache");
        EXPECT_TRUE(log.Shows({uuid}));
    });
    g_platform.cachePaths.clear();
    AtEveryLogSetting([&](LogCapture& log) {
        EXPECT_EQ(SpaceGetCachePathByMountPath("/mnt/volume"), nullptr);
        EXPECT_TRUE(
            log.Shows({uuid, kLog.Error("SpaceGetCachePath", "Can't get cache path"),
                       kLog.Error("SpaceGetCachePathByMountPath", "Can't get cache path")}));
    });
}

TEST_F(SpaceCachePathTest, AMountPathWithoutASpaceHasNoCachePath) {
    AtEveryLogSetting([](LogCapture& log) {
        TakeCalls();
        EXPECT_EQ(SpaceGetCachePathByMountPath("/mnt"), nullptr);
        EXPECT_TRUE(log.Shows({kLog.Verbose("SpaceGetUUID", "Get UUID = (null)"),
                               kLog.Error("SpaceGetCachePathByMountPath",
                                          "Can't get space uuid from reference path (/mnt)")}));
        EXPECT_EQ(TakeCalls(), (Calls{"QUORSpaceInfoEnum(1)", "QUORSpaceInfoFree()"}));
    });
}

}  // namespace
