// SPDX-License-Identifier: MIT
// A whole served cache without its mount.
#pragma once

#include <json/json.h>

#include "softcache/serve/served_cache.h"
#include "tests/unit/softcache/cache_fixture.h"

namespace softcache {

constexpr uint64_t kServedDeviceSize = 32 * uint64_t{kUnitSize} + 5 * kUnitSize;  // 4 pin bytes
constexpr uint32_t kServedSlots = 8;

class ServedOnFiles : public ::testing::Test {
  protected:
    ServedOnFiles() { Start(); }

    void Start() {
        backing_ = NewFile(dir_ / "backing", RandomBytes(kServedDeviceSize, 1));
        ssd_ = NewFile(dir_ / "ssd", {});
        ASSERT_EQ(ftruncate(ssd_.get(), 4 << 20), 0);
        store_ = std::make_unique<SsdStore>(Disk(ssd_.get()));
        ASSERT_EQ(
            store_->Format({"vol1", "", dir_ / "backing"}, kServedDeviceSize, kServedSlots, 0), 0);
        Serve();
    }

    // Nothing but the files is kept.
    void StartAgain() {
        served_.reset();
        store_ = std::make_unique<SsdStore>(Disk(ssd_.get()));
        ASSERT_EQ(store_->Load(), 1);
        Serve();
    }

    void Serve() {
        RegistryRecord record;
        record.name = "vol1";
        record.ssd = dir_ / "ssd";
        record.mountPoint = dir_ / "mnt";
        record.deviceSize = kServedDeviceSize;
        record.cacheSize = kServedSlots * kUnitSize;
        std::vector<WarmSlot> warm;
        RecoveryReport report;
        ASSERT_EQ(RecoverTable(*store_, kServedDeviceSize, warm, report), 0);
        served_ = std::make_unique<ServedCache>(Disk(backing_.get()), *store_, warm, dir_ / "reg",
                                                record);
        served_->testDoors = true;
    }

    // What the SSD says.
    Bytes StoredPins() {
        Bytes bitmap;
        EXPECT_EQ(store_->ReadPins(bitmap), 1);
        return bitmap;
    }

    static Json::Value Parse(const std::string& text) {
        Json::Value value;
        std::istringstream stream(text);
        EXPECT_TRUE(Json::Reader().parse(stream, value)) << text;
        return value;
    }

    Json::Value Stats() { return Parse(StatsText(*served_)); }

    void Read(uint64_t offset, size_t size) {
        Bytes buffer(size);
        ASSERT_EQ(served_->cache.Read(buffer.data(), size, offset), 0);
    }

    TempDir dir_;
    OwnedFd backing_;
    OwnedFd ssd_;
    std::unique_ptr<SsdStore> store_;
    std::unique_ptr<ServedCache> served_;
};

}  // namespace softcache
