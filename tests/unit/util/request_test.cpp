// SPDX-License-Identifier: MIT
#include "util/request.h"

#include <gtest/gtest.h>

#include <string>

#include "tests/unit/support/log_capture.h"
#include "tests/unit/support/unit_test.h"

namespace {

class RequestTest : public UnitTest {};

struct TypeRow {
    int type;
    const char* name;
};

constexpr TypeRow kTypes[] = {
    {0, "unknown"},         {1, "pinFiles"},          {2, "unpinFiles"},      {3, "ack"},
    {4, "addPendingSpace"}, {5, "removePendigSpace"}, {6, "reloadPinBlocks"},
};

TEST_F(RequestTest, EveryTypeHasItsStoredNameBothWays) {
    LogCapture log(3);

    for (const TypeRow& row : kTypes) {
        EXPECT_STREQ(RequestTypeToString(row.type), row.name);
        EXPECT_TRUE(log.Shows({})) << "a known type is no news";
        EXPECT_EQ(StringToRequestType(row.name), row.type) << row.name;
        log.Clear();
    }
}

TEST_F(RequestTest, TheNamesAreStaticTexts) {
    EXPECT_EQ(RequestTypeToString(1), RequestTypeToString(1));
}

TEST_F(RequestTest, ATypeOutsideTheTableIsAnErrorAndNull) {
    for (int type : {7, 8, 1000, INT32_MAX, -1, -7, INT32_MIN}) {
        AtEveryLogSetting([&](LogCapture& log) {
            EXPECT_EQ(RequestTypeToString(type), nullptr) << type;
            EXPECT_TRUE(log.Shows(
                {kUtilLog.Error("RequestTypeToString", "Convert request type to string errror")}));
        });
    }
}

struct NameRow {
    const char* why;
    std::string name;
};

TEST_F(RequestTest, OnlyTheExactNamesAreKnown) {
    const NameRow rows[] = {
        {"the spelling of type 5 is the stored one, the correct one is no type",
         "removePendingSpace"},
        {"capital first letter", "PinFiles"},
        {"all capitals", "PINFILES"},
        {"empty", ""},
        {"blank before", " pinFiles"},
        {"blank behind", "pinFiles "},
        {"newline behind", "pinFiles\n"},
        {"a prefix", "pinFile"},
        {"a longer one", "pinFiles2"},
        {"a number", "1"},
        {"a NUL within", std::string("pinFiles\0", 9)},
        {"not a text anybody would send", "\xff\xfe%n%s"},
    };

    for (const NameRow& row : rows) {
        EXPECT_EQ(StringToRequestType(row.name), 0) << row.why;
    }
}

TEST_F(RequestTest, AnUnknownNameIsNotReported) {
    AtEveryLogSetting([](LogCapture& log) {
        EXPECT_EQ(StringToRequestType("nothing of the kind"), 0);
        EXPECT_TRUE(log.Shows(
            {kUtilLog.Enter("StringToRequestType"), kUtilLog.Leave("StringToRequestType")}));
    });
}

TEST_F(RequestTest, AKnownNameIsTracedAlike) {
    AtEveryLogSetting([](LogCapture& log) {
        EXPECT_EQ(StringToRequestType("reloadPinBlocks"), 6);
        EXPECT_TRUE(log.Shows(
            {kUtilLog.Enter("StringToRequestType"), kUtilLog.Leave("StringToRequestType")}));
    });
}

TEST_F(RequestTest, TheRecordsAreLaidOutAsTheyTravel) {
    EXPECT_EQ(sizeof(Request), 1540U);
    EXPECT_EQ(offsetof(Request, type), 0U);
    EXPECT_EQ(offsetof(Request, mountPath), 4U);
    EXPECT_EQ(offsetof(Request, data), 516U);
    EXPECT_EQ(sizeof(Request::mountPath), 512U);
    EXPECT_EQ(sizeof(Request::data), 1024U);
    EXPECT_EQ(offsetof(RequestMsg, body), sizeof(long));
    EXPECT_EQ(kRequestMsgType, 1);
}

}  // namespace
