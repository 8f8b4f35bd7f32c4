// SPDX-License-Identifier: MIT
// Mapping tables of real files, proved by reading the volume's image at the places they tell.
#include <fcntl.h>
#include <linux/fiemap.h>
#include <linux/fs.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

#include "platform/linux/unique_fd.h"
#include "tests/unit/platform/mapping_fixture.h"

using stand_in::UniqueFd;

namespace {

uint64_t Sectors(const FileMappingTable& table) {
    uint64_t sum = 0;
    for (const FileMappingEntry& entry : table.entries) {
        sum += entry.numSectors;
    }
    return sum;
}

bool IsInFileOrder(const FileMappingTable& table) {
    uint64_t end = 0;
    for (const FileMappingEntry& entry : table.entries) {
        if (entry.startSector < end || entry.numSectors == 0 || entry.deviceStartSector == 0) {
            return false;
        }
        end = entry.startSector + entry.numSectors;
    }
    return true;
}

// Writes blocks 0 to 2 * (count - 1) and takes every other out of the file: what is left is one run
// of blocks for the file, and as many extents on the device.
void WriteFragmented(const std::string& path, size_t count) {
    std::string content;
    for (size_t i = 0; i < 2 * count - 1; ++i) {
        content += BlockText("fragmented", i);
    }
    WriteFile(path, content);
    const UniqueFd file(open(path.c_str(), O_RDWR | O_CLOEXEC));
    ASSERT_EQ(fsync(file.Get()), 0);
    for (size_t i = 1; i < count; ++i) {
        ASSERT_EQ(fallocate(file.Get(), FALLOC_FL_COLLAPSE_RANGE, static_cast<off_t>(i * kBlock),
                            static_cast<off_t>(kBlock)),
                  0);
    }
}

class AnyVolumeTest : public MappingTest, public testing::WithParamInterface<const char*> {
  protected:
    void SetUp() override {
        MappingTest::SetUp();
        if (!IsSkipped()) {
            UseVolume(GetParam());
        }
    }

    // A file of that many blocks without data. Blocks written into it bring no preallocated ones
    // along, as blocks written at a file's end do.
    void MakeHole(const std::string& name, size_t blocks) {
        const std::string path = volume_ + "/" + name;
        WriteFile(path, "");
        ASSERT_EQ(truncate(path.c_str(), static_cast<off_t>(blocks * kBlock)), 0);
    }
};

// With preallocation, delayed allocation and collapsing.
class ExtentVolumeTest : public AnyVolumeTest {
  protected:
    // The table, which asking for it does not change, of a file of so many blocks of which the
    // first is synced when `synced` and the last is written, but not out. (Somebody else's sync may
    // do that before the table is asked for; not five times in a row.)
    FileMappingTable MapUnsynced(const std::string& name, size_t blocks, bool synced) {
        const std::string path = volume_ + "/" + name;
        FileMappingTable table;
        for (int attempt = 0; attempt < 5; ++attempt) {
            unlink(path.c_str());
            MakeHole(name, blocks);
            if (synced) {
                WriteBlock(path, name, 0);
                Sync();
            }
            WriteBlock(path, name, blocks - 1);
            table = MapFile(name);
            const size_t expected = synced ? 1 : 0;
            if (table.entries.size() == expected && MapFile(name).entries.size() == expected) {
                break;
            }
        }
        return table;
    }
};

INSTANTIATE_TEST_SUITE_P(FileSystems, AnyVolumeTest, testing::Values("ext2", "ext3", "ext4", "xfs"),
                         [](const auto& row) { return std::string(row.param); });
INSTANTIATE_TEST_SUITE_P(FileSystems, ExtentVolumeTest, testing::Values("ext4", "xfs"),
                         [](const auto& row) { return std::string(row.param); });

TEST_P(AnyVolumeTest, MapsAPlainFile) {
    std::string content;
    for (size_t i = 0; i < 300; ++i) {
        content += BlockText("plain", i);
    }
    content += "and a tail";
    WriteFile(volume_ + "/plain", content);
    Sync();
    const FileMappingTable table = MapFile("plain");
    EXPECT_TRUE(IsInFileOrder(table));
    EXPECT_EQ(Sectors(table), 301 * kBlockSectors);  // whole blocks
    EXPECT_EQ(ReadByTable(table), content);
    EXPECT_EQ(table.path, volume_ + "/plain");
    EXPECT_EQ(table.fileSize, content.size());
    EXPECT_EQ(table.blockSize, kBlock);
    EXPECT_TRUE(LogLines().empty());
}

TEST_P(AnyVolumeTest, MapsASparseFileOfMoreThan600ExtentsInSeveralCalls) {
    MakeHole("sparse", 1400);
    for (size_t i = 0; i < 700; ++i) {
        WriteBlock(volume_ + "/sparse", "sparse", 2 * i + 1);
    }
    Sync();
    int calls = 0;
    SetIoctlHook([&](int fd, unsigned long request, void* argument) {
        calls += request == FS_IOC_FIEMAP ? 1 : 0;
        return RealIoctl(fd, request, argument);
    });
    const FileMappingTable table = MapFile("sparse");
    EXPECT_GE(calls, 3);
    ASSERT_EQ(table.entries.size(), 700u);
    for (size_t i = 0; i < 700; ++i) {
        EXPECT_EQ(table.entries[i].startSector, (2 * i + 1) * kBlockSectors);
        EXPECT_EQ(table.entries[i].numSectors, kBlockSectors);
        EXPECT_EQ(table.entries[i].uninitialized, 0u);
    }
    EXPECT_EQ(ReadByTable(table), ReadFile(volume_ + "/sparse"));
}

TEST_P(AnyVolumeTest, AFileWithoutDataHasAnEmptyTable) {
    WriteFile(volume_ + "/empty", "");
    MakeHole("hole", 256);
    Sync();
    FileMappingTable table;
    table.entries.resize(3);  // replaced
    EXPECT_GE(Map("empty", table), 0);
    EXPECT_TRUE(table.entries.empty());
    EXPECT_EQ(table.fileSize, 0u);
    EXPECT_TRUE(MapFile("hole").entries.empty());
    EXPECT_EQ(MapFile("hole").fileSize, 256 * kBlock);
}

TEST_P(ExtentVolumeTest, MapsAFragmentedFile) {
    WriteFragmented(volume_ + "/fragmented", 700);
    Sync();
    const FileMappingTable table = MapFile("fragmented");
    EXPECT_GE(table.entries.size(), 690u);
    EXPECT_TRUE(IsInFileOrder(table));
    EXPECT_EQ(Sectors(table), 700 * kBlockSectors);
    EXPECT_EQ(ReadByTable(table), ReadFile(volume_ + "/fragmented"));
}

TEST_P(ExtentVolumeTest, AgreesWithTheFileSystemsOwnTool) {
    WriteFragmented(volume_ + "/fragmented", 40);
    Sync();
    std::string ours, theirs;
    for (const FileMappingEntry& entry : MapFile("fragmented").entries) {
        ours += std::to_string(entry.deviceStartSector) + ".." +
                std::to_string(entry.deviceStartSector + entry.numSectors - 1) + "\n";
    }
    if (GetParam() == std::string("xfs")) {
        // Its rows are "0: [0..7]: 120..127".
        theirs = RunProgram({"sh", "-c", "xfs_bmap \"$1\" | awk 'NR > 1 { print $3 }'", "sh",
                             volume_ + "/fragmented"});
    } else {
        // Its rows are "level/ levels number/ count first - last first - last length", in blocks.
        const std::string script =
            "debugfs -R 'dump_extents -l /fragmented' \"$1\" 2>/dev/null | tr -d / | "
            "awk '$1 == $2 { print $8 * 8 \"..\" $10 * 8 + 7 }'";
        theirs = RunProgram({"sh", "-c", script, "sh", image_});
    }
    EXPECT_EQ(ours, theirs);
    EXPECT_GE(std::count(ours.begin(), ours.end(), '\n'), 35);
}

TEST_P(ExtentVolumeTest, PreallocatedBlocksAreUninitialized) {
    const std::string path = volume_ + "/preallocated";
    const UniqueFd file(open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644));
    ASSERT_EQ(posix_fallocate(file.Get(), 0, 64 * kBlock), 0);
    Sync();
    const FileMappingTable fresh = MapFile("preallocated");
    ASSERT_FALSE(fresh.entries.empty());
    EXPECT_TRUE(IsInFileOrder(fresh));
    EXPECT_EQ(Sectors(fresh), 64 * kBlockSectors);
    for (const FileMappingEntry& entry : fresh.entries) {
        EXPECT_EQ(entry.uninitialized, 1u);
    }

