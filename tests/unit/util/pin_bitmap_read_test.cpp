// SPDX-License-Identifier: MIT
// Bitmaps from their files.
#include <errno.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
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

class PinBitmapReadTest : public UnitTest {
  protected:
    void SetUp() override {
        UnitTest::SetUp();
        path_ = dir_ / "quorcachepinfile.bitmap";
    }

    std::string path_;
};

ExpectedLine NextRead(size_t start, size_t count) {
    return kLog.Debug("BitmapMemInitByFile", "Next read start = " + std::to_string(start) +
                                                 " bytes=" + std::to_string(count));
}

// A load's lines up to the first read.
Lines StartLines(size_t bitmapSize) {
    return {kLog.Enter("BitmapMemInitByFile"),
            kLog.Verbose("BitmapMemInitByFile",
                         "Start read to memory, size = " + std::to_string(bitmapSize))};
}

// A load's lines when every read brings what it was asked for.
Lines LoadLines(size_t bitmapSize, size_t bytes) {
    Lines lines = StartLines(bitmapSize);
    for (size_t start = 0; start < bytes; start += 4096) {
        lines.push_back(NextRead(start, std::min<size_t>(4096, bytes - start)));
    }
    lines.push_back(kLog.Verbose("BitmapMemInitByFile", "Read to memory finish"));
    return lines;
}

ExpectedLine ReadError(const std::string& path) {
    return kLog.Error("BitmapMemInitByFile", "Read bitmap file (" + path + ") error\n");
}

TEST_F(PinBitmapReadTest, AFileOfTheBitmapsSizeIsLoadedInPieces) {
    for (size_t size : kFileSizes) {
        std::string content = Pattern(size);
        WriteFile(path_, content);
        AtEveryLogSetting([&](LogCapture& log) {
            std::vector<uint8_t> bytes = Bytes(std::string(size, '\xee'));
            PinBitmap bitmap = Over(bytes);
            int reads = CallCount(Call::kPread);
            EXPECT_EQ(BitmapMemInitByFile(path_.c_str(), &bitmap), 0);
            EXPECT_TRUE(Text(bytes) == content) << size;
            EXPECT_EQ(CallCount(Call::kPread) - reads, static_cast<int>((size + 4095) / 4096));
            EXPECT_TRUE(log.Shows(LoadLines(size, size)));
        });
    }
}

TEST_F(PinBitmapReadTest, ASmallerFileIsLoadedIntoTheFront) {
    for (size_t size : kFileSizes) {
        std::string content = Pattern(size);
        WriteFile(path_, content);
        std::vector<uint8_t> bytes = Bytes(std::string(size + 5000, '\xee'));
        PinBitmap bitmap = Over(bytes);
        LogCapture log(3);

        EXPECT_EQ(BitmapMemInitByFile(path_.c_str(), &bitmap), 0);
        EXPECT_TRUE(Text(bytes) == content + std::string(5000, '\xee')) << size;
        EXPECT_TRUE(log.Shows(LoadLines(size + 5000, size)));
    }
}

TEST_F(PinBitmapReadTest, OfALargerFileOnlyTheFrontIsLoaded) {
    for (size_t size : kFileSizes) {
        std::string content = Pattern(size + 5000);
        WriteFile(path_, content);
        std::vector<uint8_t> bytes = Bytes(std::string(size, '\xee'));
        PinBitmap bitmap = Over(bytes);
        LogCapture log(3);

        EXPECT_EQ(BitmapMemInitByFile(path_.c_str(), &bitmap), 0);
        EXPECT_TRUE(Text(bytes) == content.substr(0, size)) << size;
        EXPECT_TRUE(log.Shows(LoadLines(size, size)));
    }
}

// Its size has other low 32 bits than its bytes are many.
TEST_F(PinBitmapReadTest, OfAFileBeyond4GiBOnlyTheFrontIsLoaded) {
    std::vector<uint8_t> bytes = Bytes(std::string(16, '\xee'));
    PinBitmap bitmap = Over(bytes);

    WriteFile(path_, Pattern(16));
    ASSERT_EQ(truncate(path_.c_str(), (off_t{1} << 32) + 8), 0);
    EXPECT_EQ(BitmapMemInitByFile(path_.c_str(), &bitmap), 0);
    EXPECT_TRUE(Text(bytes) == Pattern(16));
}

TEST_F(PinBitmapReadTest, AShortReadAdvancesByWhatItBrought) {
    std::string content = Pattern(9000);

    WriteFile(path_, content);
    AtEveryLogSetting([&](LogCapture& log) {
        std::vector<uint8_t> bytes = Bytes(std::string(9000, '\xee'));
        PinBitmap bitmap = Over(bytes);
        ShortenCall(Call::kPread, 1, 1);
        ShortenCall(Call::kPread, 2, 4000);
        ShortenCall(Call::kPread, 4, 900);
        EXPECT_EQ(BitmapMemInitByFile(path_.c_str(), &bitmap), 0);
        EXPECT_TRUE(Text(bytes) == content);
        EXPECT_TRUE(log.Shows(StartLines(9000) +
                              Lines{NextRead(0, 4096), NextRead(1, 4096), NextRead(4001, 4096),
                                    NextRead(8097, 903), NextRead(8997, 3),
                                    kLog.Verbose("BitmapMemInitByFile", "Read to memory finish")}));
    });
}

