// SPDX-License-Identifier: MIT
// Which file of a directory an inode number means.
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <map>

#include "tests/unit/platform/mapping_fixture.h"

namespace {

class InodeLookupTest : public MappingTest {
  protected:
    // The path that the library found, or "none" when it failed; then the table is untouched.
    std::string Find(const std::string& directory, uint64_t inode) {
        FileMappingTable table;
        table.path = "untouched";
        table.entries.resize(2);
        if (mapper_->GetMappingTable(directory, static_cast<unsigned long>(inode), 0, table) < 0) {
            EXPECT_EQ(table.path, "untouched");
            EXPECT_EQ(table.entries.size(), 2u);
            return "none";
        }
        return table.path;
    }
    static std::string OnlyLine() {
        const std::vector<std::string> lines = LogLines();
        ClearLog();
        return lines.size() == 1 ? lines[0] : std::to_string(lines.size()) + " lines";
    }
};

TEST_F(InodeLookupTest, FindsTheFileInItsDirectoryOnly) {
    UseVolume("ext4");
    MakeDirectory("volume/sub");
    WriteFile("/mnt/volume/a", "a");
    WriteFile("/mnt/volume/sub/b", "b");
    const uint64_t a = InodeOf("/mnt/volume/a");
    const uint64_t b = InodeOf("/mnt/volume/sub/b");
    EXPECT_EQ(Find("/mnt/volume", a), "/mnt/volume/a");
    EXPECT_EQ(Find("/mnt/volume/sub", b), "/mnt/volume/sub/b");
    EXPECT_TRUE(LogLines().empty());
    EXPECT_EQ(Find("/mnt/volume", b), "none");
    EXPECT_EQ(OnlyLine(), "libquordataverifier: no regular file with inode " + std::to_string(b) +
                              " in directory /mnt/volume");
    EXPECT_EQ(Find("/mnt/volume/missing", a), "none");
    EXPECT_EQ(OnlyLine(),
              "libquordataverifier: directory /mnt/volume/missing cannot be opened: No "
              "such file or directory");
    EXPECT_EQ(Find("/mnt/volume/a", a), "none");
    EXPECT_EQ(OnlyLine(),
              "libquordataverifier: directory /mnt/volume/a cannot be opened: Not a "
              "directory");
}

TEST_F(InodeLookupTest, TheLowHalfOfTheNumberCounts) {
    UseVolume("ext4");
    WriteFile("/mnt/volume/a", "a");
    const uint64_t a = InodeOf("/mnt/volume/a");
    EXPECT_EQ(Find("/mnt/volume", a | (uint64_t{7} << 32)), "/mnt/volume/a");
}

TEST_F(InodeLookupTest, NamesOfOneFileAreOneFile) {
    UseVolume("ext4");
    WriteFile("/mnt/volume/a", "a");
    ASSERT_EQ(link("/mnt/volume/a", "/mnt/volume/z"), 0);
    const std::string found = Find("/mnt/volume", InodeOf("/mnt/volume/a"));
    EXPECT_TRUE(found == "/mnt/volume/a" || found == "/mnt/volume/z") << found;
    EXPECT_TRUE(LogLines().empty());
}

TEST_F(InodeLookupTest, OtherThanRegularFilesAreNotFound) {
    UseVolume("ext4");
    MakeDirectory("volume/sub");
    WriteFile("/mnt/volume/a", "a");
    ASSERT_EQ(symlink("a", "/mnt/volume/link"), 0);
    ASSERT_EQ(mkfifo("/mnt/volume/pipe", 0600), 0);
    for (const char* const name : {"/mnt/volume/sub", "/mnt/volume/link", "/mnt/volume/pipe"}) {
        EXPECT_EQ(Find("/mnt/volume", InodeOf(name)), "none") << name;
    }
    EXPECT_EQ(Find("/mnt/volume", InodeOf("/mnt/volume")), "none");  // "."
    EXPECT_EQ(Find("/mnt/volume", 0), "none");
}

TEST_F(InodeLookupTest, WhatLiesOnAnotherDeviceIsRefused) {
    UseVolume("ext4");
    const std::string other = MountImage(MakeImage("ext4", "other.img"), "other");
    WriteFile(other + "/b", "b");
    WriteFile("/mnt/volume/a", "a");
    EXPECT_EQ(Find(other, InodeOf(other + "/b")), "none");
    EXPECT_EQ(OnlyLine(),
              "libquordataverifier: directory /mnt/other does not lie on the device whose "
              "files are asked for");
    // A file of another device mounted over one of this: the directory still tells the old number.
    const uint64_t covered = InodeOf("/mnt/volume/a");
    ASSERT_EQ(mount((other + "/b").c_str(), "/mnt/volume/a", nullptr, MS_BIND, nullptr), 0);
    EXPECT_EQ(Find("/mnt/volume", covered), "none");
    EXPECT_EQ(Find("/mnt/volume", InodeOf("/mnt/volume/a")), "none");
}

TEST_F(InodeLookupTest, FindsAFileByAnyName) {
    UseVolume("xfs");
    for (const char* const name : {" ", "new\nline", "%n", "\xff\xfe", "-"}) {
        const std::string path = volume_ + "/" + name;
        WriteFile(path, "x");
        EXPECT_EQ(Find(volume_, InodeOf(path)), path);
    }
}

// An XFS of 8 TiB numbers the inodes of its upper allocation groups beyond 32 bits, and two groups
// that are a multiple of two apart give equal low halves.
class LargeInodeTest : public InodeLookupTest {
  protected:
    void SetUp() override {
        InodeLookupTest::SetUp();
        if (IsSkipped()) {
            return;
        }
        image_ = MakeFile("volume.img", uint64_t{8} << 20);
        RunProgram({"mkfs.xfs", "-q", "-l", "size=64m", image_});
        volume_ = MountImage(image_, "volume");
        mapper_.reset(FileSystemDeviceCreater::Create(SourceOf(volume_)));
        ASSERT_NE(mapper_, nullptr);
        FindTwins();
    }

