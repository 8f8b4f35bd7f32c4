// SPDX-License-Identifier: MIT
#include "daemon/worker.h"

#include <errno.h>

#include "daemon/service.h"
#include "platform/quorflashcache.h"
#include "tests/unit/daemon/daemon_test.h"
#include "tests/unit/support/fake_ioctl.h"
#include "tests/unit/support/fake_platform.h"
#include "tests/unit/support/fake_system.h"

namespace {

constexpr char kRequest[] = "HandleRequest";
constexpr char kModify[] = "HandleRequestAndModifyConfig";

class WorkerTest : public DaemonTest {
  protected:
    void SetUp() override {
        DaemonTest::SetUp();
        volume_ = AddVolume();
        inode_ = AddFile(volume_, "a", {{0, 8}, {128, 8}});
        data_ = "a#" + std::to_string(inode_);
    }

    void TearDown() override {
        OnCall(Call::kRead, nullptr);
        OnCall(Call::kSleep, nullptr);
        g_platform.onCall = nullptr;
        DaemonTest::TearDown();
    }

    Request Pin() const { return MakeRequest(kRequestPinFiles, volume_.mountPath, data_); }
    Request Unpin() const { return MakeRequest(kRequestUnpinFiles, volume_.mountPath, data_); }
    Request Reload() const { return MakeRequest(kRequestReloadPinBlocks, volume_.mountPath); }

    // A stored request of the volume.
    std::string Stored(const std::string& type, const std::string& data = "null") const {
        return "{'type':'" + type + "','mountPath':'" + volume_.mountPath + "','data':" + data +
               "}";
    }
    std::string StoredPin() const { return Stored("pinFiles", "'" + data_ + "'"); }

    // Makes the volume pending before each read, or not any more.
    void InterruptReads(bool interrupts) {
        OnCall(Call::kRead, [this, interrupts](int) {
            if (interrupts && !ServiceIsSpacePending(volume_.mountPath.c_str())) {
                ServiceAddPendingSpaceAtomic(volume_.mountPath.c_str());
            }
        });
    }

    // Runs the worker until it ends its thread, which it does at a queue entry without a request.
    void RunWorker() {
        ServiceOptions options = {config(), 0, 0};
        Background worker([&] { DoRequests(&options); });
        EXPECT_TRUE(worker.Ends());
        EXPECT_FALSE(worker.hasReturned());
    }

