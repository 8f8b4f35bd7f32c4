// SPDX-License-Identifier: MIT
// What the kernel may tell of a file's extents and a test volume does not: the answers are given in
// the kernel's place.
#include <errno.h>
#include <linux/fiemap.h>
#include <linux/fs.h>
#include <sys/ioctl.h>

#include <tuple>

#include "tests/unit/platform/mapping_fixture.h"

namespace {

struct Extent {
    uint64_t logical, physical, length;  // bytes
    uint32_t flags;
};
using Answer = std::vector<Extent>;

// Entries as (first sector in the file, sectors, first sector on the device, uninitialized).
using Entries = std::vector<std::tuple<uint64_t, uint64_t, uint64_t, uint32_t>>;

class ExtentFlagsTest : public MappingTest {
  protected:
    void SetUp() override {
        MappingTest::SetUp();
        if (!IsSkipped()) {
            UseVolume("ext4");
            WriteBlock(volume_ + "/file", "file", 0);
        }
    }

    // The file's entries when the kernel gives these answers, one a call, then none.
    Entries EntriesFor(const std::vector<Answer>& answers) {
        asked_.clear();
        SetIoctlHook([this, answers](int fd, unsigned long request, void* argument) {
            if (request != FS_IOC_FIEMAP) {
                return RealIoctl(fd, request, argument);
            }
            auto* const map = static_cast<fiemap*>(argument);
            EXPECT_EQ(reinterpret_cast<uintptr_t>(argument) % 8, 0u);
            EXPECT_EQ(map->fm_flags, 0u);  // nothing is synced
            EXPECT_GT(map->fm_extent_count, 0u);
            const Answer answer =
                asked_.size() < answers.size() ? answers[asked_.size()] : Answer{};
            asked_.push_back(map->fm_start);
            map->fm_mapped_extents = static_cast<uint32_t>(answer.size());
            for (size_t i = 0; i < answer.size(); ++i) {
                map->fm_extents[i] = fiemap_extent{};
                map->fm_extents[i].fe_logical = answer[i].logical;
                map->fm_extents[i].fe_physical = answer[i].physical;
                map->fm_extents[i].fe_length = answer[i].length;
                map->fm_extents[i].fe_flags = answer[i].flags;
            }
            return 0;
        });
        Entries entries;
        for (const FileMappingEntry& entry : MapFile("file").entries) {
            entries.emplace_back(entry.startSector, entry.numSectors, entry.deviceStartSector,
                                 entry.uninitialized);
        }
        SetIoctlHook(nullptr);
        return entries;
    }

