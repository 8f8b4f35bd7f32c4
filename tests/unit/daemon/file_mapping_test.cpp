// SPDX-License-Identifier: MIT
#include "daemon/file_mapping.h"

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <sys/stat.h>

#include <memory>

#include "tests/unit/daemon/daemon_test.h"
#include "tests/unit/support/fake_files.h"
#include "tests/unit/support/fake_platform.h"
#include "tests/unit/support/fake_system.h"

namespace {

using Strings = std::vector<std::string>;

constexpr char kFunction[] = "GetMappingTableFromFile";
constexpr unsigned long kInode = 42;
const FileMappingEntry kEntry = {0, 8, 1000, 0};
const FileMappingEntry kOther = {8, 300, 5000, 0};
const FileMappingEntry kUninitialized = {0, 8, 1000, 1};

class FileMappingTest : public DaemonTest {
  protected:
    void SetUp() override {
        DaemonTest::SetUp();
        path_ = dir_ / "file";
        debugPath_ = dir_ / "debug";
        WriteFile(path_, "content");
        RedirectPath(kDebugSettingsPath, debugPath_);
    }

    // Starts anew with these answers, given one after the other, the last one for good.
    void Answers(const std::vector<FakeMapping>& answers) {
        FakePlatformReset();
        FakeSystemReset();
        g_platform.mappings[kInode] = answers;
    }

    int Map() {
        table_ = {};
        return GetMappingTableFromFile(table_, "/volume1", path_, kInode);
    }

    ExpectedLine Start() const {
        return kDaemonLog.Verbose(kFunction, "Start for file (" + path_ + "), inode = 42");
    }