TEST_F(PinBitmapReadTest, AReadThatFailsKeepsWhatCameBefore) {
    std::string content = Pattern(9000);

    WriteFile(path_, content);
    AtEveryLogSetting([&](LogCapture& log) {
        for (int error : {EIO, EINTR}) {
            std::vector<uint8_t> bytes = Bytes(std::string(9000, '\xee'));
            PinBitmap bitmap = Over(bytes);
            FailCall(Call::kPread, 2, error);
            EXPECT_EQ(BitmapMemInitByFile(path_.c_str(), &bitmap), -1);
            EXPECT_TRUE(Text(bytes) == content.substr(0, 4096) + std::string(9000 - 4096, '\xee'));
            EXPECT_TRUE(log.Shows(StartLines(9000) + Lines{NextRead(0, 4096), NextRead(4096, 4096),
                                                           ReadError(path_)}));
        }
    });
}

TEST_F(PinBitmapReadTest, AFileThatEndsEarlyIsAReadErrorAndNoEndlessLoop) {
    std::vector<uint8_t> bytes = Bytes(std::string(9000, '\xee'));
    PinBitmap bitmap = Over(bytes);

    WriteFile(path_, Pattern(9000));
    OnCall(Call::kPread, [&](int count) {
        if (count == 2) {
            ASSERT_EQ(truncate(path_.c_str(), 4500), 0);
        }
    });
    LogCapture log(3);
    EXPECT_EQ(BitmapMemInitByFile(path_.c_str(), &bitmap), -1);
    EXPECT_TRUE(log.Shows(StartLines(9000) + Lines{NextRead(0, 4096), NextRead(4096, 4096),
                                                   NextRead(4500, 4096), ReadError(path_)}));
}

TEST_F(PinBitmapReadTest, LoadingTakesABitmapWithDataAndAPath) {
    std::vector<uint8_t> bytes = Bytes("x");
    PinBitmap bitmap = Over(bytes);
    PinBitmap empty = {};
    const Lines lines = {kLog.Enter("BitmapMemInitByFile"),
                         kLog.Error("BitmapMemInitByFile", "Incorrect parameter")};

    WriteFile(path_, "y");
    AtEveryLogSetting([&](LogCapture& log) {
        EXPECT_EQ(BitmapMemInitByFile(path_.c_str(), nullptr), -1);
        EXPECT_TRUE(log.Shows(lines));
        EXPECT_EQ(BitmapMemInitByFile(nullptr, &bitmap), -1);
        EXPECT_TRUE(log.Shows(lines));
        EXPECT_EQ(BitmapMemInitByFile(path_.c_str(), &empty), -1);
        EXPECT_TRUE(log.Shows(lines));
    });
    EXPECT_EQ(Text(bytes), "x");
    EXPECT_TRUE(OpensTried().empty());
}

TEST_F(PinBitmapReadTest, AFileWithoutASizeIsNotLoaded) {
    std::vector<uint8_t> bytes = Bytes("x");
    PinBitmap bitmap = Over(bytes);

    AtEveryLogSetting([&](LogCapture& log) {
        EXPECT_EQ(BitmapMemInitByFile(path_.c_str(), &bitmap), -1);
        EXPECT_TRUE(log.Shows(
            {kLog.Enter("BitmapMemInitByFile"),
             kLog.Error("FileGetSizeByte", "Can't get file (" + path_ + ") stat result"),
             kLog.Error("BitmapMemInitByFile", "Get the size of file (" + path_ + ") error")}));
    });
    EXPECT_TRUE(OpensTried().empty());
}

// Makes a socket's name, which can be looked at and not opened.
void MakeSocket(const std::string& path) {
    struct sockaddr_un address = {};
    int fd = socket(AF_UNIX, SOCK_STREAM, 0);

    address.sun_family = AF_UNIX;
    ASSERT_LT(path.size(), sizeof(address.sun_path));
    path.copy(address.sun_path, path.size());
    ASSERT_EQ(bind(fd, reinterpret_cast<struct sockaddr*>(&address), sizeof(address)), 0);
    close(fd);
}

TEST_F(PinBitmapReadTest, WhatCannotBeOpenedIsNotLoaded) {
    std::vector<uint8_t> bytes = Bytes("x");
    PinBitmap bitmap = Over(bytes);

    const std::string path = dir_ / "socket";
    MakeSocket(path);
    AtEveryLogSetting([&](LogCapture& log) {
        EXPECT_EQ(BitmapMemInitByFile(path.c_str(), &bitmap), -1);
        EXPECT_TRUE(log.Shows(
            {kLog.Enter("BitmapMemInitByFile"),
             kLog.Error("BitmapMemInitByFile", "Can't open bitmap file (" + path + ")\n")}));
    });
    EXPECT_EQ(Text(bytes), "x");
}

TEST_F(PinBitmapReadTest, APipeIsNotWaitedFor) {
    std::vector<uint8_t> bytes = Bytes("x");
    PinBitmap bitmap = Over(bytes);

    ASSERT_EQ(mkfifo(path_.c_str(), 0600), 0);
    EXPECT_EQ(BitmapMemInitByFile(path_.c_str(), &bitmap), 0);
    EXPECT_EQ(Text(bytes), "x");
    EXPECT_EQ(BitmapFileWrite(&bitmap, path_.c_str()), -1);
}

}  // namespace
