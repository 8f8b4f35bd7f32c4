// SPDX-License-Identifier: MIT
#include "util/json_file.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "tests/unit/support/log_capture.h"
#include "tests/unit/support/unit_test.h"
#include "tests/unit/util/lines.h"
#include "util/file.h"

namespace {

class JsonFileTest : public UnitTest {
  protected:
    void SetUp() override {
        UnitTest::SetUp();
        path_ = dir_ / "config";
    }

    std::string path_;
};

// A queue of two requests beside a volume with a pinned file. The layout is the library's own
// affair.
constexpr char kDocument[] = R"({
   "nextRequestNum" : 3,
   "requestQueue" : [ "1", "2" ],
   "requests" : {
      "1" : {
         "data" : "photos/b.jpg#1235",
         "mountPath" : "/mnt/pool1",
         "type" : "pinFiles"
      },
      "2" : {
         "data" : "photos/a.jpg#1234",
         "mountPath" : "/mnt/pool1",
         "type" : "unpinFiles"
      }
   },
   "volumes" : {
      "/mnt/pool1" : {
         "files" : {
            "1234" : "photos/a.jpg"
         }
      }
   }
}
)";

Lines ReadLines() {
    return {kUtilLog.Enter("ReadFileToJson"), kUtilLog.Leave("ReadFileToJson")};
}

Lines WriteLines() {
    return {kUtilLog.Enter("WriteJsonToFile"), kUtilLog.Leave("WriteJsonToFile")};
}

TEST_F(JsonFileTest, ADocumentComesBackAsItWasWritten) {
    WriteFile(path_, kDocument);
    AtEveryLogSetting([&](LogCapture& log) {
        Json::Value value;
        EXPECT_EQ(ReadFileToJson(path_, value), 0);
        EXPECT_TRUE(log.Shows(ReadLines()));
        EXPECT_EQ(value["nextRequestNum"].asInt(), 3);
        EXPECT_EQ(value["requestQueue"][1].asString(), "2");
        EXPECT_EQ(value["requests"]["1"]["data"].asString(), "photos/b.jpg#1235");
        EXPECT_EQ(value["volumes"]["/mnt/pool1"]["files"]["1234"].asString(), "photos/a.jpg");

        std::string copy = dir_ / "copy";
        EXPECT_EQ(WriteJsonToFile(value, copy.c_str()), 0);
        EXPECT_TRUE(log.Shows(WriteLines()));
        EXPECT_EQ(ReadFile(copy), value.toStyledString());
        Json::Value again;
        EXPECT_EQ(ReadFileToJson(copy, again), 0);
        EXPECT_EQ(again, value);
        log.Clear();
    });
}

struct ContentRow {
    const char* why;
    std::string content;
};

TEST_F(JsonFileTest, AnyJsonIsRead) {
    const ContentRow rows[] = {
        {"nothing in it", "{}"},
        {"no newline", R"({"a":1})"},
        {"white space around", " \n\t{ } \n"},
        {"an array at the top", "[1,2]"},
        {"a queue that is null", R"({"requestQueue":null})"},
        {"a queue of another shape", R"({"requestQueue":{"a":"b"}})"},
        {"names with quotes and escapes", R"({"a\"b\\":"\u00e9\n"})"},
        {"comments are collected", "// why\n{\"a\": 1 /* one */}\n"},
        {"nested, but not too deep", std::string(500, '[') + std::string(500, ']')},
    };

    for (const ContentRow& row : rows) {
        SCOPED_TRACE(row.why);
        WriteFile(path_, row.content);
        AtEveryLogSetting([&](LogCapture& log) {
            Json::Value value;
            EXPECT_EQ(ReadFileToJson(path_, value), 0);
            EXPECT_TRUE(log.Shows(ReadLines()));
        });
        EXPECT_EQ(ReadFile(path_), row.content) << "reading changes nothing";
    }
}

TEST_F(JsonFileTest, CommentsAreCollected) {
    Json::Value value;

    WriteFile(path_, "// why\n{\"a\": 1}\n");
    EXPECT_EQ(ReadFileToJson(path_, value), 0);
    EXPECT_TRUE(value.hasComment(Json::commentBefore));
}

TEST_F(JsonFileTest, WhatTheValueHeldBeforeIsReplaced) {
    Json::Value value;

    value["old"] = 1;
    WriteFile(path_, R"({"new":2})");
    EXPECT_EQ(ReadFileToJson(path_, value), 0);
    EXPECT_FALSE(value.isMember("old"));
    EXPECT_EQ(value["new"].asInt(), 2);
}

TEST_F(JsonFileTest, AMissingFileCannotBeOpened) {
    AtEveryLogSetting([&](LogCapture& log) {
        Json::Value value;
        EXPECT_EQ(ReadFileToJson(path_, value), -1);
        EXPECT_TRUE(log.Shows({kUtilLog.Enter("ReadFileToJson"),
                               kUtilLog.Error("ReadFileToJson", "Can't open file " + path_)}));
    });
    EXPECT_FALSE(Exists(path_));
}

