// SPDX-License-Identifier: MIT
// Answers that cannot be had for the moment: no descriptors, an interrupted call, a lock that
// cannot be asked. None of them is a no, after which the service would forget what is pinned.
#include <errno.h>
#include <linux/loop.h>
#include <string.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include <memory>

#include "platform/quordataverifier.h"
#include "tests/unit/platform/registry_fixture.h"

namespace {

constexpr char kUuid[] = "0a0a0a0a-1111-4222-8333-0123456789ab";
constexpr int kMostWaits = 100;  // of one question

// While it lives this process can open nothing: EMFILE.
class NoDescriptors {
  public:
    NoDescriptors() {
        getrlimit(RLIMIT_NOFILE, &before_);
        const rlimit none = {0, before_.rlim_max};
        EXPECT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
    }
    ~NoDescriptors() { EXPECT_EQ(setrlimit(RLIMIT_NOFILE, &before_), 0); }
    NoDescriptors(const NoDescriptors&) = delete;
    NoDescriptors& operator=(const NoDescriptors&) = delete;

  private:
    rlimit before_{};
};

class WantTest : public RegistryTest {
  protected:
    void SetUp() override {
        RegistryTest::SetUp();
        if (!IsSkipped()) {
            SetSleepHook([this] { ++waits_; });
        }
    }

    std::string MountVolume() {
        image_ = MakeImage("ext4", "a.img", {"-U", kUuid});
        return MountImage(image_, "volume");
    }

    // Ends what is remembered of the mounts and, by a change of the registry, of the caches.
    static void SomethingChanges() {
        EXPECT_EQ(mount("nothing", kRegistry, "tmpfs", 0, nullptr), 0);
        EXPECT_EQ(umount(kRegistry), 0);
        WriteFile(kRegistry + std::string("/something"), "");
    }

    // The spaces' mount points and UUIDs in the scratch directory, or "failed".
    static std::string Spaces() {
        SpaceInfo* list = nullptr;
        if (QUORSpaceInfoEnum(1, &list) != 0) {
            return "failed";
        }
        std::string spaces;
        for (const SpaceInfo* space = list; space != nullptr; space = space->next) {
            const std::unique_ptr<char, decltype(&free)> uuid(QUORSpaceUUIDGet(space), free);
            if (strncmp(space->referencePath, "/mnt/", 5) == 0) {
                spaces += space->referencePath + (" " + std::string(uuid.get()) + "\n");
            }
        }
        QUORSpaceInfoFree(list);
        return spaces;
    }

    static std::string SsdOf(const char* uuid) {
        FlashCacheConfigQuery query = {};
        query.selector = FLASH_CACHE_CONFIG_BY_SPACE_UUID;
        query.spaceUuid = uuid;
        FlashCacheConfig* config = nullptr;
        const int result = QUORFlashCacheConfigTmpGet(&query, &config);
        if (config == nullptr) {
            return "= " + std::to_string(result);
        }
        std::string ssd = config->ssdPath;
        QUORFlashCacheConfigFree(config);
        return ssd;
    }

    // The only line sent since the last call; "" when there is none.
    static std::string OnlyLine() {
        const std::vector<std::string> lines = LogLines();
        ClearLog();
        return lines.size() == 1 ? lines[0]
               : lines.empty()   ? ""
                                 : std::to_string(lines.size()) + " lines: " + lines[0];
    }

