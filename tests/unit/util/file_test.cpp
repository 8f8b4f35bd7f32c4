// SPDX-License-Identifier: MIT
#include "util/file.h"

#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <vector>

#include "tests/unit/support/fake_files.h"
#include "tests/unit/support/fake_system.h"
#include "tests/unit/support/log_capture.h"
#include "tests/unit/support/unit_test.h"

namespace {

constexpr char kUntouched[] = "untouched";

class FileTest : public UnitTest {};

struct PathRow {
    const char* why;
    std::string path;
    int exists;
};

TEST_F(FileTest, WhateverCanBeLookedAtExists) {
    WriteFile(dir_ / "file", "");
    ASSERT_EQ(symlink("file", (dir_ / "link").c_str()), 0);
    ASSERT_EQ(symlink("nothing", (dir_ / "dangling").c_str()), 0);
    ASSERT_EQ(symlink("loop", (dir_ / "loop").c_str()), 0);
    const PathRow rows[] = {
        {"an empty file", dir_ / "file", 1},
        {"a directory is not told from a file", dir_.path(), 1},
        {"a device", "/dev/null", 1},
        {"through a link", dir_ / "link", 1},
        {"nothing there", dir_ / "missing", 0},
        {"a link to nothing", dir_ / "dangling", 0},
        {"a link to itself", dir_ / "loop", 0},
        {"through a file", dir_ / "file/more", 0},
        {"an empty path", "", 0},
        {"a name too long", dir_ / std::string(300, 'n'), 0},
    };

    for (const PathRow& row : rows) {
        SCOPED_TRACE(row.why);
        AtEveryLogSetting([&](LogCapture& log) {
            EXPECT_EQ(FileExists(row.path.c_str()), row.exists);
            EXPECT_TRUE(log.Shows({}));
        });
    }
}

TEST_F(FileTest, LongPathsAreLookedAtToTheirEnd) {
    std::string directory =
        dir_ / std::string(200, 'd') + "/" + std::string(200, 'd') + "/" + std::string(200, 'd');

    std::filesystem::create_directories(directory);
    WriteFile(directory + "/a", "");
    EXPECT_EQ(FileExists((directory + "/a").c_str()), 1);
    EXPECT_EQ(FileExists((directory + "/b").c_str()), 0);
}

TEST_F(FileTest, WritesTheTextAndNothingElse) {
    const std::string texts[] = {
        "", "1", "-2147483648", "line\n", std::string("a\0b", 3), std::string(1 << 20, 'z')};
    std::string path = dir_ / "file";

    for (const std::string& text : texts) {
        AtEveryLogSetting([&](LogCapture& log) {
            WriteFile(path, "what was there before, which is longer");
            EXPECT_EQ(FileWriteString(path.c_str(), text), 0);
            EXPECT_TRUE(log.Shows({kUtilLog.Verbose("FileWriteString", "Write to file OK")}));
            EXPECT_EQ(ReadFile(path), text);
        });
    }
}

TEST_F(FileTest, WritingCreatesTheFile) {
    EXPECT_EQ(FileWriteString((dir_ / "new").c_str(), "text"), 0);
    EXPECT_EQ(ReadFile(dir_ / "new"), "text");
}

TEST_F(FileTest, AFileThatCannotBeOpenedIsNotWritten) {
    for (const std::string& path : {dir_.path(), dir_ / "missing/file", std::string()}) {
        AtEveryLogSetting([&](LogCapture& log) {
            EXPECT_EQ(FileWriteString(path.c_str(), "text"), -1);
            EXPECT_TRUE(
                log.Shows({kUtilLog.Error("FileWriteString", "Can't open file (" + path + ")")}));
        });
    }
}

TEST_F(FileTest, AShortWriteIsAnErrorAndWhatWasWrittenStays) {
    std::string path = dir_ / "file";

    AtEveryLogSetting([&](LogCapture& log) {
        WriteFile(path, "before");
        ShortenCall(Call::kFwrite, 1, 3);
        EXPECT_EQ(FileWriteString(path.c_str(), "text"), -1);
        EXPECT_TRUE(log.Shows({kUtilLog.Error("FileWriteString", "Write error")}));
        EXPECT_EQ(ReadFile(path), "tex");
    });
}

TEST_F(FileTest, AWriteThatFailsAltogetherLeavesTheFileEmpty) {
    std::string path = dir_ / "file";
    LogCapture log(1);

    WriteFile(path, "before");
    FailCall(Call::kFwrite, 1, EIO);
    EXPECT_EQ(FileWriteString(path.c_str(), "text"), -1);
    EXPECT_TRUE(log.Shows({kUtilLog.Error("FileWriteString", "Write error")}));
    EXPECT_EQ(ReadFile(path), "");
}

TEST_F(FileTest, AFullDeviceIsAWriteErrorHoweverShortTheText) {
    for (size_t length : {1U, 100U, 1000000U}) {
        AtEveryLogSetting([&](LogCapture& log) {
            EXPECT_EQ(FileWriteString("/dev/full", std::string(length, 'x')), -1);
            EXPECT_TRUE(log.Shows({kUtilLog.Error("FileWriteString", "Write error")}));
        });
    }
}

struct LineRow {
    const char* why;
    std::string content;
    std::string line;
};

TEST_F(FileTest, ReadsTheFirstLineWithItsNewline) {
    const LineRow rows[] = {
        {"a line", "123\n", "123\n"},
        {"no newline at the end", "123", "123"},
        {"the first of several", "a\nb\nc\n", "a\n"},
        {"an empty first line", "\nrest", "\n"},
        {"blanks are kept", " \t x \r\n", " \t x \r\n"},
        {"a NUL does not end it", std::string("a\0b\nc", 5), std::string("a\0b\n", 4)},
        {"conversions are text", "%n%s%d\n", "%n%s%d\n"},
        {"bytes of no character set", "\xff\xfe\n", "\xff\xfe\n"},
        {"a long one", std::string(100000, 'x') + "\ny", std::string(100000, 'x') + "\n"},
    };
    std::string path = dir_ / "file";

    for (const LineRow& row : rows) {
        SCOPED_TRACE(row.why);
        WriteFile(path, row.content);
        AtEveryLogSetting([&](LogCapture& log) {
            std::string text = kUntouched;
            EXPECT_EQ(FileReadString(path.c_str(), text), 0);
            EXPECT_EQ(text, row.line);
            // The trace ends at a NUL, the text does not.
            EXPECT_TRUE(log.Shows({kUtilLog.Verbose(
                "FileReadString", std::string("Get text = ") + row.line.c_str())}));
        });
    }
}

TEST_F(FileTest, ReadingWhatCannotBeOpenedLeavesTheTextAlone) {
    std::string path = dir_ / "missing";

    AtEveryLogSetting([&](LogCapture& log) {
        std::string text = kUntouched;
        EXPECT_EQ(FileReadString(path.c_str(), text), -1);
        EXPECT_EQ(text, kUntouched);
        EXPECT_TRUE(
            log.Shows({kUtilLog.Error("FileReadString", "Can't open file (" + path + ")")}));
    });
    EXPECT_FALSE(Exists(path));
}

TEST_F(FileTest, ReadingWhatHoldsNoLineLeavesTheTextAlone) {
    WriteFile(dir_ / "empty", "");
    // The directory opens and then cannot be read.
    for (const std::string& path : {dir_ / "empty", dir_.path()}) {
        AtEveryLogSetting([&](LogCapture& log) {
            std::string text = kUntouched;
            EXPECT_EQ(FileReadString(path.c_str(), text), -1);
            EXPECT_EQ(text, kUntouched);
            EXPECT_TRUE(log.Shows(
                {kUtilLog.Error("FileReadString", "Can't get a line from file (" + path + ")")}));
        });
    }
}

TEST_F(FileTest, AContentIsReadUpToItsLimit) {
    const std::string path = dir_ / "file";

    WriteFile(path, "one\ntwo\n");
    for (const auto& [limit, expected] :
         {std::pair<size_t, std::string>{3, "one"}, {8, "one\ntwo\n"}, {100, "one\ntwo\n"}}) {
        AtEveryLogSetting([&, limit = limit, expected = expected](LogCapture& log) {
            std::string text = kUntouched;
            FakeSystemReset();
            ShortenCall(Call::kRead, 1, 1);
            EXPECT_EQ(FileReadContent(path.c_str(), limit, text), 0);
            EXPECT_EQ(text, expected);
            EXPECT_TRUE(log.Shows({kUtilLog.Verbose("FileReadString", "Get text = " + expected)}));
        });
    }
}

TEST_F(FileTest, AContentThatCannotBeReadLeavesTheTextAlone) {
    const std::string missing = dir_ / "missing";
    const std::string path = dir_ / "file";
    std::string text = kUntouched;
    LogCapture log;

    EXPECT_EQ(FileReadContent(missing.c_str(), 10, text), -1);
    EXPECT_TRUE(log.Shows({kUtilLog.Error("FileReadString", "Can't open file (" + missing + ")")}));
    WriteFile(path, "text");
    ShortenCall(Call::kRead, 1, 2);
    FailCall(Call::kRead, 2, EIO);
    EXPECT_EQ(FileReadContent(path.c_str(), 10, text), -1);
    EXPECT_TRUE(
        log.Shows({kUtilLog.Error("FileReadString", "Can't get a line from file (" + path + ")")}));
    EXPECT_EQ(text, kUntouched);
}

TEST_F(FileTest, AnInterruptedReadingOfAContentIsNotTriedAgain) {
    std::string text = "untouched";
    LogCapture log;

    WriteFile(dir_ / "file", "content");
    FailCall(Call::kRead, 1, EINTR);
    EXPECT_EQ(FileReadContent((dir_ / "file").c_str(), 100, text), -1);
    EXPECT_EQ(text, "untouched");
    EXPECT_TRUE(log.Shows(
        {kUtilLog.Error("FileReadString", "Can't get a line from file (" + dir_ / "file" + ")")}));
}

TEST_F(FileTest, SizesAreOf64Bits) {
    std::string path = dir_ / "file";
    std::string missing = dir_ / "missing";

    for (uint64_t size : {uint64_t{0}, uint64_t{1}, uint64_t{0xffffffff}, uint64_t{0x100000000},
                          uint64_t{5} << 30, (uint64_t{1} << 40) + 1}) {
        WriteFile(path, "");
        ASSERT_EQ(truncate(path.c_str(), static_cast<off_t>(size)), 0);
        AtEveryLogSetting([&](LogCapture& log) {
            uint64_t found = 7;
            EXPECT_EQ(FileGetSizeByte(path.c_str(), &found), 0);
            EXPECT_EQ(found, size);
            EXPECT_TRUE(log.Shows({}));
        });
    }
    AtEveryLogSetting([&](LogCapture& log) {
        uint64_t found = 7;
        EXPECT_EQ(FileGetSizeByte(missing.c_str(), &found), -1);
        EXPECT_EQ(found, 7U);
        EXPECT_TRUE(log.Shows(
            {kUtilLog.Error("FileGetSizeByte", "Can't get file (" + missing + ") stat result")}));
    });
}

struct InodeRow {
    uint64_t inode;
    unsigned long stored;
};

TEST_F(FileTest, InodeNumbersAreStoredModulo32Bits) {
    const InodeRow rows[] = {
        {1, 1},           {0x7fffffff, 0x7fffffff}, {0xffffffff, 0xffffffff},
        {0x100000000, 0}, {0x100000005, 5},         {0xffffffffffffffff, 0xffffffff},
    };
    std::string path = dir_ / "file";

    WriteFile(path, "");
    for (const InodeRow& row : rows) {
        SetInodeNumber(path, row.inode);
        AtEveryLogSetting([&](LogCapture& log) {
            unsigned long inode = 7;
            EXPECT_EQ(FileGetInodeNumber(path.c_str(), &inode), 0);
            EXPECT_EQ(inode, row.stored) << row.inode;
            EXPECT_TRUE(log.Shows({}));
        });
    }
}

TEST_F(FileTest, TheInodeIsTheFilesOwn) {
    std::string path = dir_ / "a name with blanks";
    struct stat status = {};
    unsigned long inode = 0;

    WriteFile(path, "");
    ASSERT_EQ(stat(path.c_str(), &status), 0);
    EXPECT_EQ(FileGetInodeNumber(path.c_str(), &inode), 0);
    EXPECT_EQ(inode, static_cast<uint32_t>(status.st_ino));
}

TEST_F(FileTest, WithoutAFileTheInodeIsLeftAlone) {
    std::string path = dir_ / "missing";

    AtEveryLogSetting([&](LogCapture& log) {
        unsigned long inode = 7;
        EXPECT_EQ(FileGetInodeNumber(path.c_str(), &inode), -1);
        EXPECT_EQ(inode, 7U);
        EXPECT_TRUE(
            log.Shows({kUtilLog.Error("FileGetInodeNumber", "Stat file " + path + " error")}));
    });
}

TEST_F(FileTest, AFileThatMayNotBeLookedAtIsMissing) {
    WriteFile(dir_ / "file", "");
    std::string path = dir_ / "file";

    FailCall(Call::kStat, 1, EACCES, 3);
    unsigned long inode = 7;
    uint64_t size = 7;
    EXPECT_EQ(FileExists(path.c_str()), 0);
    EXPECT_EQ(FileGetSizeByte(path.c_str(), &size), -1);
    EXPECT_EQ(FileGetInodeNumber(path.c_str(), &inode), -1);
    EXPECT_EQ(CallCount(Call::kStat), 3);
}

}  // namespace
