// SPDX-License-Identifier: MIT
// The two settings files that are read at start.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/unit/support/fake_files.h"
#include "tests/unit/support/fake_platform.h"
#include "tests/unit/support/fake_system.h"
#include "tests/unit/support/log_capture.h"
#include "tests/unit/support/unit_test.h"
#include "util/log.h"

namespace {

constexpr char kDebugFile[] = "/tmp/quorcachepinfiletool.debug";
constexpr char kLevelSetting[] = "/tmp/quorcachepinfiletool.debug:print_level";
constexpr char kFlagsSetting[] = "/etc/quorinfo.conf:cache_pin_debug_flags";
constexpr char kLevelCall[] =
    "QLIBCFileGetKeyValue(/tmp/quorcachepinfiletool.debug, print_level, 128 zeroed, 0)";
constexpr char kFlagsCall[] =
    "QLIBCFileGetKeyValue(/etc/quorinfo.conf, cache_pin_debug_flags, 128 zeroed, 0)";

using Calls = std::vector<std::string>;

class LogSettingsTest : public UnitTest {
  protected:
    void SetUp() override {
        UnitTest::SetUp();
        // The machine's own file has no say here.
        RedirectPath(kDebugFile, dir_ / "debug");
    }

    void HaveDebugFile() { WriteFile(dir_ / "debug", "the reader of settings is replaced"); }
};

TEST_F(LogSettingsTest, ThePathIsTheOneThatSupportKnows) {
    EXPECT_STREQ(kDebugSettingsPath, kDebugFile);
}

TEST_F(LogSettingsTest, WithoutADebugFileNothingIsAskedChangedOrSaid) {
    g_platform.settings[kLevelSetting] = {"debug"};
    AtEveryLogSetting([](LogCapture& log) {
        int32_t level = 7;
        UpdatePrintLevelByFile(&level);
        EXPECT_EQ(level, 7);
        EXPECT_TRUE(log.Shows({}));
    });
    EXPECT_EQ(g_platform.calls, Calls());
}

TEST_F(LogSettingsTest, ADebugFileWithoutTheKeyOrUnreadableChangesNothing) {
    HaveDebugFile();
    for (int result : {0, -1, -5}) {
        // The buffer would hold a value; only the result counts.
        g_platform.settings[kLevelSetting] = {"debug", result};
        g_platform.calls.clear();
        AtEveryLogSetting([](LogCapture& log) {
            int32_t level = 1;
            UpdatePrintLevelByFile(&level);
            EXPECT_EQ(level, 1);
            EXPECT_TRUE(log.Shows({}));
        });
        EXPECT_EQ(g_platform.calls, Calls(10, kLevelCall));
    }
}

struct LevelRow {
    const char* why;
    std::string value;
    int32_t before;
    int32_t after;
};

TEST_F(LogSettingsTest, TheKeySetsTheLevelAndItsValueIsExact) {
    const LevelRow rows[] = {
        {"debug raises", "debug", 1, 3},
        {"debug raises verbose", "debug", 2, 3},
        {"verbose raises", "verbose", 1, 2},
        {"verbose lowers what --debug asked for", "verbose", 3, 2},
        {"case matters", "Debug", 1, 1},
        {"case matters, whatever the level was", "Debug", 3, 3},
        {"case matters", "Verbose", 3, 3},
        {"case matters", "VERBOSE", 1, 1},
        {"a number is no name", "3", 1, 1},
        {"normal is no name", "normal", 2, 2},
        {"empty", "", 1, 1},
        {"a blank behind", "debug ", 1, 1},
        {"a prefix", "debu", 1, 1},
        {"a longer one", "debugging", 1, 1},
        {"as long as the buffer", std::string(127, 'd'), 2, 2},
        {"longer than the buffer", std::string(500, 'v'), 2, 2},
        {"conversions are text", "%n%s", 1, 1},
    };

    HaveDebugFile();
    for (const LevelRow& row : rows) {
        SCOPED_TRACE(row.why);
        g_platform.settings[kLevelSetting] = {row.value};
        AtEveryLogSetting([&](LogCapture& log) {
            int32_t level = row.before;
            UpdatePrintLevelByFile(&level);
            EXPECT_EQ(level, row.after);
            // Also when it stays as it was.
            EXPECT_TRUE(log.Shows(
                {kUtilLog.Notice("UpdatePrintLevelByFile",
                                 "Detect /tmp/quorcachepinfiletool.debug, update print level to " +
                                     std::to_string(row.after))}));
        });
    }
}

TEST_F(LogSettingsTest, TheNoticeIsAlreadyInTheShapeOfTheNewLevel) {
    HaveDebugFile();
    g_platform.settings[kLevelSetting] = {"verbose"};
    LogCapture log(1);

    UpdatePrintLevelByFile(&g_printLevel);
    EXPECT_EQ(g_printLevel, 2);
    EXPECT_EQ(log.SystemLines(),
              Calls{"<3>quorcachepinfileutil.cpp:# UpdatePrintLevelByFile() [#] : Detect "
                    "/tmp/quorcachepinfiletool.debug, update print level to 2"});
}

TEST_F(LogSettingsTest, OnlyTheFilesExistenceIsTested) {
    // A directory of that name is a debug file, too; the reader of settings decides.
    RedirectPath(kDebugFile, dir_.path());
    g_platform.settings[kLevelSetting] = {"debug"};
    int32_t level = 1;
    LogCapture log(1);

    UpdatePrintLevelByFile(&level);
    EXPECT_EQ(level, 3);
    EXPECT_EQ(CallCount(Call::kAccess), 1);
}

TEST_F(LogSettingsTest, WithoutTheFlagsKeyTheFlagsStay) {
    for (int result : {0, -1}) {
        g_platform.settings[kFlagsSetting] = {"12", result};
        g_platform.calls.clear();
        AtEveryLogSetting([](LogCapture& log) {
            InitDebugFlags();
            EXPECT_EQ(g_debugFlags, 0);
            EXPECT_TRUE(log.Shows({}));
        });
        EXPECT_EQ(g_platform.calls, Calls(10, kFlagsCall));
    }
}

struct FlagsRow {
    const char* why;
    const char* value;
    int32_t flags;
};

TEST_F(LogSettingsTest, TheFlagsAreTheLeadingDecimalNumber) {
    const FlagsRow rows[] = {
        {"a number", "12", 12},
        {"zero", "0", 0},
        {"negative", "-5", -5},
        {"no number gives 0", "abc", 0},
        {"empty gives 0", "", 0},
        {"what follows does not count", "12abc", 12},
        {"blanks before are skipped", " \t7", 7},
        {"base 10: no hexadecimal", "0x10", 0},
        {"base 10: no octal", "010", 10},
        {"the largest", "2147483647", 2147483647},
        {"beyond 32 bits: the largest", "2147483648", 2147483647},
        {"beyond 32 bits: not what is left of it", "4294967297", 2147483647},
        {"beyond 64 bits", "99999999999999999999", 2147483647},
        {"the smallest", "-2147483648", INT32_MIN},
        {"below it", "-2147483649", INT32_MIN},
        {"far below it", "-99999999999999999999", INT32_MIN},
    };

    for (const FlagsRow& row : rows) {
        SCOPED_TRACE(row.why);
        g_platform.settings[kFlagsSetting] = {row.value};
        AtEveryLogSetting([&](LogCapture& log) {
            g_debugFlags = 99;
            InitDebugFlags();
            EXPECT_EQ(g_debugFlags, row.flags);
            EXPECT_TRUE(log.Shows({kUtilLog.Notice(
                "InitDebugFlags",
                "Detect cache_pin_debug_flags key in /etc/quorinfo.conf, debug flag = " +
                    std::to_string(row.flags))}));
        });
    }
}

}  // namespace