    WriteBlock(path, "preallocated", 10);
    WriteBlock(path, "preallocated", 11);
    Sync();
    const FileMappingTable table = MapFile("preallocated");
    ASSERT_GE(table.entries.size(), 3u);
    EXPECT_EQ(Sectors(table), 64 * kBlockSectors);
    EXPECT_EQ(table.entries[0].uninitialized, 1u);
    EXPECT_EQ(table.entries[1].uninitialized, 0u);
    EXPECT_EQ(table.entries[1].startSector, 10 * kBlockSectors);
    EXPECT_EQ(table.entries[1].numSectors, 2 * kBlockSectors);
    EXPECT_EQ(table.entries[2].uninitialized, 1u);
    EXPECT_EQ(table.entries[1].deviceStartSector,
              fresh.entries[0].deviceStartSector + 10 * kBlockSectors);
    EXPECT_EQ(ReadByTable(table), ReadFile(path));
}

TEST_P(ExtentVolumeTest, AFreshFileHasAnEmptyTableUntilItIsSynced) {
    const FileMappingTable before = MapUnsynced("fresh", 1, false);
    EXPECT_TRUE(before.entries.empty());
    EXPECT_EQ(before.fileSize, kBlock);
    const UniqueFd file(open((volume_ + "/fresh").c_str(), O_RDONLY | O_CLOEXEC));
    ASSERT_EQ(fsync(file.Get()), 0);
    const FileMappingTable after = MapFile("fresh");
    ASSERT_FALSE(after.entries.empty());
    EXPECT_EQ(ReadByTable(after), BlockText("fresh", 0));
    EXPECT_TRUE(LogLines().empty());
}

TEST_P(ExtentVolumeTest, WhatIsNotYetAllocatedOfAFileIsLeftOut) {
    const FileMappingTable table = MapUnsynced("growing", 101, true);
    ASSERT_EQ(table.entries.size(), 1u);
    EXPECT_EQ(table.entries[0].startSector, 0u);
    EXPECT_EQ(table.entries[0].numSectors, kBlockSectors);
}

class InlineDataTest : public MappingTest {};

TEST_F(InlineDataTest, DataWithinTheInodeHasNoPlace) {
    UseVolume("ext4", {"-O", "inline_data"});
    WriteFile(volume_ + "/tiny", "twenty bytes of text");
    WriteBlock(volume_ + "/block", "block", 0);
    Sync();
    const FileMappingTable tiny = MapFile("tiny");
    EXPECT_TRUE(tiny.entries.empty());
    EXPECT_EQ(tiny.fileSize, 20u);
    EXPECT_EQ(ReadByTable(MapFile("block")), BlockText("block", 0));
}

}  // namespace
