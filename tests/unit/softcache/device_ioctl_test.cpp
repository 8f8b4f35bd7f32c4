// SPDX-License-Identifier: MIT
// The ioctl requests, with this very process as their caller.
#include "softcache/serve/device_ioctl.h"

#include <linux/fs.h>

#include "tests/unit/softcache/served_fixture.h"

namespace softcache {
namespace {

class DeviceIoctlTest : public ServedOnFiles {
  protected:
    static uint64_t Address(const void* pointer) { return reinterpret_cast<uintptr_t>(pointer); }

    int Call(uint32_t request, const void* argument) {
        const Caller caller = {getpid(), sizeof(void*)};
        return DeviceIoctl(*served_, caller, request, Address(argument), reply_);
    }

    int SetPins(const Bytes& bitmap) {
        const struct {
            const void* data;
            uint32_t size;
        } descriptor = {bitmap.data(), static_cast<uint32_t>(bitmap.size())};
        return Call(FLASH_CACHE_SET_PIN_BITMAP, &descriptor);
    }

    int Unpin(const std::vector<UnpinRange>& ranges) {
        UnpinRange batch[kUnpinBatchEntries] = {};
        std::copy(ranges.begin(), ranges.end(), batch);
        return Call(FLASH_CACHE_UNPIN_RANGES, batch);
    }

