// SPDX-License-Identifier: MIT
#include "platform/quorcore.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <string>

#include "tests/unit/platform/scratch.h"

namespace {

struct Row {
    const char* what;
    std::string content;
    const char* key;
    int result;  // 0 = not found, else the value's bytes with the NUL
    const char* value;
};

class KeyValueTest : public testing::Test {
  protected:
    void SetUp() override {
        char name[] = "/tmp/quorcore_test.XXXXXX";
        const int fd = mkstemp(name);
        ASSERT_GE(fd, 0);
        close(fd);
        file_ = name;
        ClearLog();
    }
    void TearDown() override { unlink(file_.c_str()); }

    std::string file_;
};

constexpr char kUntouched[] = "untouched";

const Row kRows[] = {
    {"plain", "print_level=debug\n", "print_level", 6, "debug"},
    {"no newline at the end", "print_level=debug", "print_level", 6, "debug"},
    {"blanks and tabs around both", " \tkey \t=\t  a value \t\n", "key", 8, "a value"},
    {"CRLF lines", "a=1\r\nkey=v\r\n", "key", 2, "v"},
    {"double quotes are removed", "key=\"yes\"\n", "key", 4, "yes"},
    {"blanks within quotes stay", "key= \" yes \" \n", "key", 6, " yes "},
    {"one pair of quotes only", "key=\"\"yes\"\"\n", "key", 6, "\"yes\""},
    {"an opening quote alone stays", "key=\"yes\n", "key", 5, "\"yes"},
    {"a closing quote alone stays", "key=yes\"\n", "key", 5, "yes\""},
    {"a lone quote is no pair", "key=\"\n", "key", 2, "\""},
    {"single quotes are text", "key='yes'\n", "key", 6, "'yes'"},
    {"empty value is found", "key=\n", "key", 1, ""},
    {"empty quotes are an empty value", "key=\"\"\n", "key", 1, ""},
    {"the first occurrence counts", "key=first\nkey=second\n", "key", 6, "first"},
    {"the first counts when empty, too", "key=\nkey=second\n", "key", 1, ""},
    {"value with equals signs", "key=a=b=c\n", "key", 6, "a=b=c"},
    {"comment", "#key=no\nkey=yes\n", "key", 4, "yes"},
    {"comment behind blanks", "  # key=no\nkey=yes\n", "key", 4, "yes"},
    {"a # further on is part of the value", "key=a # b\n", "key", 6, "a # b"},
    {"a comment is no key of that name", "#key=no\n", "#key", 0, kUntouched},
    {"key without equals sign", "key\nkey=yes\n", "key", 4, "yes"},
    {"longer key", "key2=no\n", "key", 0, kUntouched},
    {"shorter key", "ke=no\n", "key", 0, kUntouched},
    {"case counts", "KEY=no\n", "key", 0, kUntouched},
    {"key as a value", "other=key=no\n", "key", 0, kUntouched},
    {"two words are one key", "my key=no\n", "key", 0, kUntouched},
    {"empty file", "", "key", 0, kUntouched},
    {"only newlines", "\n\n\n", "key", 0, kUntouched},
    {"empty key never matches", "=no\n", "", 0, kUntouched},
    {"conversions are text", "key=%n%s\n", "key", 5, "%n%s"},
    {"bytes that are no ASCII", "key=\xff\xc3\xa9\n", "key", 4, "\xff\xc3\xa9"},
    {"NUL in another line", std::string("a\0b=1\nkey=v\n", 12), "key", 2, "v"},
    {"a path instead of settings", "/volume1/a.bin\n", "key", 0, kUntouched},
};

TEST_F(KeyValueTest, ReadsWhatTheRowsSay) {
    for (const Row& row : kRows) {
        WriteFile(file_, row.content);
        char value[128] = "untouched";
        EXPECT_EQ(QLIBCFileGetKeyValue(file_.c_str(), row.key, value, sizeof value, 0), row.result)
            << row.what;
        EXPECT_STREQ(value, row.value) << row.what;
    }
    EXPECT_TRUE(LogLines().empty());
}

TEST_F(KeyValueTest, CutsAValueThatDoesNotFitAndStaysInItsBuffer) {
    WriteFile(file_, "key=0123456789\n");
    char value[] = "#############";
    EXPECT_EQ(QLIBCFileGetKeyValue(file_.c_str(), "key", value, 11, 0), 11);
    EXPECT_STREQ(value, "0123456789");
    EXPECT_EQ(QLIBCFileGetKeyValue(file_.c_str(), "key", value, 5, 0), 5);
    EXPECT_EQ(std::string(value, 8), std::string("0123\000567", 8));
    EXPECT_EQ(QLIBCFileGetKeyValue(file_.c_str(), "key", value, 1, 0), 1);
    EXPECT_STREQ(value, "");
}

TEST_F(KeyValueTest, AMissingFileIsAFailureWithoutALine) {
    char value[] = "untouched";
    EXPECT_LT(QLIBCFileGetKeyValue("/nowhere/settings", "key", value, sizeof value, 0), 0);
    EXPECT_STREQ(value, "untouched");
    EXPECT_TRUE(LogLines().empty());
}

TEST_F(KeyValueTest, WhatIsNoSettingsFileIsNamedAndNeverWaitedFor) {
    const std::string pipe = file_ + ".pipe";
    const std::string large = file_ + ".large";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    WriteFile(large, "key=v\n");
    ASSERT_EQ(truncate(large.c_str(), 1024 * 1024 + 1), 0);
    char value[] = "untouched";
    for (const std::string& path : {std::string("/tmp"), pipe, large}) {
        ClearLog();
        EXPECT_LT(QLIBCFileGetKeyValue(path.c_str(), "key", value, sizeof value, 0), 0) << path;
        EXPECT_STREQ(value, "untouched");
        ASSERT_EQ(LogLines().size(), 1u) << path;
        EXPECT_EQ(
            LogLines()[0].rfind("libquorcore: settings file " + path + " cannot be read: ", 0), 0u)
            << LogLines()[0];
    }
    unlink(pipe.c_str());
    unlink(large.c_str());
}

TEST_F(KeyValueTest, MissingArgumentsFail) {
    WriteFile(file_, "key=v\n");
    char value[8] = "x";
    EXPECT_LT(QLIBCFileGetKeyValue(nullptr, "key", value, sizeof value, 0), 0);
    EXPECT_LT(QLIBCFileGetKeyValue(file_.c_str(), nullptr, value, sizeof value, 0), 0);
    EXPECT_LT(QLIBCFileGetKeyValue(file_.c_str(), "key", nullptr, 8, 0), 0);
    EXPECT_LT(QLIBCFileGetKeyValue(file_.c_str(), "key", value, 0, 0), 0);
    EXPECT_STREQ(value, "x");
}

}  // namespace
