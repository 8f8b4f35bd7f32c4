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
               Lines{kDaemonLog.Error("ConfigReadDocument",
                                      std::string("Config file (") + config() +
                                          ") has a member of a wrong kind (" + member + ")")};
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

// Valid JSON that the library would throw on, at the first look or at a later one.
TEST_F(ConfigDocumentTest, MembersOfAWrongKindCannotBeRead) {
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
        {"a text for the counter", "{'nextRequestNum':'3'}", "nextRequestNum"},
        {"an object for the counter", "{'nextRequestNum':{}}", "nextRequestNum"},
        {"an array for the counter", "{'nextRequestNum':[3]}", "nextRequestNum"},
        {"a counter above int", "{'nextRequestNum':2147483648}", "nextRequestNum"},
        {"a counter below int", "{'nextRequestNum':-2147483649}", "nextRequestNum"},
        {"a counter above 64 bits", "{'nextRequestNum':18446744073709551616}", "nextRequestNum"},
        {"a real counter above int", "{'nextRequestNum':1e300}", "nextRequestNum"},
        {"a text for the queue", "{'requestQueue':'0'}", "requestQueue"},
        {"an object for the queue", "{'requestQueue':{'0':'0'}}", "requestQueue"},
        {"a number for the queue", "{'requestQueue':0}", "requestQueue"},
        {"false for the queue", "{'requestQueue':false}", "requestQueue"},
        {"an object in the queue", "{'requestQueue':['0',{}]}", "requestQueue"},
        {"an array in the queue", "{'requestQueue':[['0']]}", "requestQueue"},
        {"an array for the requests", "{'requests':[]}", "requests"},
        {"a text for the requests", "{'requests':'0'}", "requests"},
        {"a text for a request", "{'requests':{'0':'pinFiles'}}", "requests"},
        {"an array for a request", "{'requests':{'0':[]}}", "requests"},
        {"a number for a request", "{'requests':{'1':{},'0':7}}", "requests"},
        {"an object for a type", "{'requests':{'0':{'type':{}}}}", "requests"},
        {"an array for a type", "{'requests':{'0':{'type':['pinFiles']}}}", "requests"},
        {"an object for a mount path", "{'requests':{'0':{'mountPath':{}}}}", "requests"},
        {"an object for data", "{'requests':{'0':{'data':{'a':5}}}}", "requests"},
        {"an array for data", "{'requests':{'0':{'data':[]}}}", "requests"},
        {"an array for the volumes", "{'volumes':['/v']}", "volumes"},
        {"a text for the volumes", "{'volumes':'/v'}", "volumes"},
        {"a text for a volume", "{'volumes':{'/v':'files'}}", "volumes"},
        {"an array for a volume", "{'volumes':{'/v':[]}}", "volumes"},
        {"an array for files", "{'volumes':{'/v':{'files':[]}}}", "volumes"},
        {"a text for files", "{'volumes':{'/v':{'files':'a'}}}", "volumes"},
        {"a number for files", "{'volumes':{'/v':{'files':5}}}", "volumes"},
        {"the first wrong member is named",
         "{'nextRequestNum':'a','requestQueue':'a','requests':'a','volumes':'a'}",
         "nextRequestNum"},
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

// What the library takes for a text or a number as it is, the service takes too.
TEST_F(ConfigDocumentTest, MembersThatCanBeUsedAreOfTheRightKind) {
    const char* const texts[] = {
        "{'nextRequestNum':null}",
        "{'nextRequestNum':2147483647}",
        "{'nextRequestNum':-2147483648}",
        "{'nextRequestNum':1.5}",
        "{'nextRequestNum':true}",
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
        EXPECT_EQ(ConfigReadDocument(config(), document), 0) << text;
        EXPECT_TRUE(log.Shows({})) << text;
    }
}

}  // namespace