    // What the test for a simulated failure leaves when there is no debug file: nothing.
    std::string path_;
    std::string debugPath_;
    FileMappingTable table_;
};

const ExpectedLine kLeave = kDaemonLog.Leave(kFunction);

// --- the device

TEST_F(FileMappingTest, TheDeviceIsThatOfThePath) {
    LogCapture log(3);
    std::unique_ptr<FileSystemDevice> device(CreateFileSystemDeviceByFilePath("/volume1"));

    EXPECT_NE(device, nullptr);
    EXPECT_EQ(g_platform.calls,
              Strings({"GetDevicePath(/volume1, false)", "Create(/dev/fakeVolume)"}));
    EXPECT_TRUE(log.Shows({}));
}

TEST_F(FileMappingTest, OnlyMinusOneAndOneAreFailuresOfTheDevicePath) {
    struct Row {
        int result;
        const char* error;
    };
    const Row rows[] = {
        {-1, "Get device path of file fail. File path = \"/volume1\""},
        {1, "Device path of file not found. File path = \"/volume1\""},
        {0, nullptr},
        {2, nullptr},
        {-2, nullptr},
    };

    AtEveryLogSetting([&](LogCapture& log) {
        for (const Row& row : rows) {
            FakePlatformReset();
            g_platform.devicePathResult = row.result;
            std::unique_ptr<FileSystemDevice> device(CreateFileSystemDeviceByFilePath("/volume1"));
            EXPECT_EQ(device != nullptr, row.error == nullptr) << row.result;
            EXPECT_EQ(g_platform.Count("Create"), row.error == nullptr ? 1 : 0) << row.result;
            EXPECT_TRUE(log.Shows(
                row.error == nullptr
                    ? Lines()
                    : Lines{kDaemonLog.Error("CreateFileSystemDeviceByFilePath", row.error)}))
                << row.result;
        }
    });
}

TEST_F(FileMappingTest, ADeviceThatCannotBeMadeIsNull) {
    AtEveryLogSetting([](LogCapture& log) {
        g_platform.createsDevice = false;
        EXPECT_EQ(CreateFileSystemDeviceByFilePath("/volume1"), nullptr);
        EXPECT_TRUE(log.Shows({kDaemonLog.Error("CreateFileSystemDeviceByFilePath",
                                                "Create file system device \"/dev/fakeVolume\" "
                                                "fail.")}));
    });
}

// --- the simulated failure

TEST_F(FileMappingTest, TheDebugFileNamesOneFileExactly) {
    struct Row {
        const char* what;
        std::string content;
        int simulated;
    };
    const Row rows[] = {
        {"the path", "/volume1/a.bin", 1},
        {"the path and a newline", "/volume1/a.bin\n", 1},
        {"two newlines", "/volume1/a.bin\n\n", 0},
        {"a newline before", "\n/volume1/a.bin", 0},
        {"a second line", "/volume1/a.bin\nprint_level=debug\n", 0},
        {"a second line without its newline", "/volume1/a.bin\nx", 0},
        {"as a second line", "print_level=debug\n/volume1/a.bin\n", 0},
        {"a blank behind", "/volume1/a.bin ", 0},
        {"a carriage return", "/volume1/a.bin\r\n", 0},
        {"a blank before", " /volume1/a.bin", 0},
        {"another file", "/volume1/b.bin\n", 0},
        {"a prefix", "/volume1/a.bi\n", 0},
        {"longer", "/volume1/a.bin2\n", 0},
        {"another case", "/volume1/A.bin\n", 0},
        {"a null byte behind", std::string("/volume1/a.bin\0", 15), 0},
        {"a print level", "3", 0},
        {"a setting", "print_level=verbose\n", 0},
        {"a newline only", "\n", 0},
    };

    AtEveryLogSetting([&](LogCapture& log) {
        for (const Row& row : rows) {
            WriteFile(debugPath_, row.content);
            EXPECT_EQ(FileSimulateGetMappingFailed("/volume1/a.bin"), row.simulated) << row.what;
            // Shown whole, up to a null byte; the trace of the comparison without the last newline.
            std::string shown = row.content.c_str();
            std::string compared = shown.substr(0, shown.size() - (shown.back() == '\n' ? 1 : 0));
            EXPECT_TRUE(log.Shows({
                kUtilLog.Verbose("FileReadString", "Get text = " + shown),
                kDaemonLog.Debug("FileSimulateGetMappingFailed",
                                 "Simulate error file=/volume1/a.bin failed failed=" + compared +
                                     " ret=" + std::to_string(row.simulated)),
            })) << row.what;
        }
    });
}

TEST_F(FileMappingTest, APathMayHoldANewline) {
    for (const char* content : {"/volume1/a\nb", "/volume1/a\nb\n"}) {
        WriteFile(debugPath_, content);
        EXPECT_EQ(FileSimulateGetMappingFailed("/volume1/a\nb"), 1);
        EXPECT_EQ(FileSimulateGetMappingFailed("/volume1/a"), 0);
    }
}

// Anybody can make the file; the worker waits for nobody and keeps no more of it than a path has.
TEST_F(FileMappingTest, ADebugFileOfAnyKindIsReadWithoutWaiting) {
    LogCapture log;
    const ExpectedLine nothing = kUtilLog.Error(
        "FileReadString", std::string("Can't get a line from file (") + kDebugSettingsPath + ")");

    ASSERT_EQ(mkfifo(debugPath_.c_str(), 0666), 0);
    EXPECT_EQ(FileSimulateGetMappingFailed("/volume1/a.bin"), 0);
    EXPECT_TRUE(log.Shows({nothing}));
    ASSERT_EQ(unlink(debugPath_.c_str()), 0);
    ASSERT_EQ(mkdir(debugPath_.c_str(), 0777), 0);
    EXPECT_EQ(FileSimulateGetMappingFailed("/volume1/a.bin"), 0);
    EXPECT_TRUE(log.Shows({nothing}));
    ASSERT_EQ(rmdir(debugPath_.c_str()), 0);
    RedirectPath(kDebugSettingsPath, "/dev/zero");
    EXPECT_EQ(FileSimulateGetMappingFailed("/volume1/a.bin"), 0);
    EXPECT_TRUE(log.Shows({nothing}));
}

TEST_F(FileMappingTest, OnlyWhatCanBeAPathIsRead) {
    const std::string longest(PATH_MAX - 1, 'x');
    LogCapture log(3);

    WriteFile(debugPath_, longest + "\n");
    EXPECT_EQ(FileSimulateGetMappingFailed(longest), 1);
    WriteFile(debugPath_, longest + "\n\n");
    EXPECT_EQ(FileSimulateGetMappingFailed(longest), 0);
    WriteFile(debugPath_, "/volume1/a.bin\n");
    ASSERT_EQ(truncate(debugPath_.c_str(), off_t{3} << 30), 0);
    RecordReads();
    EXPECT_EQ(FileSimulateGetMappingFailed("/volume1/a.bin"), 0);
    size_t size = 0;
    for (const ReadRecord& record : ReadsTried()) {
        size += record.size;
    }
    EXPECT_EQ(size, size_t{PATH_MAX} + 1);
    log.Clear();
}

TEST_F(FileMappingTest, NothingIsSimulatedWithoutADebugFile) {
    LogCapture log(3);

    EXPECT_EQ(FileSimulateGetMappingFailed("/volume1/a.bin"), 0);
    EXPECT_TRUE(log.Shows({}));
}

TEST_F(FileMappingTest, ADebugFileThatCannotBeReadSimulatesNothing) {
    AtEveryLogSetting([&](LogCapture& log) {
        WriteFile(debugPath_, "");
        EXPECT_EQ(FileSimulateGetMappingFailed(""), 0);
        EXPECT_TRUE(log.Shows(
            {kUtilLog.Error("FileReadString", std::string("Can't get a line from file (") +
                                                  kDebugSettingsPath + ")")}));
    });
}

// --- syncing

TEST_F(FileMappingTest, DoFsync) {
    LogCapture log(3);

    EXPECT_EQ(DoFsync(path_.c_str()), 0);
    EXPECT_EQ(CallCount(Call::kFsync), 1);
    ASSERT_EQ(OpensTried().size(), 1U);
    EXPECT_EQ(OpensTried()[0].flags & O_ACCMODE, O_RDONLY);
    EXPECT_TRUE(log.Shows({}));
}

TEST_F(FileMappingTest, AFifoIsNotWaitedFor) {
    const std::string fifo = path_ + "-fifo";
    LogCapture log;

    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    EXPECT_EQ(DoFsync(fifo.c_str()), -1);
    EXPECT_TRUE(log.Shows({kDaemonLog.Error("DoFsync", "Do fsync failed")}));
}

TEST_F(FileMappingTest, AFileThatCannotBeSyncedIsClosedAndReported) {
    AtEveryLogSetting([&](LogCapture& log) {
        EXPECT_EQ(DoFsync((path_ + "-missing").c_str()), -1);
        EXPECT_TRUE(
            log.Shows({kDaemonLog.Error("DoFsync", "Can't open file " + path_ + "-missing")}));
        for (int error : {EIO, EINTR}) {
            FailCall(Call::kFsync, 1, error);
            EXPECT_EQ(DoFsync(path_.c_str()), -1) << "and it is not tried again";
            EXPECT_TRUE(log.Shows({kDaemonLog.Error("DoFsync", "Do fsync failed")}));
        }
        FailCall(Call::kOpen, 1, EINTR);
        EXPECT_EQ(DoFsync(path_.c_str()), -1);
        EXPECT_TRUE(log.Shows({kDaemonLog.Error("DoFsync", "Can't open file " + path_)}));
    });
}

// --- mapping

TEST_F(FileMappingTest, AFileWithExtentsIsAskedForOnce) {
    AtEveryLogSetting([&](LogCapture& log) {
        Answers({{{kEntry, kOther}}});
        EXPECT_EQ(Map(), 0);
        EXPECT_EQ(g_platform.calls,
                  Strings({"GetDevicePath(/volume1, false)", "Create(/dev/fakeVolume)",
                           "GetMappingTable(" + dir_.path() + ", 42, 0)", "~FileSystemDevice()"}));
        ASSERT_EQ(table_.entries.size(), 2U);
        EXPECT_EQ(table_.entries[1].deviceStartSector, 5000U);
        EXPECT_EQ(CallCount(Call::kFsync), 0);
        EXPECT_EQ(SleepsTaken().size(), 0U);
        EXPECT_TRUE(log.Shows(
            {Start(), kDaemonLog.Verbose("GetMappingTableFromFile", "Entry number = 2"), kLeave}));
    });
}

TEST_F(FileMappingTest, MoreThan255ExtentsAreCounted) {
    LogCapture log(2);

    Answers({{std::vector<FileMappingEntry>(300, kEntry)}});
    EXPECT_EQ(Map(), 0);
    EXPECT_TRUE(log.Has(kDaemonLog.Verbose("GetMappingTableFromFile", "Entry number = 300")));
    log.Clear();
}

TEST_F(FileMappingTest, TheDirectoryIsThatOfThePath) {
    struct Row {
        const char* what;
        std::string path;
        std::string directory;
    };
    const Row rows[] = {
        {"a file of a directory", "/volume1/a/b", "/volume1/a"},
        {"at the top", "/a", "/"},
        {"no directory", "a", "."},
        {"a slash at the end", "/volume1/a/", "/volume1"},
        {"511 characters", "/" + Text(508) + "/b", "/" + Text(508)},
        {"512 characters: the copy ends within the name", "/" + Text(507) + "/bcd",
         "/" + Text(507)},
        {"512 characters: the copy ends before the name", "/d/" + Text(507) + "/b", "/d"},
        {"513 characters: the copy ends within the directory", "/d/" + Text(508) + "/b", "/d"},
    };

    for (const Row& row : rows) {
        Answers({{{kEntry}}});
        EXPECT_EQ(GetMappingTableFromFile(table_, "/volume1", row.path, kInode), 0) << row.what;
        EXPECT_EQ(g_platform.calls[2], "GetMappingTable(" + row.directory + ", 42, 0)") << row.what;
    }
}

TEST_F(FileMappingTest, ASingleUninitializedExtentIsAcceptedWithANotice) {
    const ExpectedLine notice = kDaemonLog.Notice(
        "GetMappingTableFromFile", "Only get 1 unitilized entry from file (" + path_ + ")");
    struct Row {
        const char* what;
        std::vector<FileMappingEntry> entries;
        bool noticed;
    };
    const Row rows[] = {
        {"one, uninitialized", {kUninitialized}, true},
        {"one, written", {kEntry}, false},
        {"two, both uninitialized", {kUninitialized, kUninitialized}, false},
        {"one, with another flag", {{0, 8, 1000, 2}}, false},
    };

    AtEveryLogSetting([&](LogCapture& log) {
        for (const Row& row : rows) {
            Answers({{row.entries}});
            EXPECT_EQ(Map(), 0) << row.what;
            EXPECT_EQ(table_.entries.size(), row.entries.size());
            EXPECT_TRUE(log.Shows(
                Lines{Start()} + (row.noticed ? Lines{notice} : Lines()) +
                Lines{kDaemonLog.Verbose("GetMappingTableFromFile",
                                         "Entry number = " + std::to_string(row.entries.size())),
                      kLeave}))
                << row.what;
        }
    });
}

TEST_F(FileMappingTest, AMountPathWithoutADeviceFailsBeforeAnyMapping) {
    const ExpectedLine noDevice =
        kDaemonLog.Error(kFunction, "Create file system device fail. Path:" + path_);
    struct Row {
        int devicePathResult;
        bool createsDevice;
        const char* error;
    };
    const Row rows[] = {
        {-1, true, "Get device path of file fail. File path = \"/volume1\""},
        {1, true, "Device path of file not found. File path = \"/volume1\""},
        {0, false, "Create file system device \"/dev/fakeVolume\" fail."},
    };

    AtEveryLogSetting([&](LogCapture& log) {
        for (const Row& row : rows) {
            Answers({{{kEntry}}});
            g_platform.devicePathResult = row.devicePathResult;
            g_platform.createsDevice = row.createsDevice;
            EXPECT_EQ(Map(), -1);
            EXPECT_EQ(g_platform.Count("GetMappingTable"), 0);
            EXPECT_EQ(SleepsTaken().size(), 0U);
            EXPECT_TRUE(log.Shows({
                Start(),
                kDaemonLog.Error("CreateFileSystemDeviceByFilePath", row.error),
                noDevice,
            }));
        }
    });
}

TEST_F(FileMappingTest, AFailedMappingIsNotTriedAgain) {
    for (int result : {-1, -2, INT32_MIN}) {
        AtEveryLogSetting([&](LogCapture& log) {
            Answers({{{kEntry}, result}});
            EXPECT_EQ(Map(), -1);
            EXPECT_EQ(g_platform.Count("GetMappingTable"), 1);
            EXPECT_EQ(g_platform.calls.back(), "~FileSystemDevice()");
            EXPECT_EQ(CallCount(Call::kFsync), 0);
            EXPECT_EQ(SleepsTaken().size(), 0U);
            EXPECT_TRUE(log.Shows(
                {Start(), kDaemonLog.Error("GetMappingTableFromFile", "Get mapping result fail."),
                 kLeave}));
        });
    }
}

TEST_F(FileMappingTest, APositiveResultIsASuccess) {
    Answers({{{kEntry}, 7}});
    EXPECT_EQ(Map(), 0);
}

TEST_F(FileMappingTest, ASimulatedFailureFailsThatFileOnly) {
    const ExpectedLine failed =
        kDaemonLog.Error("GetMappingTableFromFile", "Get mapping result fail.");

    WriteFile(debugPath_, path_ + "\n");
    for (int result : {0, -1}) {
        LogCapture log;
        Answers({{{kEntry}, result}});
        EXPECT_EQ(Map(), -1);
        EXPECT_EQ(g_platform.Count("GetMappingTable"), 1) << "it is asked all the same";
        EXPECT_EQ(SleepsTaken().size(), 0U);
        EXPECT_TRUE(log.Shows({kDaemonLog.Error("GetMappingTableFromFile",
                                                "Simulate " + path_ + " get mapping failed"),
                               failed}))
            << "the simulated failure is named, whatever the library said";
    }
    Answers({{{kEntry}}});
    EXPECT_EQ(GetMappingTableFromFile(table_, "/volume1", path_ + "2", kInode), 0);
}

// A failure can be asked for while a file is waited for.
TEST_F(FileMappingTest, ASimulatedFailureEndsTheWaiting) {
    Answers({{{}}});
    OnCall(Call::kSleep, [this](int count) {
        if (count == 3) {
            WriteFile(debugPath_, path_);
        }
    });
    EXPECT_EQ(Map(), -1);
    EXPECT_EQ(g_platform.Count("GetMappingTable"), 4);
    EXPECT_EQ(SleepsTaken().size(), 3U);
}

// --- waiting for a fresh file

ExpectedLine Retry(const std::string& path, int result = 0) {
    return kDaemonLog.Notice("GetMappingTableFromFile", "Retry to get mapping of file (" + path +
                                                            ") Ret = " + std::to_string(result) +
                                                            " size = 0");
}

TEST_F(FileMappingTest, ExtentsThatAppearLateAreWaitedFor) {
    AtEveryLogSetting([&](LogCapture& log) {
        Answers({{{}}, {{}}, {{kEntry}}});
        EXPECT_EQ(Map(), 0);
        EXPECT_EQ(g_platform.Count("GetMappingTable"), 3);
        EXPECT_EQ(g_platform.Count("Create"), 1) << "the same device";
        EXPECT_EQ(CallCount(Call::kFsync), 1);
        EXPECT_EQ(SleepsTaken(), std::vector<unsigned>({1, 1}));
        ASSERT_EQ(table_.entries.size(), 1U);
        EXPECT_TRUE(log.Shows({
            Start(),
            kDaemonLog.Notice("GetMappingTableFromFile", "Do fsync"),
            kDaemonLog.Verbose("GetMappingTableFromFile", "Entry number = 1"),
            kLeave,
        }));
    });
}

TEST_F(FileMappingTest, TheLastOfSixtyAttemptsCounts) {
    std::vector<FakeMapping> answers(59);

    answers.push_back({{kUninitialized}});
    Answers(answers);
    EXPECT_EQ(Map(), 0);
    EXPECT_EQ(g_platform.Count("GetMappingTable"), 60);
    EXPECT_EQ(SleepsTaken().size(), 59U);
}

TEST_F(FileMappingTest, AFileWhoseExtentsNeverAppearTimesOut) {
    AtEveryLogSetting([&](LogCapture& log) {
        Answers({{{}, 3}});
        EXPECT_EQ(Map(), -1);
        EXPECT_EQ(g_platform.Count("GetMappingTable"), 60);
        EXPECT_EQ(g_platform.calls.back(), "~FileSystemDevice()");
        EXPECT_EQ(CallCount(Call::kFsync), 1);
        EXPECT_EQ(SleepsTaken(), std::vector<unsigned>(60, 1));
        Lines lines = {Start(), kDaemonLog.Notice("GetMappingTableFromFile", "Do fsync")};
        EXPECT_TRUE(log.Shows(
            lines + Lines(6, Retry(path_, 3)) +
            Lines{kDaemonLog.Error("GetMappingTableFromFile",
                                   "Get mapping of file (" + path_ + ") timeout (60 seconds)"),
                  kLeave}));
    });
}

TEST_F(FileMappingTest, TheFirstNoticeComesAfterTheTenthEmptyAnswer) {
    for (size_t empty : {9U, 10U, 11U, 19U, 20U}) {
        LogCapture log;
        std::vector<FakeMapping> answers(empty);
        answers.push_back({{kEntry}});
        Answers(answers);
        EXPECT_EQ(Map(), 0);
        EXPECT_TRUE(log.Shows(Lines{kDaemonLog.Notice("GetMappingTableFromFile", "Do fsync")} +
                              Lines(empty / 10, Retry(path_))))
            << empty;
    }
}

TEST_F(FileMappingTest, TheNoticeComesBeforeTheSleep) {
    LogCapture log;
    Answers({{{}}});
    OnCall(Call::kSleep,
           [&](int count) { EXPECT_EQ(log.Has(Retry(path_)), count >= 10) << count; });
    EXPECT_EQ(Map(), -1);
}

TEST_F(FileMappingTest, TheSyncComesAfterTheFirstEmptyAnswerAndBeforeTheFirstSleep) {
    Answers({{{}}});
    OnCall(Call::kFsync, [&](int) {
        EXPECT_EQ(g_platform.Count("GetMappingTable"), 1);
        EXPECT_EQ(SleepsTaken().size(), 0U);
    });
    EXPECT_EQ(Map(), -1);
}

TEST_F(FileMappingTest, AFileThatCannotBeSyncedTimesOutAtOnce) {
    const ExpectedLine timeout = kDaemonLog.Error(
        "GetMappingTableFromFile", "Get mapping of file (" + path_ + ") timeout (60 seconds)");

    AtEveryLogSetting([&](LogCapture& log) {
        for (bool opens : {true, false}) {
            Answers({{{}}});
            FailCall(opens ? Call::kFsync : Call::kOpen, 1, EIO);
            EXPECT_EQ(Map(), -1);
            EXPECT_EQ(g_platform.Count("GetMappingTable"), 1);
            EXPECT_EQ(SleepsTaken().size(), 0U);
            EXPECT_TRUE(log.Shows({
                Start(),
                kDaemonLog.Notice("GetMappingTableFromFile", "Do fsync"),
                kDaemonLog.Error("DoFsync", opens ? "Do fsync failed" : "Can't open file " + path_),
                kDaemonLog.Error("GetMappingTableFromFile", "Do fsync failed"),
                timeout,
                kLeave,
            }));
        }
    });
}

TEST_F(FileMappingTest, AMappingThatFailsWhileWaitingEndsIt) {
    LogCapture log;

    Answers({{{}}, {{}}, {{}, -1}});
    EXPECT_EQ(Map(), -1);
    EXPECT_EQ(SleepsTaken().size(), 2U);
    EXPECT_TRUE(
        log.Shows({kDaemonLog.Notice("GetMappingTableFromFile", "Do fsync"),
                   kDaemonLog.Error("GetMappingTableFromFile", "Get mapping result fail.")}));
}

}  // namespace
