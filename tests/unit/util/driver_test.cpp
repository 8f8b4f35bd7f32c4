// SPDX-License-Identifier: MIT
#include "util/driver.h"

#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdio.h>
#include <string.h>

#include <string>
#include <vector>

#include "platform/quorflashcache.h"
#include "tests/unit/support/fake_files.h"
#include "tests/unit/support/fake_ioctl.h"
#include "tests/unit/support/log_capture.h"
#include "tests/unit/support/unit_test.h"

namespace {

constexpr unsigned long kSomeRequest = 0x1234;

class DriverTest : public UnitTest {
  protected:
    void SetUp() override {
        UnitTest::SetUp();
        device_ = dir_ / "device";
        WriteFile(device_, "");
    }

    std::string device_;
};

std::string RefusalText(unsigned long request, const void* argument, int size,
                        const std::string& device) {
    char text[512];

    snprintf(text, sizeof(text), "Ioctl Error: Send ioctl %lu Data (%p) size (%d) to %s, ret=-1\n",
             request, argument, size, device.c_str());
    return text;
}

TEST_F(DriverTest, TheRequestsAreTheDrivers) {
    EXPECT_EQ(static_cast<int>(FLASH_CACHE_SET_PIN_BITMAP), 65231);
    EXPECT_EQ(static_cast<int>(FLASH_CACHE_UNPIN_RANGES), 65232);
}

TEST_F(DriverTest, SendsTheArgumentOnADescriptorOfItsOwn) {
    std::vector<uint8_t> batch(kUnpinBatchBytes, 0x5a);

    AtEveryLogSetting([&](LogCapture& log) {
        size_t before = IoctlsSent().size();
        EXPECT_EQ(DoIoctl(device_.c_str(), FLASH_CACHE_UNPIN_RANGES, batch.data(), batch.size()),
                  0);
        EXPECT_TRUE(log.Shows({kUtilLog.Enter("DoIoctl"), kUtilLog.Leave("DoIoctl")}));

        std::vector<IoctlRecord> sent = IoctlsSent();
        ASSERT_EQ(sent.size(), before + 1);
        EXPECT_EQ(sent.back().path, device_);
        EXPECT_EQ(sent.back().request, 0xFED0U);
        EXPECT_EQ(sent.back().openFlags & O_ACCMODE, O_RDWR);
        EXPECT_EQ(sent.back().argument, batch.data());
        EXPECT_EQ(sent.back().bytes, batch);
    });
    // Opened for each request and closed again: the fixture sees to the closing.
    std::vector<OpenRecord> opens = OpensTried();
    ASSERT_EQ(opens.size(), 10U);
    for (const OpenRecord& open : opens) {
        EXPECT_EQ(open.path, device_);
        EXPECT_EQ(open.flags & ~O_LARGEFILE, O_RDWR) << "not to be created";
    }
}

TEST_F(DriverTest, ADeviceThatCannotBeOpenedIsSentNothing) {
    for (const std::string& path : {dir_ / "missing", dir_.path(), std::string()}) {
        AtEveryLogSetting([&](LogCapture& log) {
            char argument[8] = {};
            EXPECT_EQ(DoIoctl(path.c_str(), kSomeRequest, argument, sizeof(argument)), -1);
            EXPECT_TRUE(
                log.Shows({kUtilLog.Enter("DoIoctl"),
                           kUtilLog.Error("DoIoctl", "Open device path (" + path + ") error\n")}));
        });
    }
    EXPECT_TRUE(IoctlsSent().empty());
    EXPECT_FALSE(Exists(dir_ / "missing"));
}

TEST_F(DriverTest, ARefusalIsReportedWithAllThatWasSent) {
    char argument[16] = {};

    for (unsigned long request : {kSomeRequest, 0xFECEUL, 0x7fffffffUL}) {
        AtEveryLogSetting([&](LogCapture& log) {
            FailIoctl(request, 1, log.level() % 2 == 0 ? EIO : EINTR);  // neither is tried again
            EXPECT_EQ(DoIoctl(device_.c_str(), request, argument, 8192), -1);
            EXPECT_TRUE(
                log.Shows({kUtilLog.Enter("DoIoctl"),
                           kUtilLog.Error("DoIoctl", RefusalText(request, argument, 8192, device_)),
                           kUtilLog.Leave("DoIoctl")}));
        });
    }
}

TEST_F(DriverTest, ARequestWithoutAnArgument) {
    FailIoctl(kSomeRequest, 2, EINVAL);
    FailIoctl(kSomeRequest, 3, EINVAL);
    LogCapture log(2);

    // No driver: the file itself refuses the first one.
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(DoIoctl(device_.c_str(), kSomeRequest, nullptr, 0), -1);
        EXPECT_TRUE(log.Shows(
            {kUtilLog.Enter("DoIoctl"),
             kUtilLog.Error("DoIoctl", "Ioctl Error: Send ioctl 4660 Data ((nil)) size (0) to " +
                                           device_ + ", ret=-1\n"),
             kUtilLog.Leave("DoIoctl")}));
    }
    EXPECT_EQ(IoctlsSent().size(), 3U);
}

