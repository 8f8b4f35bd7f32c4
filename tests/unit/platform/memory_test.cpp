// SPDX-License-Identifier: MIT
// What the libraries remember between calls: not read again while nothing changes, and forgotten
// with the change.
#include <stdio.h>
#include <string.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <memory>

#include "platform/quorflashcache.h"
#include "tests/unit/platform/mapping_fixture.h"
#include "tests/unit/platform/registry_fixture.h"

namespace {

constexpr char kUuidA[] = "0a0a0a0a-1111-4222-8333-0123456789ab";
constexpr char kUuidB[] = "0b0b0b0b-1111-4222-8333-0123456789ab";

// Longer than what nobody tells of is believed.
void WaitForUntold() {
    const timespec pause = {0, 30L * 1000 * 1000};
    nanosleep(&pause, nullptr);
}

class MemoryTest : public RegistryTest {
  protected:
    // The spaces of the scratch directory, "MOUNTPOINT UUID " each.
    static std::string Spaces() {
        SpaceInfo* list = nullptr;
        EXPECT_EQ(QUORSpaceInfoEnum(1, &list), 0);
        std::string spaces;
        for (const SpaceInfo* space = list; space != nullptr; space = space->next) {
            const std::unique_ptr<char, decltype(&free)> uuid(QUORSpaceUUIDGet(space), free);
            if (strncmp(space->referencePath, "/mnt/", 5) == 0) {
                spaces += std::string(space->referencePath) + " " + uuid.get() + " ";
            }
        }
        QUORSpaceInfoFree(list);
        return spaces;
    }

    // The SSD of the space's cache, or the failing result as "= result".
    static std::string SsdOf(const char* uuid) {
        FlashCacheConfigQuery query = {};
        query.selector = FLASH_CACHE_CONFIG_BY_SPACE_UUID;
        query.spaceUuid = uuid;
        FlashCacheConfig* config = nullptr;
        const int result = QUORFlashCacheConfigTmpGet(&query, &config);
        std::string ssd = config == nullptr ? "= " + std::to_string(result) : config->ssdPath;
        QUORFlashCacheConfigFree(config);
        return ssd;
    }

    static std::string DeviceOf(const std::string& ssd) {
        char path[512] = {};
        const int result = QUORFlashcacheGetCachePath(ssd.c_str(), path, sizeof path);
        return result == 1 ? path : "= " + std::to_string(result);
    }

