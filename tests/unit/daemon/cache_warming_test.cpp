// SPDX-License-Identifier: MIT
#include "daemon/cache_warming.h"

#include <errno.h>
#include <fcntl.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <unistd.h>

#include "daemon/service.h"
#include "tests/unit/daemon/daemon_test.h"
#include "tests/unit/support/fake_files.h"
#include "tests/unit/support/fake_platform.h"
#include "tests/unit/support/fake_system.h"
#include "util/scoped.h"

namespace {

constexpr uint64_t kDeviceSize = 16 << 20;
constexpr int kDone = 0;
constexpr int kFailed = 1;
constexpr int kInterrupted = 2;

struct Piece {
    uint64_t offset;
    size_t size;
};

std::string AsText(const std::vector<Piece>& reads) {
    std::string text;
    for (const Piece& read : reads) {
        text += std::to_string(read.offset) + "+" + std::to_string(read.size) + " ";
    }
    return text;
}

// The reads tried so far.
std::string Reads() {
    std::vector<Piece> reads;
    for (const ReadRecord& record : ReadsTried()) {
        reads.push_back({record.offset, record.size});
    }
    return AsText(reads);
}

class CacheWarmingTest : public DaemonTest {
  protected:
    void SetUp() override {
        DaemonTest::SetUp();
        volume_ = AddVolume("volume1", kDeviceSize);
        fd_ = open(volume_.cachePath.c_str(), O_RDONLY);
        ASSERT_GE(fd_, 0);
        ASSERT_EQ(posix_memalign(&buffer_, 4096, 65536), 0);
        Restart();
    }

    void TearDown() override {
        OnCall(Call::kRead, nullptr);
        free(buffer_);
        close(fd_);
        DaemonTest::TearDown();
    }

    void Restart() {
        FakeSystemReset();
        RecordReads();
    }

    int Read(uint64_t offset, uint64_t numBytes, size_t bufferSize = 65536) {
        return ReadFdToNull(fd_, offset, numBytes, buffer_, bufferSize);
    }

    // Puts the volume on the pending list before the nth read.
    void BecomePendingAtRead(int nth) {
        OnCall(Call::kRead, [this, nth](int count) {
            if (count == nth) {
                ServiceAddPendingSpaceAtomic(volume_.mountPath.c_str());
            }
        });
    }

    void Release() { ServiceRemovePendingSpaceAtomic(volume_.mountPath.c_str()); }

