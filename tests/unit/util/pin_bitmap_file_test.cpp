// SPDX-License-Identifier: MIT
// Bitmaps to and from their files.
#include <errno.h>
#include <fcntl.h>
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
#include "tests/unit/util/lines.h"
#include "util/pin_bitmap.h"

namespace {

constexpr LogSource kLog = kUtilLog;
constexpr size_t kSizes[] = {0, 1, 4095, 4096, 4097, 8192, 10000, 2 << 20};

class PinBitmapFileTest : public UnitTest {
  protected:
    void SetUp() override {
        UnitTest::SetUp();
        path_ = dir_ / "quorcachepinfile.bitmap";
    }

    std::string path_;
};

// Bytes that differ from piece to piece.
std::string Pattern(size_t size) {
    std::string bytes(size, '\0');
    for (size_t i = 0; i < size; ++i) {
        bytes[i] = static_cast<char>(i * 7 + i / 4096);
    }
    return bytes;
}

// A bitmap over a text's bytes. The bytes are a heap block of just that size.
PinBitmap Over(std::vector<uint8_t>& bytes) {
    return PinBitmap{bytes.data(), static_cast<uint32_t>(bytes.size())};
}

std::vector<uint8_t> Bytes(const std::string& text) {
    std::vector<uint8_t> bytes(text.begin(), text.end());
    bytes.shrink_to_fit();
    bytes.reserve(1);  // an empty bitmap has an address, too
    return bytes;
}

std::string Text(const std::vector<uint8_t>& bytes) {
    return std::string(bytes.begin(), bytes.end());
}

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

TEST_F(PinBitmapFileTest, AFileOfTheBitmapsSizeIsLoadedInPieces) {
    for (size_t size : kSizes) {
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

TEST_F(PinBitmapFileTest, ASmallerFileIsLoadedIntoTheFront) {
    for (size_t size : kSizes) {
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

TEST_F(PinBitmapFileTest, OfALargerFileOnlyTheFrontIsLoaded) {
    for (size_t size : kSizes) {
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

TEST_F(PinBitmapFileTest, AShortReadAdvancesByWhatItBrought) {
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

TEST_F(PinBitmapFileTest, AReadThatFailsKeepsWhatCameBefore) {
    std::string content = Pattern(9000);

    WriteFile(path_, content);
    AtEveryLogSetting([&](LogCapture& log) {
        std::vector<uint8_t> bytes = Bytes(std::string(9000, '\xee'));
        PinBitmap bitmap = Over(bytes);
        FailCall(Call::kPread, 2, EIO);
        EXPECT_EQ(BitmapMemInitByFile(path_.c_str(), &bitmap), -1);
        EXPECT_TRUE(Text(bytes) == content.substr(0, 4096) + std::string(9000 - 4096, '\xee'));
        EXPECT_TRUE(log.Shows(StartLines(9000) +
                              Lines{NextRead(0, 4096), NextRead(4096, 4096), ReadError(path_)}));
    });
}

TEST_F(PinBitmapFileTest, AFileThatEndsEarlyIsAReadErrorAndNoEndlessLoop) {
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

TEST_F(PinBitmapFileTest, LoadingTakesABitmapWithDataAndAPath) {
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

TEST_F(PinBitmapFileTest, AFileWithoutASizeIsNotLoaded) {
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

TEST_F(PinBitmapFileTest, WhatCannotBeOpenedIsNotLoaded) {
    std::vector<uint8_t> bytes = Bytes("x");
    PinBitmap bitmap = Over(bytes);

    WriteFile(dir_ / "elsewhere", "y");
    MakeSocket(dir_ / "socket");
    ASSERT_EQ(symlink("elsewhere", (dir_ / "link").c_str()), 0);
    for (const std::string& path : {dir_ / "socket", dir_ / "link"}) {
        AtEveryLogSetting([&](LogCapture& log) {
            EXPECT_EQ(BitmapMemInitByFile(path.c_str(), &bitmap), -1);
            EXPECT_TRUE(log.Shows(
                {kLog.Enter("BitmapMemInitByFile"),
                 kLog.Error("BitmapMemInitByFile", "Can't open bitmap file (" + path + ")\n")}));
        });
    }
    EXPECT_EQ(Text(bytes), "x");
}

TEST_F(PinBitmapFileTest, APipeIsNotWaitedFor) {
    std::vector<uint8_t> bytes = Bytes("x");
    PinBitmap bitmap = Over(bytes);

    ASSERT_EQ(mkfifo(path_.c_str(), 0600), 0);
    EXPECT_EQ(BitmapMemInitByFile(path_.c_str(), &bitmap), 0);
    EXPECT_EQ(Text(bytes), "x");
    EXPECT_EQ(BitmapFileWrite(&bitmap, path_.c_str()), -1);
}

Lines WriteLines(size_t size, const std::string& path) {
    return {kLog.Verbose("BitmapFileWrite", "Bytes to write = " + std::to_string(size)),
            kLog.Verbose("BitmapFileWrite", "Write to bitmap file (" + path + ") size (" +
                                                std::to_string(size) + ") Finish")};
}

ExpectedLine WriteError(const std::string& path) {
    return kLog.Error("BitmapFileWrite", "Write bitmap file (" + path + ") error\n");
}

TEST_F(PinBitmapFileTest, TheFileIsTheBitmapsBytesWrittenInPieces) {
    mode_t mask = umask(0);

    for (size_t size : kSizes) {
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

TEST_F(PinBitmapFileTest, TheTailOfALongerFileStays) {
    for (size_t size : {0U, 1U, 4096U, 5000U}) {
        std::vector<uint8_t> bytes = Bytes(std::string(size, '\x11'));
        PinBitmap bitmap = Over(bytes);
        WriteFile(path_, Pattern(9000));
        EXPECT_EQ(BitmapFileWrite(&bitmap, path_.c_str()), 0);
        EXPECT_TRUE(ReadFile(path_) == std::string(size, '\x11') + Pattern(9000).substr(size))
            << size;
    }
}

TEST_F(PinBitmapFileTest, AShorterFileGrows) {
    std::vector<uint8_t> bytes = Bytes(Pattern(9000));
    PinBitmap bitmap = Over(bytes);

    WriteFile(path_, "short");
    EXPECT_EQ(BitmapFileWrite(&bitmap, path_.c_str()), 0);
    EXPECT_TRUE(ReadFile(path_) == Pattern(9000));
}

TEST_F(PinBitmapFileTest, AShortWriteAdvancesByWhatItTook) {
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

TEST_F(PinBitmapFileTest, AWriteThatFailsKeepsWhatWasWrittenBefore) {
    std::vector<uint8_t> bytes = Bytes(Pattern(9000));
    PinBitmap bitmap = Over(bytes);

    AtEveryLogSetting([&](LogCapture& log) {
        unlink(path_.c_str());
        FailCall(Call::kPwrite, 2, ENOSPC);
        EXPECT_EQ(BitmapFileWrite(&bitmap, path_.c_str()), -1);
        EXPECT_TRUE(ReadFile(path_) == Pattern(9000).substr(0, 4096));
        EXPECT_TRUE(log.Shows({WriteLines(9000, path_)[0], WriteError(path_)}));
    });
}

TEST_F(PinBitmapFileTest, AWriteThatTakesNothingIsAFailureAndNoEndlessLoop) {
    std::vector<uint8_t> bytes = Bytes("x");
    PinBitmap bitmap = Over(bytes);
    LogCapture log(2);

    ShortenCall(Call::kPwrite, 1, 0);
    EXPECT_EQ(BitmapFileWrite(&bitmap, path_.c_str()), -1);
    EXPECT_TRUE(log.Shows({WriteLines(1, path_)[0], WriteError(path_)}));
}

TEST_F(PinBitmapFileTest, AFullDevice) {
    std::vector<uint8_t> bytes = Bytes("x");
    PinBitmap bitmap = Over(bytes);
    LogCapture log(2);

    EXPECT_EQ(BitmapFileWrite(&bitmap, "/dev/full"), -1);
    EXPECT_TRUE(log.Shows({WriteLines(1, "")[0], WriteError("/dev/full")}));
}

TEST_F(PinBitmapFileTest, WhatCannotBeOpenedIsNotWritten) {
    std::vector<uint8_t> bytes = Bytes("x");
    PinBitmap bitmap = Over(bytes);

    WriteFile(dir_ / "elsewhere", "y");
    ASSERT_EQ(symlink("elsewhere", (dir_ / "link").c_str()), 0);
    for (const std::string& path : {dir_.path(), dir_ / "missing/bitmap", dir_ / "link"}) {
        AtEveryLogSetting([&](LogCapture& log) {
            EXPECT_EQ(BitmapFileWrite(&bitmap, path.c_str()), -1);
            EXPECT_TRUE(log.Shows(
                {WriteLines(1, path)[0],
                 kLog.Error("BitmapFileWrite", "Can't open bitmap file (" + path + ") \n")}));
        });
    }
    EXPECT_EQ(ReadFile(dir_ / "elsewhere"), "y");
}

}  // namespace