    // The files that are opened meanwhile, the list of mounts apart.
    template <typename Action>
    static std::string OpenedBy(Action action) {
        std::string opened;
        SetOpenHook([&](const std::string& path) {
            opened += path.rfind("/proc/", 0) == 0 ? "" : path + " ";
            return 0;
        });
        action();
        SetOpenHook(nullptr);
        return opened;
    }
};

TEST_F(MemoryTest, WhatDidNotChangeIsNotReadAgain) {
    const std::string image = MakeImage("ext4", "a.img", {"-U", kUuidA});
    const std::string volume = MountImage(image, "volume");
    const LivingEntry cache("vol1", EntryText("/ssd1", image));
    for (int i = 0; i < kLooksBeforeMemory; ++i) {
        DeviceOf("/ssd1");
    }
    const auto ask = [&] {
        EXPECT_EQ(Spaces(), volume + " " + kUuidA + " ");
        EXPECT_EQ(SsdOf(kUuidA), "/ssd1");
        EXPECT_EQ(StatOf("/ssd1"), "1 1");
        EXPECT_EQ(DeviceOf("/ssd1"), image);
    };
    EXPECT_NE(OpenedBy(ask), "");
    EXPECT_EQ(OpenedBy(ask), "");
    WaitForUntold();
    EXPECT_EQ(OpenedBy(ask), "");
}

TEST_F(MemoryTest, AMountAndAnUnmountAreSeenByTheNextCall) {
    const std::string first = MakeImage("ext4", "a.img", {"-U", kUuidA});
    const std::string second = MakeImage("ext4", "b.img", {"-U", kUuidB});
    EXPECT_EQ(Spaces(), "");
    const std::string volume = MountImage(first, "volume");
    EXPECT_EQ(Spaces(), volume + " " + kUuidA + " ");
    const std::string other = MountImage(second, "other");
    EXPECT_EQ(Spaces(), volume + " " + kUuidA + " " + other + " " + kUuidB + " ");
    ASSERT_EQ(umount(volume.c_str()), 0);
    EXPECT_EQ(Spaces(), other + " " + kUuidB + " ");
    ASSERT_EQ(mount(kRegistry, other.c_str(), nullptr, MS_BIND, nullptr), 0);  // covers it
    EXPECT_EQ(Spaces(), "");
    ASSERT_EQ(umount(other.c_str()), 0);
    EXPECT_EQ(Spaces(), other + " " + kUuidB + " ");
}

// The kernel's list of mounts may then be what it was, to the letter.
TEST_F(MemoryTest, AnotherFileSystemInTheSamePlaceIsAnotherSpace) {
    const std::string image = MakeImage("ext4", "a.img", {"-U", kUuidA});
    const std::string volume = MountImage(image, "volume");
    EXPECT_EQ(Spaces(), volume + " " + kUuidA + " ");
    ASSERT_EQ(umount(volume.c_str()), 0);
    RunProgram({"mkfs.ext4", "-q", "-F", "-U", kUuidB, image});
    RunProgram({"mount", "-o", "loop", image, volume});
    EXPECT_EQ(Spaces(), volume + " " + kUuidB + " ");
}

TEST_F(MemoryTest, ADirectoryThatIsRenamedAboveAMountPointIsSeen) {
    MakeDirectory("above");
    const std::string volume =
        MountImage(MakeImage("ext4", "a.img", {"-U", kUuidA}), "above/volume");
    EXPECT_EQ(Spaces(), volume + " " + kUuidA + " ");
    ASSERT_EQ(rename("/mnt/above", "/mnt/elsewhere"), 0);
    WaitForUntold();
    EXPECT_EQ(Spaces(), std::string("/mnt/elsewhere/volume ") + kUuidA + " ");
}

TEST_F(MemoryTest, ACacheThatComesOrGoesOrDiesIsSeenByTheNextCall) {
    const std::string image = MakeImage("ext4", "a.img", {"-U", kUuidA});
    const std::string volume = MountImage(image, "volume");
    for (int round = 0; round < kLooksBeforeMemory; ++round) {
        EXPECT_EQ(SsdOf(kUuidA) + StatOf("/ssd1") + DeviceOf("/ssd1"), "= 0= 0= 0");
        {
            const LivingEntry cache("vol1", EntryText("/ssd1", image));
            EXPECT_EQ(SsdOf(kUuidA) + StatOf("/ssd1") + DeviceOf("/ssd1"), "/ssd11 1" + image);
        }  // only the lock goes, as when it is killed
        EXPECT_EQ(SsdOf(kUuidA) + StatOf("/ssd1") + DeviceOf("/ssd1"), "= 0= 0= 0");
        {
            // The leftover's lock is kept again before anything is written.
            const UniqueFd lock(open(LockPath("vol1").c_str(), O_RDWR | O_CLOEXEC));
            ASSERT_EQ(flock(lock.Get(), LOCK_EX | LOCK_NB), 0);
            EXPECT_EQ(SsdOf(kUuidA) + StatOf("/ssd1") + DeviceOf("/ssd1"), "/ssd11 1" + image);
            ASSERT_EQ(unlink(EntryPath("vol1").c_str()), 0);
            EXPECT_EQ(SsdOf(kUuidA) + StatOf("/ssd1") + DeviceOf("/ssd1"), "= 0= 0= 0");
        }
    }
    for (const std::string& line : LogLines()) {
        EXPECT_EQ(line.find("libquorstoragecore: volume / "), 0U) << line << ": not the machine's";
    }
}

TEST_F(MemoryTest, ACacheThatChangesItsStateOrDeviceIsSeenByTheNextCall) {
    const std::string image = MakeImage("ext4", "a.img", {"-U", kUuidA});
    const std::string volume = MountImage(image, "volume");
    LivingEntry cache("vol1", EntryText("/ssd1", image));
    for (int state = 1; state < kLooksBeforeMemory; ++state) {
        cache.Replace(EntryText("/ssd1", image, state, state % 2));
        EXPECT_EQ(StatOf("/ssd1"), std::to_string(state) + " " + std::to_string(state % 2));
        WriteFile(EntryPath("vol1"), EntryText("/ssd1", image, state, 7));  // in its place
        EXPECT_EQ(StatOf("/ssd1"), std::to_string(state) + " 7");
    }
    EXPECT_EQ(SsdOf(kUuidA) + DeviceOf("/ssd1"), "/ssd1" + image);
    cache.Replace(EntryText("/ssd2", image));
    EXPECT_EQ(SsdOf(kUuidA) + DeviceOf("/ssd2") + DeviceOf("/ssd1"), "/ssd2" + image + "= 0");
    cache.Replace(EntryText("/ssd2", "/dev/null"));
    EXPECT_EQ(SsdOf(kUuidA) + DeviceOf("/ssd2"), "= 0/dev/null");
}

TEST_F(MemoryTest, AnotherRegistryInTheSamePlaceIsSeen) {
    const LivingEntry cache("vol1", EntryText("/ssd1", "/dev1"));
    EXPECT_EQ(StatOf("/ssd1"), "1 1");
    ASSERT_EQ(mount("empty", kRegistry, "tmpfs", 0, nullptr), 0);
    EXPECT_EQ(StatOf("/ssd1"), "= 0");
    ASSERT_EQ(umount(kRegistry), 0);
    EXPECT_EQ(StatOf("/ssd1"), "1 1");
    ASSERT_EQ(rename(kRegistry, "/mnt/former"), 0);
    EXPECT_EQ(StatOf("/ssd1"), "= 0");
    ASSERT_EQ(rename("/mnt/former", kRegistry), 0);
    EXPECT_EQ(StatOf("/ssd1"), "1 1");
    MakeDirectory("above");
    ASSERT_EQ(mkdir("/mnt/above/registry", 0700), 0);
    setenv("QUORSOFTCACHE_REGISTRY", "/mnt/above/registry", 1);
    EXPECT_EQ(StatOf("/ssd1"), "= 0");
    ASSERT_EQ(rename("/mnt/above", "/mnt/below"), 0);  // the directory itself is told of nothing
    ASSERT_EQ(mkdir("/mnt/above", 0700), 0);
    ASSERT_EQ(rename(kRegistry, "/mnt/above/registry"), 0);
    WaitForUntold();
    EXPECT_EQ(StatOf("/ssd1"), "1 1");
}

// Parent and child share descriptors, and must not take the news from each other.
TEST_F(MemoryTest, AForkedChildRemembersForItself) {
    const std::string image = MakeImage("ext4", "a.img", {"-U", kUuidA});
    MakeDirectory("volume");
    LivingEntry cache("vol1", EntryText("/ssd1", image));
    EXPECT_EQ(StatOf("/ssd1") + " " + Spaces(), "1 1 ");
    RunProgram({"mount", "-o", "loop", image, "/mnt/volume"});
    cache.Replace(EntryText("/ssd1", image, 2, 1));
    const std::string now = std::string("2 1 /mnt/volume ") + kUuidA + " ";
    const pid_t child = fork();
    if (child == 0) {
        _exit(StatOf("/ssd1") + " " + Spaces() == now ? 0 : 1);
    }
    int status = 0;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(StatOf("/ssd1") + " " + Spaces(), now);
}

class NameMemoryTest : public MappingTest {
  protected:
    void SetUp() override {
        MappingTest::SetUp();
        if (IsSkipped()) {
            return;
        }
        UseVolume("ext4");
        MakeDirectory("volume/sub");
        for (int i = 0; i < 300; ++i) {
            WriteFile("/mnt/volume/sub/" + std::to_string(i), "x");
        }
    }