    IoctlReply reply_;
};

TEST_F(DeviceIoctlTest, TellsTheSizeInEitherWidthOfTheNumber) {
    uint64_t size = UINT64_MAX;  // so that it shows which bytes were written
    EXPECT_EQ(Call(0x80081272, &size), 0);
    EXPECT_EQ(reply_.value, kServedDeviceSize);
    EXPECT_EQ(reply_.bytes, 8u) << "which the kernel copies";

    reply_ = {};
    EXPECT_EQ(Call(0x80041272, &size), 0);
    EXPECT_EQ(reply_.bytes, 0u);
    EXPECT_EQ(size, kServedDeviceSize) << "all 8 bytes, straight into the caller's memory";
    EXPECT_EQ(Call(0x80041272, nullptr), -EFAULT);
    EXPECT_TRUE(Stats()["requests"].empty()) << "not a control request";
}

TEST_F(DeviceIoctlTest, OtherRequestsAreNotForThisDevice) {
    for (const uint32_t request : {0u, 0xFECEu, 0xFED1u, static_cast<uint32_t>(BLKSSZGET)}) {
        EXPECT_EQ(Call(request, nullptr), -ENOTTY) << std::hex << request;
    }
}

TEST_F(DeviceIoctlTest, ABitmapIsPutInForceAndKeptOnDisk) {
    const Bytes bitmap = Bitmap(4, {0, 9, 31});
    Read(9 * kUnitSize, 1);
    EXPECT_EQ(SetPins(bitmap), 0);
    EXPECT_EQ(StoredPins(), bitmap);
    const Json::Value stats = Stats();
    EXPECT_EQ(stats["pinnedUnits"], 3);
    EXPECT_EQ(stats["pinnedUnitsResident"], 1);
    EXPECT_EQ(stats["lastBitmap"], Parse(R"({"bytes":4,"bitsSet":3})"));
    EXPECT_EQ(stats["controlRequests"], Parse(R"({"bitmap":1,"unpin":0,"refused":0})"));
    EXPECT_EQ(stats["requests"], Parse(R"([{"seq":1,"request":"bitmap","result":0,"bytes":4}])"));
}

TEST_F(DeviceIoctlTest, AShorterBitmapLeavesTheRestUnpinned) {
    ASSERT_EQ(SetPins(Bytes(4, 0xFF)), 0);
    ASSERT_EQ(SetPins(Bytes(2, 0xFF)), 0);
    EXPECT_EQ(Stats()["pinnedUnits"], 16);
    ASSERT_EQ(SetPins({}), 0);
    EXPECT_EQ(Stats()["pinnedUnits"], 0);
    EXPECT_EQ(Stats()["lastBitmap"], Parse(R"({"bytes":0,"bitsSet":0})"));
}

TEST_F(DeviceIoctlTest, ARefusedBitmapChangesNothing) {
    const Bytes before = Bitmap(4, {1});
    ASSERT_EQ(SetPins(before), 0);

    EXPECT_EQ(SetPins(Bytes(5, 0xFF)), -EINVAL) << "the device's tail has no bits";
    EXPECT_EQ(Call(FLASH_CACHE_SET_PIN_BITMAP, nullptr), -EFAULT);
    const struct {
        const void* data;
        uint32_t size;
    } nowhere = {reinterpret_cast<const void*>(16), 4};
    EXPECT_EQ(Call(FLASH_CACHE_SET_PIN_BITMAP, &nowhere), -EFAULT);
    served_->faults.RefuseControl(1);
    EXPECT_EQ(SetPins(Bytes(4, 0xFF)), -EIO);
    {
        const FileSizeLimit limit(kPinsStart);
        EXPECT_EQ(SetPins(Bytes(4, 0xFF)), -EFBIG);
    }

    EXPECT_EQ(StoredPins(), before);
    EXPECT_EQ(served_->record.Bitmap(), before);
    const Json::Value stats = Stats();
    EXPECT_EQ(stats["pinnedUnits"], 1);
    EXPECT_EQ(stats["controlRequests"], Parse(R"({"bitmap":1,"unpin":0,"refused":5})"));
    EXPECT_EQ(stats["requests"], Parse(R"([
        {"seq":1,"request":"bitmap","result":0,"bytes":4},
        {"seq":2,"request":"bitmap","result":-22,"bytes":5},
        {"seq":3,"request":"bitmap","result":-14,"bytes":0},
        {"seq":4,"request":"bitmap","result":-14,"bytes":4},
        {"seq":5,"request":"bitmap","result":-5,"bytes":4},
        {"seq":6,"request":"bitmap","result":-27,"bytes":4}])"));
}

TEST_F(DeviceIoctlTest, ReleasedRangesAreRecordedAndNothingElse) {
    ASSERT_EQ(SetPins(Bitmap(4, {7})), 0);
    EXPECT_EQ(Unpin({{1000, 8}, {896, 128}}), 0);
    EXPECT_EQ(Unpin({}), 0);
    const Json::Value stats = Stats();
    EXPECT_EQ(stats["releasedRanges"], Parse("[[1000,8],[896,128]]"));
    EXPECT_EQ(stats["pinnedUnits"], 1) << "what is pinned is the bitmap's business";
    EXPECT_EQ(stats["controlRequests"], Parse(R"({"bitmap":1,"unpin":2,"refused":0})"));
    EXPECT_EQ(stats["requests"][1], Parse(R"({"seq":2,"request":"unpin","result":0,"ranges":2})"));
    EXPECT_EQ(stats["requests"][2], Parse(R"({"seq":3,"request":"unpin","result":0,"ranges":0})"));
}

TEST_F(DeviceIoctlTest, ARefusedBatchReleasesNothing) {
    served_->faults.RefuseControl(2);
    EXPECT_EQ(Unpin({{1, 1}}), 0);
    EXPECT_EQ(Unpin({{2, 2}, {3, 3}}), -EIO);
    EXPECT_EQ(Call(FLASH_CACHE_UNPIN_RANGES, nullptr), -EFAULT);
    const Json::Value stats = Stats();
    EXPECT_EQ(stats["releasedRanges"], Parse("[[1,1]]"));
    EXPECT_EQ(stats["controlRequests"]["refused"], 2);
    EXPECT_EQ(stats["requests"][1], Parse(R"({"seq":2,"request":"unpin","result":-5,"ranges":2})"));
    EXPECT_EQ(stats["requests"][2],
              Parse(R"({"seq":3,"request":"unpin","result":-14,"ranges":0})"));
}

TEST_F(DeviceIoctlTest, TheRecordKeepsTheLastOnesOnly) {
    const std::vector<UnpinRange> full(kUnpinBatchEntries, UnpinRange{5, 5});
    ASSERT_EQ(Unpin({{1, 1}}), 0);
    for (size_t batch = 0; batch < kMaxReleasedRanges / kUnpinBatchEntries; ++batch) {
        ASSERT_EQ(Unpin(full), 0);
    }
    ControlEvidence evidence = served_->record.Evidence();
    EXPECT_EQ(evidence.releasedRanges.size(), kMaxReleasedRanges);
    EXPECT_EQ(evidence.releasedRanges.front().startSector, 5u) << "the first one has gone";
    for (size_t request = 0; request < kMaxRequests; ++request) {
        ASSERT_EQ(Unpin({}), 0);
    }
    evidence = served_->record.Evidence();
    EXPECT_EQ(evidence.requests.size(), kMaxRequests);
    EXPECT_EQ(evidence.requests.back().seq, 1 + 128 + kMaxRequests);
}

TEST_F(DeviceIoctlTest, TheLastBitmapIsInForceAgainAfterARestart) {
    const Bytes bitmap = Bitmap(4, {3, 30});
    Read(0, 3 * kUnitSize);
    ASSERT_EQ(SetPins(bitmap), 0);
    StartAgain();
    EXPECT_EQ(Stats()["lastBitmap"], Json::Value()) << "not before it is asked for";
    EXPECT_EQ(served_->RestorePins(), "");
    const Json::Value stats = Stats();
    EXPECT_EQ(stats["pinnedUnits"], 2);
    EXPECT_EQ(stats["lastBitmap"], Parse(R"({"bytes":4,"bitsSet":2})"));
    EXPECT_TRUE(stats["requests"].empty());
    EXPECT_EQ(served_->record.Bitmap(), bitmap);
}

TEST_F(DeviceIoctlTest, OfTwoBitmapsTheLaterOneThatIsWholeCounts) {
    const Bytes earlier = Bitmap(4, {3});
    ASSERT_EQ(SetPins(earlier), 0);
    ASSERT_EQ(SetPins(Bitmap(4, {9})), 0);
    const uint8_t torn = 0xEE;
    for (const uint64_t place : {PinsPlace(store_->Head(), 0), PinsPlace(store_->Head(), 1)}) {
        Bytes header(kPinsHeaderBytes);
        ASSERT_EQ(ReadFull(ssd_.get(), header.data(), header.size(), place), 0);
        PinsHeader pins;
        if (DecodePinsHeader(store_->Head(), header.data(), pins) && pins.sequence == 3) {
            ASSERT_EQ(WriteFull(ssd_.get(), &torn, 1, place + kPinsHeaderBytes), 0);
        }
    }
    StartAgain();
    EXPECT_EQ(served_->RestorePins(), "");
    EXPECT_EQ(served_->record.Bitmap(), earlier);
}

TEST_F(DeviceIoctlTest, PinsThatCannotBeInForceAreNamed) {
    EXPECT_EQ(served_->RestorePins(), "") << "there were none yet";
    ASSERT_EQ(store_->WritePins(Bytes(5, 0xFF)), 0);
    EXPECT_EQ(served_->RestorePins(), "pins left alone: 5 bytes, this device takes 4");
    EXPECT_EQ(Stats()["pinnedUnits"], 0);
    const Bytes zeros(static_cast<size_t>(2 * PinsRoomFor(kServedDeviceSize)), 0);
    ASSERT_EQ(WriteFull(ssd_.get(), zeros.data(), zeros.size(), kPinsStart), 0);
    EXPECT_EQ(served_->RestorePins(), "pins are not whole: none is in force");
}

}  // namespace
}  // namespace softcache
