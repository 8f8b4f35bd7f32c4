// SPDX-License-Identifier: MIT
// The program as it runs: a real process, a real mount, real loop devices and file systems.
#include <json/json.h>
#include <linux/falloc.h>
#include <linux/fs.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/wait.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <memory>
#include <numeric>
#include <thread>

#include "platform/quorflashcache.h"
#include "softcache/core/block_cache.h"
#include "tests/unit/softcache/service_process.h"

namespace softcache {
namespace {

constexpr uint64_t kMiB = 1 << 20;

// O_DIRECT wants it.
struct AlignedDelete {
    void operator()(uint8_t* bytes) const { free(bytes); }
};
using AlignedBytes = std::unique_ptr<uint8_t, AlignedDelete>;

AlignedBytes Aligned(size_t size) {
    void* bytes = nullptr;
    EXPECT_EQ(posix_memalign(&bytes, 4096, size), 0);
    return AlignedBytes(static_cast<uint8_t*>(bytes));
}

class ServiceTest : public ::testing::Test {
  protected:
    static void SetUpTestSuite() {
        if (WhyNoMounts().empty()) {
            EnterPrivateMounts();
        }
    }

    void SetUp() override {
        const std::string why = WhyNoMounts();
        if (!why.empty()) {
            GTEST_SKIP() << why;
        }
        std::filesystem::create_directory(mount_);
        std::filesystem::create_directory(volume_);
        setenv("QUORSOFTCACHE_REGISTRY", (dir_ / "reg").c_str(), 1);
    }

    // Whatever the story was, a cache that still serves has nothing to complain about.
    void TearDown() override {
        if (service_.Pid() > 0) {
            const Outcome outcome = service_.End(SIGTERM);
            EXPECT_EQ(outcome.status, 0);
            EXPECT_EQ(outcome.output, "quorsoftcache: vol1 ready\n");
        }
        RunShell("umount -l " + mount_);
    }

    // A sparse backing of that size.
    void MakeBacking(uint64_t size) {
        const OwnedFd fd = NewFile(backing_, {});
        ASSERT_EQ(ftruncate(fd.get(), static_cast<off_t>(size)), 0);
    }

    std::vector<std::string> Arguments(const std::string& ssdSize) {
        return {"--name",      "vol1",  "--backing", backing_, "--ssd",      ssd_,
                "--ssd-size",  ssdSize, "--mount",   mount_,   "--distrust", dir_ / "distrust",
                "--test-doors"};
    }

    void Serve(const std::string& ssdSize = "1M") {
        ASSERT_TRUE(service_.Start(Arguments(ssdSize))) << service_.End(SIGKILL).output;
    }

    // Serves a device of random bytes.
    void ServeBytes(size_t size) {
        content_ = RandomBytes(size, 1);
        NewFile(backing_, content_);
        Serve();
    }

    OwnedFd Device(int flags = O_RDWR) { return OpenFile(mount_ + "/device", flags); }

    int Control(const std::string& text) {
        const OwnedFd control = OpenFile(mount_ + "/control", O_WRONLY);
        return write(control.get(), text.data(), text.size()) < 0 ? -errno : 0;
    }

    Json::Value Parse(const std::string& text) {
        Json::Value value;
        std::istringstream stream(text);
        EXPECT_TRUE(Json::Reader().parse(stream, value)) << text;
        return value;
    }

    Json::Value Stats() { return Parse(FileText(mount_ + "/stats.json")); }

    int SetPins(const Bytes& bitmap) {
        const struct {
            const void* data;
            uint32_t size;
        } descriptor = {bitmap.data(), static_cast<uint32_t>(bitmap.size())};
        return ioctl(Device().get(), FLASH_CACHE_SET_PIN_BITMAP, &descriptor) == 0 ? 0 : -errno;
    }

    // Reads whole units past every other cache.
    void ReadUnits(const std::vector<uint32_t>& units) {
        const OwnedFd device = Device(O_RDONLY | O_DIRECT);
        const AlignedBytes buffer = Aligned(kUnitSize);
        for (const uint32_t unit : units) {
            ASSERT_EQ(ReadFull(device.get(), buffer.get(), kUnitSize, uint64_t{unit} * kUnitSize),
                      0);
        }
    }

    // {hits, misses, bypasses} since the last reset.
    std::vector<uint64_t> Counted() {
        const Json::Value stats = Stats();
        return {stats["hits"].asUInt64(), stats["misses"].asUInt64(), stats["bypasses"].asUInt64()};
    }

