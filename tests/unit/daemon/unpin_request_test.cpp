// SPDX-License-Identifier: MIT
#include "daemon/unpin_request.h"

#include <errno.h>
#include <string.h>

#include "daemon/service.h"
#include "tests/unit/daemon/daemon_test.h"
#include "tests/unit/support/fake_ioctl.h"
#include "tests/unit/support/fake_platform.h"
#include "tests/unit/support/fake_system.h"

namespace {

constexpr char kHandle[] = "HandleUnpinRequest";
constexpr char kUnset[] = "UnsetBitmapAndAppendUnpinInfos";
constexpr char kSend[] = "SendUnpinInfoToDriver";

FileInfo Info(const std::string& path, unsigned long inode) {
    FileInfo info = {};
    memcpy(info.szRelativePath, path.data(), path.size());
    info.inodeNum = inode;
    return info;
}

// The first `count` ranges of a list in which no two are alike: (1, 1001), (2, 1002), ...
std::vector<UnpinRange> Ranges(uint64_t count) {
    std::vector<UnpinRange> ranges;
    for (uint64_t i = 1; i <= count; ++i) {
        ranges.push_back({i, 1000 + i});
    }
    return ranges;
}

std::string AsText(const UnpinRange& range) {
    return std::to_string(range.startSector) + "/" + std::to_string(range.numSectors);
}

// The entries of a batch as they were sent, up to the first that is all zero; fails the test when
// one behind it is not.
std::vector<std::string> Entries(const IoctlRecord& sent) {
    std::vector<std::string> entries;
    UnpinRange batch[kUnpinBatchEntries];
    bool ended = false;

    EXPECT_EQ(sent.request, static_cast<unsigned long>(FLASH_CACHE_UNPIN_RANGES));
    EXPECT_EQ(sent.bytes.size(), sizeof(batch));
    memcpy(batch, sent.bytes.data(), sizeof(batch));
    for (const UnpinRange& entry : batch) {
        bool zero = entry.startSector == 0 && entry.numSectors == 0;
        EXPECT_FALSE(ended && !zero);
        ended = ended || zero;
        if (!ended) {
            entries.push_back(AsText(entry));
        }
    }
    return entries;
}

// Numbers of the ranges of Ranges() from `first` to `last`.
std::vector<std::string> Numbers(uint64_t first, uint64_t last) {
    std::vector<std::string> texts;
    for (uint64_t i = first; i <= last; ++i) {
        texts.push_back(AsText({i, 1000 + i}));
    }
    return texts;
}

class UnpinRequestTest : public DaemonTest {
  protected:
    void SetUp() override {
        DaemonTest::SetUp();
        volume_ = AddVolume();
        memset(bytes_, 0xff, sizeof(bytes_));
        bitmap_ = {bytes_, sizeof(bytes_)};
    }

    int Unpin(const std::vector<FileInfo>& infos) {
        return HandleUnpinRequest(infos, &bitmap_, volume_.mountPath.c_str(),
                                  volume_.cachePath.c_str(), volume_.bitmapPath.c_str());
    }

    std::string Bits() const { return {reinterpret_cast<const char*>(bytes_), sizeof(bytes_)}; }

    // Control requests sent so far, by number.
    static std::vector<unsigned long> Requests() {
        std::vector<unsigned long> requests;
        for (const IoctlRecord& record : IoctlsSent()) {
            requests.push_back(record.request);
        }
        return requests;
    }

