// SPDX-License-Identifier: MIT
// The cache of a space: its configuration, SSD and status. Its device: space_cache_path_test.cpp.
#include <errno.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/unit/support/fake_platform.h"
#include "tests/unit/support/fake_system.h"
#include "tests/unit/support/log_capture.h"
#include "tests/unit/support/unit_test.h"
#include "tests/unit/util/lines.h"
#include "util/scoped.h"
#include "util/space.h"

namespace {

using Calls = std::vector<std::string>;

constexpr LogSource kLog = kUtilLog;

// What the platform is asked, call by call.
constexpr char kAskConfig[] = "QUORFlashCacheConfigTmpGet(2, uuid)";
constexpr char kFreeConfig[] = "QUORFlashCacheConfigFree()";
constexpr char kAskStat[] = "QUORFlashCacheStatGet(3, /dev/ssd)";
constexpr char kFreeStat[] = "QUORFlashCacheStatFree()";

class SpaceCacheTest : public UnitTest {
  protected:
    void SetUp() override {
        UnitTest::SetUp();
        g_platform.AddVolume("/mnt/volume", "uuid", "/dev/ssd", "/dev/cache");
    }

    static FakeCacheConfig& Config() { return g_platform.configs["uuid"]; }
    static FakeCacheStat& Stat() { return g_platform.stats["/dev/ssd"]; }