    std::vector<uint64_t> asked_;  // where each call began
};

TEST_F(ExtentFlagsTest, OnlyExtentsWithAPlaceOfWholeSectorsGiveAnEntry) {
    const struct {
        uint32_t flags;
        bool entry;
        uint32_t uninitialized;
    } rows[] = {
        {0, true, 0},
        {FIEMAP_EXTENT_UNWRITTEN, true, 1},
        {FIEMAP_EXTENT_MERGED, true, 0},
        {FIEMAP_EXTENT_SHARED, true, 0},
        {FIEMAP_EXTENT_SHARED | FIEMAP_EXTENT_UNWRITTEN, true, 1},
        {FIEMAP_EXTENT_UNKNOWN, false, 0},
        {FIEMAP_EXTENT_DELALLOC, false, 0},
        {FIEMAP_EXTENT_DELALLOC | FIEMAP_EXTENT_UNKNOWN, false, 0},
        {FIEMAP_EXTENT_ENCODED, false, 0},
        {FIEMAP_EXTENT_DATA_ENCRYPTED | FIEMAP_EXTENT_ENCODED, false, 0},
        {FIEMAP_EXTENT_NOT_ALIGNED, false, 0},
        {FIEMAP_EXTENT_DATA_INLINE, false, 0},
        {FIEMAP_EXTENT_DATA_TAIL, false, 0},
        {FIEMAP_EXTENT_UNWRITTEN | FIEMAP_EXTENT_UNKNOWN, false, 0},
    };
    for (const auto& row : rows) {
        const Entries expected = row.entry ? Entries{{8, 16, 2048, row.uninitialized}} : Entries{};
        EXPECT_EQ(EntriesFor({{{4096, 1048576, 8192, row.flags | FIEMAP_EXTENT_LAST}}}), expected)
            << "flags " << row.flags;
    }
}

TEST_F(ExtentFlagsTest, ThereIsNeverAnEntryAtSectorZero) {
    EXPECT_EQ(EntriesFor({{{0, 0, 4096, FIEMAP_EXTENT_LAST}}}), Entries{});
    EXPECT_EQ(EntriesFor({{{0, 0, 4096, FIEMAP_EXTENT_UNWRITTEN | FIEMAP_EXTENT_LAST}}}),
              Entries{});
}

TEST_F(ExtentFlagsTest, SectorsBeyond32BitsAreKept) {
    const uint64_t far = uint64_t{1} << 44;
    EXPECT_EQ(EntriesFor({{{far, 3 * far, far, FIEMAP_EXTENT_LAST}}}),
              (Entries{{far / 512, far / 512, 3 * far / 512, 0}}));
}

TEST_F(ExtentFlagsTest, StopsOnTheLastFlag) {
    EXPECT_EQ(EntriesFor({{{0, 4096, 4096, FIEMAP_EXTENT_LAST}}, {{4096, 8192, 4096, 0}}}).size(),
              1u);
    EXPECT_EQ(asked_, (std::vector<uint64_t>{0}));
}

TEST_F(ExtentFlagsTest, StopsWhenNoneAreReturned) {
    EXPECT_EQ(EntriesFor({{{0, 4096, 4096, 0}}, {{4096, 65536, 4096, 0}}}).size(), 2u);
    EXPECT_EQ(asked_, (std::vector<uint64_t>{0, 4096, 8192}));
}

TEST_F(ExtentFlagsTest, StopsWhenThereIsNoProgress) {
    const std::vector<Answer> same(1000, Answer{{0, 4096, 4096, 0}});
    EXPECT_EQ(EntriesFor(same), (Entries{{0, 8, 8, 0}}));
    EXPECT_EQ(asked_, (std::vector<uint64_t>{0, 4096}));
    EXPECT_EQ(EntriesFor({{{0, 4096, 0, 0}}}), Entries{});  // an extent of no length
    EXPECT_EQ(asked_, (std::vector<uint64_t>{0}));
}

TEST_F(ExtentFlagsTest, GoesOnBehindExtentsWithoutAPlace) {
    EXPECT_EQ(EntriesFor({{{0, 0, 4096, FIEMAP_EXTENT_DELALLOC}},
                          {{4096, 65536, 4096, FIEMAP_EXTENT_LAST}}}),
              (Entries{{8, 8, 128, 0}}));
    EXPECT_EQ(asked_, (std::vector<uint64_t>{0, 4096}));
}

TEST_F(ExtentFlagsTest, AnExtentThatGrewBetweenTheCallsIsNotTakenTwice) {
    EXPECT_EQ(EntriesFor({{{0, 65536, 4096, 0}}, {{0, 65536, 12288, FIEMAP_EXTENT_LAST}}}),
              (Entries{{0, 8, 128, 0}, {8, 16, 136, 0}}));
}

TEST_F(ExtentFlagsTest, AFailingCallFailsAndLeavesTheTableAlone) {
    int call = 0;
    SetIoctlHook([&](int fd, unsigned long request, void* argument) {
        if (request != FS_IOC_FIEMAP) {
            return RealIoctl(fd, request, argument);
        }
        auto* const map = static_cast<fiemap*>(argument);
        map->fm_mapped_extents = 1;
        map->fm_extents[0] = fiemap_extent{};
        map->fm_extents[0].fe_physical = 4096;
        map->fm_extents[0].fe_length = 4096;
        errno = EIO;
        return ++call == 2 ? -1 : 0;
    });
    FileMappingTable table;
    table.path = "untouched";
    table.entries.resize(3);
    EXPECT_LT(Map("file", table), 0);
    EXPECT_EQ(table.path, "untouched");
    EXPECT_EQ(table.entries.size(), 3u);
    EXPECT_EQ(LogLines(),
              (std::vector<std::string>{"libquordataverifier: extents of file " + volume_ +
                                        "/file cannot be read: Input/output error"}));
}

TEST_F(ExtentFlagsTest, AFileOnTheRealtimeDeviceIsRefused) {
    SetIoctlHook([](int fd, unsigned long request, void* argument) {
        if (request != FS_IOC_FSGETXATTR) {
            return RealIoctl(fd, request, argument);
        }
        *static_cast<fsxattr*>(argument) = fsxattr{};
        static_cast<fsxattr*>(argument)->fsx_xflags = FS_XFLAG_REALTIME;
        return 0;
    });
    FileMappingTable table;
    EXPECT_LT(Map("file", table), 0);
    EXPECT_EQ(
        LogLines(),
        (std::vector<std::string>{"libquordataverifier: file " + volume_ +
                                  "/file lies on the real-time device, not on the volume's"}));
}

}  // namespace
