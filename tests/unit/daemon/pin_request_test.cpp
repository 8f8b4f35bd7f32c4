// SPDX-License-Identifier: MIT
#include "daemon/pin_request.h"

#include <errno.h>
#include <string.h>
#include <sys/stat.h>

#include "daemon/service.h"
#include "platform/quorflashcache.h"
#include "tests/unit/daemon/daemon_test.h"
#include "tests/unit/support/fake_ioctl.h"
#include "tests/unit/support/fake_platform.h"
#include "tests/unit/support/fake_system.h"

namespace {

constexpr char kHandle[] = "HandlePinRequest";
constexpr char kAdd[] = "BitmapMemAdd";

FileInfo Info(const std::string& path, unsigned long inode) {
    FileInfo info = {};
    memcpy(info.szRelativePath, path.data(), path.size());
    info.inodeNum = inode;
    return info;
}

class PinRequestTest : public DaemonTest {
  protected:
    void SetUp() override {
        DaemonTest::SetUp();
        volume_ = AddVolume();
        bitmap_ = {bytes_, sizeof(bytes_)};
    }

    int Pin(const std::vector<FileInfo>& infos) {
        return HandlePinRequest(infos, &bitmap_, volume_.mountPath.c_str(),
                                volume_.cachePath.c_str(), volume_.bitmapPath.c_str());
    }

    std::string Bits() const { return {reinterpret_cast<const char*>(bytes_), sizeof(bytes_)}; }

    // Which of the steps behind the mapping have been taken.
    std::string StepsTaken() const {
        std::string steps;
        steps += Exists(volume_.bitmapPath) ? "file " : "";
        steps += IoctlsSent().empty() ? "" : "driver ";
        steps += CallCount(Call::kRead) == 0 ? "" : "read ";
        return steps;
    }

