// SPDX-License-Identifier: MIT
// Which cache a space has: real volumes on loop devices, and a registry of the test's own.
#include <string.h>
#include <sys/mount.h>
#include <sys/stat.h>

#include "tests/unit/platform/registry_fixture.h"

namespace {

constexpr char kUuidA[] = "0a0a0a0a-1111-4222-8333-0123456789ab";
constexpr char kUuidB[] = "0b0b0b0b-1111-4222-8333-0123456789ab";

class CacheConfigTest : public RegistryTest {
  protected:
    void SetUp() override {
        RegistryTest::SetUp();
        if (!IsSkipped()) {
            // Has said by now what there is to say of the machine's own volumes.
            const LivingEntry cache("vol1", EntryText("/ssd", "/"));
            SsdOf("none");
            unlink(EntryPath("vol1").c_str());
            ClearLog();
        }
    }

    // The SSD of the space's cache, or the result that told of none as "= result".
    static std::string SsdOf(const char* uuid,
                             int32_t selector = FLASH_CACHE_CONFIG_BY_SPACE_UUID) {
        FlashCacheConfigQuery query = {};
        query.selector = selector;
        query.spaceUuid = uuid;
        FlashCacheConfig* config = reinterpret_cast<FlashCacheConfig*>(&query);  // must be set
        const int result = QUORFlashCacheConfigTmpGet(&query, &config);
        if (config == nullptr) {
            return "= " + std::to_string(result);
        }
        EXPECT_NE(result, 0);
        EXPECT_NE(result, -1);
        std::string ssd = config->ssdPath;
        QUORFlashCacheConfigFree(config);
        return ssd;
    }
};

TEST_F(CacheConfigTest, IsFoundThroughTheFileThatBacksTheLoopDevice) {
    const std::string imageA = MakeImage("ext4", "a.img", {"-U", kUuidA});
    const std::string imageB = MakeImage("xfs", "b.img", {"-m", std::string("uuid=") + kUuidB});
    MountImage(imageA, "a");
    MountImage(imageB, "b");
    EXPECT_EQ(SsdOf(kUuidA), "= 0");
    const LivingEntry cacheB("vol1", EntryText("/ssd-b", imageB));
    EXPECT_EQ(SsdOf(kUuidA), "= 0");
    EXPECT_EQ(SsdOf(kUuidB), "/ssd-b");
    const LivingEntry cacheA("vol2", EntryText("/ssd-a", imageA));
    EXPECT_EQ(SsdOf(kUuidA), "/ssd-a");
    EXPECT_EQ(SsdOf(kUuidB), "/ssd-b");
    EXPECT_TRUE(LogLines().empty());
}

TEST_F(CacheConfigTest, TheBackingFileIsTheSameByWhicheverPath) {
    const std::string image = MakeImage("ext4", "a.img", {"-U", kUuidA});
    MountImage(image, "a");
    ASSERT_EQ(symlink("a.img", "/mnt/link.img"), 0);
    ASSERT_EQ(link(image.c_str(), "/mnt/name.img"), 0);
    for (const char* const path : {"/mnt/link.img", "/mnt/name.img", "/mnt/../mnt/a.img"}) {
        const LivingEntry cache("vol1", EntryText("/ssd", path));
        EXPECT_EQ(SsdOf(kUuidA), "/ssd") << path;
    }
}

TEST_F(CacheConfigTest, AnotherFileInThePlaceOfTheBackingFileDoesNotMatch) {
    const std::string image = MakeImage("ext4", "a.img", {"-U", kUuidA});
    MountImage(image, "a");
    RunProgram({"cp", "--sparse=always", image, "/mnt/copy.img"});
    ASSERT_EQ(rename("/mnt/copy.img", image.c_str()), 0);
    const LivingEntry cache("vol1", EntryText("/ssd", image));
    EXPECT_EQ(SsdOf(kUuidA), "= 0");
}

TEST_F(CacheConfigTest, TheBackingFileIsNotTheOneWithTheSameInodeElsewhere) {
    // As two caches have it: each presents its device under the same inode number.
    for (const char* const name : {"one", "two"}) {
        ASSERT_EQ(mount("small", MakeDirectory(name).c_str(), "tmpfs", 0, nullptr), 0);
    }
    const std::string one = MakeImage("ext4", "one/device", {"-U", kUuidA});
    const std::string two = MakeImage("ext4", "two/device", {"-U", kUuidB});
    ASSERT_EQ(InodeOf(one), InodeOf(two)) << "the numbers differ: the test proves nothing";
    MountImage(one, "a");
    MountImage(two, "b");
    const LivingEntry cacheOne("vol1", EntryText("/ssd-one", one));
    EXPECT_EQ(SsdOf(kUuidA), "/ssd-one");
    EXPECT_EQ(SsdOf(kUuidB), "= 0");
    const LivingEntry cacheTwo("vol2", EntryText("/ssd-two", two));
    EXPECT_EQ(SsdOf(kUuidA), "/ssd-one");
    EXPECT_EQ(SsdOf(kUuidB), "/ssd-two");
}

TEST_F(CacheConfigTest, IsFoundWhenTheCachedDeviceIsTheBlockDeviceItself) {
    const std::string a = MountImage(MakeImage("ext4", "a.img", {"-U", kUuidA}), "a");
    const std::string b = MountImage(MakeImage("ext4", "b.img", {"-U", kUuidB}), "b");
    const LivingEntry cache("vol1", EntryText("/ssd", SourceOf(b)));
    EXPECT_EQ(SsdOf(kUuidA), "= 0");
    EXPECT_EQ(SsdOf(kUuidB), "/ssd");
    ASSERT_EQ(umount(b.c_str()), 0);
    EXPECT_EQ(SsdOf(kUuidB), "= 0");  // no space, no cache
}

TEST_F(CacheConfigTest, ALoopDeviceThatShowsAPieceOfTheCachedDeviceHasNoCache) {
    const std::string image = MakeImage("ext4", "a.img", {"-U", kUuidA});
    const std::string device = MakeFile("device", 256);
    RunProgram({"dd", "if=" + image, "of=" + device, "bs=1M", "seek=1", "conv=notrunc,sparse",
                "status=none"});
    const LivingEntry cache("vol1", EntryText("/ssd", device));

    const std::string offset = MountImage(device, "offset", "loop,offset=1048576");
    EXPECT_EQ(SsdOf(kUuidA), "= 0");
    EXPECT_EQ(
        LogLines(),
        (std::vector<std::string>{"libquorstoragecore: loop device " + SourceOf(offset) +
                                  " has an offset or a size limit: its sectors are not those of " +
                                  device + ", so that cache does not count as its own"}));
    ASSERT_EQ(umount(offset.c_str()), 0);

    RunProgram({"dd", "if=" + image, "of=" + device, "bs=1M", "conv=notrunc", "status=none"});
    const std::string limited = MountImage(device, "limited", "loop,sizelimit=134217728");
    ClearLog();
    EXPECT_EQ(SsdOf(kUuidA), "= 0");
    EXPECT_EQ(LogLines().size(), 1u);
    ASSERT_EQ(umount(limited.c_str()), 0);

    MountImage(device, "whole");
    ClearLog();
    EXPECT_EQ(SsdOf(kUuidA), "/ssd");
    EXPECT_TRUE(LogLines().empty());
}

TEST_F(CacheConfigTest, APartitionOfALoopDeviceHasNoCache) {
    const std::string image = MakeImage("ext4", "a.img", {"-U", kUuidA});
    const std::string disk = MakeFile("disk", 256);
    RunProgram({"dd", "if=" + image, "of=" + disk, "bs=1M", "seek=1", "conv=notrunc,sparse",
                "status=none"});
    std::string loop = RunProgram({"losetup", "--find", "--show", "--partscan", disk});
    loop.erase(loop.find_last_not_of('\n') + 1);
    RunProgram({"addpart", loop, "1", "2048", "262144"});
    MakeDirectory("part");
    RunProgram({"mount", loop + "p1", "/mnt/part"});
    RunProgram({"losetup", "--detach", loop});  // as soon as it is not mounted any more
    const LivingEntry cache("vol1", EntryText("/ssd", disk));
    EXPECT_EQ(SsdOf(kUuidA), "= 0");
    ASSERT_EQ(umount("/mnt/part"), 0);
}

TEST_F(CacheConfigTest, OnlyALivingCacheCounts) {
    const std::string image = MakeImage("ext4", "a.img", {"-U", kUuidA});
    MountImage(image, "a");
    {
        const LivingEntry cache("vol1", EntryText("/ssd", image));
        ASSERT_EQ(SsdOf(kUuidA), "/ssd");
    }
    EXPECT_EQ(SsdOf(kUuidA), "= 0");
    EXPECT_TRUE(LogLines().empty());
}

TEST_F(CacheConfigTest, ACacheWhoseDeviceIsGoneDoesNotSpoilTheOthers) {
    const std::string image = MakeImage("ext4", "a.img", {"-U", kUuidA});
    MountImage(image, "a");
    const LivingEntry gone("a-gone", EntryText("/ssd-gone", "/mnt/gone"));
    const LivingEntry good("b-good", EntryText("/ssd", image));
    EXPECT_EQ(SsdOf(kUuidA), "/ssd");
    EXPECT_EQ(LogLines(),
              (std::vector<std::string>{"libquorstoragecore: cached device /mnt/gone cannot be "
                                        "examined: No such file or directory"}));
}

TEST_F(CacheConfigTest, AUuidIsKnownByItsExactTextOnly) {
    const std::string image = MakeImage("ext4", "a.img", {"-U", kUuidA});
    MountImage(image, "a");
    const LivingEntry cache("vol1", EntryText("/ssd", image));
    const std::string uuid = kUuidA;
    ASSERT_EQ(SsdOf(kUuidA), "/ssd");
    EXPECT_EQ(SsdOf(uuid.substr(0, 8).c_str()), "= 0");
    EXPECT_EQ(SsdOf((uuid + "0").c_str()), "= 0");
    EXPECT_EQ(SsdOf(""), "= 0");
    EXPECT_EQ(SsdOf(kUuidB), "= 0");
}

TEST_F(CacheConfigTest, OtherSelectorsFail) {
    const std::string image = MakeImage("ext4", "a.img", {"-U", kUuidA});
    MountImage(image, "a");
    const LivingEntry cache("vol1", EntryText("/ssd", image));
    for (const int32_t selector : {0, 1, 3, -2}) {
        EXPECT_EQ(SsdOf(kUuidA, selector), "= -1") << selector;
    }
    EXPECT_EQ(SsdOf(nullptr), "= -1");
    FlashCacheConfig* config = nullptr;
    EXPECT_EQ(QUORFlashCacheConfigTmpGet(nullptr, &config), -1);
    EXPECT_EQ(LogLines(), std::vector<std::string>(
                              6,
                              "libquorstoragecore: cache configuration can be asked for by "
                              "space UUID only"));
    ClearLog();
    for (const int32_t selector : {0, 1, 2, 4}) {
        FlashCacheStatQuery query = {};
        query.selector = selector;
        query.ssdPath = "/ssd";
        FlashCacheStat* stat = nullptr;
        EXPECT_EQ(QUORFlashCacheStatGet(&query, &stat), -1) << selector;
        EXPECT_EQ(stat, nullptr);
    }
    EXPECT_EQ(StatOf("/ssd"), "1 1");
    EXPECT_EQ(LogLines(),
              std::vector<std::string>(
                  4, "libquorstoragecore: cache status can be asked for by SSD path only"));
}

TEST_F(CacheConfigTest, NothingIsReleasedTwice) {
    QUORFlashCacheConfigFree(nullptr);
    QUORFlashCacheStatFree(nullptr);
    FlashCacheStat* none = nullptr;
    QUORFlashCacheStatFree(&none);
    EXPECT_EQ(none, nullptr);
}

}  // namespace