    // Makes directories, which XFS spreads over the groups, with a file in each until two files
    // share the low halves of their numbers.
    void FindTwins() {
        std::map<uint32_t, std::string> seen;
        for (int i = 0; i < 400 && low_.empty(); ++i) {
            const std::string directory = MakeDirectory("volume/d" + std::to_string(i));
            for (int j = 0; j < 8 && low_.empty(); ++j) {
                const std::string path = directory + "/f" + std::to_string(j);
                WriteFile(path, path);
                const auto added = seen.emplace(static_cast<uint32_t>(InodeOf(path)), path);
                if (!added.second) {
                    low_ = added.first->second;
                    high_ = path;
                }
            }
        }
        ASSERT_FALSE(low_.empty()) << "no two files with equal low halves were made";
        ASSERT_NE(InodeOf(low_), InodeOf(high_));
        ASSERT_GT(InodeOf(high_), UINT32_MAX);
        both_ = MakeDirectory("volume/both");
    }

    std::string low_, high_, both_;
};

TEST_F(LargeInodeTest, AFileIsFoundByTheLowHalfOfItsNumber) {
    Sync();
    const auto low = static_cast<uint32_t>(InodeOf(high_));
    const std::string directory = high_.substr(0, high_.rfind('/'));
    EXPECT_EQ(Find(directory, low), high_);
    FileMappingTable table;
    ASSERT_GE(mapper_->GetMappingTable(directory, low, 0, table), 0);
    EXPECT_EQ(ReadByTable(table), high_);  // its content is its path
}

TEST_F(LargeInodeTest, TwoFilesWithEqualLowHalvesAreAmbiguous) {
    ASSERT_EQ(link(low_.c_str(), (both_ + "/a").c_str()), 0);
    const auto inode = static_cast<uint32_t>(InodeOf(low_));
    EXPECT_EQ(Find(both_, inode), both_ + "/a");
    ASSERT_EQ(link(high_.c_str(), (both_ + "/b").c_str()), 0);
    EXPECT_EQ(Find(both_, inode), "none");
    const std::string line = OnlyLine();
    EXPECT_EQ(line.rfind("libquordataverifier: inode " + std::to_string(inode) + " in directory " +
                             both_ + " is ambiguous: ",
                         0),
              0u)
        << line;
    // The whole number is not told apart either: a caller on a 32-bit machine does not have it.
    EXPECT_EQ(Find(both_, InodeOf(high_)), "none");
}

TEST_F(LargeInodeTest, AnotherKindOfEntryWithTheSameLowHalfDoesNotCount) {
    // The number of the twin goes to a symbolic link, as soon as it is free: with the volume's next
    // mounting.
    const uint64_t number = InodeOf(high_);
    ASSERT_EQ(unlink(high_.c_str()), 0);
    mapper_.reset();
    ASSERT_EQ(umount(volume_.c_str()), 0);
    RunProgram({"mount", "-o", "loop", image_, volume_});
    mapper_.reset(FileSystemDeviceCreater::Create(SourceOf(volume_)));
    ASSERT_NE(mapper_, nullptr);
    for (int i = 0; i < 64 && access(high_.c_str(), F_OK) != 0; ++i) {
        const std::string path = high_ + "-" + std::to_string(i);
        ASSERT_EQ(symlink(low_.c_str(), path.c_str()), 0);
        if (InodeOf(path) == number) {
            ASSERT_EQ(rename(path.c_str(), high_.c_str()), 0);
        }
    }
    ASSERT_EQ(InodeOf(high_), number) << "the number was not used again: the test proves nothing";
    ASSERT_EQ(link(low_.c_str(), (both_ + "/a").c_str()), 0);
    ASSERT_EQ(rename(high_.c_str(), (both_ + "/b").c_str()), 0);
    EXPECT_EQ(Find(both_, number), both_ + "/a");
    EXPECT_TRUE(LogLines().empty());
}

}  // namespace