    // Asks often enough for the answers to come from memory, then for this file.
    std::string Find(uint64_t inode) {
        for (int i = 0; i < kLooksBeforeMemory; ++i) {
            EXPECT_EQ(FindOnce(InodeOf("/mnt/volume/sub/7")), "/mnt/volume/sub/7");
        }
        return FindOnce(inode);
    }

    std::string FindOnce(uint64_t inode, const std::string& directory = "/mnt/volume/sub") {
        FileMappingTable table;
        const int result =
            mapper_->GetMappingTable(directory, static_cast<unsigned long>(inode), 0, table);
        return result < 0 ? "none" : table.path;
    }
};

TEST_F(NameMemoryTest, EveryFileOfADirectoryIsFound) {
    Find(0);
    for (int i = 0; i < 300; ++i) {
        const std::string path = "/mnt/volume/sub/" + std::to_string(i);
        EXPECT_EQ(FindOnce(InodeOf(path)), path);
    }
    EXPECT_EQ(FindOnce(InodeOf("/mnt/volume/sub")), "none");  // "."
}

TEST_F(NameMemoryTest, NamesThatComeAndGoAreSeenByTheNextCall) {
    const std::string old = "/mnt/volume/sub/8";
    const uint64_t inode = InodeOf(old);
    EXPECT_EQ(Find(inode), old);
    ASSERT_EQ(rename(old.c_str(), "/mnt/volume/sub/other"), 0);
    EXPECT_EQ(FindOnce(inode), "/mnt/volume/sub/other");
    WriteFile(old, "another file");
    EXPECT_EQ(Find(inode), "/mnt/volume/sub/other");
    EXPECT_EQ(FindOnce(InodeOf(old)), old);
    ASSERT_EQ(rename("/mnt/volume/sub/other", "/mnt/volume/away"), 0);
    EXPECT_EQ(FindOnce(inode), "none");
    EXPECT_EQ(Find(inode), "none");
    ASSERT_EQ(link("/mnt/volume/away", "/mnt/volume/sub/back"), 0);
    EXPECT_EQ(FindOnce(inode), "/mnt/volume/sub/back");
    ASSERT_EQ(unlink("/mnt/volume/sub/back"), 0);
    EXPECT_EQ(FindOnce(inode), "none");
}

TEST_F(NameMemoryTest, AnotherDirectoryInTheSamePlaceIsRead) {
    const uint64_t inode = InodeOf("/mnt/volume/sub/9");
    EXPECT_EQ(Find(inode), "/mnt/volume/sub/9");
    ASSERT_EQ(rename("/mnt/volume/sub", "/mnt/volume/former"), 0);
    MakeDirectory("volume/sub");
    EXPECT_EQ(FindOnce(inode), "none");
    EXPECT_EQ(FindOnce(inode, "/mnt/volume/former"), "/mnt/volume/former/9");
    ASSERT_EQ(rename("/mnt/volume/former/9", "/mnt/volume/sub/9"), 0);
    EXPECT_EQ(FindOnce(inode), "/mnt/volume/sub/9");
    EXPECT_EQ(FindOnce(inode, "/mnt/volume/former"), "none");
}

}  // namespace