    TempDir dir_;
    const std::string backing_ = dir_ / "backing";
    const std::string ssd_ = dir_ / "ssd";
    const std::string mount_ = dir_ / "mnt";
    const std::string volume_ = dir_ / "vol";
    Bytes content_;
    ServiceProcess service_;
};

using Counts = std::vector<uint64_t>;

TEST_F(ServiceTest, ServesItsFilesAndEndsInOrder) {
    MakeBacking(5 * kMiB + 512);
    Serve();
    const struct {
        const char* name;
        mode_t mode;
        off_t size;
    } rows[] = {{"device", 0600, 5 * kMiB + 512},
                {"stats.json", 0444, 0},
                {"control", 0200, 0},
                {"resident", 0444, 11},
                {"pinned", 0444, 0}};
    for (const auto& row : rows) {
        struct stat status;
        ASSERT_EQ(stat((mount_ + "/" + row.name).c_str(), &status), 0) << row.name;
        EXPECT_EQ(status.st_mode, S_IFREG | row.mode) << row.name;
        EXPECT_EQ(status.st_size, row.size) << row.name;
    }
    EXPECT_EQ(RunShell("ls " + mount_).output, "control\ndevice\npinned\nresident\nstats.json\n");

    const std::string path = dir_ / "reg/vol1.json";
    const Json::Value entry = Parse(FileText(path));
    EXPECT_EQ(entry["pid"], service_.Pid());
    EXPECT_EQ(entry["device"], mount_ + "/device");
    EXPECT_EQ(entry["ssd"], ssd_);
    EXPECT_EQ(entry["state"], 1);
    EXPECT_EQ(entry["supportPin"], 1);
    EXPECT_NE(flock(OpenFile(dir_ / "reg/vol1.lock", O_RDONLY).get(), LOCK_SH | LOCK_NB), 0);

    const Outcome outcome = service_.End(SIGTERM);
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.output, "quorsoftcache: vol1 ready\n");
    EXPECT_FALSE(std::filesystem::exists(path));
    EXPECT_TRUE(std::filesystem::is_empty(mount_)) << "unmounted";
}

TEST_F(ServiceTest, EndsOnInterruptAndWhenTheMountIsTakenAway) {
    MakeBacking(kMiB);
    Serve();
    EXPECT_EQ(service_.End(SIGINT).status, 0);
    Serve();
    MustRun("umount " + mount_);
    EXPECT_EQ(service_.End(0).status, 0);
    EXPECT_FALSE(std::filesystem::exists(dir_ / "reg/vol1.json"));
}

TEST_F(ServiceTest, EndsThoughTheDeviceIsOpenAndAReadWaits) {
    ServeBytes(kMiB);
    ASSERT_EQ(Control("delay-read 3600000"), 0);
    const OwnedFd device = Device();
    const pid_t reader = fork();
    if (reader == 0) {
        char byte;
        _exit(pread(device.get(), &byte, 1, 0) == 1 ? 0 : 1);
    }
    usleep(50000);
    EXPECT_EQ(service_.End(SIGTERM).status, 0);
    int status = 0;
    waitpid(reader, &status, 0);
    EXPECT_TRUE(WIFEXITED(status)) << "its read came back";
    char byte;
    EXPECT_EQ(pread(device.get(), &byte, 1, 0), -1) << "nobody answers any more";
    EXPECT_TRUE(std::filesystem::is_empty(mount_));
}

TEST_F(ServiceTest, DirectAndBufferedAccessSeeTheBackingsBytes) {
    ServeBytes(kMiB + 1024);
    const OwnedFd device = Device(O_RDWR | O_DIRECT);
    const AlignedBytes buffer = Aligned(kMiB);
    ASSERT_EQ(ReadFull(device.get(), buffer.get(), kMiB, 0), 0);
    EXPECT_EQ(memcmp(buffer.get(), content_.data(), kMiB), 0);
    EXPECT_EQ(Counted(), (Counts{0, 16, 0}));
    ASSERT_EQ(ReadFull(device.get(), buffer.get(), kMiB, 0), 0);
    EXPECT_EQ(Counted(), (Counts{16, 16, 0})) << "every read reaches the cache";
    EXPECT_EQ(FileBytes(mount_ + "/device"), content_);
    EXPECT_EQ(Counted()[1], 17u);
    EXPECT_GE(Counted()[0], 32u) << "without O_DIRECT, too";
    char byte;
    EXPECT_EQ(pread(device.get(), &byte, 1, kMiB + 1024), 0) << "the end";

    const Bytes bytes = RandomBytes(70000, 2);
    for (const int flags : {0, O_SYNC, O_DSYNC}) {
        ASSERT_EQ(WriteFull(Device(O_RDWR | flags).get(), bytes.data(), bytes.size(), 4095), 0);
    }
    std::copy(bytes.begin(), bytes.end(), content_.begin() + 4095);
    EXPECT_EQ(FileBytes(backing_), content_);
    EXPECT_EQ(fsync(device.get()), 0);
    EXPECT_EQ(fdatasync(device.get()), 0);
}

TEST_F(ServiceTest, TheDeviceKeepsItsSize) {
    ServeBytes(kMiB);
    const OwnedFd device = Device();
    EXPECT_EQ(ftruncate(device.get(), 10), -1);
    EXPECT_EQ(errno, EPERM);
    EXPECT_FALSE(Device(O_RDWR | O_TRUNC).valid());
    EXPECT_EQ(errno, EPERM);
    EXPECT_EQ(pwrite(device.get(), "x", 1, kMiB), -1);
    EXPECT_EQ(errno, ENOSPC);
    EXPECT_EQ(pwrite(device.get(), "xyz", 3, kMiB - 2), 2) << "as far as it goes";
    EXPECT_EQ(fallocate(device.get(), 0, 0, 2 * kMiB), -1);
    EXPECT_EQ(errno, ENOSPC);
    EXPECT_EQ(chmod((mount_ + "/device").c_str(), 0666), -1);
    EXPECT_EQ(std::filesystem::file_size(backing_), kMiB);
}

TEST_F(ServiceTest, FilesAreServedTheWayTheirModesSay) {
    ServeBytes(kMiB);
    for (const char* name : {"stats.json", "resident", "pinned"}) {
        EXPECT_FALSE(OpenFile(mount_ + "/" + name, O_WRONLY).valid()) << name;
    }
    EXPECT_FALSE(OpenFile(mount_ + "/control", O_RDONLY).valid());
    EXPECT_FALSE(OpenFile(mount_ + "/new", O_RDWR | O_CREAT).valid());
    EXPECT_EQ(unlink((mount_ + "/device").c_str()), -1);
    EXPECT_EQ(ioctl(OpenFile(mount_ + "/stats.json", O_RDONLY).get(), FLASH_CACHE_UNPIN_RANGES, 0),
              -1);
    EXPECT_EQ(errno, ENOTTY);
    MustRun("echo clear-faults > " + mount_ + "/control");
    EXPECT_EQ(RunShell("echo clear > " + mount_ + "/control").status, 1);
    EXPECT_EQ(Control("clear"), -EINVAL);
}

TEST_F(ServiceTest, HolesAndZerosReachTheBackingAndTheCache) {
    ServeBytes(kMiB);
    EXPECT_EQ(FileBytes(mount_ + "/device"), content_);
    const OwnedFd device = Device();
    const int punch = FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE;
    ASSERT_EQ(fallocate(device.get(), punch, 4096, 300000), 0);
    std::fill_n(content_.begin() + 4096, 300000, uint8_t{0});
    ASSERT_EQ(fallocate(device.get(), punch, kMiB - 4096, kMiB), 0) << "cut off at the end";
    std::fill_n(content_.end() - 4096, 4096, uint8_t{0});
    EXPECT_EQ(FileBytes(backing_), content_);
    EXPECT_EQ(FileBytes(mount_ + "/device"), content_);
    EXPECT_EQ(fallocate(device.get(), FALLOC_FL_COLLAPSE_RANGE, 0, 4096), -1);
    EXPECT_EQ(errno, EOPNOTSUPP);
}

TEST_F(ServiceTest, AnswersTheRequestsOfTheDriver) {
    ServeBytes(4 * kMiB);  // 64 units, 8 pin bytes
    const OwnedFd device = Device();
    uint64_t size = UINT64_MAX;
    EXPECT_EQ(ioctl(device.get(), 0x80081272, &size), 0);
    EXPECT_EQ(size, 4 * kMiB);
    size = UINT64_MAX;
    EXPECT_EQ(ioctl(device.get(), 0x80041272, &size), 0);
    EXPECT_EQ(size, 4 * kMiB);
    EXPECT_EQ(ioctl(device.get(), 0x80041272, 8), -1);
    EXPECT_EQ(errno, EFAULT);
    EXPECT_EQ(ioctl(device.get(), BLKROGET, &size), -1);
    EXPECT_EQ(errno, ENOTTY);

    const Bytes bitmap = Bitmap(8, {0, 63});
    EXPECT_EQ(SetPins(bitmap), 0);
    EXPECT_EQ(FileBytes(mount_ + "/pinned"), bitmap);
    EXPECT_EQ(SetPins(Bytes(9, 0)), -EINVAL);
    EXPECT_EQ(ioctl(device.get(), FLASH_CACHE_SET_PIN_BITMAP, nullptr), -1);
    EXPECT_EQ(errno, EFAULT);
    const UnpinRange batch[kUnpinBatchEntries] = {{1000, 8}, {5000, 300}};
    EXPECT_EQ(ioctl(device.get(), FLASH_CACHE_UNPIN_RANGES, batch), 0);

    ReadUnits({0, 1});
    const Json::Value stats = Stats();
    EXPECT_EQ(stats["pinnedUnits"], 2);
    EXPECT_EQ(stats["pinnedUnitsResident"], 1);
    EXPECT_EQ(stats["releasedRanges"], Parse("[[1000,8],[5000,300]]"));
    EXPECT_EQ(stats["controlRequests"], Parse(R"({"bitmap":1,"unpin":1,"refused":2})"));
    EXPECT_EQ(FileBytes(mount_ + "/resident"), Bitmap(8, {0, 1}));
}

#ifdef CALLER32
TEST_F(ServiceTest, A32BitCallerIsUnderstoodByA64BitCache) {
    ServeBytes(4 * kMiB);
    const Outcome outcome = RunShell(std::string(CALLER32) + " " + mount_ + "/device");
    EXPECT_EQ(outcome.status, 0) << outcome.output;
    EXPECT_EQ(outcome.output, "4194304\n");
    EXPECT_EQ(FileBytes(mount_ + "/pinned"), Bitmap(4, {1, 31}));
    const Json::Value stats = Stats();
    EXPECT_EQ(stats["lastBitmap"], Parse(R"({"bytes":4,"bitsSet":2})"));
    EXPECT_EQ(stats["releasedRanges"], Parse("[[4886718345,8],[128,256]]"));
    EXPECT_EQ(stats["controlRequests"], Parse(R"({"bitmap":1,"unpin":1,"refused":1})"));
}
#endif

TEST_F(ServiceTest, FaultsComeByTheControlFile) {
    ServeBytes(kMiB);
    ASSERT_EQ(Control("refuse-control 2\nfail-read 65536 512\n"), 0);
    EXPECT_EQ(SetPins({1}), 0);
    EXPECT_EQ(SetPins({2}), -EIO);
    EXPECT_EQ(FileBytes(mount_ + "/pinned"), Bytes{1});
    EXPECT_EQ(SetPins({4}), 0);
    const OwnedFd device = Device();
    char byte;
    EXPECT_EQ(pread(device.get(), &byte, 1, 65535), 1);
    EXPECT_EQ(pread(device.get(), &byte, 1, 65536), -1);
    EXPECT_EQ(errno, EIO);
    EXPECT_EQ(pread(device.get(), &byte, 1, 65536 + 512), 1);
    ASSERT_EQ(Control("clear-faults"), 0);
    EXPECT_EQ(pread(device.get(), &byte, 1, 65536), 1);

    ASSERT_EQ(Control("state 2\nsupport-pin 0\nreset-counters\n"), 0);
    const Json::Value entry = Parse(FileText(dir_ / "reg/vol1.json"));
    EXPECT_EQ(entry["state"], 2);
    EXPECT_EQ(entry["supportPin"], 0);
    EXPECT_EQ(Counted(), (Counts{0, 0, 0}));
}

// One cache as the slow SSD of another one: while a copy is being read its slot must not be taken,
// or the reader gets another unit's bytes.
TEST_F(ServiceTest, ACopyThatIsBeingReadIsNotReplaced) {
    ServeBytes(4 * kMiB);
    const Bytes content = RandomBytes(2 * kUnitSize, 5);
    const OwnedFd backing = NewFile(dir_ / "other", content);
    const OwnedFd slowSsd = Device();
    SsdStore store{Disk(slowSsd.get())};
    ASSERT_EQ(store.Format({"other", "", dir_ / "other"}, content.size(), 1, 0), 0);
    BlockCache cache(Disk(backing.get()), store, {});
    const auto readRight = [&](uint32_t unit) {
        Bytes got(kUnitSize);
        return cache.Read(got.data(), got.size(), uint64_t{unit} * kUnitSize) == 0 &&
               memcmp(got.data(), content.data() + unit * kUnitSize, kUnitSize) == 0;
    };
    EXPECT_TRUE(readRight(0));
    ASSERT_EQ(Control("delay-read 3600000"), 0);
    bool firstRight = false;
    std::thread reader([&] { firstRight = readRight(0); });
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    EXPECT_TRUE(readRight(1));
    ASSERT_EQ(Control("clear-faults"), 0);
    reader.join();
    EXPECT_TRUE(firstRight);
}

TEST_F(ServiceTest, ASlowBackingLeavesTheSsdItsSpeed) {
    ServeBytes(kMiB);
    ReadUnits({3});
    ASSERT_EQ(Control("delay-backing 3600000"), 0);
    ReadUnits({3});
    std::atomic<bool> done{false};
    std::thread reader([&] {
        ReadUnits({4});
        done = true;
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    EXPECT_FALSE(done) << "it is not in the cache";
    ReadUnits({3});
    ASSERT_EQ(Control("clear-faults"), 0);
    reader.join();
    EXPECT_EQ(Stats()["residentUnits"], 2);
}

TEST_F(ServiceTest, AnSsdThatIsCutIsNamedOnceAndTheDeviceKeepsItsBytes) {
    ServeBytes(kMiB);
    const std::vector<uint32_t> all = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15};
    ReadUnits(all);
    ASSERT_EQ(Stats()["residentUnits"], 16);
    ASSERT_EQ(truncate(ssd_.c_str(), 0), 0);
    ASSERT_EQ(truncate(ssd_.c_str(), kMiB), 0);
    for (int i = 0; i < 2; ++i) {
        Bytes got(kMiB);
        ASSERT_EQ(ReadFull(Device().get(), got.data(), got.size(), 0), 0);
        EXPECT_TRUE(got == content_);
    }
    EXPECT_EQ(Stats()["residentUnits"], 0);
    EXPECT_EQ(Stats()["retiredUnits"], 16);
    EXPECT_EQ(Stats()["ssdErrors"], 1);
    const Outcome outcome = service_.End(SIGTERM);
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.output,
              "quorsoftcache: vol1 ready\nquorsoftcache: ssd " + ssd_ +
                  " was cut or lost space: nothing is cached until the next start\n");
}

TEST_F(ServiceTest, WhatWasInTheCacheIsInItAgain) {
    ServeBytes(4 * kMiB);
    const Bytes bitmap = Bitmap(8, {5, 6});
    ASSERT_EQ(SetPins(bitmap), 0);
    ReadUnits({5, 6, 7});
    EXPECT_EQ(service_.End(SIGTERM).status, 0);
    Serve();
    EXPECT_EQ(FileBytes(mount_ + "/resident"), Bitmap(8, {5, 6, 7}));
    EXPECT_EQ(FileBytes(mount_ + "/pinned"), bitmap);
    ReadUnits({5, 6, 7});
    EXPECT_EQ(Counted(), (Counts{3, 0, 0}));
    EXPECT_EQ(FileBytes(mount_ + "/device"), content_);
}

TEST_F(ServiceTest, AKilledCacheKnowsWhatWasSettledAndTakesItsDeadMountAway) {
    ServeBytes(4 * kMiB);
    const Bytes bitmap = Bitmap(8, {5, 6});
    ASSERT_EQ(SetPins(bitmap), 0);
    ReadUnits({5, 6, 7});
    while (Stats()["unsettledUnits"] != 0) {
        usleep(50000);
    }
    EXPECT_EQ(service_.End(SIGKILL).status, 128 + SIGKILL);

    // Its mount is dead; a cache of another name leaves it alone.
    std::vector<std::string> arguments = Arguments("1M");
    arguments[1] = "vol2";
    ServiceProcess other;
    EXPECT_FALSE(other.Start(arguments));
    EXPECT_EQ(other.End(0).output, "quorsoftcache: mount point " + mount_ +
                                       ": holds a dead mount, not of this cache; take it away with "
                                       "umount\n");
    Serve();
    const Json::Value stats = Stats();
    EXPECT_EQ(stats["residentUnits"], 3);
    EXPECT_EQ(stats["pinnedUnits"], 2);
    EXPECT_EQ(FileBytes(mount_ + "/pinned"), bitmap);
    EXPECT_EQ(Parse(FileText(dir_ / "reg/vol1.json"))["pid"], service_.Pid());
    std::vector<uint32_t> flood(57);
    std::iota(flood.begin(), flood.end(), 7);
    ReadUnits({5, 6});
    ReadUnits(flood);
    EXPECT_EQ(Stats()["pinnedUnitsResident"], 2);
}

TEST_F(ServiceTest, AnSsdThatHoldsSomethingElseIsRefusedUntilItIsToBeOverwritten) {
    ServeBytes(kMiB);
    EXPECT_EQ(service_.End(SIGTERM).status, 0);
    const std::string other = dir_ / "other";
    NewFile(other, RandomBytes(kMiB, 2));
    NewFile(dir_ / "image", Bytes(16 * kMiB, 0));
    MustRun("mkfs.ext4 -q -U 01234567-89ab-cdef-0123-456789abcdef " + (dir_ / "image"));
    NewFile(dir_ / "data", Bytes(3 * kMiB, 7));
    const Bytes ssdBefore = FileBytes(ssd_);
    const struct {
        const char* option;
        std::string value;
        std::string line;
    } rows[] = {
        {"--ssd", dir_ / "image",
         "ssd " + (dir_ / "image") +
             ": holds an ext4 file system, UUID 01234567-89ab-cdef-0123-456789abcdef; --format "
             "overwrites it"},
        {"--ssd", dir_ / "data",
         "ssd " + (dir_ / "data") + ": holds data, and no cache; --format overwrites it"},
        {"--ssd", backing_, "ssd " + backing_ + ": is the backing, too"},
        {"--backing", other,
         "ssd " + ssd_ + ": holds the cache vol1 of " + backing_ + "; --format overwrites it"},
        {"--backing", ssd_, "ssd " + ssd_ + ": is the backing, too"},
    };
    for (const auto& row : rows) {
        std::vector<std::string> arguments = Arguments("1M");
        *(std::find(arguments.begin(), arguments.end(), row.option) + 1) = row.value;
        ServiceProcess service;
        EXPECT_FALSE(service.Start(arguments));
        const Outcome outcome = service.End(0);
        EXPECT_EQ(outcome.output, "quorsoftcache: " + row.line + "\n");
        EXPECT_EQ(outcome.status, 1);
    }
    std::vector<std::string> arguments = Arguments("1M");  // the two swapped
    std::swap(arguments[3], arguments[5]);
    ServiceProcess swapped;
    EXPECT_FALSE(swapped.Start(arguments));
    EXPECT_EQ(swapped.End(0).output, "quorsoftcache: backing " + ssd_ +
                                         ": is the SSD of the cache vol1 of " + backing_ + "\n");
    EXPECT_EQ(FileBytes(ssd_), ssdBefore);
    EXPECT_EQ(FileBytes(backing_), content_);
    EXPECT_EQ(FileBytes(dir_ / "data"), Bytes(3 * kMiB, 7));

    arguments = Arguments("1M");
    arguments[5] = dir_ / "image";
    arguments.emplace_back("--format");
    EXPECT_TRUE(service_.Start(arguments));
    EXPECT_EQ(Stats()["residentUnits"], 0);
    EXPECT_EQ(FileBytes(mount_ + "/device"), content_);
}

TEST_F(ServiceTest, InspectSaysWhatAnSsdHolds) {
    ServeBytes(4 * kMiB);
    ASSERT_EQ(SetPins(Bitmap(8, {5, 60})), 0);
    ReadUnits({5, 6, 7});
    EXPECT_EQ(service_.End(SIGTERM).status, 0);
    const Outcome outcome = RunShell(std::string(QUORSOFTCACHE) + " --inspect " + ssd_);
    EXPECT_EQ(outcome.status, 0);
    for (const std::string& line : std::vector<std::string>{
             "cache         vol1\n", "backing       " + backing_ + "\n", "UUID          none\n",
             "device        4194304 bytes\n", "stopped       in order\n",
             "pins          8 bytes, 2 units\n", "units at      2228224, 16 slots of 65536 bytes\n",
             "resident      3 units, 1 of them pinned\n"}) {
        EXPECT_NE(outcome.output.find(line), std::string::npos) << line << outcome.output;
    }
    EXPECT_EQ(RunShell(std::string(QUORSOFTCACHE) + " --inspect " + backing_).output,
              "quorsoftcache: ssd " + backing_ + ": holds no cache\n");
    EXPECT_EQ(RunShell(std::string(QUORSOFTCACHE) + " --inspect " + backing_).status, 1);
}

// Nothing can be written to the SSD while a copy on it grows old, not even that it is old.
TEST_F(ServiceTest, WhatAnSsdCouldNotBeToldIsNotBelievedAtTheNextStart) {
    ServeBytes(kMiB);
    ReadUnits({3, 4});
    ASSERT_EQ(service_.End(SIGTERM).status, 0);
    Serve();
    const rlimit nothing = {0, RLIM_INFINITY};
    const rlimit all = {RLIM_INFINITY, RLIM_INFINITY};
    ASSERT_EQ(prlimit(service_.Pid(), RLIMIT_FSIZE, &nothing, nullptr), 0);
    const Bytes fresh = RandomBytes(kUnitSize, 2);
    EXPECT_LT(pwrite(Device().get(), fresh.data(), fresh.size(), 3 * kUnitSize), 0);
    ASSERT_EQ(prlimit(service_.Pid(), RLIMIT_FSIZE, &all, nullptr), 0);
    ASSERT_EQ(WriteFull(Device().get(), fresh.data(), fresh.size(), 3 * kUnitSize), 0);
    const std::string ready = "quorsoftcache: vol1 ready\n";
    EXPECT_EQ(service_.End(SIGKILL).output, ready + "quorsoftcache: ssd " + ssd_ +
                                                " takes no more notes: File too large: nothing is "
                                                "cached until the next start\n");

    Serve();
    EXPECT_EQ(Stats()["residentUnits"], 0);
    Bytes read(kUnitSize);
    ASSERT_EQ(ReadFull(Device().get(), read.data(), read.size(), 3 * kUnitSize), 0);
    EXPECT_EQ(read, fresh);
    EXPECT_TRUE(std::filesystem::is_empty(dir_ / "distrust"));
    ReadUnits({4});
    EXPECT_EQ(service_.End(SIGTERM).output,
              "quorsoftcache: ssd " + ssd_ +
                  ": could not be written any more when it was used: the cache starts cold\n" +
                  ready);
    Serve();
    EXPECT_EQ(Stats()["residentUnits"], 2) << "and is believed again";
}

TEST_F(ServiceTest, OrdersToFailAreForTestsAlone) {
    MakeBacking(kMiB);
    std::vector<std::string> arguments = Arguments("1M");
    arguments.pop_back();
    ASSERT_TRUE(service_.Start(arguments));
    for (const char* door :
         {"refuse-control 1", "fail-read 0 1", "delay-read 1", "delay-backing 1", "clear-faults"}) {
        EXPECT_EQ(Control(door), -EPERM) << door;
    }
    EXPECT_EQ(Control("reset-counters\nstate 1\nsupport-pin 1\n"), 0);
}

TEST_F(ServiceTest, EveryBadStartIsOneLineThatNamesTheObject) {
    MakeBacking(kMiB);
    NewFile(dir_ / "file", {});
    const auto with = [&](const std::string& option, const std::string& value) {
        std::vector<std::string> arguments = Arguments("1M");
        *(std::find(arguments.begin(), arguments.end(), option) + 1) = value;
        return arguments;
    };
    const struct {
        std::vector<std::string> arguments;
        int status;
        std::string line;
    } rows[] = {
        {with("--backing", dir_ / "no"), 1,
         "backing " + (dir_ / "no") + ": No such file or directory"},
        {with("--ssd", dir_ / "no/ssd"), 1,
         "ssd " + (dir_ / "no/ssd") + ": No such file or directory"},
        {with("--ssd", backing_), 1, "ssd " + backing_ + ": is the backing, too"},
        {with("--ssd-size", "100000"), 1, "ssd size 100000: not a multiple of 65536 bytes"},
        {with("--ssd-size", "1K"), 1, "ssd size 1024: less than one unit of 65536 bytes"},
        {with("--ssd-size", "much"), 2, "--ssd-size: 'much' is no size"},
        {with("--mount", dir_ / "no"), 1,
         "mount point " + (dir_ / "no") + ": No such file or directory"},
        {with("--mount", dir_ / "file"), 1, "mount point " + (dir_ / "file") + ": Not a directory"},
        {with("--mount", "/proc"), 1, "mount point /proc: something is mounted there already"},
        {{"--name", "a"}, 2, "--backing is required"},
    };
    for (const auto& row : rows) {
        ServiceProcess service;
        EXPECT_FALSE(service.Start(row.arguments));
        const Outcome outcome = service.End(0);
        EXPECT_EQ(outcome.output, "quorsoftcache: " + row.line + "\n");
        EXPECT_EQ(outcome.status, row.status) << row.line;
    }
    EXPECT_TRUE(std::filesystem::is_empty(mount_));
}

TEST_F(ServiceTest, WhatIsServedIsNotServedTwice) {
    MakeBacking(kMiB);
    Serve();
    const auto second = [&](const std::vector<std::string>& arguments) {
        ServiceProcess service;
        EXPECT_FALSE(service.Start(arguments));
        return service.End(0).output;
    };
    std::vector<std::string> arguments = Arguments("1M");
    EXPECT_EQ(second(arguments),
              "quorsoftcache: name vol1 is already served: " + (dir_ / "reg/vol1.json") + "\n");
    arguments[1] = "vol2";
    EXPECT_EQ(second(arguments),
              "quorsoftcache: mount point " + mount_ + ": something is mounted there already\n");
    arguments[9] = volume_;
    EXPECT_EQ(second(arguments),
              "quorsoftcache: backing " + backing_ + ": in use by another cache\n");
    EXPECT_EQ(Stats()["deviceSize"], static_cast<int>(kMiB)) << "the first one goes on";
}

TEST_F(ServiceTest, OptionsReachTheRegistryEntry) {
    MakeBacking(kMiB);
    std::vector<std::string> arguments = Arguments("64K");
    for (const char* more : {"--no-pin", "--state", "3", "--registry"}) {
        arguments.push_back(more);
    }
    arguments.push_back(dir_ / "elsewhere");
    ASSERT_TRUE(service_.Start(arguments));
    const Json::Value entry = Parse(FileText(dir_ / "elsewhere/vol1.json"));
    EXPECT_EQ(entry["state"], 3);
    EXPECT_EQ(entry["supportPin"], 0);
    EXPECT_EQ(entry["cacheSize"], 65536);
    EXPECT_EQ(entry["deviceSize"], static_cast<int>(kMiB));

    ServiceProcess asked;
    EXPECT_FALSE(asked.Start({"--version"}));
    const Outcome version = asked.End(0);
    EXPECT_EQ(version.status, 0);
    EXPECT_EQ(version.output.find("quorsoftcache "), 0U) << version.output;
    EXPECT_FALSE(asked.Start({"--help"}));
    const Outcome help = asked.End(0);
    EXPECT_EQ(help.status, 0);
    EXPECT_NE(help.output.find("--ssd-size"), std::string::npos);
    std::istringstream lines(help.output);
    for (std::string line; std::getline(lines, line);) {
        EXPECT_LE(line.size(), 80U) << line;
    }
}

// A volume on the cached device, as the whole system uses it.
struct VolumeKind {
    const char* name;
    const char* make;
    bool directIo;
};

void PrintTo(const VolumeKind& kind, std::ostream* out) {
    *out << kind.name;
}

class VolumeTest : public ServiceTest, public ::testing::WithParamInterface<VolumeKind> {
  protected:
    LoopVolume MakeVolume() {
        return LoopVolume(mount_ + "/device", volume_, GetParam().make, GetParam().directIo);
    }

