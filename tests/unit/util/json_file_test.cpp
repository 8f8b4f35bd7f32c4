// SPDX-License-Identifier: MIT
#include "util/json_file.h"

#include <errno.h>
#include <gtest/gtest.h>
#include <stdint.h>
#include <sys/stat.h>
#include <unistd.h>

#include <random>
#include <string>
#include <vector>

#include "tests/unit/support/fake_system.h"
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

// The process may end at any moment: while the file is empty nothing is done but the one write.
TEST_F(JsonFileTest, TheTextIsMadeBeforeTheFileIsOpenedAndWrittenAtOnce) {
    Json::Value value;

    for (size_t size : {1UL, 1000UL, 100000UL}) {
        FakeSystemReset();
        value["text"] = std::string(size, 'x');
        std::string text = value.toStyledString();
        OnCall(Call::kOpen, [&](int) { value["text"] = "too late"; });
        OnCall(Call::kWrite, [&](int) { EXPECT_EQ(ReadFile(path_), ""); });
        WriteFile(path_, "before");
        EXPECT_EQ(WriteJsonToFile(value, path_.c_str()), 0);
        EXPECT_EQ(ReadFile(path_), text);
        EXPECT_EQ(CallCount(Call::kOpen), 1);
        EXPECT_EQ(CallCount(Call::kWrite), 1);
    }
}

TEST_F(JsonFileTest, AWriteThatIsCutShortGoesOn) {
    Json::Value value("0123456789");

    ShortenCall(Call::kWrite, 1, 3);
    FailCall(Call::kWrite, 2, EINTR);
    EXPECT_EQ(WriteJsonToFile(value, path_.c_str()), 0);
    EXPECT_EQ(ReadFile(path_), "\"0123456789\"\n");
    EXPECT_EQ(CallCount(Call::kWrite), 3);
}

// --- the styled form

// A text of any of the bytes below `limit`.
std::string RandomText(std::mt19937& random, unsigned limit) {
    std::string text(random() % 12, '\0');

    for (char& c : text) {
        c = static_cast<char>(random() % limit);
    }
    return text;
}

Json::Value RandomValue(std::mt19937& random, unsigned limit, int depth) {
    Json::Value value;

    switch (random() % (depth == 0 ? 6 : 8)) {
        case 0:
            return value;
        case 1:
            return Json::Value(static_cast<Json::Int64>(random()) - INT32_MAX);
        case 2:
            return Json::Value(static_cast<double>(random()) / 7);
        case 3:
            return Json::Value(random() % 2 == 0);
        case 4:
            return Json::Value(random() % 2 == 0 ? Json::arrayValue : Json::objectValue);
        case 5:
            return Json::Value(RandomText(random, limit));
        case 6:
            for (size_t i = random() % 5; i > 0; --i) {
                value.append(RandomValue(random, limit, depth - 1));
            }
            return value;
        default:
            for (size_t i = random() % 5; i > 0; --i) {
                value[RandomText(random, limit)] = RandomValue(random, limit, depth - 1);
            }
            return value;
    }
}

TEST_F(JsonFileTest, AsciiIsStyledAsTheLibraryStylesIt) {
    std::mt19937 random(1);

    for (int i = 0; i < 20000; ++i) {
        Json::Value value = RandomValue(random, 0x80, 4);
        if (i % 3 == 0) {
            value.setComment(std::string("// why"), Json::commentBefore);
            value.setComment(std::string("// so"), Json::commentAfterOnSameLine);
        }
        ASSERT_EQ(JsonToStyledText(value), value.toStyledString());
    }
    for (const char* text : {kDocument, "{}", "[]", "[[],{}]", "// why\n{\"a\": 1 /* one */}\n"}) {
        Json::Value value;
        Json::Reader reader;
        ASSERT_TRUE(reader.parse(text, value, true));
        EXPECT_EQ(JsonToStyledText(value), value.toStyledString());
    }
}

TEST_F(JsonFileTest, EveryByteOfATextComesBack) {
    std::mt19937 random(2);

    for (int i = 0; i < 2000; ++i) {
        Json::Value value = RandomValue(random, 0x100, 4);
        Json::Value again;
        ASSERT_EQ(WriteJsonToFile(value, path_.c_str()), 0);
        ASSERT_EQ(ReadFileToJson(path_, again), 0) << ReadFile(path_);
        ASSERT_EQ(JsonToStyledText(again), JsonToStyledText(value));
    }
}

TEST_F(JsonFileTest, BytesOfATextAsTheyAreWritten) {
    struct Row {
        const char* why;
        std::string text;
        const char* written;
    };
    const Row rows[] = {
        {"a name that is not UTF-8, and what follows it", "a;caf\xe9#12", "a;caf\xe9#12"},
        {"a name that is", "caf\xc3\xa9", "caf\xc3\xa9"},
        {"a lead byte at the end", "a\xf0", "a\xf0"},
        {"a lead byte alone before a quote", "\xe2\"", "\xe2\\\""},
        {"control characters", std::string("\0\x01\x1f\n\t", 5), "\\u0000\\u0001\\u001f\\n\\t"},
        {"the last of ASCII", "\x7f", "\x7f"},
    };

    for (const Row& row : rows) {
        Json::Value again;
        EXPECT_EQ(WriteJsonToFile(Json::Value(row.text), path_.c_str()), 0);
        EXPECT_EQ(ReadFile(path_), std::string("\"") + row.written + "\"\n") << row.why;
        EXPECT_EQ(ReadFileToJson(path_, again), 0) << row.why;
        EXPECT_EQ(again.asString(), row.text) << row.why;
    }
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