    std::string image_;
    int waits_ = 0;
};

TEST_F(WantTest, ACacheWhoseLockCannotBeAskedCountsAsLiving) {
    const LivingEntry cache("vol1", EntryText("/ssd1", "/dev1"));
    SetFlockHook([] { return ENOLCK; });
    EXPECT_EQ(StatOf("/ssd1"), "1 1");
    EXPECT_EQ(StatOf("/ssd1"), "1 1");
    EXPECT_EQ(OnlyLine(),
              "libquorstoragecore: cache registry lock /mnt/registry/vol1.lock cannot be asked, "
              "the cache counts as living: No locks available");
    EXPECT_EQ(waits_, 0);
}

TEST_F(WantTest, ALockIsAskedAgainAfterAnInterruption) {
    { const LivingEntry cache("vol1", EntryText("/ssd1", "/dev1")); }
    SetFlockHook([this] { return waits_ < 3 ? EINTR : 0; });
    EXPECT_EQ(StatOf("/ssd1"), "= 0") << "a leftover";
    EXPECT_EQ(waits_, 3);
    EXPECT_EQ(OnlyLine(), "");
}

TEST_F(WantTest, WhoMayNotOpenTheLockBelievesTheEntry) {
    const LivingEntry cache("vol1", EntryText("/ssd1", "/dev1"));
    const pid_t child = fork();
    if (child == 0) {
        const bool believes = setuid(65534) == 0 && StatOf("/ssd1") == "1 1" &&
                              LogLines().size() == 1 &&
                              LogLines()[0].find(": Permission denied") != std::string::npos;
        _exit(believes ? 0 : 1);
    }
    int status = 0;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
}

TEST_F(WantTest, DescriptorsAreWaitedFor) {
    const std::string volume = MountVolume();
    const LivingEntry cache("vol1", EntryText("/ssd1", image_));
    Spaces();
    ClearLog();
    SomethingChanges();
    auto none = std::make_unique<NoDescriptors>();
    SetSleepHook([&] {
        if (++waits_ == 5) {
            none.reset();
        }
    });
    const auto lack = [&] {
        EXPECT_EQ(waits_, 5);
        waits_ = 0;
        SomethingChanges();
        none = std::make_unique<NoDescriptors>();
    };
    EXPECT_EQ(StatOf("/ssd1"), "1 1");
    lack();
    EXPECT_EQ(Spaces(), volume + " " + kUuid + "\n");
    lack();
    EXPECT_EQ(SsdOf(kUuid), "/ssd1");
    lack();
    std::string device;
    EXPECT_EQ(FileSystemDevice::GetDevicePath(volume, device, false), 0);

    WriteFile(volume + "/file", "x");
    const std::unique_ptr<FileSystemDevice> mapper(FileSystemDeviceCreater::Create(device));
    FileMappingTable table;
    lack();
    EXPECT_EQ(mapper->GetMappingTable(volume, InodeOf(volume + "/file"), 0, table), 0);
    EXPECT_EQ(waits_, 5);
    EXPECT_EQ(OnlyLine(), "");
}

TEST_F(WantTest, WhatWasReadBeforeCountsWhileNothingCanBeOpened) {
    const LivingEntry cache("vol1", EntryText("/ssd1", "/dev1", 2, 1));
    ASSERT_EQ(StatOf("/ssd1"), "2 1");
    SomethingChanges();
    {
        const NoDescriptors none;
        EXPECT_EQ(StatOf("/ssd1"), "2 1");
        EXPECT_EQ(waits_, kMostWaits);
        EXPECT_EQ(StatOf("/ssd2"), "= -1") << "there may be such a cache";
    }
    EXPECT_EQ(LogLines(),
              (std::vector<std::string>{
                  "libquorstoragecore: cache registry /mnt/registry cannot be read: Too many open "
                  "files",
                  "libquorstoragecore: cache registry file /mnt/registry/vol1.json counts as it "
                  "was read before: Too many open files",
                  "libquorstoragecore: cache registry lock /mnt/registry/vol1.lock cannot be "
                  "asked, the cache counts as living: Too many open files"}));
    EXPECT_EQ(StatOf("/ssd2"), "= 0");
}

TEST_F(WantTest, WhatWasNeverReadIsAFailureWhileNothingCanBeOpened) {
    const LivingEntry cache("vol1", EntryText("/ssd1", "/dev1"));
    const NoDescriptors none;
    EXPECT_EQ(StatOf("/ssd1"), "= -1");
    EXPECT_EQ(SsdOf(kUuid), "= -1");
    EXPECT_EQ(OnlyLine(),
              "libquorstoragecore: cache registry /mnt/registry cannot be read: Too "
              "many open files");
    EXPECT_EQ(Spaces(), "failed");
    EXPECT_EQ(OnlyLine(),
              "libquorstoragecore: /proc/thread-self/mountinfo cannot be read: Too "
              "many open files");
}

TEST_F(WantTest, ALoopDeviceThatCannotBeAskedIsAFailure) {
    MountVolume();
    const LivingEntry cache("vol1", EntryText("/ssd1", image_));
    ASSERT_EQ(SsdOf(kUuid), "/ssd1");
    ClearLog();
    SomethingChanges();
    SetIoctlHook([](int fd, unsigned long request, void* argument) {
        if (request == LOOP_GET_STATUS64) {
            errno = EIO;
            return -1;
        }
        return RealIoctl(fd, request, argument);
    });
    EXPECT_EQ(SsdOf(kUuid), "= -1");
    EXPECT_EQ(OnlyLine(), "libquorstoragecore: what backs loop device " + SourceOf("/mnt/volume") +
                              " cannot be read: Input/output error");
}

TEST_F(WantTest, AMountedVolumeKeepsItsUuidWhileItsDeviceCannotBeRead) {
    const std::string volume = MountVolume();
    const std::string device = SourceOf(volume);
    ASSERT_EQ(Spaces(), volume + " " + kUuid + "\n");
    ClearLog();
    SomethingChanges();
    SetOpenHook([&](const std::string& path) { return path == device ? EIO : 0; });
    EXPECT_EQ(Spaces(), volume + " " + kUuid + "\n");
    EXPECT_EQ(Spaces(), volume + " " + kUuid + "\n");
    EXPECT_EQ(OnlyLine(), "libquorstoragecore: volume " + volume +
                              " keeps the UUID that it had: its UUID cannot be read from " +
                              device + ": Input/output error");
    // Another mount is another volume.
    MakeDirectory("again");
    ASSERT_EQ(mount(volume.c_str(), "/mnt/again", nullptr, MS_BIND, nullptr), 0);
    ASSERT_EQ(umount2(volume.c_str(), MNT_DETACH), 0);
    EXPECT_EQ(Spaces(), "");
    EXPECT_EQ(SsdOf(kUuid), "= 0");
    const LivingEntry cache("vol1", EntryText("/ssd1", "/"));
    EXPECT_EQ(SsdOf(kUuid), "= -1") << "it may be the one that was left out";
}

}  // namespace