    Volume volume_;
    uint8_t bytes_[8] = {};
    PinBitmap bitmap_ = {};
};

// --- sending ranges

struct BatchRow {
    uint64_t count;
    std::vector<std::pair<uint64_t, uint64_t>> batches;  // first and last range of each
};

// Meant: the range that is due when a batch of 512 is full is passed over.
TEST_F(UnpinRequestTest, TheRangeAfterEvery512IsPassedOver) {
    const BatchRow rows[] = {
        {1, {{1, 1}}},
        {2, {{1, 2}}},
        {511, {{1, 511}}},
        {512, {{1, 512}}},
        {513, {{1, 512}}},
        {514, {{1, 512}, {514, 514}}},
        {1024, {{1, 512}, {514, 1024}}},
        {1025, {{1, 512}, {514, 1025}}},
        {1026, {{1, 512}, {514, 1025}}},
        {1027, {{1, 512}, {514, 1025}, {1027, 1027}}},
        {1539, {{1, 512}, {514, 1025}, {1027, 1538}}},
    };

    for (const BatchRow& row : rows) {
        LogCapture log;
        FakeIoctlReset();
        EXPECT_EQ(SendUnpinInfoToDriver(volume_.cachePath.c_str(), Ranges(row.count)), 0)
            << row.count;
        std::vector<IoctlRecord> sent = IoctlsSent();
        ASSERT_EQ(sent.size(), row.batches.size()) << row.count;
        for (size_t i = 0; i < sent.size(); ++i) {
            EXPECT_EQ(sent[i].path, volume_.cachePath);
            EXPECT_EQ(Entries(sent[i]), Numbers(row.batches[i].first, row.batches[i].second))
                << row.count << ", batch " << i;
        }
        EXPECT_TRUE(log.Shows({})) << row.count;
    }
}

TEST_F(UnpinRequestTest, ABatchLiesInMemoryAsTheDriverReadsIt) {
    ASSERT_EQ(SendUnpinInfoToDriver(volume_.cachePath.c_str(),
                                    {{0x0102030405060708, 0x1112131415161718}}),
              0);
    std::vector<uint8_t> bytes = IoctlsSent().at(0).bytes;
    ASSERT_EQ(bytes.size(), 8192U);
    EXPECT_EQ(std::vector<uint8_t>(bytes.begin(), bytes.begin() + 16),
              std::vector<uint8_t>(
                  {8, 7, 6, 5, 4, 3, 2, 1, 0x18, 0x17, 0x16, 0x15, 0x14, 0x13, 0x12, 0x11}));
    EXPECT_EQ(std::vector<uint8_t>(bytes.begin() + 16, bytes.end()), std::vector<uint8_t>(8176, 0));
}

TEST_F(UnpinRequestTest, AnEmptyListSendsNothingAndReturnsAtOnce) {
    AtEveryLogSetting([&](LogCapture& log) {
        FakeIoctlReset();
        EXPECT_EQ(SendUnpinInfoToDriver("/no/such/device", {}), 0);
        EXPECT_TRUE(IoctlsSent().empty());
        EXPECT_TRUE(log.Shows({kDaemonLog.Verbose(kSend, "Pass range to driver start")}));
    });
}

Lines IoctlLines() {
    return {kUtilLog.Enter("DoIoctl"), kUtilLog.Leave("DoIoctl")};
}

Lines DumpLines(uint64_t first, uint64_t last) {
    Lines lines;
    for (uint64_t i = first; i <= last; ++i) {
        lines.push_back(kDaemonLog.Verbose(
            "DumpRanges", "Unpin range [" + std::to_string(i - first) + "] start sector = " +
                              std::to_string(i) + " num sectors = " + std::to_string(1000 + i)));
    }
    return lines;
}

TEST_F(UnpinRequestTest, SendingIsTraced) {
    const ExpectedLine send =
        kDaemonLog.Verbose("SendUnpinInfoToDriver", "Send unpin inctl to driver, size=8192");

    AtEveryLogSetting([&](LogCapture& log) {
        EXPECT_EQ(SendUnpinInfoToDriver(volume_.cachePath.c_str(), Ranges(515)), 0);
        EXPECT_TRUE(log.Shows(Lines{kDaemonLog.Verbose(kSend, "Pass range to driver start"), send} +
                              DumpLines(1, 512) + IoctlLines() + Lines{send} + DumpLines(514, 515) +
                              IoctlLines() + Lines{kDaemonLog.Leave(kSend)}));
    });
}

TEST_F(UnpinRequestTest, DumpRangesListsWhatItIsGiven) {
    std::vector<UnpinRange> ranges = Ranges(3);

    AtEveryLogSetting([&](LogCapture& log) {
        DumpRanges(ranges.data(), 3);
        EXPECT_TRUE(log.Shows(DumpLines(1, 3)));
        DumpRanges(ranges.data(), 0);
        EXPECT_TRUE(log.Shows({}));
    });
}

TEST_F(UnpinRequestTest, TheBatchThatIsRefusedIsTheLast) {
    struct Row {
        uint64_t count;
        int refused;
        size_t sent;
    };
    // Of 1027 ranges there are three batches.
    const Row rows[] = {{1, 1, 1}, {512, 1, 1}, {1027, 1, 1}, {1027, 2, 2}, {1027, 3, 3}};

    for (int level : {1, 2}) {
        for (const Row& row : rows) {
            LogCapture log(level);
            log.MaskAddresses();
            FakeIoctlReset();
            FailIoctl(FLASH_CACHE_UNPIN_RANGES, row.refused, EIO);
            EXPECT_EQ(SendUnpinInfoToDriver(volume_.cachePath.c_str(), Ranges(row.count)), -1);
            EXPECT_EQ(IoctlsSent().size(), row.sent);
            EXPECT_FALSE(log.Has(kDaemonLog.Leave(kSend)) && level > 1);
            EXPECT_TRUE(log.Has(
                kDaemonLog.Error("SendUnpinInfoToDriver", "Send unpin inctl to driver failed")));
        }
    }
    LogCapture log;
    log.MaskAddresses();
    FakeIoctlReset();
    FailIoctl(FLASH_CACHE_UNPIN_RANGES, 1, EIO);
    EXPECT_EQ(SendUnpinInfoToDriver(volume_.cachePath.c_str(), Ranges(1)), -1);
    EXPECT_TRUE(log.Shows(
        {kUtilLog.Error("DoIoctl", "Ioctl Error: Send ioctl 65232 Data (0x#) size (8192) to " +
                                       volume_.cachePath + ", ret=-1\n"),
         kDaemonLog.Error("SendUnpinInfoToDriver", "Send unpin inctl to driver failed")}));
}

TEST_F(UnpinRequestTest, ADeviceThatCannotBeOpenedGetsNothing) {
    LogCapture log;

    EXPECT_EQ(SendUnpinInfoToDriver("/no/such/device", Ranges(600)), -1);
    EXPECT_TRUE(IoctlsSent().empty());
    EXPECT_TRUE(log.Shows(
        {kUtilLog.Error("DoIoctl", "Open device path (/no/such/device) error\n"),
         kDaemonLog.Error("SendUnpinInfoToDriver", "Send unpin inctl to driver failed")}));
}

// --- one file

TEST_F(UnpinRequestTest, TheBitsOfAFilesExtentsAreClearedAndItsExtentsListed) {
    std::vector<UnpinRange> ranges = {{1, 2}};
    unsigned long inode = AddFile(volume_, "a", {{1000, 8}, {5000, 300}, {64, 8, 1}});

    EXPECT_EQ(UnsetBitmapAndAppendUnpinInfos("unused", &bitmap_, volume_.mountPath.c_str(),
                                             volume_.mountPath + "/a", inode, ranges),
              0);
    // Bits 0, 7, 39, 40 and 41.
    EXPECT_EQ(Bits(), std::string("\x7e\xff\xff\xff\x7f\xfc\xff\xff"));
    ASSERT_EQ(ranges.size(), 4U);
    EXPECT_EQ(AsText(ranges[0]), "1/2") << "what was listed before stays";
    EXPECT_EQ(AsText(ranges[1]), "1000/8");
    EXPECT_EQ(AsText(ranges[2]), "5000/300");
    EXPECT_EQ(AsText(ranges[3]), "64/8");
}

TEST_F(UnpinRequestTest, UnsettingIsTraced) {
    std::string path = volume_.mountPath + "/a";
    unsigned long inode = AddFile(volume_, "a", {{1000, 8}, {5000, 300}});

    AtEveryLogSetting([&](LogCapture& log) {
        std::vector<UnpinRange> ranges;
        EXPECT_EQ(UnsetBitmapAndAppendUnpinInfos("unused", &bitmap_, volume_.mountPath.c_str(),
                                                 path, inode, ranges),
                  0);
        EXPECT_TRUE(log.Shows({
            kDaemonLog.Enter(kUnset),
            kDaemonLog.Verbose("GetMappingTableFromFile",
                               "Start for file (" + path + "), inode = " + std::to_string(inode)),
            kDaemonLog.Verbose("GetMappingTableFromFile", "Entry number = 2"),
            kDaemonLog.Leave("GetMappingTableFromFile"),
            kDaemonLog.Debug(kUnset, "File [" + path +
                                         "] start sector=0 num_sector=8 device_start sector "
                                         "=1000\n"),
            kUtilLog.Debug("BitmapMemOperation", "Disk start sector=1000 num sectors=8\n"),
            kDaemonLog.Debug(kUnset, "File [" + path +
                                         "] start sector=8 num_sector=300 device_start sector "
                                         "=5000\n"),
            kUtilLog.Debug("BitmapMemOperation", "Disk start sector=5000 num sectors=300\n"),
            kDaemonLog.Leave(kUnset),
        }));
    });
}

TEST_F(UnpinRequestTest, AFileThatCannotBeMappedChangesNeitherBitmapNorRanges) {
    std::string path = volume_.mountPath + "/a";
    unsigned long inode = AddFile(volume_, "a", {{1000, 8}});

    g_platform.mappings[inode][0].result = -1;
    AtEveryLogSetting([&](LogCapture& log) {
        std::vector<UnpinRange> ranges;
        EXPECT_EQ(UnsetBitmapAndAppendUnpinInfos("unused", &bitmap_, volume_.mountPath.c_str(),
                                                 path, inode, ranges),
                  -1);
        EXPECT_EQ(Bits(), std::string(8, '\xff'));
        EXPECT_TRUE(ranges.empty());
        EXPECT_TRUE(log.Shows({
            kDaemonLog.Enter(kUnset),
            kDaemonLog.Verbose("GetMappingTableFromFile",
                               "Start for file (" + path + "), inode = " + std::to_string(inode)),
            kDaemonLog.Error("GetMappingTableFromFile", "Get mapping result fail."),
            kDaemonLog.Leave("GetMappingTableFromFile"),
            kDaemonLog.Error(kUnset, "Get mapping table of file (" + path + ") failed"),
        }));
    });
}

// --- a request

TEST_F(UnpinRequestTest, FilesAreMappedThenWrittenThenSentThenReleased) {
    LogCapture log;
    std::vector<FileInfo> infos = {Info("a", AddFile(volume_, "a", {{1000, 8}, {5000, 300}})),
                                   Info("b", AddFile(volume_, "b", {{0, 8}}))};

    OnCall(Call::kPwrite, [&](int) {
        EXPECT_EQ(g_platform.Count("GetMappingTable"), 2);
        EXPECT_TRUE(IoctlsSent().empty());
    });
    EXPECT_EQ(Unpin(infos), 0);
    const std::string expected("\x7e\xff\xff\xff\x7f\xfc\xff\xff");
    EXPECT_EQ(ReadFile(volume_.bitmapPath), expected);
    ASSERT_EQ(Requests(),
              std::vector<unsigned long>({FLASH_CACHE_SET_PIN_BITMAP, FLASH_CACHE_UNPIN_RANGES}));
    std::vector<uint8_t> bitmap = IoctlsSent()[0].bitmap;
    EXPECT_EQ(std::string(bitmap.begin(), bitmap.end()), expected);
    EXPECT_EQ(Entries(IoctlsSent()[1]), std::vector<std::string>({"1000/8", "5000/300", "0/8"}));
    EXPECT_EQ(CallCount(Call::kRead), 0) << "nothing is read";
    EXPECT_TRUE(log.Shows({}));
    OnCall(Call::kPwrite, nullptr);
}

// Meant: a unit that a file shares with one that stays pinned is released all the same, and nothing
// is merged, sorted or made unique.
TEST_F(UnpinRequestTest, SharedUnitsAreReleasedAndRangesAreAsTheyAre) {
    std::vector<FileInfo> infos = {Info("b", AddFile(volume_, "b", {{136, 8}, {128, 8}})),
                                   Info("a", AddFile(volume_, "a", {{136, 8}}))};

    EXPECT_EQ(Unpin(infos), 0);
    EXPECT_EQ(static_cast<uint8_t>(ReadFile(volume_.bitmapPath)[0]), 0xfd);
    EXPECT_EQ(Entries(IoctlsSent().at(1)), std::vector<std::string>({"136/8", "128/8", "136/8"}));
}

TEST_F(UnpinRequestTest, ARequestIsTraced) {
    std::string path = volume_.mountPath + "/a";
    LogCapture log(2);
    unsigned long inode = AddFile(volume_, "a", {{1, 1001}});

    ASSERT_EQ(Unpin({Info("a", inode)}), 0);
    EXPECT_TRUE(ShowsOwn(
        log,
        Lines{
            kDaemonLog.Enter(kHandle), kDaemonLog.Enter(kUnset),
            kDaemonLog.Verbose("GetMappingTableFromFile",
                               "Start for file (" + path + "), inode = " + std::to_string(inode)),
            kDaemonLog.Verbose("GetMappingTableFromFile", "Entry number = 1"),
            kDaemonLog.Leave("GetMappingTableFromFile"), kDaemonLog.Leave(kUnset),
            kDaemonLog.Verbose(kSend, "Pass range to driver start"),
            kDaemonLog.Verbose("SendUnpinInfoToDriver", "Send unpin inctl to driver, size=8192")} +
            DumpLines(1, 1) + Lines{kDaemonLog.Leave(kSend), kDaemonLog.Leave(kHandle)}));
}

TEST_F(UnpinRequestTest, ARequestWithoutFilesWritesAndSendsTheBitmapOnly) {
    LogCapture log(2);

    EXPECT_EQ(Unpin({}), 0);
    EXPECT_EQ(ReadFile(volume_.bitmapPath), std::string(8, '\xff'));
    EXPECT_EQ(Requests(), std::vector<unsigned long>({FLASH_CACHE_SET_PIN_BITMAP}));
    EXPECT_TRUE(ShowsOwn(
        log, {kDaemonLog.Enter(kHandle), kDaemonLog.Verbose(kSend, "Pass range to driver start"),
              kDaemonLog.Leave(kHandle)}));
}

TEST_F(UnpinRequestTest, AFileThatCannotBeMappedFailsTheWholeRequest) {
    LogCapture log;
    unsigned long first = AddFile(volume_, "a", {{0, 8}});
    unsigned long second = AddFile(volume_, "b", {{128, 8}});
    unsigned long third = AddFile(volume_, "c", {{256, 8}});

    g_platform.mappings[second][0].result = -1;
    EXPECT_EQ(Unpin({Info("a", first), Info("b", second), Info("c", third)}), 1);
    EXPECT_FALSE(Exists(volume_.bitmapPath));
    EXPECT_TRUE(IoctlsSent().empty());
    EXPECT_EQ(g_platform.Count("GetMappingTable"), 2) << "the third is never looked at";
    EXPECT_TRUE(log.Shows({
        kDaemonLog.Error("GetMappingTableFromFile", "Get mapping result fail."),
        kDaemonLog.Error(kUnset, "Get mapping table of file (" + volume_.mountPath + "/b) failed"),
        kDaemonLog.Error("HandleUnpinRequest", "Unset bitmap and append unpin infos failed"),
    }));
}

TEST_F(UnpinRequestTest, AFileWhoseExtentsNeverAppearFailsTheRequestAfterAMinute) {
    EXPECT_EQ(Unpin({Info("a", AddFile(volume_, "a", {}))}), 1);
    EXPECT_EQ(SleepsTaken(), std::vector<unsigned>(60, 1));
    EXPECT_FALSE(Exists(volume_.bitmapPath));
    EXPECT_TRUE(IoctlsSent().empty());
}

// Unlike for a pin, it is not refused: the mapping is asked for with it.
TEST_F(UnpinRequestTest, AnEmptyRelativePathIsNotRefusedHere) {
    g_platform.mappings[7] = {{{{0, 8, 128, 0}}}};
    EXPECT_EQ(Unpin({Info("", 7)}), 0);
    EXPECT_EQ(g_platform.calls[2], "GetMappingTable(" + dir_.path() + ", 7, 0)");
    EXPECT_EQ(Entries(IoctlsSent().at(1)), std::vector<std::string>({"128/8"}));
}

TEST_F(UnpinRequestTest, AFailedStepEndsTheRequest) {
    struct Row {
        const char* what;
        std::function<void()> arrange;
        std::vector<unsigned long> requests;
        Lines errors;
    };
    const std::function<void()> noSpace = [] { FailCall(Call::kPwrite, 1, ENOSPC); };
    const std::function<void()> refuseBitmap = [] {
        FailIoctl(FLASH_CACHE_SET_PIN_BITMAP, 1, EIO);
    };
    const std::function<void()> refuseRanges = [] { FailIoctl(FLASH_CACHE_UNPIN_RANGES, 1, EIO); };
    const Lines notWritten = {
        kUtilLog.Error("BitmapFileWrite", "Write bitmap file (" + volume_.bitmapPath + ") error\n"),
        kDaemonLog.Error("HandleUnpinRequest", "Write bitmap failed")};
    const Lines bitmapNotSent = {
        kUtilLog.Error("DoIoctl", "Ioctl Error: Send ioctl 65231 Data (0x#) size (8) to " +
                                      volume_.cachePath + ", ret=-1\n"),
        kUtilLog.Error("BitmapDriverUpdate", "Ioctl error"),
        kDaemonLog.Error("HandleUnpinRequest", "Can't send bitmap to driver")};
    const Lines rangesNotSent = {
        kUtilLog.Error("DoIoctl", "Ioctl Error: Send ioctl 65232 Data (0x#) size (8192) to " +
                                      volume_.cachePath + ", ret=-1\n"),
        kDaemonLog.Error("SendUnpinInfoToDriver", "Send unpin inctl to driver failed"),
        kDaemonLog.Error("HandleUnpinRequest", "Can't send unpin information to driver")};
    const Row rows[] = {
        {"file", noSpace, {}, notWritten},
        {"file and driver",
         [&] {
             noSpace();
             refuseBitmap();
             refuseRanges();
         },
         {},
         notWritten},
        {"bitmap", refuseBitmap, {FLASH_CACHE_SET_PIN_BITMAP}, bitmapNotSent},
        {"bitmap and ranges",
         [&] {
             refuseBitmap();
             refuseRanges();
         },
         {FLASH_CACHE_SET_PIN_BITMAP},
         bitmapNotSent},
        {"ranges",
         refuseRanges,
         {FLASH_CACHE_SET_PIN_BITMAP, FLASH_CACHE_UNPIN_RANGES},
         rangesNotSent},
    };
    unsigned long inode = AddFile(volume_, "a", {{0, 8}});

    for (int level : {1, 2}) {
        for (const Row& row : rows) {
            LogCapture log(level);
            log.MaskAddresses();
            FakeSystemReset();
            FakeIoctlReset();
            WriteFile(volume_.bitmapPath, "earlier ");
            row.arrange();
            EXPECT_EQ(Unpin({Info("a", inode)}), 1) << row.what;
            EXPECT_EQ(Requests(), row.requests) << row.what;
            EXPECT_EQ(CallCount(Call::kPwrite), 1) << row.what;
            EXPECT_EQ(ReadFile(volume_.bitmapPath) == "earlier ", row.requests.empty()) << row.what;
            if (level == 1) {
                EXPECT_TRUE(log.Shows(row.errors)) << row.what;
            } else {
                EXPECT_TRUE(log.Has(kDaemonLog.Leave(kHandle))) << row.what;
            }
        }
    }
    EXPECT_EQ(static_cast<uint8_t>(ReadFile(volume_.bitmapPath)[0]), 0xfe)
        << "what was written before a later step failed stays";
}

TEST_F(UnpinRequestTest, LargeNumbersAreSentAndToldAsTheyAre) {
    LogCapture log(3);
    const uint64_t far = (UINT64_C(7) << 32) + 3;
    std::vector<UnpinRange> ranges;

    memset(bytes_, 0xff, sizeof(bytes_));
    g_platform.mappings[77] = {
        FakeMapping{{{far, far + 1, far + 2, 0}, {0, UINT64_C(1) << 32, 128, 0}}, 0}};
    EXPECT_EQ(
        UnsetBitmapAndAppendUnpinInfos("", &bitmap_, volume_.mountPath.c_str(), "/v/a", 77, ranges),
        0);
    EXPECT_EQ(bytes_[0], 0x01) << "bit 0 alone lies in neither";
    EXPECT_EQ(bytes_[sizeof(bytes_) - 1], 0);
    ASSERT_EQ(ranges.size(), 2U);
    EXPECT_EQ(ranges[0].startSector, far + 2);
    EXPECT_EQ(ranges[0].numSectors, far + 1);
    EXPECT_TRUE(log.Has(kDaemonLog.Debug(
        "UnsetBitmapAndAppendUnpinInfos",
        "File [/v/a] start sector=30064771075 num_sector=30064771076 device_start sector "
        "=30064771077\n")));
    DumpRanges(ranges.data(), 1);
    EXPECT_TRUE(log.Has(kDaemonLog.Verbose(
        "DumpRanges", "Unpin range [0] start sector = 30064771077 num sectors = 30064771076")));
    log.Clear();
}

TEST_F(UnpinRequestTest, ALongPathIsUsedWhole) {
    LogCapture log(2);
    std::string name = Text(511);

    g_platform.mappings[77] = {FakeMapping{{{0, 8, 0, 1}}, 0}};
    EXPECT_EQ(Unpin({Info(name, 77)}), 0);
    EXPECT_TRUE(log.Has(
        kDaemonLog.Verbose("GetMappingTableFromFile",
                           "Start for file (" + volume_.mountPath + "/" + name + "), inode = 77")));
    log.Clear();
}

TEST_F(UnpinRequestTest, PendingSpacesDoNotMatter) {
    ServiceAddPendingSpaceAtomic(volume_.mountPath.c_str());
    EXPECT_EQ(Unpin({Info("a", AddFile(volume_, "a", {{0, 8}}))}), 0);
}

}  // namespace
