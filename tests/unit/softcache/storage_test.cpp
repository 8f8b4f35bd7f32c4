// SPDX-License-Identifier: MIT
#include "softcache/store/storage.h"

#include "softcache/store/unit_table.h"
#include "tests/unit/softcache/test_files.h"

namespace softcache {
namespace {

TEST(ParseSize, Table) {
    const struct {
        const char* text;
        uint64_t bytes;  // 0 = not a size
    } rows[] = {
        {"1", 1},
        {"65536", 65536},
        {"64K", 65536},
        {"16M", 16u << 20},
        {"3G", uint64_t{3} << 30},
        {"2T", uint64_t{2} << 40},
        {"18446744073709551615", UINT64_MAX},
        {"16777215T", uint64_t{16777215} << 40},
        {"16777216T", 0},
        {"18446744073709551616", 0},
        {"", 0},
        {"K", 0},
        {"64k", 0},
        {"64KB", 0},
        {"64KiB", 0},
        {"1.5G", 0},
        {"-1", 0},
        {"+1", 0},
        {" 1", 0},
        {"1 ", 0},
        {"0x10", 0},
    };
    for (const auto& row : rows) {
        uint64_t bytes = 77;
        EXPECT_EQ(ParseSize(row.text, bytes), row.bytes != 0) << row.text;
        EXPECT_EQ(bytes, row.bytes == 0 ? 77 : row.bytes) << row.text;
    }
    const std::string nul("1\0", 2);
    uint64_t bytes = 0;
    EXPECT_FALSE(ParseSize(nul, bytes));
}

TEST(WhyNotCacheSize, WholeUnitsAtLeastOne) {
    EXPECT_EQ(WhyNotCacheSize(65536), "");
    EXPECT_EQ(WhyNotCacheSize(uint64_t{1} << 40), "");
    EXPECT_EQ(WhyNotCacheSize(0), "ssd size 0: less than one unit of 65536 bytes");
    EXPECT_EQ(WhyNotCacheSize(65535), "ssd size 65535: less than one unit of 65536 bytes");
    EXPECT_EQ(WhyNotCacheSize(65537), "ssd size 65537: not a multiple of 65536 bytes");
    EXPECT_NE(WhyNotCacheSize(uint64_t{UINT32_MAX} * kUnitSize), "");
}

TEST(OpenBacking, AFileForThisCacheAlone) {
    const TempDir dir;
    NewFile(dir / "b", Bytes(70000, 1));
    OwnedFd backing;
    uint64_t size = 0;
    ASSERT_EQ(OpenBacking(dir / "b", backing, size), "");
    EXPECT_EQ(size, 70000u);
    EXPECT_TRUE(backing.valid());

    OwnedFd second;
    size = 5;
    EXPECT_EQ(OpenBacking(dir / "b", second, size),
              "backing " + (dir / "b") + ": in use by another cache");
    EXPECT_FALSE(second.valid());
    EXPECT_EQ(size, 5u);
    backing = OwnedFd();
    EXPECT_EQ(OpenBacking(dir / "b", second, size), "");
}

TEST(OpenBacking, NamesWhatIsWrong) {
    const TempDir dir;
    NewFile(dir / "empty", {});
    ASSERT_EQ(mkfifo((dir / "fifo").c_str(), 0600), 0);
    const struct {
        std::string path;
        const char* wrong;
    } rows[] = {
        {dir / "absent", "No such file or directory"},
        {dir.Path(), "Is a directory"},
        {dir / "empty", "empty"},
        {dir / "fifo", "neither a regular file nor a block device"},
        {"/dev/null", "neither a regular file nor a block device"},
    };
    for (const auto& row : rows) {
        OwnedFd backing;
        uint64_t size = 0;
        EXPECT_EQ(OpenBacking(row.path, backing, size), "backing " + row.path + ": " + row.wrong);
        EXPECT_FALSE(backing.valid());
    }
}

TEST(OpenSsd, MakesTheFileAndLeavesWhatThereIs) {
    const TempDir dir;
    OwnedFd ssd;
    bool isBlockDevice = true;
    ASSERT_EQ(OpenSsd(dir / "s", ssd, isBlockDevice), "");
    EXPECT_FALSE(isBlockDevice);
    EXPECT_EQ(std::filesystem::file_size(dir / "s"), 0u);
    struct stat status;
    ASSERT_EQ(fstat(ssd.get(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0600u);
    OwnedFd other;
    EXPECT_EQ(OpenSsd(dir / "s", other, isBlockDevice),
              "ssd " + (dir / "s") + ": in use by another cache");
    NewFile(dir / "t", {1, 2, 3});
    ASSERT_EQ(OpenSsd(dir / "t", other, isBlockDevice), "");
    EXPECT_EQ(FileBytes(dir / "t"), (Bytes{1, 2, 3}));
}

TEST(OpenSsd, NamesWhatIsWrong) {
    const TempDir dir;
    OwnedFd ssd;
    bool isBlockDevice = false;
    EXPECT_EQ(OpenSsd(dir / "no/s", ssd, isBlockDevice),
              "ssd " + (dir / "no/s") + ": No such file or directory");
    EXPECT_EQ(OpenSsd("/dev/null", ssd, isBlockDevice),
              "ssd /dev/null: neither a regular file nor a block device");
    EXPECT_FALSE(ssd.valid());
}

TEST(SizeSsdFile, AllocatesTheSpaceOrLeavesTheFileAsLongAsItWas) {
    const TempDir dir;
    const OwnedFd ssd = NewFile(dir / "s", Bytes(3 * kUnitSize, 1));
    EXPECT_EQ(SizeSsdFile(ssd.get(), 4 * kUnitSize), "");
    EXPECT_EQ(SizeOf(ssd.get()), 4u * kUnitSize);
    EXPECT_GE(AllocatedBytes(ssd.get()), 4u * kUnitSize) << "its space cannot be missing later";
    EXPECT_EQ(SizeSsdFile(ssd.get(), 2 * kUnitSize), "");
    EXPECT_EQ(SizeOf(ssd.get()), 2u * kUnitSize) << "a longer one is cut";
    const FileSizeLimit limit(kUnitSize);
    EXPECT_EQ(SizeSsdFile(ssd.get(), 3 * kUnitSize), "File too large");
    EXPECT_EQ(SizeOf(ssd.get()), 2u * kUnitSize);
}

TEST(WhyNotTwoFiles, OneFileUnderTwoNamesIsOne) {
    const TempDir dir;
    NewFile(dir / "a", {1});
    NewFile(dir / "b", {1});
    ASSERT_EQ(link((dir / "a").c_str(), (dir / "c").c_str()), 0);
    EXPECT_EQ(WhyNotTwoFiles(dir / "a", dir / "b"), "");
    EXPECT_EQ(WhyNotTwoFiles(dir / "a", dir / "no"), "");
    EXPECT_EQ(WhyNotTwoFiles(dir / "a", dir / "c"), "ssd " + (dir / "c") + ": is the backing, too");
}

TEST(CheckMountPoint, TakesADirectoryAndFollowsLinks) {
    const TempDir dir;
    std::filesystem::create_directory(dir / "m");
    ASSERT_EQ(symlink("m", (dir / "link").c_str()), 0);
    std::string absolute = "x";
    EXPECT_EQ(CheckMountPoint(dir / "link", "vol1", absolute), "");
    EXPECT_EQ(absolute, dir / "m");
    EXPECT_EQ(AbsolutePath(dir / "link/../link"), dir / "m");
    EXPECT_EQ(AbsolutePath("no/such"), "no/such");
}

TEST(CheckMountPoint, NamesWhatIsWrong) {
    const TempDir dir;
    NewFile(dir / "file", {});
    const struct {
        std::string path;
        const char* wrong;
    } rows[] = {
        {dir / "absent", "No such file or directory"},
        {dir / "file", "Not a directory"},
        {"/proc", "something is mounted there already"},
    };
    for (const auto& row : rows) {
        std::string absolute = "x";
        EXPECT_EQ(CheckMountPoint(row.path, "vol1", absolute),
                  "mount point " + row.path + ": " + row.wrong);
        EXPECT_EQ(absolute, "x");
    }
}

}  // namespace
}  // namespace softcache
