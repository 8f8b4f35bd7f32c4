// SPDX-License-Identifier: MIT
#include "softcache/serve/loop_device.h"

#include <chrono>
#include <thread>

#include "softcache/serve/device_tag.h"
#include "tests/unit/softcache/service_process.h"

namespace softcache {
namespace {

namespace fs = std::filesystem;

class LoopDeviceTest : public ::testing::Test {
  protected:
    void SetUp() override {
        const std::string why = WhyNoMounts();
        if (!why.empty()) {
            GTEST_SKIP() << why;
        }
        content_ = RandomBytes(1 << 20, 1);
        NewFile(file_, content_);
    }

    std::string Attach(LoopDevice& loop) { return loop.Attach(file_, 512, names_, "pool"); }

    // Whoever looks for a free loop device has this one open for a moment, too.
    static bool IsLetGo(const LoopDevice& loop) {
        for (int left = 1000; loop.IsInUse() && left > 0; --left) {
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        return !loop.IsInUse();
    }

    TempDir dir_;
    std::string file_ = dir_ / "file";
    std::string names_ = dir_ / "names/of/caches";
    std::string link_ = names_ + "/pool";
    Bytes content_;
};

TEST_F(LoopDeviceTest, ItIsTheFileUnderItsName) {
    LoopDevice loop;
    ASSERT_EQ(Attach(loop), "");
    EXPECT_EQ(fs::canonical(link_), loop.Node());
    const OwnedFd fd(open(link_.c_str(), O_RDWR));
    EXPECT_EQ(SizeOf(fd.get()), content_.size());
    EXPECT_EQ(SectorSizeOf(fd.get()), 512U);
    Bytes read(content_.size());
    EXPECT_EQ(ReadFull(fd.get(), read.data(), read.size(), 0), 0);
    EXPECT_EQ(read, content_);
}

TEST_F(LoopDeviceTest, ItHasTheSectorSizeThatIsAskedFor) {
    LoopDevice loop;
    ASSERT_EQ(loop.Attach(file_, 4096, names_, "pool"), "");
    EXPECT_EQ(SectorSizeOf(OwnedFd(open(link_.c_str(), O_RDONLY)).get()), 4096U);
}

TEST_F(LoopDeviceTest, AFileHasSmallSectors) {
    EXPECT_EQ(SectorSizeOf(OwnedFd(open(file_.c_str(), O_RDONLY)).get()), 512U);
}

TEST_F(LoopDeviceTest, ReleasedItIsGoneAndWhatWasWrittenIsInTheFile) {
    LoopDevice loop;
    ASSERT_EQ(Attach(loop), "");
    const Bytes other = RandomBytes(4096, 2);
    EXPECT_EQ(WriteFull(OwnedFd(open(link_.c_str(), O_RDWR)).get(), other.data(), 4096, 8192), 0);
    loop.Release();
    EXPECT_FALSE(fs::exists(fs::symlink_status(link_)));
    EXPECT_TRUE(IsLetGo(loop));
    Bytes read(4096);
    EXPECT_EQ(ReadFull(OwnedFd(open(file_.c_str(), O_RDONLY)).get(), read.data(), 4096, 8192), 0);
    EXPECT_EQ(read, other);
}

TEST_F(LoopDeviceTest, WhatOthersHaveOpenStaysUntilTheyClose) {
    LoopDevice loop;
    ASSERT_EQ(Attach(loop), "");
    OwnedFd other(open(link_.c_str(), O_RDONLY));
    loop.Release();
    EXPECT_TRUE(loop.IsInUse());
    uint8_t byte = 0;
    EXPECT_EQ(ReadFull(other.get(), &byte, 1, 77), 0);
    EXPECT_EQ(byte, content_[77]);
    other = OwnedFd();
    EXPECT_TRUE(IsLetGo(loop));
}

TEST_F(LoopDeviceTest, AnEarlierStartsLinkIsReplacedAndAnothersIsLeftAlone) {
    fs::create_directories(names_);
    fs::create_symlink("/dev/null", link_);
    fs::create_symlink("/dev/null", names_ + "/.pool.new");
    LoopDevice loop;
    ASSERT_EQ(Attach(loop), "");
    EXPECT_EQ(fs::canonical(link_), loop.Node());
    EXPECT_FALSE(fs::exists(fs::symlink_status(names_ + "/.pool.new")));
    fs::remove(link_);
    fs::create_symlink("/dev/null", link_);
    loop.Release();
    EXPECT_EQ(fs::read_symlink(link_), "/dev/null");
}

TEST_F(LoopDeviceTest, WhatIsWrongIsNamedAndNothingStaysAttached) {
    LoopDevice loop;
    EXPECT_EQ(loop.Attach(dir_ / "none", 512, names_, "pool"),
              "loop device " + (dir_ / "none") + ": No such file or directory");
    EXPECT_NE(loop.Attach(file_, 3, names_, "pool"), "");
    EXPECT_TRUE(IsLetGo(loop));
    const std::string taken = dir_ / "taken";
    NewFile(taken, {});
    EXPECT_EQ(loop.Attach(file_, 512, taken, "pool"), "link " + taken + "/pool: Not a directory");
    EXPECT_TRUE(IsLetGo(loop));
}

TEST_F(LoopDeviceTest, ATagLeadsToTheDeviceThatHasItAndNotToACachesOwn) {
    const std::string uuid = "5a0c64ea-84ad-4d0a-a5b3-6bd3f3a7b8f6";
    const std::string cached = dir_ / "device";  // what a cache mounts has this name
    MustRun("mkfs.ext4 -q -U " + uuid + " -L quor-pool " + file_ + " && cp " + file_ + " " +
            cached);
    std::string text = "UUID=" + uuid;
    LoopDevice served;
    ASSERT_EQ(served.Attach(cached, 512, names_, "served"), "");
    EXPECT_EQ(ResolveTag(text), "no block device has UUID=" + uuid);
    EXPECT_EQ(text, "UUID=" + uuid);
    LoopDevice loop;
    ASSERT_EQ(Attach(loop), "");
    EXPECT_EQ(ResolveTag(text), "");
    EXPECT_EQ(text, loop.Node());
    text = "LABEL=quor-pool";
    EXPECT_EQ(ResolveTag(text), "");
    EXPECT_EQ(text, loop.Node());
}

TEST(DeviceTagTest, APathIsNoTag) {
    for (const std::string path : {"/dev/sda", "/data/UUID=5", "disk=1", ""}) {
        std::string text = path;
        EXPECT_EQ(ResolveTag(text), "");
        EXPECT_EQ(text, path);
    }
}

}  // namespace
}  // namespace softcache