    static std::vector<uint32_t> UnitsOf(const std::vector<Extent>& extents) {
        std::vector<uint32_t> units;
        for (const Extent& extent : extents) {
            const auto last =
                static_cast<uint32_t>((extent.offset + extent.length - 1) / kUnitSize);
            for (auto unit = static_cast<uint32_t>(extent.offset / kUnitSize); unit <= last;
                 ++unit) {
                units.push_back(unit);
            }
        }
        std::sort(units.begin(), units.end());
        units.erase(std::unique(units.begin(), units.end()), units.end());
        return units;
    }
};

constexpr uint64_t kVolumeSize = 400 * kMiB;
constexpr uint32_t kVolumeUnits = kVolumeSize / kUnitSize;
constexpr uint32_t kVolumeSlots = 128;  // 8 MiB

TEST_P(VolumeTest, APinnedFileSurvivesAFloodAndIsReadFromTheCache) {
    MakeBacking(kVolumeSize);
    Serve("8M");
    const LoopVolume volume = MakeVolume();
    const std::string path = volume_ + "/pinned";
    const Bytes content = RandomBytes(4 * kMiB, 7);
    ASSERT_EQ(fsync(NewFile(path, content).get()), 0);
    const std::vector<uint32_t> wanted = UnitsOf(FileExtents(path));
    ASSERT_GE(wanted.size(), 64u);
    ASSERT_EQ(SetPins(Bitmap(kVolumeUnits / 8, wanted)), 0);
    ReadUnits(wanted);

    std::vector<uint32_t> flood;
    for (uint32_t unit = 0; flood.size() < 10 * kVolumeSlots; ++unit) {
        if (!std::binary_search(wanted.begin(), wanted.end(), unit)) {
            flood.push_back(unit);
        }
    }
    ReadUnits(flood);
    const std::vector<uint32_t> resident = BitsSet(FileBytes(mount_ + "/resident"));
    EXPECT_TRUE(std::includes(resident.begin(), resident.end(), wanted.begin(), wanted.end()));
    EXPECT_EQ(Stats()["pinnedUnitsResident"], static_cast<int>(wanted.size()));

    // Counts would not do: the file system writes when it likes, and others look at every device.
    const OwnedFd backing = OpenFile(backing_, O_WRONLY);
    for (const Extent& extent : FileExtents(path)) {
        const Bytes lost(extent.length, 0xEE);
        ASSERT_EQ(WriteFull(backing.get(), lost.data(), lost.size(), extent.offset), 0);
    }
    const AlignedBytes buffer = Aligned(content.size());
    const OwnedFd file = OpenFile(path, O_RDONLY | O_DIRECT);
    ASSERT_EQ(ReadFull(file.get(), buffer.get(), content.size(), 0), 0);
    EXPECT_EQ(memcmp(buffer.get(), content.data(), content.size()), 0) << "not from the cache";
}

TEST_P(VolumeTest, DiscardGivesSpaceBackToTheBacking) {
    MakeBacking(kVolumeSize);
    Serve("8M");
    struct stat before;
    {
        const LoopVolume volume = MakeVolume();
        const std::string path = volume_ + "/large";
        ASSERT_EQ(fsync(NewFile(path, RandomBytes(32 * kMiB, 8)).get()), 0);
        ASSERT_EQ(stat(backing_.c_str(), &before), 0);
        ASSERT_EQ(unlink(path.c_str()), 0);
    }
    // Mounted anew, so that nothing of the file is left to be done.
    const LoopVolume volume(mount_ + "/device", volume_, "", GetParam().directIo);
    MustRun("fstrim " + volume_);
    struct stat after;
    ASSERT_EQ(stat(backing_.c_str(), &after), 0);
    EXPECT_LE(after.st_blocks + (30 << 11), before.st_blocks);
}

TEST_P(VolumeTest, AKilledCacheLosesNothingThatWasSynced) {
    MakeBacking(kVolumeSize);
    Serve("8M");
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    const OwnedFd synced(ends[0]);
    pid_t writer;
    {
        const LoopVolume volume = MakeVolume();
        writer = fork();
        if (writer == 0) {
            close(ends[0]);
            for (uint32_t number = 0;; ++number) {
                const std::string path = volume_ + "/" + std::to_string(number);
                const Bytes bytes = RandomBytes(100000 + number, number);
                const OwnedFd file = OpenFile(path, O_RDWR | O_CREAT);
                if (WriteFull(file.get(), bytes.data(), bytes.size(), 0) != 0 ||
                    fsync(file.get()) != 0 || write(ends[1], "s", 1) != 1) {
                    _exit(0);
                }
            }
        }
        close(ends[1]);
        Bytes tokens(40);
        for (uint8_t& token : tokens) {
            ASSERT_EQ(read(synced.get(), &token, 1), 1);
        }
        EXPECT_EQ(service_.End(SIGKILL).status, 128 + SIGKILL);
        waitpid(writer, nullptr, 0);
    }
    uint32_t files = 40;
    for (char token; read(synced.get(), &token, 1) == 1;) {
        ++files;
    }
    RunShell("umount -l " + mount_);

    // The backing alone: the journal is replayed by the first mount, then the check finds no fault.
    const std::string fsck = std::string(GetParam().make).find("ext4") != std::string::npos
                                 ? "e2fsck -fn "
                                 : "xfs_repair -n -f ";
    { const LoopVolume replayed(backing_, volume_, "", false); }
    MustRun(fsck + backing_);
    const LoopVolume volume(backing_, volume_, "", false);
    for (uint32_t number = 0; number < files; ++number) {
        ASSERT_EQ(FileBytes(volume_ + "/" + std::to_string(number)),
                  RandomBytes(100000 + number, number))
            << number << " of " << files;
    }
}

TEST_P(VolumeTest, WhatWasMountedPastTheStoppedCacheStartsItCold) {
    MakeBacking(kVolumeSize);
    Serve("8M");
    const Bytes content = RandomBytes(kMiB, 7);
    {
        const LoopVolume volume = MakeVolume();
        ASSERT_EQ(fsync(NewFile(volume_ + "/a", content).get()), 0);
    }
    ASSERT_EQ(SetPins(Bitmap(kVolumeUnits / 8, {1})), 0);
    EXPECT_EQ(service_.End(SIGTERM).status, 0);
    Serve("8M");
    EXPECT_GT(Stats()["residentUnits"], 16) << "nothing was changed";
    EXPECT_EQ(service_.End(SIGTERM).status, 0);

    const Bytes other = RandomBytes(kMiB, 8);
    {
        const LoopVolume past(backing_, volume_, "", true);
        const OwnedFd file = OpenFile(volume_ + "/a", O_RDWR);  // in its place
        ASSERT_EQ(WriteFull(file.get(), other.data(), other.size(), 0), 0);
    }
    Serve("8M");
    EXPECT_EQ(Stats()["residentUnits"], 0);
    EXPECT_EQ(Stats()["pinnedUnits"], 1);
    {
        const LoopVolume volume(mount_ + "/device", volume_, "", GetParam().directIo);
        EXPECT_EQ(FileBytes(volume_ + "/a"), other);
    }
    const Outcome outcome = service_.End(SIGTERM);
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.output, "quorsoftcache: backing " + backing_ +
                                  ": was changed since the cache stopped: the cache starts cold\n"
                                  "quorsoftcache: vol1 ready\n");
}

INSTANTIATE_TEST_SUITE_P(Kinds, VolumeTest,
                         ::testing::Values(VolumeKind{"Ext4Direct", "mkfs.ext4 -q -F", true},
                                           VolumeKind{"Ext4Buffered", "mkfs.ext4 -q -F", false},
                                           VolumeKind{"XfsDirect", "mkfs.xfs -q -f", true},
                                           VolumeKind{"XfsBuffered", "mkfs.xfs -q -f", false}),
                         [](const auto& kind) { return std::string(kind.param.name); });

}  // namespace
}  // namespace softcache