TEST_F(DriverTest, OnlyANegativeAnswerIsARefusal) {
    char argument[8] = {};

    for (int result : {0, 1, 5, INT32_MAX}) {
        SetIoctlResult(kSomeRequest, result);
        AtEveryLogSetting([&](LogCapture& log) {
            EXPECT_EQ(DoIoctl(device_.c_str(), kSomeRequest, argument, sizeof(argument)), 0);
            EXPECT_TRUE(log.Shows({kUtilLog.Enter("DoIoctl"), kUtilLog.Leave("DoIoctl")}));
        });
    }
}

TEST_F(DriverTest, TheBitmapGoesToTheDriverAsItLiesInMemory) {
    std::vector<uint8_t> data = {0x01, 0x80, 0xff, 0x00, 0x5a};
    PinBitmap bitmap{data.data(), 5};

    AtEveryLogSetting([&](LogCapture& log) {
        size_t before = IoctlsSent().size();
        EXPECT_EQ(BitmapDriverUpdate(&bitmap, device_.c_str()), 0);
        EXPECT_TRUE(log.Shows({kUtilLog.Enter("BitmapDriverUpdate"), kUtilLog.Enter("DoIoctl"),
                               kUtilLog.Leave("DoIoctl"), kUtilLog.Leave("BitmapDriverUpdate")}));

        std::vector<IoctlRecord> sent = IoctlsSent();
        ASSERT_EQ(sent.size(), before + 1);
        EXPECT_EQ(sent.back().path, device_);
        EXPECT_EQ(sent.back().request, 0xFECFU);
        EXPECT_EQ(sent.back().argument, &bitmap);
        EXPECT_EQ(sent.back().bitmap, data);
        // The address in the caller's pointer width, then the length.
        uint32_t length = 0;
        const uint8_t* address = nullptr;
        memcpy(&address, sent.back().bytes.data(), sizeof(address));
        memcpy(&length, sent.back().bytes.data() + sizeof(address), sizeof(length));
        EXPECT_EQ(address, data.data());
        EXPECT_EQ(length, 5U);
    });
}

TEST_F(DriverTest, ARefusedBitmapIsReportedTwice) {
    std::vector<uint8_t> data(4);
    PinBitmap bitmap{data.data(), 4};

    AtEveryLogSetting([&](LogCapture& log) {
        FailIoctl(FLASH_CACHE_SET_PIN_BITMAP, 1, EIO);
        EXPECT_EQ(BitmapDriverUpdate(&bitmap, device_.c_str()), -1);
        // The size is the target's descriptor, on a 64-bit machine too.
        EXPECT_TRUE(log.Shows({kUtilLog.Enter("BitmapDriverUpdate"), kUtilLog.Enter("DoIoctl"),
                               kUtilLog.Error("DoIoctl", RefusalText(65231, &bitmap, 8, device_)),
                               kUtilLog.Leave("DoIoctl"),
                               kUtilLog.Error("BitmapDriverUpdate", "Ioctl error")}));
    });
}

TEST_F(DriverTest, ABitmapForADeviceThatIsNotThere) {
    std::vector<uint8_t> data(4);
    PinBitmap bitmap{data.data(), 4};
    std::string path = dir_ / "missing";

    AtEveryLogSetting([&](LogCapture& log) {
        EXPECT_EQ(BitmapDriverUpdate(&bitmap, path.c_str()), -1);
        EXPECT_TRUE(log.Shows({kUtilLog.Enter("BitmapDriverUpdate"), kUtilLog.Enter("DoIoctl"),
                               kUtilLog.Error("DoIoctl", "Open device path (" + path + ") error\n"),
                               kUtilLog.Error("BitmapDriverUpdate", "Ioctl error")}));
    });
}

TEST_F(DriverTest, WithoutABitmapOrAPathNothingIsOpened) {
    PinBitmap bitmap{nullptr, 0};

    AtEveryLogSetting([&](LogCapture& log) {
        const std::vector<ExpectedLine> lines = {
            kUtilLog.Enter("BitmapDriverUpdate"),
            kUtilLog.Error("BitmapDriverUpdate", "Incorrect parameter")};
        EXPECT_EQ(BitmapDriverUpdate(nullptr, device_.c_str()), -1);
        EXPECT_TRUE(log.Shows(lines));
        EXPECT_EQ(BitmapDriverUpdate(&bitmap, nullptr), -1);
        EXPECT_TRUE(log.Shows(lines));
        EXPECT_EQ(BitmapDriverUpdate(nullptr, nullptr), -1);
        EXPECT_TRUE(log.Shows(lines));
    });
    EXPECT_TRUE(OpensTried().empty());
}

TEST_F(DriverTest, AnEmptyBitmapIsSentToo) {
    uint8_t nothing = 0;
    PinBitmap bitmap{&nothing, 0};

    EXPECT_EQ(BitmapDriverUpdate(&bitmap, device_.c_str()), 0);
    ASSERT_EQ(IoctlsSent().size(), 1U);
    EXPECT_TRUE(IoctlsSent()[0].bitmap.empty());
}

}  // namespace