    Volume volume_;
    uint8_t bytes_[8] = {};
    PinBitmap bitmap_ = {};
};

// --- one file

TEST_F(PinRequestTest, TheBitsOfAFilesExtentsAreSet) {
    struct Row {
        const char* what;
        std::vector<Extent> extents;
        std::vector<uint8_t> bits;
    };
    const Row rows[] = {
        {"two extents, the second across a border", {{0, 128}, {200, 64}}, {0x07}},
        {"an extent within a unit pins it", {{130, 1}}, {0x02}},
        {"an uninitialized extent is set like any other", {{256, 8, 1}}, {0x04}},
        {"two extents in one unit", {{0, 8}, {100, 8}}, {0x01}},
        {"up to the last bit", {{8064, 128}}, {0, 0, 0, 0, 0, 0, 0, 0x80}},
        {"beyond the last bit", {{8064, 1000}, {100000, 8}}, {0, 0, 0, 0, 0, 0, 0, 0x80}},
        {"beyond 2 TiB", {{UINT64_C(1) << 32, 8}, {(UINT64_C(5) << 32) + 200, 8}}, {}},
        {"an extent of 2 TiB",
         {{128, UINT64_C(1) << 32}},
         {0xfe, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff}},
    };

    for (const Row& row : rows) {
        FileMappingTable table;
        memset(bytes_, 0, sizeof(bytes_));
        FakePlatformReset();
        unsigned long inode = AddFile(volume_, "a", row.extents);
        EXPECT_EQ(BitmapMemAdd(&bitmap_, volume_.mountPath.c_str(), volume_.mountPath + "/a", inode,
                               table),
                  0)
            << row.what;
        std::string expected(row.bits.begin(), row.bits.end());
        expected.resize(sizeof(bytes_));
        EXPECT_EQ(Bits(), expected) << row.what;
        ASSERT_EQ(table.entries.size(), row.extents.size()) << row.what;
        EXPECT_EQ(table.entries.back().deviceStartSector, row.extents.back().deviceStart);
        EXPECT_EQ(table.entries.back().uninitialized, row.extents.back().uninitialized);
    }
}

TEST_F(PinRequestTest, BitsThatAreSetStaySet) {
    FileMappingTable table;
    unsigned long inode = AddFile(volume_, "a", {{0, 8}});

    bytes_[0] = 0x81;
    bytes_[7] = 0xff;
    EXPECT_EQ(
        BitmapMemAdd(&bitmap_, volume_.mountPath.c_str(), volume_.mountPath + "/a", inode, table),
        0);
    EXPECT_EQ(Bits(), std::string("\x81\0\0\0\0\0\0\xff", 8));
}

TEST_F(PinRequestTest, AddingIsTraced) {
    std::string path = volume_.mountPath + "/a";
    unsigned long inode = AddFile(volume_, "a", {{0, 128}, {200, 64, 1}});

    AtEveryLogSetting([&](LogCapture& log) {
        FileMappingTable table;
        EXPECT_EQ(BitmapMemAdd(&bitmap_, volume_.mountPath.c_str(), path, inode, table), 0);
        EXPECT_TRUE(log.Shows({
            kDaemonLog.Verbose(kAdd, "Add file (" + path + ") start"),
            kDaemonLog.Verbose("GetMappingTableFromFile",
                               "Start for file (" + path + "), inode = " + std::to_string(inode)),
            kDaemonLog.Verbose("GetMappingTableFromFile", "Entry number = 2"),
            kDaemonLog.Leave("GetMappingTableFromFile"),
            kDaemonLog.Debug(
                kAdd, "File [" + path + "] start sector=0 num_sector=128 device_start sector =0\n"),
            kUtilLog.Debug("BitmapMemOperation", "Disk start sector=0 num sectors=128\n"),
            kDaemonLog.Debug(kAdd, "File [" + path +
                                       "] start sector=128 num_sector=64 device_start sector "
                                       "=200\n"),
            kUtilLog.Debug("BitmapMemOperation", "Disk start sector=200 num sectors=64\n"),
            kDaemonLog.Verbose(kAdd, "Add file (" + path + ") finish"),
        }));
    });
}

TEST_F(PinRequestTest, LargeNumbersAreToldAsTheyAre) {
    LogCapture log(3);
    FileMappingTable table;
    const uint64_t far = (UINT64_C(7) << 32) + 3;

    g_platform.mappings[4294967295] = {FakeMapping{{{far, far + 1, far + 2, 0}}, 0}};
    EXPECT_EQ(BitmapMemAdd(&bitmap_, volume_.mountPath.c_str(), "/v/a", 4294967295, table), 0);
    EXPECT_TRUE(log.Has(kDaemonLog.Debug(
        kAdd,
        "File [/v/a] start sector=30064771075 num_sector=30064771076 device_start sector "
        "=30064771077\n")));
    EXPECT_TRUE(log.Has(kUtilLog.Debug("BitmapMemOperation",
                                       "Disk start sector=30064771077 num sectors=30064771076\n")));
    EXPECT_TRUE(log.Has(kDaemonLog.Verbose("GetMappingTableFromFile",
                                           "Start for file (/v/a), inode = 4294967295")));
    g_platform.mappings[4294967295][0].result = -1;
    EXPECT_EQ(Pin({Info("a", 4294967295)}), 1);
    EXPECT_TRUE(
        log.Has(kDaemonLog.Error("HandlePinRequest", "Can't add file (" + volume_.mountPath +
                                                         "/a) inode (4294967295) to bitmap")));
    log.Clear();
}

TEST_F(PinRequestTest, AFileThatCannotBeMappedChangesNeitherBitmapNorTable) {
    std::string path = volume_.mountPath + "/a";
    unsigned long inode = AddFile(volume_, "a", {{0, 128}});

    g_platform.mappings[inode][0].result = -1;
    AtEveryLogSetting([&](LogCapture& log) {
        FileMappingTable table;
        table.path = "untouched";
        EXPECT_EQ(BitmapMemAdd(&bitmap_, volume_.mountPath.c_str(), path, inode, table), -1);
        EXPECT_EQ(Bits(), std::string(8, '\0'));
        EXPECT_EQ(table.entries.size(), 0U);
        EXPECT_EQ(table.path, "untouched");
        EXPECT_TRUE(log.Shows({
            kDaemonLog.Verbose(kAdd, "Add file (" + path + ") start"),
            kDaemonLog.Verbose("GetMappingTableFromFile",
                               "Start for file (" + path + "), inode = " + std::to_string(inode)),
            kDaemonLog.Error("GetMappingTableFromFile", "Get mapping result fail."),
            kDaemonLog.Leave("GetMappingTableFromFile"),
            kDaemonLog.Verbose(kAdd, "Can't get mapping table of file (" + path + ")"),
        }));
    });
}

// --- a request

TEST_F(PinRequestTest, FilesAreMappedWrittenSentAndReadInThisOrder) {
    LogCapture log;
    std::string order;
    std::vector<FileInfo> infos = {Info("a", AddFile(volume_, "a", {{0, 128}, {200, 64}})),
                                   Info("b", AddFile(volume_, "b", {{1024, 8}}))};

    bytes_[4] = 0x10;
    g_platform.onCall = [&](const std::string& call) {
        order += call.rfind("GetMappingTable", 0) == 0 ? "map " : "";
        EXPECT_EQ(order == "map " || order == "map map " ? StepsTaken() : "", "");
    };
    OnCall(Call::kPwrite, [&](int) {
        order += "file ";
        EXPECT_TRUE(IoctlsSent().empty()) << "the file before the driver";
    });
    OnCall(Call::kRead, [&](int) {
        order += "read ";
        EXPECT_EQ(IoctlsSent().size(), 1U) << "the driver before the reading";
    });
    RecordReads();
    EXPECT_EQ(Pin(infos), 0);
    EXPECT_EQ(order, "map map file read read read ");
    std::vector<uint64_t> places;
    for (const ReadRecord& read : ReadsTried()) {
        places.push_back(read.offset);
    }
    EXPECT_EQ(places, std::vector<uint64_t>({0, 102400, 524288})) << "in the request's order";

    const std::string expected("\x07\x01\0\0\x10\0\0\0", 8);
    EXPECT_EQ(ReadFile(volume_.bitmapPath), expected);
    std::vector<IoctlRecord> sent = IoctlsSent();
    ASSERT_EQ(sent.size(), 1U);
    EXPECT_EQ(sent[0].path, volume_.cachePath);
    EXPECT_EQ(sent[0].request, static_cast<unsigned long>(FLASH_CACHE_SET_PIN_BITMAP));
    EXPECT_EQ(std::string(sent[0].bitmap.begin(), sent[0].bitmap.end()), expected);
    EXPECT_EQ(CallCount(Call::kRead), 3);
    EXPECT_TRUE(log.Shows({}));
    g_platform.onCall = nullptr;
}

TEST_F(PinRequestTest, ALongPathIsUsedWhole) {
    LogCapture log(2);
    std::string name = Text(511);

    g_platform.mappings[77] = {FakeMapping{{{0, 8, 0, 1}}, 0}};
    EXPECT_EQ(Pin({Info(name, 77)}), 0);
    EXPECT_TRUE(log.Has(
        kDaemonLog.Verbose(kAdd, "Add file (" + volume_.mountPath + "/" + name + ") start")));
    log.Clear();
}

TEST_F(PinRequestTest, ARequestIsTraced) {
    std::string path = volume_.mountPath + "/a";
    LogCapture log(2);
    unsigned long inode = AddFile(volume_, "a", {{0, 8}});

    ASSERT_EQ(Pin({Info("a", inode)}), 0);
    EXPECT_TRUE(ShowsOwn(
        log,
        {
            kDaemonLog.Enter(kHandle),
            kDaemonLog.Verbose(kAdd, "Add file (" + path + ") start"),
            kDaemonLog.Verbose("GetMappingTableFromFile",
                               "Start for file (" + path + "), inode = " + std::to_string(inode)),
            kDaemonLog.Verbose("GetMappingTableFromFile", "Entry number = 1"),
            kDaemonLog.Leave("GetMappingTableFromFile"),
            kDaemonLog.Verbose(kAdd, "Add file (" + path + ") finish"),
            kDaemonLog.Enter("ReadFilesToCache"),
            kDaemonLog.Enter("ReadMappingRangesToCache"),
            kDaemonLog.Verbose("ReadMappingRangesToCache", "Mapping entry size = 1"),
            kDaemonLog.Verbose("ReadMappingRangesToCache",
                               "Read to null (disk start sector = 0 num sectors = 8)"),
            kDaemonLog.Enter("ReadFdToNull"),
            kDaemonLog.Verbose("ReadFdToNull", "offset byte = 0 num bytes = 4096"),
            kDaemonLog.Leave("ReadFdToNull"),
            kDaemonLog.Leave("ReadMappingRangesToCache"),
            kDaemonLog.Leave("ReadFilesToCache"),
            kDaemonLog.Leave(kHandle),
        }));
}

TEST_F(PinRequestTest, ARequestWithoutFilesWritesAndSendsAllTheSame) {
    LogCapture log(2);

    bytes_[0] = 0x81;
    EXPECT_EQ(Pin({}), 0);
    EXPECT_EQ(ReadFile(volume_.bitmapPath), Bits());
    EXPECT_EQ(StepsTaken(), "file driver ");
    EXPECT_TRUE(ShowsOwn(log, {kDaemonLog.Enter(kHandle), kDaemonLog.Enter("ReadFilesToCache"),
                               kDaemonLog.Leave("ReadFilesToCache"), kDaemonLog.Leave(kHandle)}));
}

TEST_F(PinRequestTest, AFileThatCannotBeMappedFailsTheWholeRequest) {
    LogCapture log;
    unsigned long first = AddFile(volume_, "a", {{0, 8}});
    unsigned long second = AddFile(volume_, "b", {{128, 8}});
    unsigned long third = AddFile(volume_, "c", {{256, 8}});

    g_platform.mappings[second][0].result = -1;
    EXPECT_EQ(Pin({Info("a", first), Info("b", second), Info("c", third)}), 1);
    EXPECT_EQ(StepsTaken(), "");
    EXPECT_EQ(g_platform.Count("GetMappingTable"), 2) << "the third is never looked at";
    EXPECT_TRUE(log.Shows({
        kDaemonLog.Error("GetMappingTableFromFile", "Get mapping result fail."),
        kDaemonLog.Error("HandlePinRequest", "Can't add file (" + volume_.mountPath +
                                                 "/b) inode (" + std::to_string(second) +
                                                 ") to bitmap"),
    }));
}

TEST_F(PinRequestTest, AnEmptyRelativePathFailsTheRequest) {
    LogCapture log(2);
    unsigned long inode = AddFile(volume_, "a", {{0, 8}});

    EXPECT_EQ(Pin({Info("a", inode), Info("", 7), Info("a", inode)}), 1);
    EXPECT_EQ(StepsTaken(), "");
    EXPECT_EQ(g_platform.Count("GetMappingTable"), 1);
    EXPECT_TRUE(log.Has(
        kDaemonLog.Error("HandlePinRequest", "Info's relative path should not be empty string")));
    EXPECT_TRUE(log.Has(kDaemonLog.Leave(kHandle)));
}

// Each step fails with those behind it untouched, also when they would have failed too.
TEST_F(PinRequestTest, AFailedStepEndsTheRequest) {
    struct Row {
        const char* what;
        std::function<void()> arrange;
        const char* steps;
        Lines errors;
    };
    const std::function<void()> refuse = [] { FailIoctl(FLASH_CACHE_SET_PIN_BITMAP, 1, EIO); };
    const std::function<void()> readError = [] { FailCall(Call::kRead, 1, EIO); };
    const Lines notWritten = {
        kUtilLog.Error("BitmapFileWrite", "Write bitmap file (" + volume_.bitmapPath + ") error\n"),
        kDaemonLog.Error("HandlePinRequest", "Write bitmap failed")};
    const Lines notSent = {
        kUtilLog.Error("DoIoctl", "Ioctl Error: Send ioctl 65231 Data (0x#) size (8) to " +
                                      volume_.cachePath + ", ret=-1\n"),
        kUtilLog.Error("BitmapDriverUpdate", "Ioctl error"),
        kDaemonLog.Error("HandlePinRequest", "Can't send bitmap to driver")};
    const Row rows[] = {
        {"file", [] { FailCall(Call::kPwrite, 1, ENOSPC); }, "file ", notWritten},
        {"file, driver and read",
         [&] {
             FailCall(Call::kPwrite, 1, ENOSPC);
             refuse();
             readError();
         },
         "file ", notWritten},
        {"driver", refuse, "file driver ", notSent},
        {"driver and read",
         [&] {
             refuse();
             readError();
         },
         "file driver ", notSent},
        {"read",
         readError,
         "file driver read ",
         {kDaemonLog.Error("ReadFdToNull", "Read block error (seek = 0 num bytes = 4096"),
          kDaemonLog.Error("ReadMappingRangesToCache",
                           "Read fd to null failed (disk start sector = 0 num sectors = 8)"),
          kDaemonLog.Error("ReadFilesToCache",
                           "Can't read file (" + volume_.mountPath + "/a) to cache")}},
    };
    unsigned long inode = AddFile(volume_, "a", {{0, 8}});

    for (const Row& row : rows) {
        LogCapture log;
        log.MaskAddresses();
        FakeSystemReset();
        FakeIoctlReset();
        memset(bytes_, 0, sizeof(bytes_));
        unlink(volume_.bitmapPath.c_str());
        row.arrange();
        EXPECT_EQ(Pin({Info("a", inode)}), 1) << row.what;
        EXPECT_EQ(StepsTaken(), row.steps) << row.what;
        EXPECT_TRUE(log.Shows(row.errors)) << row.what;
        // What was done before the step that failed stays, and nothing is done behind it.
        EXPECT_EQ(CallCount(Call::kPwrite), 1) << row.what;
        EXPECT_EQ(IoctlsSent().size(), strstr(row.steps, "driver") == nullptr ? 0U : 1U)
            << row.what;
        EXPECT_EQ(CallCount(Call::kRead), strstr(row.steps, "read") == nullptr ? 0 : 1) << row.what;
        EXPECT_EQ(ReadFile(volume_.bitmapPath),
                  std::string(row.steps) == "file " ? "" : std::string("\x01\0\0\0\0\0\0\0", 8))
            << row.what;

        LogCapture traced(2);
        FakeSystemReset();
        FakeIoctlReset();
        row.arrange();
        EXPECT_EQ(Pin({Info("a", inode)}), 1) << row.what;
        EXPECT_TRUE(traced.Has(kDaemonLog.Leave(kHandle))) << row.what;
    }
}

TEST_F(PinRequestTest, ABitmapFileThatCannotBeOpenedFailsTheRequest) {
    LogCapture log;

    volume_.bitmapPath = dir_ / "no-such-directory/bitmap";
    EXPECT_EQ(Pin({}), 1);
    EXPECT_TRUE(IoctlsSent().empty());
    EXPECT_TRUE(log.Shows({kUtilLog.Error("BitmapFileWrite",
                                          "Can't open bitmap file (" + volume_.bitmapPath + ") \n"),
                           kDaemonLog.Error("HandlePinRequest", "Write bitmap failed")}));
}

TEST_F(PinRequestTest, ADeviceThatCannotBeOpenedFailsTheRequestAfterTheFile) {
    LogCapture log;

    volume_.cachePath = dir_ / "no-such-device";
    EXPECT_EQ(Pin({}), 1);
    EXPECT_EQ(StepsTaken(), "file ");
    EXPECT_TRUE(log.Shows(
        {kUtilLog.Error("DoIoctl", "Open device path (" + volume_.cachePath + ") error\n"),
         kUtilLog.Error("BitmapDriverUpdate", "Ioctl error"),
         kDaemonLog.Error("HandlePinRequest", "Can't send bitmap to driver")}));
}

// File and driver hold the new bits already.
TEST_F(PinRequestTest, AVolumeThatBecomesPendingInterruptsTheReading) {
    LogCapture log(2);
    unsigned long inode = AddFile(volume_, "a", {{0, 8}, {128, 8}});

    OnCall(Call::kRead, [this](int) { ServiceAddPendingSpaceAtomic(volume_.mountPath.c_str()); });
    EXPECT_EQ(Pin({Info("a", inode)}), 2);
    EXPECT_EQ(ReadFile(volume_.bitmapPath)[0], '\x03');
    EXPECT_EQ(IoctlsSent().size(), 1U);
    EXPECT_EQ(CallCount(Call::kRead), 1);
    EXPECT_TRUE(log.Has(kDaemonLog.Leave(kHandle)));
    OnCall(Call::kRead, nullptr);
}

// Only the reading looks at the list: what comes before is done for a pending volume, too.
TEST_F(PinRequestTest, AVolumeThatIsPendingFromTheStartIsWrittenAndSent) {
    ServiceAddPendingSpaceAtomic(volume_.mountPath.c_str());
    EXPECT_EQ(Pin({Info("a", AddFile(volume_, "a", {{0, 8}}))}), 2);
    EXPECT_EQ(StepsTaken(), "file driver ");
    EXPECT_EQ(ReadFile(volume_.bitmapPath)[0], '\x01');
}

TEST_F(PinRequestTest, AFileOfOneUninitializedExtentIsPinnedAndNotRead) {
    LogCapture log;

    EXPECT_EQ(Pin({Info("a", AddFile(volume_, "a", {{128, 8, 1}}))}), 0);
    EXPECT_EQ(ReadFile(volume_.bitmapPath)[0], '\x02');
    EXPECT_EQ(StepsTaken(), "file driver ");
    EXPECT_TRUE(log.Shows(
        {kDaemonLog.Notice("GetMappingTableFromFile", "Only get 1 unitilized entry from file (" +
                                                          volume_.mountPath + "/a)")}));
}

}  // namespace