    Volume volume_;
    int fd_ = -1;
    void* buffer_ = nullptr;
};

FileMappingEntry Entry(uint64_t deviceStart, uint64_t numSectors, uint32_t uninitialized = 0) {
    return {0, numSectors, deviceStart, uninitialized};
}

FileMappingTable Table(const std::vector<FileMappingEntry>& entries) {
    FileMappingTable table;
    table.entries = entries;
    return table;
}

Lines ReadLines(uint64_t offset, uint64_t numBytes) {
    return {kDaemonLog.Enter("ReadFdToNull"),
            kDaemonLog.Verbose("ReadFdToNull", "offset byte = " + std::to_string(offset) +
                                                   " num bytes = " + std::to_string(numBytes)),
            kDaemonLog.Leave("ReadFdToNull")};
}

// --- places beyond 4 GiB and 2 TiB, where no number of 32 bits reaches

constexpr uint64_t kGiB = UINT64_C(1) << 30;
constexpr uint64_t kTiB = UINT64_C(1) << 40;
constexpr char kRanges[] = "ReadMappingRangesToCache";

class FarPlacesTest : public CacheWarmingTest {
  protected:
    void SetUp() override {
        CacheWarmingTest::SetUp();
        ASSERT_EQ(truncate(volume_.cachePath.c_str(), static_cast<off_t>(5 * kTiB)), 0);
    }
};

TEST_F(FarPlacesTest, BytesAreReadWhereTheyLie) {
    for (uint64_t border : {2 * kGiB, 4 * kGiB, 2 * kTiB, 4 * kTiB}) {
        LogCapture log(2);
        Restart();
        EXPECT_EQ(Read(border - 65536, 131072), 0);
        EXPECT_EQ(Reads(), AsText({{border - 65536, 65536}, {border, 65536}}));
        EXPECT_TRUE(log.Shows(ReadLines(border - 65536, 131072)));
        FailCall(Call::kRead, 1, EIO);
        EXPECT_EQ(Read(border, 512), -1);
        EXPECT_TRUE(log.Has(kDaemonLog.Error(
            "ReadFdToNull",
            "Read block error (seek = " + std::to_string(border) + " num bytes = 512")));
        FailCall(Call::kLseek, 1, EIO);
        EXPECT_EQ(Read(border, 512), -1);
        EXPECT_TRUE(
            log.Has(kDaemonLog.Error("ReadFdToNull", "Can't seek to " + std::to_string(border))));
        log.Clear();
    }
}

TEST_F(FarPlacesTest, ExtentsAreReadWhereTheyLie) {
    const uint64_t start = 4 * kTiB / 512 + 8;
    const uint64_t length = (UINT64_C(1) << 32) + 8;  // sectors; its bytes' low 32 bits are 4096
    const std::string numbers = "(disk start sector = " + std::to_string(start) +
                                " num sectors = " + std::to_string(length) + ")";
    LogCapture log(2);

    EXPECT_EQ(ReadMappingRangesToCache("/v", fd_,
                                       Table({Entry(4 * kGiB / 512, 8), Entry(2 * kTiB / 512, 8),
                                              Entry(start, length), Entry(start, length, 1)}),
                                       buffer_, 65536),
              kDone);
    EXPECT_EQ(Reads(), AsText({{4 * kGiB, 4096}, {2 * kTiB, 4096}, {4 * kTiB + 4096, 4096}}));
    EXPECT_TRUE(log.Has(kDaemonLog.Verbose(kRanges, "Read to null " + numbers)));
    EXPECT_TRUE(log.Has(kDaemonLog.Verbose(kRanges, "Skip uninitialized range " + numbers)));
    FailCall(Call::kRead, 1, EIO);
    EXPECT_EQ(ReadMappingRangesToCache("/v", fd_, Table({Entry(start, length)}), buffer_, 65536),
              kFailed);
    EXPECT_TRUE(log.Has(kDaemonLog.Error(kRanges, "Read fd to null failed " + numbers)));
    log.Clear();
}

TEST_F(FarPlacesTest, RunsAreReadWhereTheyLie) {
    for (uint64_t bit : {UINT64_C(65535), UINT64_C(65536), UINT64_C(1) << 25, UINT64_C(1) << 26}) {
        LogCapture log(2);
        Restart();
        EXPECT_EQ(ReadFdToNullByRange(fd_, {bit, 2}, buffer_, 65536), 0);
        EXPECT_EQ(Reads(), AsText({{bit * 65536, 65536}, {bit * 65536 + 65536, 65536}}));
        EXPECT_TRUE(log.Has(kDaemonLog.Verbose(
            "ReadFdToNullByRange",
            "Range's bitStart=" + std::to_string(bit) + " numBits=2 (size = 131072 bytes)")));
        log.Clear();
    }
    // A run that no device has; its count wraps, and its numbers are told as they are.
    LogCapture log(2);
    EXPECT_EQ(ReadFdToNullByRange(fd_, {UINT64_C(5) << 32, UINT64_C(3) << 32}, buffer_, 65536), 0);
    EXPECT_TRUE(log.Has(
        kDaemonLog.Verbose("ReadFdToNullByRange",
                           "Range's bitStart=21474836480 numBits=12884901888 (size = 0 bytes)")));
    log.Clear();
}

TEST_F(FarPlacesTest, MoreThan255ExtentsAreCounted) {
    LogCapture log(2);

    EXPECT_EQ(
        ReadMappingRangesToCache(
            "/v", fd_, Table(std::vector<FileMappingEntry>(300, Entry(0, 8, 1))), buffer_, 65536),
        kDone);
    EXPECT_TRUE(log.Has(kDaemonLog.Verbose(kRanges, "Mapping entry size = 300")));
    log.Clear();
}

// --- reading bytes

TEST_F(CacheWarmingTest, BytesAreReadInPiecesOfTheBuffer) {
    struct Row {
        const char* what;
        uint64_t offset;
        uint64_t numBytes;
        size_t bufferSize;
        std::vector<Piece> reads;
    };
    const Row rows[] = {
        {"one byte", 0, 1, 65536, {{0, 1}}},
        {"less than the buffer", 4096, 8192, 65536, {{4096, 8192}}},
        {"the buffer", 65536, 65536, 65536, {{65536, 65536}}},
        {"a byte more", 0, 65537, 65536, {{0, 65536}, {65536, 1}}},
        {"two and a half", 512, 163840, 65536, {{512, 65536}, {66048, 65536}, {131584, 32768}}},
        {"a smaller buffer", 0, 10000, 4096, {{0, 4096}, {4096, 4096}, {8192, 1808}}},
        {"up to the device's end", kDeviceSize - 512, 512, 65536, {{kDeviceSize - 512, 512}}},
    };

    AtEveryLogSetting([&](LogCapture& log) {
        for (const Row& row : rows) {
            Restart();
            EXPECT_EQ(Read(row.offset, row.numBytes, row.bufferSize), 0) << row.what;
            EXPECT_EQ(Reads(), AsText(row.reads)) << row.what;
            EXPECT_EQ(CallCount(Call::kLseek), static_cast<int>(row.reads.size()))
                << "a seek before each read: " << row.what;
            EXPECT_TRUE(log.Shows(ReadLines(row.offset, row.numBytes))) << row.what;
        }
    });
}

// Meant: the count has 32 bits.
TEST_F(CacheWarmingTest, OnlyTheLow32BitsOfTheCountAreRead) {
    const uint64_t wrap = UINT64_C(1) << 32;

    for (uint64_t numBytes : {wrap, 2 * wrap, wrap + 4096, 5 * wrap + 1}) {
        Restart();
        EXPECT_EQ(Read(0, numBytes), 0);
        auto count = static_cast<uint32_t>(numBytes);
        EXPECT_EQ(Reads(), count == 0 ? "" : "0+" + std::to_string(count) + " ") << numBytes;
    }
    LogCapture log(2);
    EXPECT_EQ(Read(0, wrap + 4096), 0);
    EXPECT_TRUE(log.Shows(ReadLines(0, wrap + 4096))) << "the whole count is traced";
}

TEST_F(CacheWarmingTest, ACountOfZeroReadsNothingAndReturnsAtOnce) {
    AtEveryLogSetting([&](LogCapture& log) {
        for (uint64_t numBytes : {UINT64_C(0), UINT64_C(1) << 32}) {
            Restart();
            EXPECT_EQ(Read(512, numBytes), 0);
            EXPECT_EQ(CallCount(Call::kLseek), 0);
            EXPECT_EQ(CallCount(Call::kRead), 0);
            EXPECT_TRUE(log.Shows({
                kDaemonLog.Enter("ReadFdToNull"),
                kDaemonLog.Verbose("ReadFdToNull",
                                   "offset byte = 512 num bytes = " + std::to_string(numBytes)),
            }));
        }
    });
}

TEST_F(CacheWarmingTest, AShortReadGoesOnBehindIt) {
    ShortenCall(Call::kRead, 1, 512);
    ShortenCall(Call::kRead, 3, 4096);
    EXPECT_EQ(Read(0, 131072), 0);
    EXPECT_EQ(Reads(), "0+65536 512+65536 66048+65024 70144+60928 ");
    EXPECT_EQ(CallCount(Call::kLseek), 4);
}

TEST_F(CacheWarmingTest, AFailedSeekIsAnError) {
    AtEveryLogSetting([&](LogCapture& log) {
        Restart();
        FailCall(Call::kLseek, 2, EIO);
        EXPECT_EQ(Read(4096, 131072), -1);
        EXPECT_EQ(Reads(), "4096+65536 ");
        EXPECT_TRUE(log.Shows({
            kDaemonLog.Enter("ReadFdToNull"),
            kDaemonLog.Verbose("ReadFdToNull", "offset byte = 4096 num bytes = 131072"),
            kDaemonLog.Error("ReadFdToNull", "Can't seek to 69632"),
        }));
    });
}

TEST_F(CacheWarmingTest, AnOffsetThatNoFileHasCannotBeSoughtTo) {
    LogCapture log;

    EXPECT_EQ(Read(UINT64_C(1) << 63, 512), -1);
    EXPECT_EQ(Read(UINT64_MAX, 512), -1);
    EXPECT_EQ(CallCount(Call::kRead), 0);
    EXPECT_TRUE(log.Shows({
        kDaemonLog.Error("ReadFdToNull", "Can't seek to -9223372036854775808"),
        kDaemonLog.Error("ReadFdToNull", "Can't seek to -1"),
    }));
}

// The text has no closing parenthesis.
TEST_F(CacheWarmingTest, AFailedReadIsAnError) {
    AtEveryLogSetting([&](LogCapture& log) {
        Restart();
        FailCall(Call::kRead, 2, EIO);
        EXPECT_EQ(Read(0, 65536 + 4096), -1);
        EXPECT_EQ(Reads(), "0+65536 65536+4096 ") << "nothing is tried again";
        EXPECT_TRUE(log.Shows({
            kDaemonLog.Enter("ReadFdToNull"),
            kDaemonLog.Verbose("ReadFdToNull", "offset byte = 0 num bytes = 69632"),
            kDaemonLog.Error("ReadFdToNull", "Read block error (seek = 65536 num bytes = 4096"),
        }));
    });
}

// A device that ends early must not be read for ever.
TEST_F(CacheWarmingTest, AnInterruptedReadIsAnErrorToo) {
    LogCapture log;

    FailCall(Call::kRead, 2, EINTR);
    EXPECT_EQ(Read(0, 131072), -1);
    EXPECT_EQ(Reads(), "0+65536 65536+65536 ");
    EXPECT_TRUE(log.Shows(
        {kDaemonLog.Error("ReadFdToNull", "Read block error (seek = 65536 num bytes = 65536")}));
}

TEST_F(CacheWarmingTest, AReadThatReturnsNothingIsAnError) {
    LogCapture log;

    EXPECT_EQ(Read(kDeviceSize - 4096, 8192), -1);
    EXPECT_EQ(Reads(), AsText({{kDeviceSize - 4096, 8192}, {kDeviceSize, 4096}}));
    EXPECT_EQ(Read(kDeviceSize + 65536, 1), -1);
    EXPECT_TRUE(log.Shows({
        kDaemonLog.Error("ReadFdToNull", "Read block error (seek = 16777216 num bytes = 4096"),
        kDaemonLog.Error("ReadFdToNull", "Read block error (seek = 16842752 num bytes = 1"),
    }));
}

// --- reading runs of bits

TEST_F(CacheWarmingTest, ARunIsReadAsItsBytes) {
    const BitRun run = {2, 3};

    AtEveryLogSetting([&](LogCapture& log) {
        Restart();
        EXPECT_EQ(ReadFdToNullByRange(fd_, run, buffer_, 65536), 0);
        EXPECT_EQ(Reads(), "131072+65536 196608+65536 262144+65536 ");
        EXPECT_TRUE(log.Shows(
            Lines{kDaemonLog.Enter("ReadFdToNullByRange"),
                  kDaemonLog.Verbose("ReadFdToNullByRange",
                                     "Range's bitStart=2 numBits=3 (size = 196608 bytes)")} +
            ReadLines(131072, 196608) + Lines{kDaemonLog.Leave("ReadFdToNullByRange")}));
    });
}

// Meant: the byte count of a run has 32 bits.
TEST_F(CacheWarmingTest, ARunOf65536BitsWraps) {
    struct Row {
        uint64_t numBits;
        const char* bytes;
        const char* reads;
    };
    const Row rows[] = {
        {65536, "0", ""},
        {65537, "65536", "65536+65536 "},
        {UINT64_C(1) << 32, "0", ""},
        {(UINT64_C(1) << 32) + 1, "65536", "65536+65536 "},
        {131074, "131072", "65536+65536 131072+65536 "},
    };

    for (const Row& row : rows) {
        LogCapture log(2);
        Restart();
        EXPECT_EQ(ReadFdToNullByRange(fd_, {1, row.numBits}, buffer_, 65536), 0);
        EXPECT_EQ(Reads(), row.reads) << row.numBits;
        EXPECT_TRUE(log.Has(kDaemonLog.Verbose(
            "ReadFdToNullByRange", "Range's bitStart=1 numBits=" + std::to_string(row.numBits) +
                                       " (size = " + row.bytes + " bytes)")))
            << row.numBits;
    }
}

TEST_F(CacheWarmingTest, ARunThatCannotBeReadFailsWithItsMarkers) {
    LogCapture log(2);

    FailCall(Call::kRead, 1, EIO);
    EXPECT_EQ(ReadFdToNullByRange(fd_, {0, 1}, buffer_, 65536), -1);
    EXPECT_TRUE(log.Shows({
        kDaemonLog.Enter("ReadFdToNullByRange"),
        kDaemonLog.Verbose("ReadFdToNullByRange",
                           "Range's bitStart=0 numBits=1 (size = 65536 bytes)"),
        kDaemonLog.Enter("ReadFdToNull"),
        kDaemonLog.Verbose("ReadFdToNull", "offset byte = 0 num bytes = 65536"),
        kDaemonLog.Error("ReadFdToNull", "Read block error (seek = 0 num bytes = 65536"),
        kDaemonLog.Leave("ReadFdToNullByRange"),
    }));
}

// --- reading the extents of one file

TEST_F(CacheWarmingTest, WrittenExtentsAreReadInTableOrder) {
    FileMappingTable table =
        Table({Entry(200, 64), Entry(300, 16, 1), Entry(0, 128), Entry(400, 8, 2)});

    AtEveryLogSetting([&](LogCapture& log) {
        Restart();
        EXPECT_EQ(ReadMappingRangesToCache(volume_.mountPath.c_str(), fd_, table, buffer_, 65536),
                  kDone);
        EXPECT_EQ(Reads(), "102400+32768 0+65536 204800+4096 ");
        EXPECT_TRUE(log.Shows(
            Lines{kDaemonLog.Enter(kRanges), kDaemonLog.Verbose(kRanges, "Mapping entry size = 4"),
                  kDaemonLog.Verbose("ReadMappingRangesToCache",
                                     "Read to null (disk start sector = 200 num sectors = 64)")} +
            ReadLines(102400, 32768) +
            Lines{kDaemonLog.Verbose("ReadMappingRangesToCache",
                                     "Skip uninitialized range (disk start sector = 300 num "
                                     "sectors = 16)"),
                  kDaemonLog.Verbose("ReadMappingRangesToCache",
                                     "Read to null (disk start sector = 0 num sectors = 128)")} +
            ReadLines(0, 65536) +
            Lines{kDaemonLog.Verbose("ReadMappingRangesToCache",
                                     "Read to null (disk start sector = 400 num sectors = 8)")} +
            ReadLines(204800, 4096) + Lines{kDaemonLog.Leave(kRanges)}));
    });
}

TEST_F(CacheWarmingTest, TablesWithNothingToReadAreDone) {
    for (const FileMappingTable& table :
         {Table({}), Table({Entry(0, 8, 1)}), Table({Entry(0, 8, 1), Entry(8, 8, 1)})}) {
        LogCapture log(2);
        EXPECT_EQ(ReadMappingRangesToCache(volume_.mountPath.c_str(), fd_, table, buffer_, 65536),
                  kDone);
        EXPECT_EQ(CallCount(Call::kRead), 0);
        EXPECT_TRUE(log.Has(kDaemonLog.Leave(kRanges)));
    }
}

// Meant: 2^23 sectors are 4 GiB, of which the count keeps nothing.
TEST_F(CacheWarmingTest, AnExtentOf4GiBReadsNothing) {
    FileMappingTable table = Table({Entry(0, 1 << 23), Entry(8, (1 << 23) + 8)});

    EXPECT_EQ(ReadMappingRangesToCache(volume_.mountPath.c_str(), fd_, table, buffer_, 65536),
              kDone);
    EXPECT_EQ(Reads(), "4096+4096 ");
}

TEST_F(CacheWarmingTest, AnExtentThatCannotBeReadEndsTheFile) {
    FileMappingTable table = Table({Entry(0, 8), Entry(16, 8), Entry(32, 8)});

    for (Call call : {Call::kRead, Call::kLseek}) {
        LogCapture log(2);
        Restart();
        FailCall(call, 2, EIO);
        EXPECT_EQ(ReadMappingRangesToCache(volume_.mountPath.c_str(), fd_, table, buffer_, 65536),
                  kFailed);
        EXPECT_EQ(Reads(), call == Call::kRead ? "0+4096 8192+4096 " : "0+4096 ");
        EXPECT_TRUE(log.Has(
            kDaemonLog.Error("ReadMappingRangesToCache",
                             "Read fd to null failed (disk start sector = 16 num sectors = 8)")));
        EXPECT_FALSE(log.Has(kDaemonLog.Leave(kRanges)));
    }
}

TEST_F(CacheWarmingTest, APendingVolumeIsSeenBeforeEachExtent) {
    FileMappingTable table = Table({Entry(0, 8), Entry(16, 8, 1), Entry(32, 8)});
    const ExpectedLine interrupted = kDaemonLog.Verbose(kRanges, "Space is pending, Interrupted");

    {
        LogCapture log(2);
        BecomePendingAtRead(1);
        EXPECT_EQ(ReadMappingRangesToCache(volume_.mountPath.c_str(), fd_, table, buffer_, 65536),
                  kInterrupted);
        EXPECT_EQ(Reads(), "0+4096 ") << "the extent at hand is read to its end";
        EXPECT_TRUE(log.Has(interrupted));
        EXPECT_FALSE(log.Has(kDaemonLog.Leave(kRanges)));
    }
    {
        LogCapture log(2);
        EXPECT_EQ(ReadMappingRangesToCache(volume_.mountPath.c_str(), fd_, Table({Entry(0, 8, 1)}),
                                           buffer_, 65536),
                  kInterrupted)
            << "also before one that would be skipped";
        EXPECT_TRUE(
            log.Shows({kDaemonLog.Enter(kRanges),
                       kDaemonLog.Verbose(kRanges, "Mapping entry size = 1"), interrupted}));
        EXPECT_EQ(
            ReadMappingRangesToCache(volume_.mountPath.c_str(), fd_, Table({}), buffer_, 65536),
            kDone)
            << "not where there is no extent";
    }
    Release();
}

// --- reading the files of a pin

constexpr char kFiles[] = "ReadFilesToCache";

// Both opens of the cached device.
void ExpectDirectOpen(const std::string& cachePath) {
    std::vector<OpenRecord> opens = OpensTried();
    ASSERT_EQ(opens.size(), 1U);
    EXPECT_EQ(opens[0].path, cachePath);
    EXPECT_EQ(opens[0].flags & O_ACCMODE, O_RDONLY);
    EXPECT_EQ(opens[0].flags & O_DIRECT, O_DIRECT);
}

// Whether reads past the page cache could go into the buffer, whatever the device's block size.
void ExpectAlignedReads() {
    for (const ReadRecord& record : ReadsTried()) {
        EXPECT_EQ(record.buffer % 4096, 0U) << record.offset;
    }
}

TEST_F(CacheWarmingTest, FilesAreReadInTheirOrder) {
    LogCapture log(2);
    std::vector<MappedFile> files = {{"b", Table({Entry(64, 8)})}, {"a/c", Table({Entry(0, 16)})}};

    FakeFilesReset();
    AllowDirectAnywhere();
    EXPECT_EQ(ReadFilesToCache(volume_.mountPath.c_str(), files), kDone);
    EXPECT_EQ(Reads(), "32768+4096 0+8192 ");
    EXPECT_EQ(CallCount(Call::kPosixMemalign), 1) << "one buffer for all";
    ExpectAlignedReads();
    ExpectDirectOpen(volume_.cachePath);
    auto range = [](const char* size, const char* sectors) {
        return Lines{
            kDaemonLog.Enter(kRanges),
            kDaemonLog.Verbose(kRanges, std::string("Mapping entry size = ") + size),
            kDaemonLog.Verbose("ReadMappingRangesToCache",
                               std::string("Read to null (disk start sector = ") + sectors + ")")};
    };
    EXPECT_TRUE(ShowsOwn(log, Lines{kDaemonLog.Enter(kFiles)} + range("1", "64 num sectors = 8") +
                                  ReadLines(32768, 4096) + Lines{kDaemonLog.Leave(kRanges)} +
                                  range("1", "0 num sectors = 16") + ReadLines(0, 8192) +
                                  Lines{kDaemonLog.Leave(kRanges), kDaemonLog.Leave(kFiles)}));
}

TEST_F(CacheWarmingTest, AFileOfUninitializedExtentsCountsAsDone) {
    EXPECT_EQ(ReadFilesToCache(volume_.mountPath.c_str(), {{"a", Table({Entry(0, 8, 1)})}}), kDone);
    EXPECT_EQ(CallCount(Call::kRead), 0);
}

TEST_F(CacheWarmingTest, NoFilesOpenTheDeviceAndReadNothing) {
    LogCapture log(2);

    FakeFilesReset();
    AllowDirectAnywhere();
    EXPECT_EQ(ReadFilesToCache(volume_.mountPath.c_str(), {}), kDone);
    ExpectDirectOpen(volume_.cachePath);
    EXPECT_EQ(CallCount(Call::kRead), 0);
    EXPECT_TRUE(ShowsOwn(log, {kDaemonLog.Enter(kFiles), kDaemonLog.Leave(kFiles)}));

    ServiceAddPendingSpaceAtomic(volume_.mountPath.c_str());
    EXPECT_EQ(ReadFilesToCache(volume_.mountPath.c_str(), {}), kDone) << "nobody to ask for";
    Release();
}

TEST_F(CacheWarmingTest, FilesThatCannotBeReadAtAll) {
    struct Row {
        const char* what;
        std::function<void()> arrange;
        Lines own;
        int opens;
    };
    const std::string noPath = "Cant' get cache path from volume (" + volume_.mountPath + ")";
    const Row rows[] = {
        {"no memory",
         [] { FailCall(Call::kPosixMemalign, 1, ENOMEM); },
         {kDaemonLog.Error("ReadFilesToCache", "Can't allocate memory\n")},
         0},
        {"no space",
         [] { g_platform.spaces.clear(); },
         {kDaemonLog.Error("ReadFilesToCache", noPath)},
         0},
        {"no cache path",
         [&] { g_platform.cachePaths.clear(); },
         {kDaemonLog.Error("ReadFilesToCache", noPath)},
         0},
        {"no device",
         [&] { FailCall(Call::kOpen, 1, EBUSY); },
         {kDaemonLog.Error("ReadFilesToCache", "Can't open file (" + volume_.cachePath + ")")},
         1},
        {"neither memory nor space",
         [] {
             FailCall(Call::kPosixMemalign, 1, ENOMEM);
             g_platform.spaces.clear();
         },
         {kDaemonLog.Error("ReadFilesToCache", "Can't allocate memory\n")},
         0},
    };
    FakePlatform whole = g_platform;

    for (int level : {1, 2}) {
        for (const Row& row : rows) {
            LogCapture log(level);
            g_platform = whole;
            Restart();
            row.arrange();
            EXPECT_EQ(ReadFilesToCache(volume_.mountPath.c_str(), {{"a", Table({Entry(0, 8)})}}),
                      kFailed)
                << row.what;
            EXPECT_EQ(CallCount(Call::kOpen), row.opens) << row.what;
            EXPECT_EQ(CallCount(Call::kRead), 0) << row.what;
            EXPECT_TRUE(ShowsOwn(
                log, Lines{kDaemonLog.Enter(kFiles)} + row.own + Lines{kDaemonLog.Leave(kFiles)}))
                << row.what;
        }
    }
}

TEST_F(CacheWarmingTest, AFileThatCannotBeReadEndsTheRequest) {
    std::vector<MappedFile> files = {
        {"a", Table({Entry(0, 8)})}, {"b", Table({Entry(8, 8)})}, {"c", Table({Entry(16, 8)})}};

    for (int level : {1, 2}) {
        LogCapture log(level);
        Restart();
        FailCall(Call::kRead, 2, EIO);
        EXPECT_EQ(ReadFilesToCache(volume_.mountPath.c_str(), files), kFailed);
        EXPECT_EQ(Reads(), "0+4096 4096+4096 ");
        EXPECT_TRUE(log.Has(kDaemonLog.Error(
            "ReadFilesToCache", "Can't read file (" + volume_.mountPath + "/b) to cache")));
        EXPECT_EQ(log.Has(kDaemonLog.Leave(kFiles)), level > 1);
    }
}

TEST_F(CacheWarmingTest, ALongPathIsCutInTheMessage) {
    std::vector<MappedFile> files = {{Text(600), Table({Entry(kDeviceSize, 8)})}};
    std::string path = (volume_.mountPath + "/" + Text(600)).substr(0, 511);
    LogCapture log;

    EXPECT_EQ(ReadFilesToCache(volume_.mountPath.c_str(), files), kFailed);
    EXPECT_TRUE(
        log.Has(kDaemonLog.Error("ReadFilesToCache", "Can't read file (" + path + ") to cache")));
}

TEST_F(CacheWarmingTest, APendingVolumeIsSeenBeforeEachFile) {
    std::vector<MappedFile> files = {{"a", Table({Entry(0, 8)})}, {"b", Table({Entry(8, 8)})}};
    LogCapture log(2);

    BecomePendingAtRead(1);
    EXPECT_EQ(ReadFilesToCache(volume_.mountPath.c_str(), files), kInterrupted);
    EXPECT_EQ(Reads(), "0+4096 ");
    EXPECT_TRUE(log.Has(kDaemonLog.Verbose("ReadFilesToCache", "Space is pending, Interrupted")));
    EXPECT_FALSE(log.Has(kDaemonLog.Verbose("ReadFilesToCache", "Interrupted")));
    EXPECT_TRUE(log.Has(kDaemonLog.Leave(kFiles)));
    Release();
}

TEST_F(CacheWarmingTest, APendingVolumeIsSeenWithinAFile) {
    std::vector<MappedFile> files = {{"a", Table({Entry(0, 8), Entry(8, 8)})}};
    LogCapture log(2);

    BecomePendingAtRead(1);
    EXPECT_EQ(ReadFilesToCache(volume_.mountPath.c_str(), files), kInterrupted);
    EXPECT_EQ(Reads(), "0+4096 ");
    EXPECT_TRUE(log.Has(kDaemonLog.Verbose(kRanges, "Space is pending, Interrupted")));
    EXPECT_TRUE(log.Has(kDaemonLog.Verbose("ReadFilesToCache", "Interrupted")));
    EXPECT_FALSE(log.Has(kDaemonLog.Verbose("ReadFilesToCache", "Space is pending, Interrupted")));
    EXPECT_TRUE(log.Has(kDaemonLog.Leave(kFiles)));
    Release();
}

TEST_F(CacheWarmingTest, AnInterruptionIsNotToldAtTheNormalLevel) {
    const std::vector<std::vector<MappedFile>> cases = {
        {{"a", Table({Entry(0, 8)})}, {"b", Table({Entry(8, 8)})}},  // between two files
        {{"a", Table({Entry(0, 8), Entry(8, 8)})}},                  // within one
    };
    int read = 0;
    for (const std::vector<MappedFile>& files : cases) {
        LogCapture log;
        BecomePendingAtRead(++read);
        EXPECT_EQ(ReadFilesToCache(volume_.mountPath.c_str(), files), kInterrupted);
        Release();
        EXPECT_TRUE(log.Shows({}));
    }
}

// What fails when the volume is pending as well: the failure came first.
TEST_F(CacheWarmingTest, AFailedReadOfAVolumeThatBecomesPendingIsAFailure) {
    std::vector<MappedFile> files = {{"a", Table({Entry(0, 8), Entry(8, 8)})}};

    BecomePendingAtRead(1);
    FailCall(Call::kRead, 1, EIO);
    EXPECT_EQ(ReadFilesToCache(volume_.mountPath.c_str(), files), kFailed);
    Release();
}

// --- reading the runs of a bitmap

constexpr char kReload[] = "ReloadPinBlocksToCache";

// A bitmap of these bytes.
class Bits {
  public:
    explicit Bits(std::vector<uint8_t> bytes) : bytes_(std::move(bytes)) {
        bitmap_ = {bytes_.data(), static_cast<uint32_t>(bytes_.size())};
    }
    Bits(const Bits&) = delete;
    Bits& operator=(const Bits&) = delete;

