// SPDX-License-Identifier: MIT
// The bitmap as it is made and loaded for a request.
#include <errno.h>
#include <gtest/gtest.h>
#include <malloc.h>

#include <functional>
#include <string>
#include <vector>

#include "tests/unit/support/fake_ioctl.h"
#include "tests/unit/support/fake_platform.h"
#include "tests/unit/support/fake_system.h"
#include "tests/unit/support/log_capture.h"
#include "tests/unit/support/unit_test.h"
#include "tests/unit/util/lines.h"
#include "util/pin_bitmap.h"

namespace {

constexpr LogSource kLog = kUtilLog;
constexpr char kFunction[] = "BitmapMemAllocateAndInit";

class PinBitmapLoadTest : public UnitTest {
  protected:
    void SetUp() override {
        UnitTest::SetUp();
        device_ = dir_ / "device";
        file_ = dir_ / "quorcachepinfile.bitmap";
        WriteFile(device_, "");
        g_platform.AddVolume(dir_.path(), "uuid", "/dev/ssd", device_);
    }

    // A device whose bitmap has this many bytes, and a tail that has no bits.
    void HaveDevice(uint64_t bitmapSize) { SetDeviceSize(device_, bitmapSize * 524288 + 524287); }

    // Lines of a load up to the question for the device's size.
    Lines PathLines() const {
        return {kLog.Enter(kFunction),
                kLog.Verbose("SpaceGetReferencePath", "Get reference path = " + dir_.path())};
    }

    // Lines of a load up to the bitmap's memory.
    Lines SizeLines(uint64_t bitmapSize) const {
        Lines lines = PathLines();
        lines.push_back(kLog.Enter("BitmapGetNeededSizeByte"));
        lines.push_back(
            kLog.Verbose("BitmapGetNeededSizeByte",
                         "Disk size = " + std::to_string(bitmapSize * 524288 + 524287) + " byte"));
        lines.push_back(kLog.Leave("BitmapGetNeededSizeByte"));
        return lines;
    }

    // Lines of a load up to the question for the file.
    Lines MemoryLines(uint64_t bitmapSize) const {
        Lines lines = SizeLines(bitmapSize);
        lines.push_back(
            kLog.Verbose(kFunction, "Allocate " + std::to_string(bitmapSize) + " bytes bitmap"));
        return lines;
    }

    // Lines of a load up to the comparison of the sizes.
    Lines CompareLines(uint64_t bitmapSize, uint64_t fileSize) const {
        Lines lines = MemoryLines(bitmapSize);
        lines.push_back(
            kLog.Verbose(kFunction, "Bitmap memory size = " + std::to_string(bitmapSize) +
                                        ", file size = " + std::to_string(fileSize)));
        return lines;
    }

    // Lines of reading a file of one piece.
    static Lines ReadLines(uint64_t bitmapSize, uint64_t fileSize) {
        Lines lines = {kLog.Enter("BitmapMemInitByFile"),
                       kLog.Verbose("BitmapMemInitByFile",
                                    "Start read to memory, size = " + std::to_string(bitmapSize))};
        if (fileSize != 0) {
            lines.push_back(kLog.Debug("BitmapMemInitByFile",
                                       "Next read start = 0 bytes=" + std::to_string(fileSize)));
        }
        lines.push_back(kLog.Verbose("BitmapMemInitByFile", "Read to memory finish"));
        return lines;
    }

    // Loads at every log setting and expects success with these bytes.
    void ExpectLoaded(const std::string& bytes, uint8_t sizeChanged, const Lines& lines) {
        AtEveryLogSetting([&](LogCapture& log) {
            PinBitmap* bitmap = nullptr;
            uint8_t changed = 7;
            ASSERT_EQ(BitmapMemAllocateAndInit("uuid", &bitmap, &changed), 0);
            EXPECT_TRUE(log.Shows(lines));
            EXPECT_EQ(changed, sizeChanged);
            ASSERT_NE(bitmap, nullptr);
            EXPECT_EQ(std::string(bitmap->data, bitmap->data + bitmap->size), bytes);
            BitmapFree(bitmap);
            EXPECT_TRUE(log.Shows({}));
        });
    }

    // Loads at every log setting, after `prepare`, and expects a failure after which there is
    // nothing for the caller to release. The fixture finds what was not released.
    void ExpectFailed(const char* uuid, uint8_t sizeChanged, const Lines& lines,
                      const std::function<void()>& prepare = {}) {
        AtEveryLogSetting([&](LogCapture& log) {
            PinBitmap* bitmap = nullptr;
            uint8_t changed = 7;
            if (prepare) {
                prepare();
            }
            errno = ENODEV;
            EXPECT_EQ(BitmapMemAllocateAndInit(uuid, &bitmap, &changed), -1);
            EXPECT_NE(errno, ENODEV) << "that one stands for a record to be released";
            EXPECT_EQ(changed, sizeChanged);
            EXPECT_TRUE(log.Shows(lines));
        });
    }