    // Calls since the last question.
    static Calls TakeCalls() {
        Calls calls;
        calls.swap(g_platform.calls);
        return calls;
    }
};

const ExpectedLine kNoConfig = kLog.Verbose(
    "SpaceGetCacheConfig", "Can't find cache in the config file. Space UUID is (uuid)");
const ExpectedLine kConfigFailed =
    kLog.Error("SpaceGetCacheConfig", "Fail to get SSD cache config");
// The number is 0 whatever was found: meant.
const ExpectedLine kChecked = kLog.Verbose("SpaceHasCache", "Check Space (uuid) ret=0");
const ExpectedLine kNotFound =
    kLog.Verbose("SpaceHasCache", "Space (uuid) doesn't be found in the config");

struct ConfigRow {
    const char* why;
    int result;
    bool stored;
    Lines lines;
};

// The record counts, not the result that came with it: meant.
std::vector<ConfigRow> ConfigRows() {
    return {
        {"found", 1, true, {}},
        {"another value is found, too", 7, true, {}},
        {"and so is another negative one", -2, true, {}},
        {"none", 0, false, {kNoConfig}},
        {"none, and yet a record", 0, true, {kNoConfig}},
        {"failed", -1, false, {kConfigFailed}},
        {"failed, and yet a record", -1, true, {kConfigFailed}},
        {"found, and yet no record", 1, false, {}},
    };
}

TEST_F(SpaceCacheTest, TheRecordIsReturnedAsItWasStored) {
    for (const ConfigRow& row : ConfigRows()) {
        SCOPED_TRACE(row.why);
        Config().result = row.result;
        Config().stored = row.stored;
        AtEveryLogSetting([&](LogCapture& log) {
            FlashCacheConfig* config = SpaceGetCacheConfig("uuid");
            EXPECT_TRUE(log.Shows(row.lines));
            EXPECT_EQ(TakeCalls(), Calls{kAskConfig});
            ASSERT_EQ(config != nullptr, row.stored);
            if (config != nullptr) {
                EXPECT_STREQ(config->ssdPath, "/dev/ssd");
                QUORFlashCacheConfigFree(config);
                TakeCalls();
            }
        });
    }
}

TEST_F(SpaceCacheTest, ASpaceHasACacheWhenThereIsARecord) {
    for (const ConfigRow& row : ConfigRows()) {
        SCOPED_TRACE(row.why);
        Config().result = row.result;
        Config().stored = row.stored;
        AtEveryLogSetting([&](LogCapture& log) {
            EXPECT_EQ(SpaceHasCache("uuid"), row.stored ? 1 : 0);
            EXPECT_TRUE(log.Shows(row.lines + Lines{row.stored ? kChecked : kNotFound}));
            EXPECT_EQ(TakeCalls(),
                      row.stored ? (Calls{kAskConfig, kFreeConfig}) : Calls{kAskConfig});
        });
    }
}

TEST_F(SpaceCacheTest, ASpaceThatNobodyKnowsHasNoCacheAndThatIsNoError) {
    AtEveryLogSetting([](LogCapture& log) {
        EXPECT_EQ(SpaceHasCache("other"), 0);
        EXPECT_TRUE(log.Shows(
            {kLog.Verbose("SpaceGetCacheConfig",
                          "Can't find cache in the config file. Space UUID is (other)"),
             kLog.Verbose("SpaceHasCache", "Space (other) doesn't be found in the config")}));
    });
}

TEST_F(SpaceCacheTest, TheSsdPathIsACopyOfTheRecords) {
    for (const ConfigRow& row : ConfigRows()) {
        SCOPED_TRACE(row.why);
        Config().result = row.result;
        Config().stored = row.stored;
        AtEveryLogSetting([&](LogCapture& log) {
            CString path(SpaceGetCacheSsdPath("uuid"));
            EXPECT_STREQ(path.get(), row.stored ? "/dev/ssd" : nullptr);
            EXPECT_TRUE(log.Shows(row.lines)) << "silent itself";
            EXPECT_EQ(TakeCalls(),
                      row.stored ? (Calls{kAskConfig, kFreeConfig}) : Calls{kAskConfig});
        });
    }
}

TEST_F(SpaceCacheTest, ARecordWithoutAnSsdPathGivesNone) {
    Config().hasSsdPath = false;
    AtEveryLogSetting([](LogCapture& log) {
        EXPECT_EQ(SpaceGetCacheSsdPath("uuid"), nullptr);
        EXPECT_TRUE(log.Shows({}));
        EXPECT_EQ(TakeCalls(), (Calls{kAskConfig, kFreeConfig}));
    });
}

TEST_F(SpaceCacheTest, WithoutMemoryThereIsNoSsdPath) {
    AtEveryLogSetting([](LogCapture& log) {
        FailCall(Call::kStrdup, 1, ENOMEM);
        EXPECT_EQ(SpaceGetCacheSsdPath("uuid"), nullptr);
        EXPECT_TRUE(log.Shows({}));
    });
}

struct SupportRow {
    const char* why;
    int state;
    int supportPin;
    int support;
};

TEST_F(SpaceCacheTest, PinningTakesAnEstablishedCacheThatSupportsIt) {
    const SupportRow rows[] = {
        {"both 1", 1, 1, 1},
        {"not established", 0, 1, 0},
        {"another state", 2, 1, 0},
        {"a negative state", -1, 1, 0},
        {"no support", 1, 0, 0},
        {"support must be exactly 1", 1, 2, 0},
        {"negative support", 1, -1, 0},
        {"neither", 0, 0, 0},
        {"equal, but not 1", 3, 3, 0},
    };

    for (const SupportRow& row : rows) {
        SCOPED_TRACE(row.why);
        Stat().state = row.state;
        Stat().supportPin = row.supportPin;
        Stat().result = row.state == 2 ? 5 : 1;  // any positive result is success
        AtEveryLogSetting([&](LogCapture& log) {
            EXPECT_EQ(SpaceHasCacheAndSupportPinByUUID("uuid"), row.support);
            EXPECT_TRUE(log.Shows(
                {kChecked, kLog.Verbose("SpaceHasCacheAndSupportPinByUUID",
                                        "supportPin=" + std::to_string(row.supportPin))}));
            EXPECT_EQ(TakeCalls(), (Calls{kAskConfig, kFreeConfig, kAskConfig, kFreeConfig,
                                          kAskStat, kFreeStat}));
        });
    }
}

TEST_F(SpaceCacheTest, WithoutACacheTheStatusIsNotAsked) {
    g_platform.configs.clear();
    AtEveryLogSetting([](LogCapture& log) {
        EXPECT_EQ(SpaceHasCacheAndSupportPinByUUID("uuid"), 0);
        EXPECT_TRUE(log.Shows({kNoConfig, kNotFound,
                               kLog.Verbose("SpaceHasCacheAndSupportPinByUUID",
                                            "Space (UUID = uuid) doesn't has cache")}));
        EXPECT_EQ(TakeCalls(), Calls{kAskConfig});
    });
}

TEST_F(SpaceCacheTest, WithoutAnSsdPathTheStatusIsNotAsked) {
    Config().hasSsdPath = false;
    AtEveryLogSetting([](LogCapture& log) {
        EXPECT_EQ(SpaceHasCacheAndSupportPinByUUID("uuid"), 0);
        EXPECT_TRUE(log.Shows({kChecked, kLog.Error("SpaceHasCacheAndSupportPinByUUID",
                                                    "Can't get cache's ssd path")}));
        EXPECT_EQ(TakeCalls(), (Calls{kAskConfig, kFreeConfig, kAskConfig, kFreeConfig}));
    });
}

// A cache that is being built is normal: a trace, no error. Its record, if any, is released.
TEST_F(SpaceCacheTest, AStatusThatCannotBeHad) {
    for (int result : {0, -1, -7}) {
        for (bool stored : {false, true}) {
            SCOPED_TRACE(testing::Message() << result << (stored ? " with a record" : ""));
            Stat().result = result;
            Stat().stored = stored;
            AtEveryLogSetting([&](LogCapture& log) {
                EXPECT_EQ(SpaceHasCacheAndSupportPinByUUID("uuid"), 0);
                EXPECT_TRUE(log.Shows(
                    {kChecked, kLog.Verbose("SpaceHasCacheAndSupportPinByUUID",
                                            "Failed to get status of flashcache, ssd = /dev/ssd. "
                                            "(Might be due to cache is not estabilied yet)")}));
                Calls calls = {kAskConfig, kFreeConfig, kAskConfig, kFreeConfig, kAskStat};
                if (stored) {
                    calls.push_back(kFreeStat);
                }
                EXPECT_EQ(TakeCalls(), calls);
            });
        }
    }
}

TEST_F(SpaceCacheTest, AStatusWithoutARecordIsNoSupport) {
    Stat().stored = false;
    AtEveryLogSetting([](LogCapture& log) {
        EXPECT_EQ(SpaceHasCacheAndSupportPinByUUID("uuid"), 0);
        EXPECT_TRUE(log.Shows({kChecked}));
    });
}

TEST_F(SpaceCacheTest, SupportByMountPath) {
    const ExpectedLine uuid = kLog.Verbose("SpaceGetUUID", "Get UUID = uuid");

    AtEveryLogSetting([&](LogCapture& log) {
        Stat().supportPin = 1;
        EXPECT_EQ(SpaceHasCacheAndSupportPin("/mnt/volume"), 1);
        EXPECT_TRUE(log.Shows(
            {uuid, kChecked, kLog.Verbose("SpaceHasCacheAndSupportPinByUUID", "supportPin=1"),
             kLog.Verbose("SpaceHasCacheAndSupportPin", "Volume (/mnt/volume) support pin")}));
        Stat().supportPin = 0;
        EXPECT_EQ(SpaceHasCacheAndSupportPin("/mnt/volume"), 0);
        EXPECT_TRUE(log.Shows(
            {uuid, kChecked, kLog.Verbose("SpaceHasCacheAndSupportPinByUUID", "supportPin=0")}));
    });
}

TEST_F(SpaceCacheTest, AMountPathWithoutASpaceSupportsNothing) {
    AtEveryLogSetting([](LogCapture& log) {
        TakeCalls();
        EXPECT_EQ(SpaceHasCacheAndSupportPin("/mnt/volume/"), 0);
        EXPECT_TRUE(log.Shows({kLog.Verbose("SpaceGetUUID", "Get UUID = (null)"),
                               kLog.Error("SpaceHasCacheAndSupportPin",
                                          "Can't get space uuid from mount path (/mnt/volume/)")}));
        EXPECT_EQ(TakeCalls(), (Calls{"QUORSpaceInfoEnum(1)", "QUORSpaceInfoFree()"}));
    });
}

TEST_F(SpaceCacheTest, NothingIsKeptBetweenCalls) {
    EXPECT_EQ(SpaceHasCacheAndSupportPin("/mnt/volume"), 1);
    g_platform.configs.clear();
    EXPECT_EQ(SpaceHasCacheAndSupportPin("/mnt/volume"), 0);
    Config() = FakeCacheConfig{"/dev/other"};
    g_platform.stats["/dev/other"] = FakeCacheStat{};
    EXPECT_EQ(SpaceHasCacheAndSupportPin("/mnt/volume"), 1);
}

}  // namespace