TEST_F(JsonFileTest, WhatIsNotJsonCannotBeParsed) {
    const ContentRow rows[] = {
        {"empty", ""},
        {"only blanks", " \n"},
        {"cut off, as a failed write leaves it", std::string(kDocument, 60)},
        {"a value is missing", R"({"a":})"},
        {"a comma is missing", R"({"a":1 "b":2})"},
        {"not quoted", "{a:1}"},
        {"a bracket that nobody opened", "}"},
        {"no JSON at all", "quorcachepinfile"},
        {"bytes of no character set", "\xff\xfe\x01"},
        {"a NUL first", std::string("\0{}", 3)},
        {"nested deeper than the library goes", std::string(100000, '[')},
    };

    for (const ContentRow& row : rows) {
        SCOPED_TRACE(row.why);
        WriteFile(path_, row.content);
        AtEveryLogSetting([&](LogCapture& log) {
            Json::Value value;
            EXPECT_EQ(ReadFileToJson(path_, value), -1);
            EXPECT_TRUE(
                log.Shows({kUtilLog.Enter("ReadFileToJson"),
                           kUtilLog.Error("ReadFileToJson", "Prase file " + path_ + " error")}));
        });
        EXPECT_EQ(ReadFile(path_), row.content);
    }
}

TEST_F(JsonFileTest, ADirectoryExistsButCannotBeRead) {
    AtEveryLogSetting([&](LogCapture& log) {
        Json::Value value;
        EXPECT_EQ(FileExists(dir_.path().c_str()), 1);
        EXPECT_EQ(ReadFileToJson(dir_.path(), value), -1);
        EXPECT_TRUE(
            log.Shows({kUtilLog.Enter("ReadFileToJson"),
                       kUtilLog.Error("ReadFileToJson", "Prase file " + dir_.path() + " error")}));
    });
}

TEST_F(JsonFileTest, AQueueThatIsNullIsWrittenAsNull) {
    Json::Value value;
    Json::Value again;

    value["nextRequestNum"] = 1;
    value["requestQueue"] = Json::Value::null;
    value["requests"] = Json::Value(Json::objectValue);
    EXPECT_EQ(WriteJsonToFile(value, path_.c_str()), 0);
    EXPECT_NE(ReadFile(path_).find("\"requestQueue\" : null"), std::string::npos);
    EXPECT_NE(ReadFile(path_).find("\"requests\" : {}"), std::string::npos);
    EXPECT_EQ(ReadFileToJson(path_, again), 0);
    EXPECT_TRUE(again["requestQueue"].isNull());
    EXPECT_EQ(again["requestQueue"].size(), 0U);
    EXPECT_EQ(again, value);
}

// No temporary file and no rename: the file keeps its inode, and whoever has it open sees it
// change.
TEST_F(JsonFileTest, TheFileIsRewrittenInPlace) {
    struct stat before = {};
    struct stat after = {};
    std::string link = dir_ / "link";
    Json::Value value(Json::objectValue);

    WriteFile(path_, std::string(5000, 'x'));
    ASSERT_EQ(::link(path_.c_str(), link.c_str()), 0);
    ASSERT_EQ(stat(path_.c_str(), &before), 0);
    AtEveryLogSetting([&](LogCapture& log) {
        EXPECT_EQ(WriteJsonToFile(value, path_.c_str()), 0);
        EXPECT_TRUE(log.Shows(WriteLines()));
    });
    ASSERT_EQ(stat(path_.c_str(), &after), 0);
    EXPECT_EQ(after.st_ino, before.st_ino);
    EXPECT_EQ(ReadFile(path_), "{}\n");
    EXPECT_EQ(ReadFile(link), "{}\n");
}

TEST_F(JsonFileTest, AFileThatCannotBeOpenedIsNotWritten) {
    for (const std::string& path : {dir_.path(), dir_ / "missing/config", std::string()}) {
        AtEveryLogSetting([&](LogCapture& log) {
            EXPECT_EQ(WriteJsonToFile(Json::Value(), path.c_str()), -1);
            EXPECT_TRUE(log.Shows(
                {kUtilLog.Enter("WriteJsonToFile"),
                 kUtilLog.Error("WriteJsonToFile", "Can't open config file (" + path + ")")}));
        });
    }
}

// Meant: once the file was opened the result is 0, and the next reader finds what is wrong.
TEST_F(JsonFileTest, ErrorsOfTheWriteItselfAreNotTested) {
    Json::Value large(std::string(1 << 20, 'x'));

    AtEveryLogSetting([&](LogCapture& log) {
        EXPECT_EQ(WriteJsonToFile(Json::Value("small"), "/dev/full"), 0);
        EXPECT_TRUE(log.Shows(WriteLines()));
        EXPECT_EQ(WriteJsonToFile(large, "/dev/full"), 0);
        EXPECT_TRUE(log.Shows(WriteLines()));
    });
}

}  // namespace