    std::string device_;
    std::string file_;
};

TEST_F(PinBitmapLoadTest, WithoutAFileNothingIsPinned) {
    for (uint64_t size : {0U, 1U, 4095U, 4096U, 4097U}) {
        HaveDevice(size);
        ExpectLoaded(std::string(size, '\0'), 0,
                     MemoryLines(size) + Lines{kLog.Verbose(kFunction, "Bitmap files (" + file_ +
                                                                           ") doesn't exist"),
                                               kLog.Leave(kFunction)});
    }
    EXPECT_FALSE(Exists(file_));
}

TEST_F(PinBitmapLoadTest, AFileOfTheSameSizeIsLoaded) {
    for (uint64_t size : {0U, 1U, 4095U, 4096U}) {
        std::string content(size, '\x5a');
        HaveDevice(size);
        WriteFile(file_, content);
        ExpectLoaded(
            content, 0,
            CompareLines(size, size) + ReadLines(size, size) + Lines{kLog.Leave(kFunction)});
        EXPECT_EQ(ReadFile(file_), content);
    }
}

TEST_F(PinBitmapLoadTest, ABitmapOf2MiBIsLoadedWhole) {
    std::string content(2 << 20, '\x5a');
    PinBitmap* bitmap = nullptr;
    uint8_t changed = 7;

    HaveDevice(content.size());
    WriteFile(file_, content);
    ASSERT_EQ(BitmapMemAllocateAndInit("uuid", &bitmap, &changed), 0);
    EXPECT_TRUE(std::string(bitmap->data, bitmap->data + bitmap->size) == content);
    EXPECT_EQ(CallCount(Call::kPread), 512);
    EXPECT_LT(malloc_usable_size(bitmap->data), content.size() + (64 << 10)) << "and no more";
    BitmapFree(bitmap);
}

// The volume grew: an error line, and yet a success.
TEST_F(PinBitmapLoadTest, ASmallerFileIsLoadedIntoTheFrontAndReported) {
    for (uint64_t fileSize : {0U, 1U, 4095U}) {
        std::string content(fileSize, '\x5a');
        HaveDevice(4096);
        WriteFile(file_, content);
        ExpectLoaded(content + std::string(4096 - fileSize, '\0'), 1,
                     CompareLines(4096, fileSize) +
                         Lines{kLog.Error(
                             kFunction, "Bitmap size changed. Could be due to volume expansion")} +
                         ReadLines(4096, fileSize) + Lines{kLog.Leave(kFunction)});
    }
}

// The volume shrank or was replaced: every request fails until the file is removed.
TEST_F(PinBitmapLoadTest, ALargerFileIsAFailure) {
    for (uint64_t size : {0U, 1U, 4096U}) {
        std::string content(size + 1, '\x5a');
        HaveDevice(size);
        WriteFile(file_, content);
        ExpectFailed("uuid", 0,
                     CompareLines(size, size + 1) +
                         Lines{kLog.Error(kFunction, "Incorrect bitmap size (" +
                                                         std::to_string(size) + "), file size (" +
                                                         std::to_string(size + 1) + ")")});
        EXPECT_EQ(ReadFile(file_), content);
    }
    // As large as the bitmap in the low 32 bits of its size.
    HaveDevice(8);
    ASSERT_EQ(truncate(file_.c_str(), (off_t{1} << 32) + 8), 0);
    ExpectFailed(
        "uuid", 0,
        CompareLines(8, (UINT64_C(1) << 32) + 8) +
            Lines{kLog.Error(kFunction, "Incorrect bitmap size (8), file size (4294967304)")});
    EXPECT_EQ(CallCount(Call::kPread), 0);
}

TEST_F(PinBitmapLoadTest, WithoutASpaceThereIsNoBitmapPath) {
    HaveDevice(1);
    ExpectFailed(
        "other", 0,
        {kLog.Enter(kFunction), kLog.Error("SpaceGetBitmapPath", "Can't get reference path"),
         kLog.Error(kFunction, "Can't get bitmap path")});
}

TEST_F(PinBitmapLoadTest, WithoutACacheThereIsNoCachePath) {
    HaveDevice(1);
    g_platform.configs.clear();
    ExpectFailed(
        "uuid", 0,
        PathLines() +
            Lines{kLog.Verbose("SpaceGetCacheConfig",
                               "Can't find cache in the config file. Space UUID is (uuid)"),
                  kLog.Error("SpaceGetCachePath", "Can't get cache's ssd path"),
                  kLog.Error(kFunction, "Can't get cache path")});
}

TEST_F(PinBitmapLoadTest, WithoutMemoryForTheRecord) {
    HaveDevice(1);
    ExpectFailed("uuid", 0,
                 PathLines() + Lines{kLog.Error(kFunction, "Allocate bitmap data failed")},
                 [] { FailCall(Call::kCalloc, 1, ENOMEM); });
    EXPECT_TRUE(IoctlsSent().empty());
}

TEST_F(PinBitmapLoadTest, WithoutMemoryForTheBits) {
    HaveDevice(8);
    ExpectFailed("uuid", 0,
                 SizeLines(8) + Lines{kLog.Error(kFunction, "Can't allocate bitmap memory"),
                                      kLog.Error("BitmapFree", "Warning: data is NULL for free")},
                 [] { FailCall(Call::kCalloc, 2, ENOMEM); });
}

TEST_F(PinBitmapLoadTest, ADeviceTooLargeForTheRecord) {
    HaveDevice(uint64_t{1} << 32);
    ExpectFailed("uuid", 0,
                 SizeLines(uint64_t{1} << 32) +
                     Lines{kLog.Error(kFunction, "Can't allocate bitmap memory"),
                           kLog.Error("BitmapFree", "Warning: data is NULL for free")});
    EXPECT_EQ(CallCount(Call::kCalloc), 10) << "the record's only";
}

// The one failure that leaves a record, an empty one, which the caller releases.
TEST_F(PinBitmapLoadTest, WithoutTheDevicesSizeAnEmptyRecordIsLeftToTheCaller) {
    AtEveryLogSetting([&](LogCapture& log) {
        PinBitmap* bitmap = nullptr;
        uint8_t changed = 7;
        errno = 0;
        EXPECT_EQ(BitmapMemAllocateAndInit("uuid", &bitmap, &changed), -1);
        EXPECT_EQ(errno, ENODEV);
        EXPECT_EQ(changed, 0);
        EXPECT_TRUE(log.Shows(
            PathLines() +
            Lines{kLog.Enter("BitmapGetNeededSizeByte"),
                  kLog.Error("DeviceGetSizeByte", "Can't get size of device (" + device_ + ")"),
                  kLog.Error("BitmapGetNeededSizeByte", "Can't get block device path"),
                  kLog.Error(kFunction, "Can't get needed bitmap sizeof")}));
        ASSERT_NE(bitmap, nullptr);
        EXPECT_EQ(bitmap->data, nullptr);
        EXPECT_EQ(bitmap->size, 0U);
        BitmapFree(bitmap);
        EXPECT_TRUE(log.Shows({kLog.Error("BitmapFree", "Warning: data is NULL for free")}));
    });
}

TEST_F(PinBitmapLoadTest, AFileThatVanishesBeforeItsSizeIsTaken) {
    HaveDevice(8);
    WriteFile(file_, std::string(8, '\x5a'));
    ExpectFailed(
        "uuid", 0,
        MemoryLines(8) +
            Lines{kLog.Error("FileGetSizeByte", "Can't get file (" + file_ + ") stat result"),
                  kLog.Error(kFunction, "Get the size of file (" + file_ + ") error")},
        [] { FailCall(Call::kStat, 2, ENOENT); });
}

TEST_F(PinBitmapLoadTest, AFileThatCannotBeRead) {
    const Lines read = {
        kLog.Enter("BitmapMemInitByFile"),
        kLog.Verbose("BitmapMemInitByFile", "Start read to memory, size = 8"),
        kLog.Debug("BitmapMemInitByFile", "Next read start = 0 bytes=4"),
        kLog.Error("BitmapMemInitByFile", "Read bitmap file (" + file_ + ") error\n"),
        kLog.Error(kFunction, "Read bitmap file to bitmap memory error")};

    HaveDevice(8);
    WriteFile(file_, std::string(4, '\x5a'));
    // The change of the size was seen before, and stays reported.
    ExpectFailed(
        "uuid", 1,
        CompareLines(8, 4) +
            Lines{kLog.Error(kFunction, "Bitmap size changed. Could be due to volume expansion")} +
            read,
        [] { FailCall(Call::kPread, 1, EIO); });
}

// Callers use or release it no more after a failure; that it is not cleared is meant.
TEST_F(PinBitmapLoadTest, TheOutputIsNotClearedByAFailure) {
    PinBitmap* bitmap = nullptr;
    uint8_t changed = 7;

    HaveDevice(1);
    WriteFile(file_, "too large");
    EXPECT_EQ(BitmapMemAllocateAndInit("uuid", &bitmap, &changed), -1);
    EXPECT_NE(bitmap, nullptr);
}

}  // namespace
