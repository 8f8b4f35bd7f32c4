// SPDX-License-Identifier: MIT
// Bitmaps to their files.
#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "tests/unit/support/fake_files.h"
#include "tests/unit/support/fake_system.h"
#include "tests/unit/support/log_capture.h"
#include "tests/unit/support/unit_test.h"
#include "tests/unit/util/bitmap_bytes.h"
#include "tests/unit/util/lines.h"
#include "util/pin_bitmap.h"

namespace {

constexpr LogSource kLog = kUtilLog;

class PinBitmapWriteTest : public UnitTest {
  protected:
    void SetUp() override {
        UnitTest::SetUp();
        path_ = dir_ / "quorcachepinfile.bitmap";
    }

    std::string path_;
};

Lines WriteLines(size_t size, const std::string& path) {
    return {kLog.Verbose("BitmapFileWrite", "Bytes to write = " + std::to_string(size)),
            kLog.Verbose("BitmapFileWrite", "Write to bitmap file (" + path + ") size (" +
                                                std::to_string(size) + ") Finish")};
}

ExpectedLine WriteError(const std::string& path) {
    return kLog.Error("BitmapFileWrite", "Write bitmap file (" + path + ") error\n");
}

TEST_F(PinBitmapWriteTest, TheFileIsTheBitmapsBytesWrittenInPieces) {
    mode_t mask = umask(0);

    for (size_t size : kFileSizes) {
        std::string content = Pattern(size);
        std::vector<uint8_t> bytes = Bytes(content);
        PinBitmap bitmap = Over(bytes);
        AtEveryLogSetting([&](LogCapture& log) {
            struct stat status = {};
            unlink(path_.c_str());
            int writes = CallCount(Call::kPwrite);
            EXPECT_EQ(BitmapFileWrite(&bitmap, path_.c_str()), 0);
            EXPECT_TRUE(ReadFile(path_) == content) << size;
            EXPECT_EQ(CallCount(Call::kPwrite) - writes, static_cast<int>((size + 4095) / 4096));
            EXPECT_TRUE(log.Shows(WriteLines(size, path_)));
            EXPECT_EQ(stat(path_.c_str(), &status), 0);
            EXPECT_EQ(status.st_mode, static_cast<mode_t>(S_IFREG | 0644));
        });
    }
    umask(mask);
    EXPECT_EQ(CallCount(Call::kFsync), 0);
    EXPECT_EQ(OpensTried().back().flags & (O_ACCMODE | O_TRUNC), O_RDWR);
}

TEST_F(PinBitmapWriteTest, TheTailOfALongerFileStays) {
    for (size_t size : {0U, 1U, 4096U, 5000U}) {
        std::vector<uint8_t> bytes = Bytes(std::string(size, '\x11'));
        PinBitmap bitmap = Over(bytes);
        WriteFile(path_, Pattern(9000));
        EXPECT_EQ(BitmapFileWrite(&bitmap, path_.c_str()), 0);
        EXPECT_TRUE(ReadFile(path_) == std::string(size, '\x11') + Pattern(9000).substr(size))
            << size;
    }
}

TEST_F(PinBitmapWriteTest, AShorterFileGrows) {
    std::vector<uint8_t> bytes = Bytes(Pattern(9000));
    PinBitmap bitmap = Over(bytes);

    WriteFile(path_, "short");
    EXPECT_EQ(BitmapFileWrite(&bitmap, path_.c_str()), 0);
    EXPECT_TRUE(ReadFile(path_) == Pattern(9000));
}

TEST_F(PinBitmapWriteTest, AShortWriteAdvancesByWhatItTook) {
    std::vector<uint8_t> bytes = Bytes(Pattern(9000));
    PinBitmap bitmap = Over(bytes);

    AtEveryLogSetting([&](LogCapture& log) {
        unlink(path_.c_str());
        int writes = CallCount(Call::kPwrite);
        ShortenCall(Call::kPwrite, 1, 1);
        ShortenCall(Call::kPwrite, 3, 4000);
        EXPECT_EQ(BitmapFileWrite(&bitmap, path_.c_str()), 0);
        EXPECT_TRUE(ReadFile(path_) == Pattern(9000));
        EXPECT_EQ(CallCount(Call::kPwrite) - writes, 4);
        EXPECT_TRUE(log.Shows(WriteLines(9000, path_)));
    });
}

TEST_F(PinBitmapWriteTest, AWriteThatFailsKeepsWhatWasWrittenBefore) {
    std::vector<uint8_t> bytes = Bytes(Pattern(9000));
    PinBitmap bitmap = Over(bytes);

    AtEveryLogSetting([&](LogCapture& log) {
        for (int error : {ENOSPC, EINTR}) {
            int writes = CallCount(Call::kPwrite);
            WriteFile(path_, std::string(10000, '\x11'));
            FailCall(Call::kPwrite, 2, error);
            EXPECT_EQ(BitmapFileWrite(&bitmap, path_.c_str()), -1);
            EXPECT_EQ(CallCount(Call::kPwrite) - writes, 2) << "nothing is tried again";
            EXPECT_TRUE(ReadFile(path_) ==
                        Pattern(9000).substr(0, 4096) + std::string(10000 - 4096, '\x11'));
            EXPECT_TRUE(log.Shows({WriteLines(9000, path_)[0], WriteError(path_)}));
        }
    });
}

TEST_F(PinBitmapWriteTest, AWriteThatTakesNothingIsAFailureAndNoEndlessLoop) {
    std::vector<uint8_t> bytes = Bytes("x");
    PinBitmap bitmap = Over(bytes);
    LogCapture log(2);

    ShortenCall(Call::kPwrite, 1, 0);
    EXPECT_EQ(BitmapFileWrite(&bitmap, path_.c_str()), -1);
    EXPECT_TRUE(log.Shows({WriteLines(1, path_)[0], WriteError(path_)}));
}

TEST_F(PinBitmapWriteTest, AFullDevice) {
    std::vector<uint8_t> bytes = Bytes("x");
    PinBitmap bitmap = Over(bytes);
    LogCapture log(2);

    EXPECT_EQ(BitmapFileWrite(&bitmap, "/dev/full"), -1);
    EXPECT_TRUE(log.Shows({WriteLines(1, "")[0], WriteError("/dev/full")}));
}

TEST_F(PinBitmapWriteTest, WhatCannotBeOpenedIsNotWritten) {
    std::vector<uint8_t> bytes = Bytes("x");
    PinBitmap bitmap = Over(bytes);

    for (const std::string& path : {dir_.path(), dir_ / "missing/bitmap"}) {
        AtEveryLogSetting([&](LogCapture& log) {
            EXPECT_EQ(BitmapFileWrite(&bitmap, path.c_str()), -1);
            EXPECT_TRUE(log.Shows(
                {WriteLines(1, path)[0],
                 kLog.Error("BitmapFileWrite", "Can't open bitmap file (" + path + ") \n")}));
        });
    }
}

}  // namespace
