// SPDX-License-Identifier: MIT
#include "daemon/config_document.h"

#include <sys/stat.h>

#include "tests/unit/daemon/daemon_test.h"

namespace {

class ConfigDocumentTest : public DaemonTest {
  protected:
    // What ConfigGetJsonAndNumRequest leaves in the log when reading fails with `cause`.
    Lines Refused(const Lines& cause) const {
        return Lines{kDaemonLog.Enter("ConfigGetJsonAndNumRequest")} + cause +
               Lines{kDaemonLog.Error(
                   "ConfigGetJsonAndNumRequest",
                   std::string("Can't read data from config file (") + config() + ")")};
    }

    Lines WrongMember(const std::string& member) const {
        return ReadJsonLines() +
               Lines{kDaemonLog.Error("ConfigCheckKind",
                                      "Config has a member of a wrong kind (" + member + ")")};
    }

    Lines ParseError() const {
        return {kUtilLog.Enter("ReadFileToJson"),
                kUtilLog.Error("ReadFileToJson", std::string("Prase file ") + config() + " error")};
    }
};

TEST_F(ConfigDocumentTest, CountsTheQueue) {
    struct Row {
        const char* what;
        const char* text;
        uint32_t count;
    };
    const Row rows[] = {
        {"an empty object", "{}", 0},
        {"null at the top", "null", 0},
        {"no queue", "{'nextRequestNum':3,'requests':{},'volumes':null}", 0},
        {"null queue", "{'requestQueue':null}", 0},
        {"empty queue", "{'requestQueue':[]}", 0},
        {"one", "{'requestQueue':['0']}", 1},
        {"three", "{'requestQueue':['5','6','7']}", 3},
        {"the same twice", "{'requestQueue':['5','5']}", 2},
    };

    AtEveryLogSetting([&](LogCapture& log) {
        for (const Row& row : rows) {
            Json::Value document;
            uint32_t count = 99;
            SetConfig(row.text);
            EXPECT_EQ(ConfigGetJsonAndNumRequest(config(), document, count), 0) << row.what;
            EXPECT_EQ(count, row.count) << row.what;
            EXPECT_TRUE(log.Shows(Lines{kDaemonLog.Enter("ConfigGetJsonAndNumRequest")} +
                                  ReadJsonLines() +
                                  Lines{kDaemonLog.Leave("ConfigGetJsonAndNumRequest")}))
                << row.what;
        }
    });
}

// The JSON library makes what is looked at.
TEST_F(ConfigDocumentTest, AQueueThatIsNotThereIsNullInTheDocumentAfterwards) {
    Json::Value document;
    uint32_t count = 99;

    SetConfig("{}");
    ASSERT_EQ(ConfigGetJsonAndNumRequest(config(), document, count), 0);
    EXPECT_EQ(Styled(document), Styled(Document("{'requestQueue':null}")));
    EXPECT_EQ(ConfigText(), "{}") << "nothing is written";
}

TEST_F(ConfigDocumentTest, ReadingLooksAtNothing) {
    Json::Value document;

    SetConfig("{'requests':{'0':{}},'volumes':{'/v':{}}}");
    ASSERT_EQ(ConfigReadDocument(config(), document), 0);
    EXPECT_EQ(Styled(document), Styled(Document("{'requests':{'0':{}},'volumes':{'/v':{}}}")));
}

TEST_F(ConfigDocumentTest, AMissingFileCannotBeRead) {
    AtEveryLogSetting([&](LogCapture& log) {
        Json::Value document;
        uint32_t count = 99;
        EXPECT_EQ(ConfigGetJsonAndNumRequest(config(), document, count), -1);
        EXPECT_EQ(count, 99U);
        EXPECT_TRUE(log.Shows(Refused(
            {kUtilLog.Enter("ReadFileToJson"),
             kUtilLog.Error("ReadFileToJson", std::string("Can't open file ") + config())})));
    });
}

TEST_F(ConfigDocumentTest, WhatIsNoJsonCannotBeRead) {
    struct Row {
        const char* what;
        std::string text;
    };
    const Row rows[] = {
        {"nothing", ""},
        {"blanks", " \n\t"},
        {"cut short", "{'requestQueue':['0'"},
        {"no JSON at all", "requestQueue=0"},
        {"a member without a value", "{'requestQueue':}"},
        {"a number out of every range", "{'nextRequestNum':1e999}"},
        {"zero bytes", std::string(64, '\0')},
        {"bytes that are no text", "\xff\xfe\x00"},
        {"nested too deep", Text(100000, '[')},
        {"nested too deep, and closed", Text(100000, '[') + Text(100000, ']')},
        {"objects nested too deep",
         [] {
             std::string text;
             for (int i = 0; i < 2000; ++i) {
                 text += "{'volumes':";
             }
             return text;
         }()},
    };

    AtEveryLogSetting([&](LogCapture& log) {
        for (const Row& row : rows) {
            Json::Value document;
            uint32_t count = 99;
            SetConfig(row.text);
            EXPECT_EQ(ConfigGetJsonAndNumRequest(config(), document, count), -1) << row.what;
            EXPECT_EQ(count, 99U) << row.what;
            EXPECT_TRUE(log.Shows(Refused(ParseError()))) << row.what;
        }
    });
}

TEST_F(ConfigDocumentTest, ADirectoryCannotBeRead) {
    ASSERT_EQ(mkdir(config(), 0755), 0);
    AtEveryLogSetting([&](LogCapture& log) {
        Json::Value document;
        uint32_t count = 99;
        EXPECT_EQ(ConfigGetJsonAndNumRequest(config(), document, count), -1);
        EXPECT_EQ(count, 99U);
        EXPECT_TRUE(log.Shows(Refused(ParseError())));
    });
}

// Valid JSON that the library would throw on.
TEST_F(ConfigDocumentTest, WhatIsNoObjectWithAQueueCannotBeRead) {
    struct Row {
        const char* what;
        const char* text;
        const char* member;
    };
    const Row rows[] = {
        {"an array at the top", "[]", "top level"},
        {"a filled array at the top", "[{'requestQueue':['0']}]", "top level"},
        {"a text at the top", "'requestQueue'", "top level"},
        {"a number at the top", "7", "top level"},
        {"true at the top", "true", "top level"},
        {"a text for the queue", "{'requestQueue':'0'}", "requestQueue"},
        {"an object for the queue", "{'requestQueue':{'0':'0'}}", "requestQueue"},
        {"a number for the queue", "{'requestQueue':0}", "requestQueue"},
        {"false for the queue", "{'requestQueue':false}", "requestQueue"},
    };

    AtEveryLogSetting([&](LogCapture& log) {
        for (const Row& row : rows) {
            Json::Value document;
            uint32_t count = 99;
            SetConfig(row.text);
            EXPECT_EQ(ConfigGetJsonAndNumRequest(config(), document, count), -1) << row.what;
            EXPECT_EQ(count, 99U) << row.what;
            EXPECT_TRUE(log.Shows(Refused(WrongMember(row.member)))) << row.what;
        }
    });
}

// Only who uses a member is concerned by it.
TEST_F(ConfigDocumentTest, NothingElseIsLookedAt) {
    const char* const texts[] = {
        "{'nextRequestNum':'3'}",
        "{'requestQueue':[{},[]]}",
        "{'requests':7}",
        "{'requests':{'0':'pinFiles'}}",
        "{'requests':{'0':{'type':{},'mountPath':[],'data':[]}}}",
        "{'volumes':7}",
        "{'volumes':{'/v':[]}}",
        "{'volumes':{'/v':{'files':5}}}",
        "{'requestQueue':[0,1.5,true,null,'a']}",
        "{'requests':null}",
        "{'requests':{'0':null}}",
        "{'requests':{'0':{'type':null,'mountPath':7,'data':false}}}",
        "{'requests':{'0':{'unknown':[{}]}}}",
        "{'volumes':{'/v':null}}",
        "{'volumes':{'/v':{'files':null}}}",
        "{'volumes':{'/v':{'files':{'1':[],'x':{}}}}}",
        "{'another':[1,2,3]}",
        "/* a remark */ {}",
    };

    for (const char* text : texts) {
        Json::Value document;
        LogCapture log;
        SetConfig(text);
        uint32_t count = 99;
        EXPECT_EQ(ConfigReadDocument(config(), document), 0) << text;
        EXPECT_EQ(ConfigGetJsonAndNumRequest(config(), document, count), 0) << text;
        EXPECT_TRUE(log.Shows({})) << text;
    }
}

// What the library takes for a text or a number as it is, the service takes too.
TEST_F(ConfigDocumentTest, KindsAreCheckedAsTheLibraryConverts) {
    struct Row {
        const char* value;
        bool object, array, text, number;
    };
    const Row rows[] = {
        {"null", true, true, true, true},
        {"{}", true, false, false, false},
        {"{'a':1}", true, false, false, false},
        {"[]", false, true, false, false},
        {"[1]", false, true, false, false},
        {"''", false, false, true, false},
        {"'3'", false, false, true, false},
        {"true", false, false, true, true},
        {"1.5", false, false, true, true},
        {"2147483647", false, false, true, true},
        {"-2147483648", false, false, true, true},
        {"2147483648", false, false, true, false},
        {"-2147483649", false, false, true, false},
        {"18446744073709551616", false, false, true, false},
        {"1e300", false, false, true, false},
    };

    for (const Row& row : rows) {
        LogCapture log;
        Json::Value value = Document(std::string("{'m':") + row.value + "}")["m"];
        EXPECT_EQ(ConfigCheckObject(value, "m"), row.object ? 0 : -1) << row.value;
        EXPECT_EQ(ConfigCheckArray(value, "m"), row.array ? 0 : -1) << row.value;
        EXPECT_EQ(ConfigCheckText(value, "m"), row.text ? 0 : -1) << row.value;
        EXPECT_EQ(ConfigCheckNumber(value, "m"), row.number ? 0 : -1) << row.value;
        int wrong = 4 - row.object - row.array - row.text - row.number;
        EXPECT_TRUE(log.Shows(
            Lines(static_cast<size_t>(wrong),
                  kDaemonLog.Error("ConfigCheckKind", "Config has a member of a wrong kind (m)"))));
    }
}

}  // namespace
