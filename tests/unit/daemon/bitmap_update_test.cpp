// SPDX-License-Identifier: MIT
#include "daemon/bitmap_update.h"

#include <errno.h>

#include "platform/quorflashcache.h"
#include "tests/unit/daemon/daemon_test.h"
#include "tests/unit/support/fake_ioctl.h"
#include "tests/unit/support/fake_system.h"

namespace {

class BitmapUpdateTest : public DaemonTest {
  protected:
    void SetUp() override {
        DaemonTest::SetUp();
        volume_ = AddVolume();
    }

    int WriteAndSend() {
        uint8_t bytes[8] = {0x05};
        PinBitmap bitmap = {bytes, sizeof(bytes)};
        return BitmapUpdate{"TheCaller"}.WriteAndSend(&bitmap, volume_.cachePath.c_str(),
                                                      volume_.bitmapPath.c_str());
    }

    Volume volume_;
};

TEST_F(BitmapUpdateTest, TheFileIsWrittenAndTheDriverHasTheBitmap) {
    LogCapture log;

    EXPECT_EQ(WriteAndSend(), 0);
    EXPECT_TRUE(Exists(volume_.bitmapPath));
    EXPECT_EQ(IoctlsSent().size(), 1U);
    EXPECT_TRUE(ShowsOwn(log, {}));
}

TEST_F(BitmapUpdateTest, AFailureNamesTheFunctionWhoseStepItIs) {
    LogCapture log;

    FailIoctl(FLASH_CACHE_SET_PIN_BITMAP, 1, EIO);
    EXPECT_EQ(WriteAndSend(), -1);
    EXPECT_TRUE(Exists(volume_.bitmapPath));
    EXPECT_TRUE(ShowsOwn(log, {kDaemonLog.Error("TheCaller", "Can't send bitmap to driver")}));
}

TEST_F(BitmapUpdateTest, WithoutTheFileTheDriverIsNotTold) {
    LogCapture log;

    FailCall(Call::kPwrite, 1, ENOSPC);
    EXPECT_EQ(WriteAndSend(), -1);
    EXPECT_TRUE(IoctlsSent().empty());
    EXPECT_TRUE(ShowsOwn(log, {kDaemonLog.Error("TheCaller", "Write bitmap failed")}));
}

}  // namespace
