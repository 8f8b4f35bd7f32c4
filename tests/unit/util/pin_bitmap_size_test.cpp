// SPDX-License-Identifier: MIT
// A device's size and the bitmap that it needs.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/fs.h>

#include <string>

#include "tests/unit/support/fake_ioctl.h"
#include "tests/unit/support/log_capture.h"
#include "tests/unit/support/unit_test.h"
#include "util/pin_bitmap.h"

namespace {

constexpr LogSource kLog = kUtilLog;

class PinBitmapSizeTest : public UnitTest {
  protected:
    void SetUp() override {
        UnitTest::SetUp();
        device_ = dir_ / "device";
        WriteFile(device_, "");
    }

    std::string device_;
};

TEST_F(PinBitmapSizeTest, ADeviceIsAskedForItsSizeReadOnly) {
    for (uint64_t size : {uint64_t{0}, uint64_t{1}, uint64_t{1} << 32, UINT64_MAX}) {
        SetDeviceSize(device_, size);
        AtEveryLogSetting([&](LogCapture& log) {
            uint64_t found = 7;
            EXPECT_EQ(DeviceGetSizeByte(device_.c_str(), &found), 0);
            EXPECT_EQ(found, size);
            EXPECT_TRUE(log.Shows({}));
        });
    }
    ASSERT_EQ(IoctlsSent().size(), 40U);
    EXPECT_EQ(IoctlsSent()[0].request, BLKGETSIZE64);
    EXPECT_EQ(IoctlsSent()[0].path, device_);
    EXPECT_EQ(IoctlsSent()[0].openFlags & O_ACCMODE, O_RDONLY);
}

TEST_F(PinBitmapSizeTest, ADeviceThatIsNotThereHasNoSize) {
    std::string path = dir_ / "missing";

    AtEveryLogSetting([&](LogCapture& log) {
        const ExpectedLine error =
            kLog.Error("DeviceGetSizeByte", "Can't open device (" + path + ")");
        uint64_t found = 7;
        EXPECT_EQ(DeviceGetSizeByte(path.c_str(), &found), -1);
        EXPECT_TRUE(log.Shows({error}));
        EXPECT_EQ(BitmapGetNeededSizeByte(path.c_str(), &found), -1);
        EXPECT_TRUE(
            log.Shows({kLog.Enter("BitmapGetNeededSizeByte"), error,
                       kLog.Error("BitmapGetNeededSizeByte", "Can't get block device path")}));
        EXPECT_EQ(found, 7U);
    });
    EXPECT_TRUE(IoctlsSent().empty());
}

TEST_F(PinBitmapSizeTest, AFileThatIsNoDeviceHasNoSizeEither) {
    AtEveryLogSetting([&](LogCapture& log) {
        const ExpectedLine error =
            kLog.Error("DeviceGetSizeByte", "Can't get size of device (" + device_ + ")");
        uint64_t found = 7;
        EXPECT_EQ(DeviceGetSizeByte(device_.c_str(), &found), -1);
        EXPECT_TRUE(log.Shows({error}));
        EXPECT_EQ(BitmapGetNeededSizeByte(device_.c_str(), &found), -1);
        EXPECT_TRUE(
            log.Shows({kLog.Enter("BitmapGetNeededSizeByte"), error,
                       kLog.Error("BitmapGetNeededSizeByte", "Can't get block device path")}));
        EXPECT_EQ(found, 7U);
    });
}

struct NeedRow {
    uint64_t deviceSize;
    uint64_t bitmapSize;
};

TEST_F(PinBitmapSizeTest, AByteForEvery512KiBAndNoneForTheTail) {
    const NeedRow rows[] = {
        {0, 0},
        {1, 0},
        {65536, 0},
        {524287, 0},
        {524288, 1},
        {1048575, 1},
        {1048576, 2},
        {uint64_t{1} << 40, 2097152},
        {(uint64_t{1} << 40) + 524287, 2097152},
        {uint64_t{1} << 52, uint64_t{1} << 33},
        {UINT64_MAX, (uint64_t{1} << 45) - 1},
    };

    for (const NeedRow& row : rows) {
        SetDeviceSize(device_, row.deviceSize);
        AtEveryLogSetting([&](LogCapture& log) {
            uint64_t size = 7;
            EXPECT_EQ(BitmapGetNeededSizeByte(device_.c_str(), &size), 0);
            EXPECT_EQ(size, row.bitmapSize) << row.deviceSize;
            EXPECT_TRUE(
                log.Shows({kLog.Enter("BitmapGetNeededSizeByte"),
                           kLog.Verbose("BitmapGetNeededSizeByte",
                                        "Disk size = " + std::to_string(row.deviceSize) + " byte"),
                           kLog.Leave("BitmapGetNeededSizeByte")}));
        });
    }
}

}  // namespace
