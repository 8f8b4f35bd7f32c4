// SPDX-License-Identifier: MIT
#include "softcache/store/disk.h"

#include "tests/unit/softcache/test_files.h"

namespace softcache {
namespace {

class DiskTest : public ::testing::Test {
  protected:
    // Reads and writes of every alignment, against plain bytes.
    void Exercise(const Disk& disk) {
        Random random(7);
        for (int round = 0; round < 300; ++round) {
            const size_t size = 1 + random() % (random() % 4 == 0 ? 300000 : 5000);
            const size_t offset = random() % (content_.size() - size);
            if (random() % 2 == 0) {
                const Bytes bytes = RandomBytes(size, random());
                ASSERT_EQ(disk.Write(bytes.data(), size, offset), 0);
                std::copy(bytes.begin(), bytes.end(),
                          content_.begin() + static_cast<ptrdiff_t>(offset));
            } else {
                Bytes got(size + 1);
                ASSERT_EQ(disk.Read(got.data() + 1, size, offset), 0);
                ASSERT_EQ(memcmp(got.data() + 1, content_.data() + offset, size), 0);
            }
        }
        ASSERT_EQ(disk.Sync(), 0);
        EXPECT_EQ(FileBytes(dir_ / "f"), content_);
    }

    TempDir dir_;
    Bytes content_ = RandomBytes(1 << 20, 1);
    OwnedFd file_ = NewFile(dir_ / "f", content_);
};

TEST_F(DiskTest, AnyBytesCanBeReadAndWritten) {
    Exercise(Disk(file_.get()));
}

TEST_F(DiskTest, PastThePageCacheToo) {
    Disk disk(file_.get());
    const std::string why = disk.GoDirect();
    if (!why.empty()) {
        GTEST_SKIP() << why;
    }
    EXPECT_NE(fcntl(file_.get(), F_GETFL) & O_DIRECT, 0);
    Exercise(disk);
}

TEST_F(DiskTest, ASizeThatIsNoMultipleOfABlockKeepsToThePageCache) {
    content_.resize(content_.size() - 100);
    ASSERT_EQ(ftruncate(file_.get(), static_cast<off_t>(content_.size())), 0);
    Disk disk(file_.get());
    const std::string why = disk.GoDirect();
    EXPECT_EQ(why.find("its "), 0u) << why;
    EXPECT_EQ(fcntl(file_.get(), F_GETFL) & O_DIRECT, 0);
    Exercise(disk);
    Bytes got(10);
    EXPECT_EQ(disk.Read(got.data(), 10, content_.size() - 9), -EIO) << "its end";
}

TEST_F(DiskTest, WhatCannotBeSyncedSaysSo) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    const OwnedFd read(ends[0]);
    const OwnedFd write(ends[1]);
    EXPECT_EQ(Disk(write.get()).Sync(), -EINVAL);
}

}  // namespace
}  // namespace softcache
