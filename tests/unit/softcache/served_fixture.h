// SPDX-License-Identifier: MIT
// A whole served cache without its mount.
#pragma once

#include <json/json.h>

#include "softcache/served_cache.h"
#include "tests/unit/softcache/cache_fixture.h"

namespace softcache {

constexpr uint64_t kServedDeviceSize = 32 * uint64_t{kUnitSize} + 5 * kUnitSize;  // 4 pin bytes
constexpr uint32_t kServedSlots = 8;

class ServedOnFiles : public ::testing::Test {
  protected:
    ServedOnFiles() { Start(); }

    // Also stands for a restart: nothing but the files is kept.
    void Start() {
        backing_ = NewFile(dir_ / "backing", RandomBytes(kServedDeviceSize, 1));
        ssd_ = NewFile(dir_ / "ssd", Bytes(kServedSlots * kUnitSize, 0));
        RegistryRecord record;
        record.name = "vol1";
        record.ssd = dir_ / "ssd";
        record.mountPoint = dir_ / "mnt";
        record.deviceSize = kServedDeviceSize;
        record.cacheSize = kServedSlots * kUnitSize;
        served_ =
            std::make_unique<ServedCache>(backing_.get(), ssd_.get(), kServedDeviceSize,
                                          kServedSlots, dir_ / "ssd.pins", dir_ / "reg", record);
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
    std::unique_ptr<ServedCache> served_;
};

}  // namespace softcache
