// SPDX-License-Identifier: MIT
#include "softcache/serve/directory.h"

#include <set>

#include "tests/unit/softcache/served_fixture.h"

namespace softcache {
namespace {

class DirectoryTest : public ServedOnFiles {};

TEST_F(DirectoryTest, EveryFileIsFoundByNameAndNumber) {
    for (const DirectoryEntry& entry : kDirectory) {
        EXPECT_EQ(FindEntry(entry.name), &entry);
        EXPECT_EQ(FindEntry(entry.id), &entry);
    }
    EXPECT_EQ(FindEntry("Device"), nullptr);
    EXPECT_EQ(FindEntry(""), nullptr);
    EXPECT_EQ(FindEntry(uint64_t{kRootId}), nullptr);
    EXPECT_EQ(FindEntry(uint64_t{99}), nullptr);
}

TEST_F(DirectoryTest, FilesAreDescribed) {
    served_->record.AddBitmap(0, 3, {1, 2, 3});
    const struct {
        uint64_t id;
        mode_t mode;
        off_t size;
    } rows[] = {
        {kRootId, S_IFDIR | 0755, 0},
        {kDeviceId, S_IFREG | 0600, static_cast<off_t>(kServedDeviceSize)},
        {kStatsId, S_IFREG | 0444, 0},
        {kControlId, S_IFREG | 0200, 0},
        {kResidentId, S_IFREG | 0444, 5},
        {kPinnedId, S_IFREG | 0444, 3},
    };
    for (const auto& row : rows) {
        struct stat status;
        ASSERT_TRUE(DescribeFile(*served_, row.id, status)) << row.id;
        EXPECT_EQ(status.st_mode, row.mode) << row.id;
        EXPECT_EQ(status.st_size, row.size) << row.id;
        EXPECT_EQ(status.st_ino, row.id);
    }
    struct stat status;
    EXPECT_FALSE(DescribeFile(*served_, 99, status));
}

TEST_F(DirectoryTest, SnapshotsShowTheStateOfTheMoment) {
    EXPECT_EQ(FileSnapshot(*served_, kPinnedId), "");
    EXPECT_EQ(FileSnapshot(*served_, kResidentId), std::string(5, '\0'));
    served_->record.AddBitmap(0, 2, {7, 0});
    Read(uint64_t{33} * kUnitSize, 1);
    EXPECT_EQ(FileSnapshot(*served_, kPinnedId), std::string("\7\0", 2));
    EXPECT_EQ(FileSnapshot(*served_, kResidentId), std::string("\0\0\0\0\2", 5));
    EXPECT_EQ(FileSnapshot(*served_, kDeviceId), "");
}

TEST_F(DirectoryTest, StatsHaveAllTheirMembers) {
    Read(0, kUnitSize + 1);
    Read(0, 1);
    const uint8_t byte = 1;
    ASSERT_EQ(served_->cache.Write(&byte, 1, 0), 0);
    Json::Value expected = Parse(R"({
        "unitSize": 65536, "units": 37, "cacheUnits": 8, "reads": 2, "writes": 1, "hits": 1,
        "misses": 2, "bypasses": 0, "residentUnits": 2, "pinnedUnits": 0, "pinnedUnitsResident": 0,
        "retiredUnits": 0, "unsettledUnits": 2, "ssdErrors": 0, "lastBitmap": null,
        "releasedRanges": [], "requests": [],
        "controlRequests": {"bitmap": 0, "unpin": 0, "refused": 0}})");
    expected["deviceSize"] = static_cast<Json::Int>(kServedDeviceSize);
    EXPECT_EQ(Parse(FileSnapshot(*served_, kStatsId)), expected);
}

}  // namespace
}  // namespace softcache
