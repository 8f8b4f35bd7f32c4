// SPDX-License-Identifier: MIT
// Spaces, their names and their bitmap's path. Their caches: space_cache_test.cpp.
#include "util/space.h"

#include <errno.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "tests/unit/support/fake_platform.h"
#include "tests/unit/support/fake_system.h"
#include "tests/unit/support/log_capture.h"
#include "tests/unit/support/unit_test.h"
#include "util/scoped.h"

namespace {

using Calls = std::vector<std::string>;

constexpr LogSource kLog = kUtilLog;

class SpaceTest : public UnitTest {
  protected:
    void SetUp() override {
        UnitTest::SetUp();
        g_platform.AddVolume("/mnt/one", "uuid-1", "/dev/ssd1", "/dev/cache1");
        g_platform.AddVolume("/mnt/two", "uuid-2", "/dev/ssd2", "/dev/cache2");
        g_platform.AddVolume("/mnt/three", "uuid-3", "/dev/ssd3", "/dev/cache3");
    }

    // Calls since the last question.
    static Calls TakeCalls() {
        Calls calls;
        calls.swap(g_platform.calls);
        return calls;
    }
};

std::string Shown(const CString& text) {
    return text == nullptr ? "(null)" : text.get();
}

TEST_F(SpaceTest, TheSpaceOfAMountPathIsAskedForItsUuidAndNoOther) {
    AtEveryLogSetting([](LogCapture& log) {
        EXPECT_STREQ(CString(SpaceGetUUID("/mnt/two")).get(), "uuid-2");
        EXPECT_TRUE(log.Shows({kLog.Verbose("SpaceGetUUID", "Get UUID = uuid-2")}));
        EXPECT_EQ(TakeCalls(), (Calls{"QUORSpaceInfoEnum(1)", "QUORSpaceUUIDGet(/mnt/two)",
                                      "QUORSpaceInfoFree()"}));
    });
}

struct PathRow {
    const char* why;
    const char* path;
};

TEST_F(SpaceTest, AMountPathIsComparedExactly) {
    const PathRow rows[] = {
        {"a slash behind", "/mnt/one/"},  {"a prefix", "/mnt/on"},
        {"a longer one", "/mnt/one1"},    {"another case", "/mnt/One"},
        {"a blank behind", "/mnt/one "},  {"empty", ""},
        {"a doubled slash", "/mnt//one"}, {"a conversion", "%s"},
    };

    for (const PathRow& row : rows) {
        SCOPED_TRACE(row.why);
        AtEveryLogSetting([&](LogCapture& log) {
            EXPECT_EQ(SpaceGetUUID(row.path), nullptr);
            // Traced also when nothing matched; absence is no error.
            EXPECT_TRUE(log.Shows({kLog.Verbose("SpaceGetUUID", "Get UUID = (null)")}));
            EXPECT_EQ(TakeCalls(), (Calls{"QUORSpaceInfoEnum(1)", "QUORSpaceInfoFree()"}));
        });
    }
}

TEST_F(SpaceTest, OfTwoSpacesOnOnePathTheFirstIsTaken) {
    g_platform.spaces[1].referencePath = "/mnt/one";
    EXPECT_STREQ(CString(SpaceGetUUID("/mnt/one")).get(), "uuid-1");
    // The walk ends there, also when that one has no UUID.
    g_platform.spaces[0].hasUuid = false;
    TakeCalls();
    AtEveryLogSetting([](LogCapture& log) {
        EXPECT_EQ(SpaceGetUUID("/mnt/one"), nullptr);
        EXPECT_TRUE(log.Shows({kLog.Verbose("SpaceGetUUID", "Get UUID = (null)")}));
        EXPECT_EQ(TakeCalls(), (Calls{"QUORSpaceInfoEnum(1)", "QUORSpaceUUIDGet(/mnt/one)",
                                      "QUORSpaceInfoFree()"}));
    });
}

TEST_F(SpaceTest, APathOf511CharactersIsFound) {
    std::string path = "/" + std::string(510, 'p');

    g_platform.spaces[2].referencePath = path;
    EXPECT_STREQ(CString(SpaceGetUUID(path.c_str())).get(), "uuid-3");
    EXPECT_STREQ(CString(SpaceGetReferencePath("uuid-3")).get(), path.c_str());
}

// Names that differ in their last character alone, wherever it stands.
TEST_F(SpaceTest, LongNamesAreComparedToTheirEnd) {
    for (size_t length : {37U, 100U, 255U, 256U, 257U, 511U}) {
        std::string path(length - 1, 'n');
        std::string uuid(std::min<size_t>(length, 100) - 1, 'u');
        g_platform.spaces = {{path + "1", uuid + "a"}, {path + "2", uuid + "b"}};
        EXPECT_STREQ(CString(SpaceGetUUID((path + "2").c_str())).get(), (uuid + "b").c_str());
        EXPECT_STREQ(CString(SpaceGetReferencePath((uuid + "b").c_str())).get(),
                     (path + "2").c_str());
        EXPECT_EQ(SpaceGetUUID((path + "3").c_str()), nullptr) << length;
        EXPECT_EQ(SpaceGetReferencePath((uuid + "c").c_str()), nullptr) << length;
    }
}

TEST_F(SpaceTest, SpacesThatCannotBeListed) {
    for (int result : {-1, -2, INT32_MIN}) {
        g_platform.enumResult = result;
        AtEveryLogSetting([](LogCapture& log) {
            EXPECT_EQ(SpaceGetUUID("/mnt/one"), nullptr);
            EXPECT_TRUE(log.Shows({kLog.Error("SpaceGetUUID", "Can't enum spaces")}));
            EXPECT_EQ(SpaceGetReferencePath("uuid-1"), nullptr);
            EXPECT_TRUE(log.Shows({kLog.Error("SpaceGetReferencePath", "Can't enum spaces")}));
            EXPECT_EQ(TakeCalls(), (Calls{"QUORSpaceInfoEnum(1)", "QUORSpaceInfoEnum(1)"}));
        });
    }
}

TEST_F(SpaceTest, WhatAFailedListingHasStoredIsReleased) {
    g_platform.enumResult = -1;
    g_platform.storesListOnFailure = true;
    EXPECT_EQ(SpaceGetUUID("/mnt/one"), nullptr);
    EXPECT_EQ(SpaceGetReferencePath("uuid-1"), nullptr);
    EXPECT_TRUE(PlatformRecordsHeld().empty());
}

TEST_F(SpaceTest, AnyOtherAnswerIsAList) {
    for (int result : {0, 1, 3}) {
        g_platform.enumResult = result;
        EXPECT_STREQ(CString(SpaceGetUUID("/mnt/one")).get(), "uuid-1");
        EXPECT_STREQ(CString(SpaceGetReferencePath("uuid-1")).get(), "/mnt/one");
    }
}

TEST_F(SpaceTest, WithoutSpacesNothingIsFound) {
    g_platform.spaces.clear();
    AtEveryLogSetting([](LogCapture& log) {
        EXPECT_EQ(SpaceGetUUID("/mnt/one"), nullptr);
        EXPECT_TRUE(log.Shows({kLog.Verbose("SpaceGetUUID", "Get UUID = (null)")}));
        EXPECT_EQ(SpaceGetReferencePath("uuid-1"), nullptr);
        EXPECT_TRUE(log.Shows({}));
    });
}

TEST_F(SpaceTest, SpacesAreListedAfreshEveryTime) {
    EXPECT_EQ(CString(SpaceGetUUID("/mnt/new")), nullptr);
    g_platform.AddVolume("/mnt/new", "uuid-4", "/dev/ssd4", "/dev/cache4");
    EXPECT_STREQ(CString(SpaceGetUUID("/mnt/new")).get(), "uuid-4");
}

TEST_F(SpaceTest, TheMountPathOfAUuid) {
    AtEveryLogSetting([](LogCapture& log) {
        EXPECT_STREQ(CString(SpaceGetReferencePath("uuid-2")).get(), "/mnt/two");
        EXPECT_TRUE(
            log.Shows({kLog.Verbose("SpaceGetReferencePath", "Get reference path = /mnt/two")}));
        // The walk ends with the match.
        EXPECT_EQ(TakeCalls(), (Calls{"QUORSpaceInfoEnum(1)", "QUORSpaceUUIDGet(/mnt/one)",
                                      "QUORSpaceUUIDGet(/mnt/two)", "QUORSpaceInfoFree()"}));
    });
}

TEST_F(SpaceTest, AUuidIsComparedExactly) {
    const PathRow rows[] = {
        {"a prefix", "uuid-"}, {"a longer one", "uuid-11"}, {"another case", "UUID-1"},
        {"empty", ""},         {"as long", "uuid-9"},
    };

    for (const PathRow& row : rows) {
        SCOPED_TRACE(row.why);
        AtEveryLogSetting([&](LogCapture& log) {
            EXPECT_EQ(SpaceGetReferencePath(row.path), nullptr);
            EXPECT_TRUE(log.Shows({}));
            EXPECT_EQ(TakeCalls().size(), 5U) << "all three are asked";
        });
    }
}

TEST_F(SpaceTest, ASpaceWithoutAUuidEndsTheWalk) {
    g_platform.spaces[1].hasUuid = false;
    AtEveryLogSetting([](LogCapture& log) {
        // Before it: found. It, and what lies behind it: not.
        EXPECT_STREQ(CString(SpaceGetReferencePath("uuid-1")).get(), "/mnt/one");
        log.Clear();
        for (const char* uuid : {"uuid-2", "uuid-3"}) {
            TakeCalls();
            EXPECT_EQ(SpaceGetReferencePath(uuid), nullptr);
            EXPECT_TRUE(log.Shows({kLog.Error("SpaceGetReferencePath", "Get space uuid failed")}));
            EXPECT_EQ(TakeCalls(), (Calls{"QUORSpaceInfoEnum(1)", "QUORSpaceUUIDGet(/mnt/one)",
                                          "QUORSpaceUUIDGet(/mnt/two)", "QUORSpaceInfoFree()"}));
        }
    });
}

TEST_F(SpaceTest, WithoutMemoryTheMountPathIsNull) {
    AtEveryLogSetting([](LogCapture& log) {
        FailCall(Call::kStrdup, 1, ENOMEM);
        EXPECT_EQ(SpaceGetReferencePath("uuid-1"), nullptr);
        EXPECT_TRUE(
            log.Shows({kLog.Verbose("SpaceGetReferencePath", "Get reference path = (null)")}));
    });
}

struct BitmapPathRow {
    const char* why;
    std::string directory;
    std::string path;
};

TEST_F(SpaceTest, TheBitmapFileLiesAtTheTopOfADirectory) {
    const std::string name = "/quorcachepinfile.bitmap";
    const std::string fits = "/" + std::string(511 - name.size() - 1, 'd');
    const BitmapPathRow rows[] = {
        {"a mount path", "/mnt/one", "/mnt/one/quorcachepinfile.bitmap"},
        {"a slash is added, also behind one", "/mnt/one/", "/mnt/one//quorcachepinfile.bitmap"},
        {"empty", "", "/quorcachepinfile.bitmap"},
        {"a blank", "/mnt/my volume", "/mnt/my volume/quorcachepinfile.bitmap"},
        {"conversions are text", "/mnt/%s%n", "/mnt/%s%n/quorcachepinfile.bitmap"},
        {"511 characters fit", fits, fits + name},
        {"512 are cut to 511", fits + "d", (fits + "d" + name).substr(0, 511)},
        {"a directory that fills it", std::string(511, 'd'), std::string(511, 'd')},
        {"a longer one", std::string(5000, 'd'), std::string(511, 'd')},
    };

    for (const BitmapPathRow& row : rows) {
        SCOPED_TRACE(row.why);
        AtEveryLogSetting([&](LogCapture& log) {
            EXPECT_EQ(Shown(CString(BitmapPathByDirectory(row.directory.c_str()))), row.path);
            EXPECT_TRUE(log.Shows({}));
        });
    }
    EXPECT_EQ(TakeCalls(), Calls());
}

TEST_F(SpaceTest, TheBitmapPathOfASpace) {
    AtEveryLogSetting([](LogCapture& log) {
        EXPECT_STREQ(CString(SpaceGetBitmapPath("uuid-3")).get(),
                     "/mnt/three/quorcachepinfile.bitmap");
        EXPECT_TRUE(
            log.Shows({kLog.Verbose("SpaceGetReferencePath", "Get reference path = /mnt/three")}));
    });
}

TEST_F(SpaceTest, ASpaceThatIsNotThereHasNoBitmapPath) {
    AtEveryLogSetting([](LogCapture& log) {
        EXPECT_EQ(SpaceGetBitmapPath("uuid-9"), nullptr);
        EXPECT_TRUE(log.Shows({kLog.Error("SpaceGetBitmapPath", "Can't get reference path")}));
    });
    g_platform.enumResult = -1;
    AtEveryLogSetting([](LogCapture& log) {
        EXPECT_EQ(SpaceGetBitmapPath("uuid-1"), nullptr);
        EXPECT_TRUE(log.Shows({kLog.Error("SpaceGetReferencePath", "Can't enum spaces"),
                               kLog.Error("SpaceGetBitmapPath", "Can't get reference path")}));
    });
}

TEST_F(SpaceTest, WithoutMemoryThereIsNoBitmapPath) {
    AtEveryLogSetting([](LogCapture& log) {
        FailCall(Call::kStrdup, 2, ENOMEM);
        EXPECT_EQ(SpaceGetBitmapPath("uuid-1"), nullptr);
        EXPECT_TRUE(
            log.Shows({kLog.Verbose("SpaceGetReferencePath", "Get reference path = /mnt/one"),
                       kLog.Error("SpaceGetBitmapPath", "Can't get bitmap path")}));
    });
}

}  // namespace