    Volume volume_;
    unsigned long inode_ = 0;
    std::string data_;
};

// --- setting up and handing over

TEST_F(WorkerTest, EachTypeReachesItsHandler) {
    struct Row {
        Request request;
        std::vector<unsigned long> controlRequests;
        int reads;
        const char* bitmap;  // first byte of the file afterwards
    };
    // Before: bit 2. The file has bits 0 and 1.
    const Row rows[] = {
        {Pin(), {FLASH_CACHE_SET_PIN_BITMAP}, 2, "\x07"},
        {Unpin(), {FLASH_CACHE_SET_PIN_BITMAP, FLASH_CACHE_UNPIN_RANGES}, 0, "\x04"},
        {Reload(), {}, 1, "\x04"},
    };

    for (const Row& row : rows) {
        LogCapture log;
        FakeSystemReset();
        WriteFile(volume_.bitmapPath, std::string("\x04\0\0\0\0\0\0\0", 8));
        FakeIoctlReset();
        SetDeviceSize(volume_.cachePath, 4194304);
        EXPECT_EQ(HandleRequest(row.request), 0);
        std::vector<unsigned long> controlRequests;
        for (const IoctlRecord& record : IoctlsSent()) {
            if (record.request == FLASH_CACHE_SET_PIN_BITMAP ||
                record.request == FLASH_CACHE_UNPIN_RANGES) {
                controlRequests.push_back(record.request);
            }
        }
        EXPECT_EQ(controlRequests, row.controlRequests);
        EXPECT_EQ(CallCount(Call::kRead), row.reads);
        EXPECT_EQ(ReadFile(volume_.bitmapPath), row.bitmap + std::string(7, '\0'));
        EXPECT_TRUE(log.Shows({}));
    }
}

TEST_F(WorkerTest, TheBitmapIsLoadedAfreshForEveryRequest) {
    EXPECT_EQ(HandleRequest(Pin()), 0);
    WriteFile(volume_.bitmapPath, std::string("\x80\0\0\0\0\0\0\0", 8));
    EXPECT_EQ(HandleRequest(Pin()), 0);
    EXPECT_EQ(ReadFile(volume_.bitmapPath), std::string("\x83\0\0\0\0\0\0\0", 8));
}

TEST_F(WorkerTest, AVolumeThatHasGrownIsServed) {
    LogCapture log;

    WriteFile(volume_.bitmapPath, "\x80");
    EXPECT_EQ(HandleRequest(Pin()), 0);
    EXPECT_EQ(ReadFile(volume_.bitmapPath), std::string("\x83\0\0\0\0\0\0\0", 8));
    EXPECT_TRUE(log.Shows({kUtilLog.Error(
        "BitmapMemAllocateAndInit", "Bitmap size changed. Could be due to volume expansion")}));
}

TEST_F(WorkerTest, OnlyThreeTypesAreRun) {
    struct Row {
        int type;
        const char* name;
    };
    const Row rows[] = {
        {0, "unknown"}, {3, "ack"}, {4, "addPendingSpace"}, {5, "removePendigSpace"}};

    AtEveryLogSetting([&](LogCapture& log) {
        for (const Row& row : rows) {
            EXPECT_EQ(HandleRequest(MakeRequest(row.type, volume_.mountPath, data_)), 1);
            EXPECT_TRUE(g_platform.calls.empty()) << "nothing is set up";
            EXPECT_TRUE(log.Shows({
                kDaemonLog.Enter(kRequest),
                kDaemonLog.Error(kRequest, std::string("Get unhandle request (") + row.name + ")"),
            }));
        }
    });
}

TEST_F(WorkerTest, ATypeWithoutANameIsNotRunEither) {
    LogCapture log;

    EXPECT_EQ(HandleRequest(MakeRequest(99, volume_.mountPath)), 1);
    EXPECT_TRUE(
        log.Shows({kUtilLog.Error("RequestTypeToString", "Convert request type to string errror"),
                   kDaemonLog.Error(kRequest, "Get unhandle request ((null))")}));
}

// --- what set-up fails at

// The lines of the utilities below are theirs; what is looked at here is which step was the last,
// and what is released: a bitmap that never came to be is released, too, and says so.
struct SetUpRow {
    const char* what;
    std::function<void()> arrange;
    Lines errors;
};

TEST_F(WorkerTest, AFailedStepOfSettingUpFailsTheRequest) {
    const std::string uuid = volume_.uuid;
    const std::string ssd = volume_.ssdPath;
    const ExpectedLine noBitmapToFree = kUtilLog.Error("BitmapFree", "Bitmap is already NULL");
    const ExpectedLine noBitmap = kDaemonLog.Error("HandleRequest", "Allocate bitmap failed");
    const ExpectedLine notSized =
        kUtilLog.Error("BitmapMemAllocateAndInit", "Can't get needed bitmap sizeof");
    const ExpectedLine emptyBitmapFreed =
        kUtilLog.Error("BitmapFree", "Warning: data is NULL for free");
    const Lines noUuid = {kDaemonLog.Error("HandleRequest", "Can't get space uuid"),
                          noBitmapToFree};
    // Enumerations of a request so far: UUID, bitmap path, the bitmap's own lookup of that path.
    auto failEnum = [](int nth) {
        return [nth] {
            auto count = std::make_shared<int>(0);
            g_platform.onCall = [nth, count](const std::string& call) {
                if (call == "QUORSpaceInfoEnum(1)") {
                    g_platform.enumResult = ++*count == nth ? -1 : 0;
                }
            };
        };
    };
    const ExpectedLine noEnum = kUtilLog.Error("SpaceGetReferencePath", "Can't enum spaces");
    const ExpectedLine noReference =
        kUtilLog.Error("SpaceGetBitmapPath", "Can't get reference path");
    const SetUpRow rows[] = {
        {"no space", [] { g_platform.spaces.clear(); }, noUuid},
        {"spaces cannot be listed", [] { g_platform.enumResult = -1; },
         Lines{kUtilLog.Error("SpaceGetUUID", "Can't enum spaces")} + noUuid},
        {"space without UUID", [] { g_platform.spaces[0].hasUuid = false; }, noUuid},
        {"no cache",
         [&] { g_platform.configs.erase(uuid); },
         {kUtilLog.Error("SpaceGetCachePath", "Can't get cache's ssd path"),
          kDaemonLog.Error("HandleRequest", "Can't get cache path"), noBitmapToFree}},
        {"no cached device",
         [&] { g_platform.cachePaths.erase(ssd); },
         {kUtilLog.Error("SpaceGetCachePath", "Can't get cache path"),
          kDaemonLog.Error("HandleRequest", "Can't get cache path"), noBitmapToFree}},
        {"neither space nor cache",
         [] {
             g_platform.spaces.clear();
             g_platform.configs.clear();
         },
         noUuid},
        {"neither cached device nor mount path",
         [&] {
             g_platform.cachePaths.erase(ssd);
             failEnum(2)();
         },
         {kUtilLog.Error("SpaceGetCachePath", "Can't get cache path"),
          kDaemonLog.Error("HandleRequest", "Can't get cache path"), noBitmapToFree}},
        {"no mount path for the bitmap",
         failEnum(2),
         {noEnum, noReference, kDaemonLog.Error("HandleRequest", "Can't get bitmap path"),
          noBitmapToFree}},
        {"no mount path when it is loaded",
         failEnum(3),
         {noEnum, noReference, kUtilLog.Error("BitmapMemAllocateAndInit", "Can't get bitmap path"),
          noBitmap, noBitmapToFree}},
        {"no memory for the record",
         [] { FailCall(Call::kCalloc, 1, ENOMEM); },
         {kUtilLog.Error("BitmapMemAllocateAndInit", "Allocate bitmap data failed"), noBitmap,
          noBitmapToFree}},
        {"device cannot be opened",
         [] { FailCall(Call::kOpen, 1, EIO); },
         {kUtilLog.Error("DeviceGetSizeByte", "Can't open device (" + volume_.cachePath + ")"),
          kUtilLog.Error("BitmapGetNeededSizeByte", "Can't get block device path"), notSized,
          noBitmap, emptyBitmapFreed}},
        {"device has no size",
         [] { FakeIoctlReset(); },
         {kUtilLog.Error("DeviceGetSizeByte",
                         "Can't get size of device (" + volume_.cachePath + ")"),
          kUtilLog.Error("BitmapGetNeededSizeByte", "Can't get block device path"), notSized,
          noBitmap, emptyBitmapFreed}},
        {"no memory for the bits",
         [] { FailCall(Call::kCalloc, 2, ENOMEM); },
         {kUtilLog.Error("BitmapMemAllocateAndInit", "Can't allocate bitmap memory"),
          emptyBitmapFreed, noBitmap}},
        {"a bitmap file that is too large",
         [&] { WriteFile(volume_.bitmapPath, std::string(9, '\0')); },
         {kUtilLog.Error("BitmapMemAllocateAndInit", "Incorrect bitmap size (8), file size (9)"),
          noBitmap}},
        {"a bitmap file that cannot be read",
         [&] {
             WriteFile(volume_.bitmapPath, std::string(8, '\0'));
             FailCall(Call::kPread, 1, EIO);
         },
         {kUtilLog.Error("BitmapMemInitByFile",
                         "Read bitmap file (" + volume_.bitmapPath + ") error\n"),
          kUtilLog.Error("BitmapMemAllocateAndInit", "Read bitmap file to bitmap memory error"),
          noBitmap}},
    };
    FakePlatform whole = g_platform;

    for (const SetUpRow& row : rows) {
        for (const Request& request : {Pin(), Unpin(), Reload()}) {
            LogCapture log;
            g_platform = whole;
            FakeSystemReset();
            FakeIoctlReset();
            SetDeviceSize(volume_.cachePath, 4194304);
            unlink(volume_.bitmapPath.c_str());
            row.arrange();
            EXPECT_EQ(HandleRequest(request), 1) << row.what;
            EXPECT_TRUE(log.Shows(row.errors)) << row.what;
            EXPECT_EQ(g_platform.Count("GetMappingTable"), 0) << row.what;
            EXPECT_EQ(CallCount(Call::kRead), 0) << row.what;

            LogCapture traced(2);
            g_platform = whole;
            FakeSystemReset();
            FakeIoctlReset();
            SetDeviceSize(volume_.cachePath, 4194304);
            row.arrange();
            EXPECT_EQ(HandleRequest(request), 1) << row.what;
            EXPECT_TRUE(traced.Has(kDaemonLog.Leave(kRequest))) << row.what;
        }
    }
}

// The data is looked at when everything else is there, and no handler is called.
TEST_F(WorkerTest, MalformedDataFailsTheRequest) {
    for (int type : {kRequestPinFiles, kRequestUnpinFiles}) {
        LogCapture log(2);
        EXPECT_EQ(HandleRequest(MakeRequest(type, volume_.mountPath, data_ + ";b")), 1);
        EXPECT_FALSE(Exists(volume_.bitmapPath));
        EXPECT_EQ(g_platform.Count("GetMappingTable"), 0);
        EXPECT_TRUE(ShowsOwn(
            log,
            {
                kDaemonLog.Enter(kRequest),
                kDaemonLog.Enter("RequestDataGetFileInfos"),
                kDaemonLog.Verbose("RequestDataGetFileInfos",
                                   "info.szRelativePath=a info.inodeNum=" + std::to_string(inode_)),
                kDaemonLog.Error("RequestDataGetFileInfos",
                                 "Parse file inode from string (b) failed"),
                kDaemonLog.Leave("RequestDataGetFileInfos"),
                kDaemonLog.Error("HandleRequest",
                                 "Can't parse file inodes from request's data (" + data_ + ";b)"),
                kDaemonLog.Leave(kRequest),
            }));
    }
}

TEST_F(WorkerTest, AFailedHandlerFailsTheRequest) {
    WriteFile(volume_.bitmapPath, std::string("\x01\0\0\0\0\0\0\0", 8));
    for (const Request& request : {Pin(), Unpin(), Reload()}) {
        LogCapture log(2);
        g_platform.mappings[inode_][0].result = -1;
        FailCall(Call::kRead, 1, EIO);
        EXPECT_EQ(HandleRequest(request), 1);
        EXPECT_TRUE(log.Has(kDaemonLog.Error("HandleRequest", "Handle request failed")));
        EXPECT_TRUE(log.Has(kDaemonLog.Leave(kRequest)));
        FakeSystemReset();
    }
}

TEST_F(WorkerTest, AnInterruptedHandlerInterruptsTheRequest) {
    WriteFile(volume_.bitmapPath, std::string("\x03\0\0\0\0\0\0\0", 8));
    InterruptReads(true);
    ServiceAddPendingSpaceAtomic(volume_.mountPath.c_str());
    for (const Request& request : {Pin(), Reload()}) {
        LogCapture log(2);
        EXPECT_EQ(HandleRequest(request), 2);
        EXPECT_TRUE(log.Has(kDaemonLog.Verbose("HandleRequest", "Get Interruped")));
        EXPECT_FALSE(log.Has(kDaemonLog.Error("HandleRequest", "Handle request failed")));
        EXPECT_TRUE(log.Has(kDaemonLog.Leave(kRequest)));
    }
    EXPECT_EQ(HandleRequest(Unpin()), 0) << "an unpin is never interrupted";
}

TEST_F(WorkerTest, ASuccessfulRequestIsTraced) {
    LogCapture log(2);

    EXPECT_EQ(HandleRequest(Reload()), 0);
    EXPECT_TRUE(ShowsOwn(
        log, {
                 kDaemonLog.Enter(kRequest),
                 kDaemonLog.Enter("ReloadPinBlocksToCache"),
                 kDaemonLog.Verbose("ReloadPinBlocksToCache", "Start to read blocks"),
                 kDaemonLog.Verbose("ReloadPinBlocksToCache", "No pin blocks, no need to reload"),
                 kDaemonLog.Leave("ReloadPinBlocksToCache"),
                 kDaemonLog.Leave(kRequest),
             }));
}

// --- one request and the store

TEST_F(WorkerTest, AFinishedRequestLeavesTheStore) {
    LogCapture log;

    SetConfig("{'requestQueue':['7','8'],'requests':{'7':" + StoredPin() + ",'8':{'type':'x'}}}");
    EXPECT_EQ(HandleRequestAndModifyConfig(config(), Pin(), "7"), 0);
    EXPECT_EQ(Styled(ConfigDocument()),
              Styled(Document("{'requestQueue':['8'],'requests':{'8':{'type':'x'}},'volumes':{'" +
                              volume_.mountPath + "':{'files':{'" + std::to_string(inode_) +
                              "':'a'}}}}")));
    EXPECT_TRUE(log.Shows({}));
}

TEST_F(WorkerTest, AFinishedRequestIsTraced) {
    LogCapture log(2);

    SetConfig("{'requestQueue':['7'],'requests':{'7':" + Stored("reloadPinBlocks") + "}}");
    EXPECT_EQ(HandleRequestAndModifyConfig(config(), Reload(), "7"), 0);
    constexpr char kUpdate[] = "JsonUpdatePinFileInfo";
    EXPECT_TRUE(ShowsOwn(
        log, {
                 kDaemonLog.Enter(kModify),
                 kDaemonLog.Verbose(kModify, "Handle request (num = 7)"),
                 kDaemonLog.Enter(kRequest),
                 kDaemonLog.Enter("ReloadPinBlocksToCache"),
                 kDaemonLog.Verbose("ReloadPinBlocksToCache", "Start to read blocks"),
                 kDaemonLog.Verbose("ReloadPinBlocksToCache", "No pin blocks, no need to reload"),
                 kDaemonLog.Leave("ReloadPinBlocksToCache"),
                 kDaemonLog.Leave(kRequest),
                 kDaemonLog.Enter("ConfigUpdatedByFinishedRequest"),
                 kDaemonLog.Enter(kUpdate),
                 kDaemonLog.Verbose(kUpdate, "mount path = " + volume_.mountPath +
                                                 " request = Request type=reloadPinBlocks "
                                                 "mountPath=" +
                                                 volume_.mountPath + " data="),
                 kDaemonLog.Verbose(kUpdate, "No need to update pin file list"),
                 kDaemonLog.Enter("JsonRemoveRequest"),
                 kDaemonLog.Verbose("JsonRemoveRequest", "Remove request num = 7"),
                 kDaemonLog.Leave("JsonRemoveRequest"),
                 kDaemonLog.Leave("ConfigUpdatedByFinishedRequest"),
                 kDaemonLog.Leave(kModify),
             }));
}

TEST_F(WorkerTest, AFinishedRequestThatCannotBeRemovedIsStillFinished) {
    LogCapture log(2);

    EXPECT_EQ(HandleRequestAndModifyConfig(config(), Reload(), "7"), 0);
    EXPECT_TRUE(log.Has(kDaemonLog.Error(kModify, "Can't remove request (7) from config file")));
    EXPECT_TRUE(log.Has(kDaemonLog.Leave(kModify)));
}

TEST_F(WorkerTest, AFailedRequestIsDropped) {
    struct Row {
        Request request;
        const char* type;
        const char* volumes;
    };
    const Row rows[] = {
        {MakeRequest(kRequestPinFiles, volume_.mountPath, data_), "pinFiles", "1"},
        {MakeRequest(kRequestUnpinFiles, volume_.mountPath, data_), "unpinFiles", "0"},
        {MakeRequest(kRequestReloadPinBlocks, volume_.mountPath), "reloadPinBlocks", "1"},
        {MakeRequest(kRequestAck, volume_.mountPath), "ack", "1"},
    };

    g_platform.cachePaths.clear();
    for (const Row& row : rows) {
        LogCapture log(2);
        SetConfig("{'requestQueue':['7'],'requests':{'7':{'type':'x'}},'volumes':{'" +
                  volume_.mountPath + "':{'files':{'" + std::to_string(inode_) + "':'a'}}}}");
        EXPECT_EQ(HandleRequestAndModifyConfig(config(), row.request, "7"), 1);
        Json::Value document = ConfigDocument();
        EXPECT_TRUE(document["requestQueue"].isNull()) << row.type;
        EXPECT_EQ(std::to_string(document["volumes"].size()), row.volumes) << row.type;
        EXPECT_TRUE(log.Has(kDaemonLog.Error(
            kModify,
            std::string("Handle request error (num = 7, type = ") + row.type + "), drop it.")));
        EXPECT_TRUE(log.Has(kDaemonLog.Leave(kModify)));
    }
}

TEST_F(WorkerTest, AFailedRequestThatCannotBeDroppedIsStillFailed) {
    LogCapture log;

    EXPECT_EQ(HandleRequestAndModifyConfig(config(), MakeRequest(kRequestAck, "/v"), "7"), 1);
    EXPECT_TRUE(log.Shows({
        kDaemonLog.Error(kRequest, "Get unhandle request (ack)"),
        kDaemonLog.Error(kModify, "Handle request error (num = 7, type = ack), drop it."),
        kDaemonLog.Error("ConfigDropErrorRequest",
                         std::string("Can't find config file (") + config() + ")"),
        kDaemonLog.Error(kModify, "Can't drop request"),
    }));
}

TEST_F(WorkerTest, AnInterruptedRequestStaysAsItIs) {
    LogCapture log(2);

    SetConfig("{'requestQueue':['7'],'requests':{'7':" + StoredPin() + "}}");
    std::string before = ConfigText();
    InterruptReads(true);
    EXPECT_EQ(HandleRequestAndModifyConfig(config(), Pin(), "7"), 2);
    EXPECT_EQ(ConfigText(), before);
    EXPECT_TRUE(log.Has(
        kDaemonLog.Verbose(kModify, "Handle request interruped (num = 7, type = pinFiles)")));
    EXPECT_FALSE(log.Has(kDaemonLog.Leave(kModify))) << "it returns at once";
}

// --- the loop

TEST_F(WorkerTest, RequestsRunInTheirOrderWithASecondBetween) {
    LogCapture log;
    std::string queued;

    SetConfig("{'requestQueue':['4','2','9','stale'],'requests':{'2':" + Stored("reloadPinBlocks") +
              ",'4':" + StoredPin() + ",'9':" + Stored("unpinFiles", "'" + data_ + "'") + "}}");
    OnCall(Call::kSleep, [&](int) {
        const Json::Value document = ConfigDocument();
        for (const Json::Value& number : document["requestQueue"]) {
            queued += number.asString() + " ";
        }
        queued += "| " + std::to_string(log.SystemLines().size()) + " told | ";
    });
    RunWorker();
    EXPECT_EQ(queued, "2 9 stale | 1 told | 9 stale | 2 told | stale | 3 told | ");
    EXPECT_EQ(SleepsTaken(), std::vector<unsigned>({1, 1, 1}));
    EXPECT_TRUE(log.Shows({
        kDaemonLog.Notice("DoRequests", "Handle request (type=pinFiles files=" + data_ + ") OK "),
        kDaemonLog.Notice("DoRequests", "Handle request (type=reloadPinBlocks) OK "),
        kDaemonLog.Notice("DoRequests", "Handle request (type=unpinFiles files=" + data_ + ") OK "),
        kDaemonLog.Error("ConfigParseAndGetNextAvailableRequest",
                         "Can't find request number (stale) in config"),
        kDaemonLog.Error("DoRequests", "Get request error"),
    }));
    EXPECT_EQ(ConfigDocument()["requestQueue"].size(), 1U) << "the stale number stays";
}

TEST_F(WorkerTest, AFailedRequestIsFollowedAtOnce) {
    LogCapture log;

    SetConfig("{'requestQueue':['1','2','stale'],'requests':{'1':" + Stored("ack") +
              ",'2':" + Stored("pinFiles", "'malformed'") + "}}");
    RunWorker();
    EXPECT_TRUE(SleepsTaken().empty());
    EXPECT_TRUE(log.Shows({
        kDaemonLog.Error(kRequest, "Get unhandle request (ack)"),
        kDaemonLog.Error(kModify, "Handle request error (num = 1, type = ack), drop it."),
        kDaemonLog.Error("RequestDataGetFileInfos",
                         "Parse file inode from string (malformed) failed"),
        kDaemonLog.Error("HandleRequest",
                         "Can't parse file inodes from request's data (malformed)"),
        kDaemonLog.Error(kModify, "Handle request error (num = 2, type = pinFiles), drop it."),
        kDaemonLog.Error("ConfigParseAndGetNextAvailableRequest",
                         "Can't find request number (stale) in config"),
        kDaemonLog.Error("DoRequests", "Get request error"),
    }));
}

// Interrupted while it reads, set aside while the volume is pending, and run again in full, with
// the same number, when it has been released.
TEST_F(WorkerTest, AnInterruptedRequestRunsAgainWhenItsVolumeIsReleased) {
    LogCapture log;
    std::vector<int> readsAtSleep;

    SetConfig("{'requestQueue':['4'],'requests':{'4':" + StoredPin() + "}}");
    std::string before = ConfigText();
    InterruptReads(true);
    OnCall(Call::kSleep, [&](int count) {
        readsAtSleep.push_back(CallCount(Call::kRead));
        EXPECT_EQ(ConfigText() == before, count < 4) << count;
        if (count == 2 || count == 3) {
            InterruptReads(count == 2);
            ServiceRemovePendingSpaceAtomic(volume_.mountPath.c_str());
        } else if (count == 4) {
            SetConfig("{'requestQueue':['stale']}");
        }
    });
    RunWorker();
    // Interrupted in the first read; passed over; interrupted again; both reads.
    EXPECT_EQ(readsAtSleep, std::vector<int>({1, 1, 2, 4}));
    const ExpectedLine interrupted =
        kDaemonLog.Notice("DoRequests", "Handle request (4). Get interrupted !");
    EXPECT_TRUE(log.Shows({
        interrupted,
        interrupted,
        kDaemonLog.Notice("DoRequests", "Handle request (type=pinFiles files=" + data_ + ") OK "),
        kDaemonLog.Error("ConfigParseAndGetNextAvailableRequest",
                         "Can't find request number (stale) in config"),
        kDaemonLog.Error("DoRequests", "Get request error"),
    }));
    EXPECT_EQ(ReadFile(volume_.bitmapPath)[0], '\x03');
}

// Nothing runnable: a second, and again. The number that ends the worker comes with the third.
TEST_F(WorkerTest, NothingRunnableIsAskedForAgainEverySecond) {
    LogCapture log;

    ServiceAddPendingSpaceAtomic(volume_.mountPath.c_str());
    SetConfig("{'requestQueue':['4'],'requests':{'4':" + StoredPin() + "}}");
    OnCall(Call::kSleep, [&](int count) {
        if (count == 3) {
            SetConfig("{'requestQueue':['stale']}");
        }
    });
    RunWorker();
    EXPECT_EQ(SleepsTaken(), std::vector<unsigned>({1, 1, 1}));
    EXPECT_TRUE(log.Shows({kDaemonLog.Error("ConfigParseAndGetNextAvailableRequest",
                                            "Can't find request number (stale) in config"),
                           kDaemonLog.Error("DoRequests", "Get request error")}));
}

// A finished request that cannot be taken out of the file is run again, and again.
TEST_F(WorkerTest, ARequestThatStaysInTheFileRunsAgain) {
    SetConfig("{'requestQueue':['4'],'requests':{'4':" + StoredPin() + "}}");
    std::string before = ConfigText();
    g_platform.onCall = [&](const std::string& call) {
        if (call.rfind("~FileSystemDevice", 0) == 0) {
            SetConfig("[]");
        }
    };
    OnCall(Call::kSleep, [&](int count) {
        WriteFile(config(), count < 3 ? before : "{\"requestQueue\":[\"stale\"]}");
    });
    RunWorker();
    EXPECT_EQ(g_platform.Count("GetMappingTable"), 3);
}

// The record that was filled for one request must not be left for the next fetch: the test for a
// pending space asks it.
TEST_F(WorkerTest, TheRecordIsEmptyAtEveryFetch) {
    SetConfig("{'requestQueue':['1','2','stale'],'requests':{'1':" + Stored("reloadPinBlocks") +
              ",'2':{'type':'ack','mountPath':'/gone'}}}");
    OnCall(Call::kSleep, [&](int count) {
        if (count == 1) {
            ServiceAddPendingSpaceAtomic(volume_.mountPath.c_str());
        }
    });
    RunWorker();  // it would block for good
    EXPECT_TRUE(ServiceIsSpacePending(volume_.mountPath.c_str()));
}

TEST_F(WorkerTest, TheEndOfTheWorkerIsTraced) {
    for (int level : {1, 2}) {
        LogCapture log(level);
        SetConfig("[]");
        RunWorker();
        constexpr char kCount[] = "ConfigGetJsonAndNumRequest";
        constexpr char kChoose[] = "ConfigParseAndGetNextAvailableRequest";
        std::string path = config();
        EXPECT_TRUE(ShowsOwn(
            log, {
                     kDaemonLog.Enter("DoRequests"),
                     kDaemonLog.Enter(kChoose),
                     kDaemonLog.Enter(kCount),
                     kDaemonLog.Error("ConfigCheckKind",
                                      "Config has a member of a wrong kind (top level)"),
                     kDaemonLog.Error(kCount, "Can't read data from config file (" + path + ")"),
                     kDaemonLog.Error("ConfigParseAndGetNextAvailableRequest",
                                      "Get request from config file (" + path + ") error"),
                     kDaemonLog.Leave(kChoose),
                     kDaemonLog.Error("DoRequests", "Get request error"),
                     kDaemonLog.Leave("DoRequests"),
                 }));
        EXPECT_EQ(ConfigText(), "[]");
    }
}

TEST_F(WorkerTest, TheWorkerWaitsForWorkAndTakesItUp) {
    Signpost waits;
    ServiceOptions options = {config(), 0, 0};

    OnCall(Call::kCondWait, [&](int) { waits.Reach(); });
    Background worker([&] { DoRequests(&options); });
    ASSERT_TRUE(waits.Wait(1));
    pthread_mutex_lock(&g_service.mutex);
    SetConfig("{'requestQueue':['4'],'requests':{'4':" + StoredPin() + "}}");
    pthread_cond_signal(&g_service.cond);
    pthread_mutex_unlock(&g_service.mutex);
    ASSERT_TRUE(waits.Wait(2));
    pthread_mutex_lock(&g_service.mutex);
    EXPECT_EQ(SleepsTaken(), std::vector<unsigned>({1}));
    EXPECT_TRUE(ConfigDocument()["requestQueue"].isNull());
    SetConfig("{'requestQueue':['stale']}");
    pthread_cond_signal(&g_service.cond);
    pthread_mutex_unlock(&g_service.mutex);
    EXPECT_TRUE(worker.Ends());
    OnCall(Call::kCondWait, nullptr);
}

}  // namespace