    const PinBitmap* get() const { return &bitmap_; }

  private:
    std::vector<uint8_t> bytes_;
    PinBitmap bitmap_;
};

std::vector<uint8_t> WithBits(size_t numBytes, const std::vector<size_t>& bits) {
    std::vector<uint8_t> bytes(numBytes, 0);
    for (size_t bit : bits) {
        bytes[bit / 8] = static_cast<uint8_t>(bytes[bit / 8] | 1U << bit % 8);
    }
    return bytes;
}

TEST_F(CacheWarmingTest, EveryRunOfSetBitsIsRead) {
    struct Row {
        const char* what;
        std::vector<uint8_t> bytes;
        std::vector<BitRun> runs;
    };
    const Row rows[] = {
        {"no bytes", {}, {}},
        {"no bit", {0, 0}, {}},
        {"the first bit", {0x01, 0}, {{0, 1}}},
        {"the last bit", {0, 0x80}, {{15, 1}}},
        {"bits 0-1 and 3", {0x0b, 0}, {{0, 2}, {3, 1}}},
        {"across a byte", {0x80, 0x01}, {{7, 2}}},
        {"every other", {0x55, 0}, {{0, 1}, {2, 1}, {4, 1}, {6, 1}}},
        {"all", {0xff, 0xff}, {{0, 16}}},
        {"all but the last", {0xff, 0x7f}, {{0, 15}}},
        {"empty words, then a bit", WithBits(24, {128}), {{128, 1}}},
        {"a run up to an empty word", WithBits(24, {63}), {{63, 1}}},
        {"a run across two words", WithBits(16, {63, 64}), {{63, 2}}},
        {"the last bit of a word behind an empty one", WithBits(16, {127}), {{127, 1}}},
        {"an empty word, then less than a word", WithBits(9, {71}), {{71, 1}}},
        {"less than a word, empty", WithBits(15, {}), {}},
    };

    AtEveryLogSetting([&](LogCapture& log) {
        for (const Row& row : rows) {
            Restart();
            Bits bitmap(row.bytes);
            EXPECT_EQ(ReloadPinBlocksToCache(bitmap.get(), volume_.cachePath.c_str(),
                                             volume_.mountPath.c_str()),
                      kDone)
                << row.what;
            std::vector<Piece> reads;
            Lines lines = {kDaemonLog.Enter(kReload),
                           kDaemonLog.Verbose("ReloadPinBlocksToCache", "Start to read blocks")};
            for (const BitRun& run : row.runs) {
                for (uint64_t bit = run.startBit; bit < run.startBit + run.numBits; ++bit) {
                    reads.push_back({bit * 65536, 65536});
                }
                lines =
                    lines +
                    Lines{kDaemonLog.Enter("ReadFdToNullByRange"),
                          kDaemonLog.Verbose("ReadFdToNullByRange",
                                             "Range's bitStart=" + std::to_string(run.startBit) +
                                                 " numBits=" + std::to_string(run.numBits) +
                                                 " (size = " + std::to_string(run.numBits * 65536) +
                                                 " bytes)")} +
                    ReadLines(run.startBit * 65536, run.numBits * 65536) +
                    Lines{kDaemonLog.Leave("ReadFdToNullByRange")};
            }
            EXPECT_EQ(Reads(), AsText(reads)) << row.what;
            if (row.runs.empty()) {
                lines.push_back(kDaemonLog.Verbose("ReloadPinBlocksToCache",
                                                   "No pin blocks, no need to reload"));
            }
            lines.push_back(kDaemonLog.Leave(kReload));
            EXPECT_TRUE(log.Shows(lines)) << row.what;
        }
    });
}

TEST_F(CacheWarmingTest, AReloadOpensTheDeviceForDirectReading) {
    Bits bitmap({0, 0});

    FakeFilesReset();
    AllowDirectAnywhere();
    EXPECT_EQ(ReloadPinBlocksToCache(bitmap.get(), volume_.cachePath.c_str(), "/v"), kDone);
    ExpectDirectOpen(volume_.cachePath);
}

TEST_F(CacheWarmingTest, AReloadThatCannotStart) {
    Bits bitmap({0xff});
    struct Row {
        Call call;
        ExpectedLine error;
    };
    const Row rows[] = {
        {Call::kPosixMemalign,
         kDaemonLog.Error("ReloadPinBlocksToCache", "Can't allocate memory\n")},
        {Call::kOpen,
         kDaemonLog.Error("ReloadPinBlocksToCache", "Can't open file (" + volume_.cachePath + ")")},
    };

    AtEveryLogSetting([&](LogCapture& log) {
        for (const Row& row : rows) {
            Restart();
            FailCall(row.call, 1, ENOMEM);
            EXPECT_EQ(ReloadPinBlocksToCache(bitmap.get(), volume_.cachePath.c_str(),
                                             volume_.mountPath.c_str()),
                      kFailed);
            EXPECT_EQ(CallCount(Call::kRead), 0);
            EXPECT_TRUE(
                log.Shows({kDaemonLog.Enter(kReload), row.error, kDaemonLog.Leave(kReload)}));
        }
    });
}

TEST_F(CacheWarmingTest, ARunThatCannotBeReadEndsTheReload) {
    struct Row {
        const char* what;
        uint8_t bits;
        int read;
        const char* reads;
    };
    const Row rows[] = {
        {"the first of two runs", 0x05, 1, "0+65536 "},
        {"the second", 0x05, 2, "0+65536 131072+65536 "},
        {"one that is open at the end", 0x81, 2, "0+65536 458752+65536 "},
        {"the middle of a run", 0x07, 2, "0+65536 65536+65536 "},
    };

    for (const Row& row : rows) {
        Bits bitmap({row.bits});
        LogCapture log(2);
        Restart();
        FailCall(Call::kRead, row.read, EIO);
        EXPECT_EQ(ReloadPinBlocksToCache(bitmap.get(), volume_.cachePath.c_str(),
                                         volume_.mountPath.c_str()),
                  kFailed)
            << row.what;
        EXPECT_EQ(Reads(), row.reads) << row.what;
        EXPECT_TRUE(
            log.Has(kDaemonLog.Error("ReloadPinBlocksToCache", "Read range to cache failed")));
        EXPECT_TRUE(log.Has(kDaemonLog.Leave(kReload)));
    }
}

TEST_F(CacheWarmingTest, APendingVolumeIsSeenAfterEveryBit) {
    const ExpectedLine interrupted =
        kDaemonLog.Verbose("ReloadPinBlocksToCache", "Interrupted due to space is pending");
    struct Row {
        const char* what;
        uint8_t bits;
        const char* reads;
    };
    // Pending from the start: the first bit is looked at, a run that it opens is left unread.
    const Row rows[] = {{"a set bit", 0xff, ""}, {"a clear bit", 0x00, ""}, {"both", 0x02, ""}};

    ServiceAddPendingSpaceAtomic(volume_.mountPath.c_str());
    for (const Row& row : rows) {
        Bits bitmap({row.bits});
        LogCapture log(2);
        Restart();
        EXPECT_EQ(ReloadPinBlocksToCache(bitmap.get(), volume_.cachePath.c_str(),
                                         volume_.mountPath.c_str()),
                  kInterrupted)
            << row.what;
        EXPECT_EQ(Reads(), row.reads) << row.what;
        EXPECT_TRUE(log.Shows({kDaemonLog.Enter(kReload),
                               kDaemonLog.Verbose("ReloadPinBlocksToCache", "Start to read blocks"),
                               interrupted, kDaemonLog.Leave(kReload)}));
    }
    Release();
    {
        // In the first run's read: the walk stops at the clear bit behind it.
        Bits bitmap({0x0d});
        Restart();
        BecomePendingAtRead(1);
        EXPECT_EQ(ReloadPinBlocksToCache(bitmap.get(), volume_.cachePath.c_str(),
                                         volume_.mountPath.c_str()),
                  kInterrupted);
        EXPECT_EQ(Reads(), "0+65536 ");
        Release();
    }
    {
        // In the read of the run that is open at the end: nothing is asked after it.
        Bits bitmap({0x80});
        Restart();
        BecomePendingAtRead(1);
        EXPECT_EQ(ReloadPinBlocksToCache(bitmap.get(), volume_.cachePath.c_str(),
                                         volume_.mountPath.c_str()),
                  kDone);
        Release();
    }
}

// The bits of an empty word are asked for once, and still before the next read.
TEST_F(CacheWarmingTest, APendingVolumeIsSeenAtAnEmptyWord) {
    {
        Bits bitmap(WithBits(8, {}));
        ServiceAddPendingSpaceAtomic(volume_.mountPath.c_str());
        EXPECT_EQ(ReloadPinBlocksToCache(bitmap.get(), volume_.cachePath.c_str(),
                                         volume_.mountPath.c_str()),
                  kInterrupted);
        Release();
    }
    {
        // In the read of the run before it; another space was pending all the time.
        Bits bitmap(WithBits(32, {63, 192}));
        ServiceAddPendingSpaceAtomic("/another");
        BecomePendingAtRead(1);
        EXPECT_EQ(ReloadPinBlocksToCache(bitmap.get(), volume_.cachePath.c_str(),
                                         volume_.mountPath.c_str()),
                  kInterrupted);
        EXPECT_EQ(Reads(), "4128768+65536 ");
        Release();
        ServiceRemovePendingSpaceAtomic("/another");
    }
}

// At the first read the volume becomes pending. Whether it is seen behind the bit at which the run
// was read, the last one too, decides what comes of it.
TEST_F(CacheWarmingTest, APendingVolumeIsSeenBehindTheBitThatEndedARun) {
    struct Row {
        const char* what;
        std::vector<uint8_t> bits;
        int result;
        const char* reads;
    };
    const Row rows[] = {
        {"the run ends within a byte", {0x05}, kInterrupted, "0+65536 "},
        {"the last bit of all ends it", {0x40}, kInterrupted, "393216+65536 "},
        {"the first bit of a byte ends it", {0x80, 0x02}, kInterrupted, "458752+65536 "},
        {"the last bit of a byte ends it", {0x40, 0x01}, kInterrupted, "393216+65536 "},
        {"no bit is behind it", {0, 0xc0}, kDone, "917504+65536 983040+65536 "},
    };

    for (const Row& row : rows) {
        Bits bitmap(row.bits);
        Restart();
        BecomePendingAtRead(1);
        EXPECT_EQ(ReloadPinBlocksToCache(bitmap.get(), volume_.cachePath.c_str(),
                                         volume_.mountPath.c_str()),
                  row.result)
            << row.what;
        EXPECT_EQ(Reads(), row.reads) << row.what;
        Release();
    }
}

TEST_F(CacheWarmingTest, AFailedRunOfAVolumeThatBecomesPendingIsAFailure) {
    for (uint8_t bits : std::vector<uint8_t>{0x01, 0x80}) {
        Bits bitmap({bits});
        LogCapture log;
        Restart();
        BecomePendingAtRead(1);
        FailCall(Call::kRead, 1, EIO);
        EXPECT_EQ(ReloadPinBlocksToCache(bitmap.get(), volume_.cachePath.c_str(),
                                         volume_.mountPath.c_str()),
                  kFailed)
            << int{bits};
        EXPECT_TRUE(
            log.Has(kDaemonLog.Error("ReloadPinBlocksToCache", "Read range to cache failed")));
        Release();
    }
}

// 2^29 bytes are 2^32 bits. Memory that is never written costs none.
TEST_F(CacheWarmingTest, ABitBehind2To32IsRead) {
    constexpr uint32_t kSize = (UINT32_C(1) << 29) + 8;
    void* data = mmap(nullptr, kSize, PROT_READ | PROT_WRITE,
                      MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    ASSERT_NE(data, MAP_FAILED) << strerror(errno);
    const PinBitmap bitmap = {static_cast<uint8_t*>(data), kSize};
    bitmap.data[kSize - 1] = 0x80;  // bit 2^32 + 63
    LogCapture log;
    FailCall(Call::kLseek, 1, EINVAL);  // few file systems have files so long

    EXPECT_EQ(ReloadPinBlocksToCache(&bitmap, volume_.cachePath.c_str(), volume_.mountPath.c_str()),
              kFailed);
    EXPECT_TRUE(log.Has(kDaemonLog.Error(
        "ReadFdToNull", "Can't seek to " + std::to_string(256 * kTiB + 63 * 65536))));
    munmap(data, kSize);
}

// What one reload has found is forgotten by the next.
TEST_F(CacheWarmingTest, EveryReloadBeginsWithoutARun) {
    const ExpectedLine none =
        kDaemonLog.Verbose("ReloadPinBlocksToCache", "No pin blocks, no need to reload");
    Bits pinned({0x03});
    Bits other({0x80});
    Bits empty({0});
    auto reload = [&](const Bits& bitmap) {
        Restart();
        return ReloadPinBlocksToCache(bitmap.get(), volume_.cachePath.c_str(),
                                      volume_.mountPath.c_str());
    };

    LogCapture log(2);
    ServiceAddPendingSpaceAtomic(volume_.mountPath.c_str());
    EXPECT_EQ(reload(pinned), kInterrupted);
    Release();
    EXPECT_EQ(reload(other), kDone);
    EXPECT_EQ(Reads(), "458752+65536 ");
    EXPECT_FALSE(log.Has(none));
    EXPECT_EQ(reload(empty), kDone);
    EXPECT_TRUE(log.Has(none));
}

TEST_F(CacheWarmingTest, AReloadOfAnEmptyBitmapAsksNobody) {
    Bits bitmap({});

    ServiceAddPendingSpaceAtomic(volume_.mountPath.c_str());
    EXPECT_EQ(
        ReloadPinBlocksToCache(bitmap.get(), volume_.cachePath.c_str(), volume_.mountPath.c_str()),
        kDone);
    Release();
}

TEST_F(CacheWarmingTest, AnotherPendingVolumeDoesNotMatter) {
    Bits bitmap({0x01});

    ServiceAddPendingSpaceAtomic((volume_.mountPath + "/").c_str());
    EXPECT_EQ(
        ReloadPinBlocksToCache(bitmap.get(), volume_.cachePath.c_str(), volume_.mountPath.c_str()),
        kDone);
    EXPECT_EQ(ReadFilesToCache(volume_.mountPath.c_str(), {{"a", Table({Entry(0, 8)})}}), kDone);
}

}  // namespace
