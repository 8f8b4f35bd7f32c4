// SPDX-License-Identifier: MIT
#include "daemon/request_choice.h"

#include <sys/stat.h>
#include <unistd.h>

#include "daemon/request_store.h"
#include "daemon/service.h"
#include "tests/unit/daemon/daemon_test.h"
#include "tests/unit/support/fake_platform.h"
#include "tests/unit/support/fake_system.h"

namespace {

constexpr char kFunction[] = "ConfigParseAndGetNextAvailableRequest";

// What the volumes of these tests are: /a and /b have a cache that supports pinning, /gone and all
// others have not.
class RequestChoiceTest : public DaemonTest {
  protected:
    void SetUp() override {
        DaemonTest::SetUp();
        g_platform.AddVolume("/a", "a-uuid", "/dev/a-ssd", "/dev/a-cached");
        g_platform.AddVolume("/b", "b-uuid", "/dev/b-ssd", "/dev/b-cached");
    }

    void TearDown() override {
        g_platform.onCall = nullptr;
        DaemonTest::TearDown();
    }

    // Asks with a zeroed record, as the worker does.
    int Choose() {
        request_ = {};
        number_ = "untouched";
        return ConfigParseAndGetNextAvailableRequest(config(), request_, number_);
    }

    std::string InConfig(const char* before, const char* after = ")") const {
        return before + std::string(config()) + after;
    }

    Request request_ = {};
    std::string number_;
};

// A request of the volume.
std::string Reload(const std::string& mountPath) {
    return "{'type':'reloadPinBlocks','mountPath':'" + mountPath + "','data':null}";
}

Lines CountLines() {
    return Lines{kDaemonLog.Enter("ConfigGetJsonAndNumRequest")} + ReadJsonLines() +
           Lines{kDaemonLog.Leave("ConfigGetJsonAndNumRequest")};
}

// --- choosing

TEST_F(RequestChoiceTest, TheFirstRequestIsChosenAndStaysInTheFile) {
    SetConfig(
        "{'requestQueue':['7','3'],'requests':{"
        "'3':{'type':'pinFiles','mountPath':'/b','data':'x#1'},"
        "'7':{'type':'unpinFiles','mountPath':'/a','data':'c/d.txt#5;e#6'}}}");
    std::string before = ConfigText();

    EXPECT_EQ(Choose(), kChoiceRequest);
    EXPECT_EQ(number_, "7");
    EXPECT_EQ(request_.type, kRequestUnpinFiles);
    EXPECT_STREQ(request_.mountPath, "/a");
    EXPECT_STREQ(request_.data, "c/d.txt#5;e#6");
    EXPECT_EQ(ConfigText(), before) << "nothing is written, not even a member that was looked at";
    EXPECT_FALSE(ServiceMutexIsHeld());
}

TEST_F(RequestChoiceTest, TheCodesAreThoseThatTheWorkerKnows) {
    EXPECT_EQ(kChoiceNothing, 0);
    EXPECT_EQ(kChoiceRequest, 2);
    EXPECT_EQ(kChoiceError, 3);
}

TEST_F(RequestChoiceTest, ChoosingIsTraced) {
    AtEveryLogSetting([&](LogCapture& log) {
        SetConfig("{'requestQueue':['7'],'requests':{'7':" + Reload("/a") + "}}");
        ASSERT_EQ(Choose(), kChoiceRequest);
        EXPECT_TRUE(log.Shows(
            Lines{kDaemonLog.Enter(kFunction)} + CountLines() +
            Lines{
                kUtilLog.Verbose("SpaceGetUUID", "Get UUID = a-uuid"),
                kUtilLog.Verbose("SpaceHasCache", "Check Space (a-uuid) ret=0"),
                kUtilLog.Verbose("SpaceHasCacheAndSupportPinByUUID", "supportPin=1"),
                kUtilLog.Verbose("SpaceHasCacheAndSupportPin", "Volume (/a) support pin"),
                kUtilLog.Enter("StringToRequestType"),
                kUtilLog.Leave("StringToRequestType"),
                kDaemonLog.Verbose("ConfigParseAndGetNextAvailableRequest",
                                   "Get request (request num = 7 type = reloadPinBlocks data = "),
                kDaemonLog.Leave(kFunction),
            }));
    });
}

TEST_F(RequestChoiceTest, EveryTypeButUnknownIsChosen) {
    for (int type = kRequestPinFiles; type <= kRequestReloadPinBlocks; ++type) {
        SetConfig(std::string("{'requestQueue':['0'],'requests':{'0':{'type':'") +
                  RequestTypeToString(type) + "','mountPath':'/a','data':'x#1'}}}");
        EXPECT_EQ(Choose(), kChoiceRequest) << type;
        EXPECT_EQ(request_.type, type);
    }
}

TEST_F(RequestChoiceTest, DataThatIsNullOrMissingIsEmpty) {
    for (const char* data : {",'data':null", ""}) {
        SetConfig(std::string("{'requestQueue':['0'],'requests':{'0':{'type':'reloadPinBlocks',"
                              "'mountPath':'/a'") +
                  data + "}}}");
        EXPECT_EQ(Choose(), kChoiceRequest);
        EXPECT_STREQ(request_.data, "") << data;
    }
}

TEST_F(RequestChoiceTest, LongTextsAreCutToTheRecord) {
    std::string mountPath = "/" + Text(600);
    g_platform.AddVolume(mountPath.substr(0, 511), "c", "/dev/c", "/dev/c-cached");

    // The volume is looked up by up to 1023 characters, the record holds 511.
    SetConfig("{'requestQueue':['0'],'requests':{'0':{'type':'pinFiles','mountPath':'" +
              mountPath.substr(0, 511) + "','data':'" + Text(2000, 'd') + "'}}}");
    EXPECT_EQ(Choose(), kChoiceRequest);
    EXPECT_EQ(request_.mountPath, mountPath.substr(0, 511));
    EXPECT_EQ(request_.data, Text(1023, 'd'));

    SetConfig("{'requestQueue':['0'],'requests':{'0':{'type':'pinFiles','mountPath':'" + mountPath +
              "'}}}");
    EXPECT_EQ(Choose(), kChoiceNothing) << "a longer path is another volume, which is not there";
}

TEST_F(RequestChoiceTest, VolumesAreLookedUpByTheFirst1023Characters) {
    LogCapture log;

    SetConfig("{'requestQueue':['0'],'requests':{'0':{'type':'pinFiles','mountPath':'/" +
              Text(5000) + "'}}}");
    EXPECT_EQ(Choose(), kChoiceNothing);
    EXPECT_TRUE(
        log.Has(kUtilLog.Error("SpaceHasCacheAndSupportPin",
                               "Can't get space uuid from mount path (/" + Text(1022) + ")")));
}

TEST_F(RequestChoiceTest, AFullRecordIsTerminated) {
    SetConfig("{'requestQueue':['0'],'requests':{'0':{'type':'pinFiles','mountPath':'/a','data':'" +
              Text(1023, 'd') + "'}}}");
    EXPECT_EQ(Choose(), kChoiceRequest);
    EXPECT_EQ(request_.data[1022], 'd');
    EXPECT_EQ(request_.data[1023], '\0');
}

// --- pending volumes

TEST_F(RequestChoiceTest, ARequestOfAPendingVolumeIsOvertaken) {
    ServiceAddPendingSpaceAtomic("/a");
    SetConfig("{'requestQueue':['0','1','2'],'requests':{'0':" + Reload("/a") +
              ",'1':" + Reload("/a") + ",'2':" + Reload("/b") + "}}");
    std::string before = ConfigText();

    EXPECT_EQ(Choose(), kChoiceRequest);
    EXPECT_EQ(number_, "2");
    EXPECT_STREQ(request_.mountPath, "/b");
    EXPECT_EQ(ConfigText(), before);

    ServiceRemovePendingSpaceAtomic("/a");
    EXPECT_EQ(Choose(), kChoiceRequest);
    EXPECT_EQ(number_, "0");
}

TEST_F(RequestChoiceTest, NothingIsRunnableWhenAllVolumesArePending) {
    ServiceAddPendingSpaceAtomic("/a");
    AtEveryLogSetting([&](LogCapture& log) {
        SetConfig("{'requestQueue':['0'],'requests':{'0':" + Reload("/a") + "}}");
        std::string before = ConfigText();
        EXPECT_EQ(Choose(), kChoiceNothing);
        EXPECT_EQ(number_, "untouched");
        EXPECT_EQ(request_.type, 0);
        EXPECT_EQ(ConfigText(), before);
        EXPECT_FALSE(ServiceMutexIsHeld());
        EXPECT_TRUE(
            log.Shows(Lines{kDaemonLog.Enter(kFunction)} + CountLines() +
                      Lines{
                          kUtilLog.Verbose("SpaceGetUUID", "Get UUID = a-uuid"),
                          kUtilLog.Verbose("SpaceHasCache", "Check Space (a-uuid) ret=0"),
                          kUtilLog.Verbose("SpaceHasCacheAndSupportPinByUUID", "supportPin=1"),
                          kUtilLog.Verbose("SpaceHasCacheAndSupportPin", "Volume (/a) support pin"),
                          kDaemonLog.Verbose("ConfigParseAndGetNextAvailableRequest",
                                             "Request num (0) volume (/a) is pending"),
                          kDaemonLog.Leave(kFunction),
                      }));
    });
}

TEST_F(RequestChoiceTest, PendingSpacesAreThoseOfTheSameBytes) {
    ServiceAddPendingSpaceAtomic("/a/");
    SetConfig("{'requestQueue':['0'],'requests':{'0':" + Reload("/a") + "}}");
    EXPECT_EQ(Choose(), kChoiceRequest);
}

// --- volumes without a cache that pins

TEST_F(RequestChoiceTest, RequestsAheadWhoseVolumeLostItsCacheAreDropped) {
    LogCapture log;

    SetConfig(
        "{'nextRequestNum':9,'requestQueue':['5','6','7','8'],'requests':{'5':" + Reload("/gone") +
        ",'6':" + Reload("/gone") + ",'7':" + Reload("/b") + ",'8':" + Reload("/gone") +
        "},'volumes':{'/gone':{'files':{'1':'x'}},'/b':{'files':{'2':'y'}}}}");
    EXPECT_EQ(Choose(), kChoiceRequest);
    EXPECT_EQ(number_, "7");
    EXPECT_STREQ(request_.mountPath, "/b");
    EXPECT_EQ(Styled(ConfigDocument()),
              Styled(Document(
                  "{'nextRequestNum':9,'requestQueue':['7','8'],'requests':{'7':" + Reload("/b") +
                  ",'8':" + Reload("/gone") + "},'volumes':{'/b':{'files':{'2':'y'}}}}")))
        << "what is behind the chosen one stays";
    EXPECT_FALSE(ServiceMutexIsHeld());
    ExpectedLine noSpace = kUtilLog.Error("SpaceHasCacheAndSupportPin",
                                          "Can't get space uuid from mount path (/gone)");
    EXPECT_TRUE(log.Shows(
        {noSpace, noSpace,
         kDaemonLog.Notice("ConfigParseAndGetNextAvailableRequest", "Drop requests finish")}));
}

TEST_F(RequestChoiceTest, DroppingAllLeavesNothingToRun) {
    SetConfig("{'requestQueue':['5'],'requests':{'5':" + Reload("/gone") +
              "},'volumes':{'/gone':{'files':{'1':'x'}}}}");
    EXPECT_EQ(Choose(), kChoiceNothing);
    EXPECT_EQ(number_, "untouched");
    EXPECT_EQ(Styled(ConfigDocument()),
              Styled(Document("{'requestQueue':null,'requests':{},'volumes':{}}")));
}

// The ways in which a cache does not support pinning are not told apart.
TEST_F(RequestChoiceTest, EveryLackOfACacheDropsTheRequest) {
    const std::pair<const char*, std::function<void()>> lacks[] = {
        {"spaces cannot be listed", [] { g_platform.enumResult = -1; }},
        {"no UUID", [] { g_platform.spaces[0].hasUuid = false; }},
        {"no cache", [] { g_platform.configs.erase("a-uuid"); }},
        {"no SSD path", [] { g_platform.configs["a-uuid"].hasSsdPath = false; }},
        {"no status", [] { g_platform.stats.erase("/dev/a-ssd"); }},
        {"state is not 1", [] { g_platform.stats["/dev/a-ssd"].state = 2; }},
        {"supportPin is not 1", [] { g_platform.stats["/dev/a-ssd"].supportPin = 0; }},
        {"supportPin is 2", [] { g_platform.stats["/dev/a-ssd"].supportPin = 2; }},
    };
    FakePlatform whole = g_platform;

    for (const auto& lack : lacks) {
        g_platform = whole;
        lack.second();
        SetConfig("{'requestQueue':['5'],'requests':{'5':" + Reload("/a") + "}}");
        EXPECT_EQ(Choose(), kChoiceNothing) << lack.first;
        EXPECT_EQ(Styled(ConfigDocument()),
                  Styled(Document("{'requestQueue':null,'requests':{},'volumes':null}")))
            << lack.first;
    }
}

// What has been looked at is there, and reaches the file when it is written.
TEST_F(RequestChoiceTest, MembersThatWereLookedAtReachTheFile) {
    SetConfig(
        "{'requestQueue':['5','6'],'requests':{'5':{'type':'ack'},'6':{'mountPath':'/a',"
        "'type':'reloadPinBlocks'}}}");
    EXPECT_EQ(Choose(), kChoiceRequest) << "a request without a mount path has no volume";
    EXPECT_EQ(number_, "6");
    EXPECT_EQ(Styled(ConfigDocument()),
              Styled(Document("{'requestQueue':['6'],'requests':{'6':{'mountPath':'/a','type':"
                              "'reloadPinBlocks','data':null}},'volumes':null}")));
}

// A request that is null becomes an object by being looked at, so that it can be dropped.
TEST_F(RequestChoiceTest, ARequestStoredAsNullIsDropped) {
    SetConfig("{'requestQueue':['5'],'requests':{'5':null}}");
    EXPECT_EQ(Choose(), kChoiceNothing);
    EXPECT_EQ(Styled(ConfigDocument()),
              Styled(Document("{'requestQueue':null,'requests':{},'volumes':null}")));
}

TEST_F(RequestChoiceTest, DroppingIsTraced) {
    AtEveryLogSetting([&](LogCapture& log) {
        SetConfig("{'requestQueue':['5'],'requests':{'5':" + Reload("/gone") +
                  "},'volumes':{'/gone':{'files':{'1':'x'}}}}");
        ASSERT_EQ(Choose(), kChoiceNothing);
        EXPECT_TRUE(log.Shows(
            Lines{kDaemonLog.Enter(kFunction)} + CountLines() +
            Lines{
                kUtilLog.Verbose("SpaceGetUUID", "Get UUID = (null)"),
                kUtilLog.Error("SpaceHasCacheAndSupportPin",
                               "Can't get space uuid from mount path (/gone)"),
                kDaemonLog.Verbose("ConfigParseAndGetNextAvailableRequest",
                                   "Delete the volume (/gone) from config"),
                kDaemonLog.Enter("JsonRemoveRequest"),
                kDaemonLog.Verbose("JsonRemoveRequest", "Remove request num = 5"),
                kDaemonLog.Leave("JsonRemoveRequest"),
                kDaemonLog.Verbose("ConfigParseAndGetNextAvailableRequest", "Remove request (5)"),
            } +
            WriteJsonLines() +
            Lines{
                kDaemonLog.Notice("ConfigParseAndGetNextAvailableRequest", "Drop requests finish"),
                kDaemonLog.Leave(kFunction),
            }));
    });
}

// Requests '0' to '255', each of this form; nothing that a byte counts.
struct ManyRequests {
    explicit ManyRequests(const std::string& request) {
        for (int i = 0; i < 256; ++i) {
            queue += (i == 0 ? "'" : ",'") + std::to_string(i) + "'";
            requests += (i == 0 ? "'" : ",'") + std::to_string(i) + "':" + request;
        }
    }
    std::string queue;
    std::string requests;
};

TEST_F(RequestChoiceTest, AQueueOf256RequestsIsNotAnEmptyOne) {
    LogCapture quiet;
    ManyRequests pending(Reload("/a"));

    ServiceAddPendingSpaceAtomic("/a");
    SetConfig("{'requestQueue':[" + pending.queue + "],'requests':{" + pending.requests + "}}");
    EXPECT_EQ(Choose(), kChoiceNothing);
    EXPECT_EQ(CallCount(Call::kCondWait), 0);
}

TEST_F(RequestChoiceTest, TheRequestBehind256DroppedOnesIsChosen) {
    LogCapture quiet;
    ManyRequests gone(Reload("/gone"));

    SetConfig("{'requestQueue':[" + gone.queue + ",'x'],'requests':{" + gone.requests +
              ",'x':" + Reload("/a") + "}}");
    EXPECT_EQ(Choose(), kChoiceRequest);
    EXPECT_EQ(number_, "x");
    EXPECT_EQ(ConfigDocument()["requestQueue"].size(), 1U);
}

TEST_F(RequestChoiceTest, RequestsAreDroppedInTheOrderOfTheQueue) {
    LogCapture log(2);
    std::string dropped;

    SetConfig("{'requestQueue':['9','5','7'],'requests':{'5':" + Reload("/gone") +
              ",'7':" + Reload("/gone") + ",'9':" + Reload("/gone") + "}}");
    ASSERT_EQ(Choose(), kChoiceNothing);
    for (const std::string& line : log.SystemLines()) {
        size_t at = line.find("Remove request (");
        dropped += at == std::string::npos ? "" : line.substr(at);
    }
    log.Clear();
    EXPECT_EQ(dropped, "Remove request (9)Remove request (5)Remove request (7)");
}

// Meant: the output record is asked, which comes in empty, and not the request's volume.
TEST_F(RequestChoiceTest, ADroppedVolumeStaysPending) {
    ServiceAddPendingSpaceAtomic("/gone");
    LogCapture log(2);

    SetConfig("{'requestQueue':['5'],'requests':{'5':" + Reload("/gone") + "}}");
    EXPECT_EQ(Choose(), kChoiceNothing);
    EXPECT_TRUE(ServiceIsSpacePending("/gone"));
    EXPECT_FALSE(log.Has(kDaemonLog.Verbose("ConfigParseAndGetNextAvailableRequest",
                                            "Remove space (/gone) from pending list")));
}

// Meant: the mutex is held already, so the worker waits for itself, and with it the receiver.
TEST_F(RequestChoiceTest, AnEmptyPendingEntryBlocksTheWorkerForGood) {
    ServiceAddPendingSpaceAtomic("");
    SetConfig("{'requestQueue':['5'],'requests':{'5':" + Reload("/gone") + "}}");
    std::string before = ConfigText();

    EXPECT_EXIT(
        {
            Background worker([this] { Choose(); });
            bool blocked = WaitUntilBlockedOnServiceMutex(worker);
            Background receiver(
                [this] { ConfigAddRequest(config(), MakeRequest(kRequestReloadPinBlocks, "/a")); });
            blocked = WaitUntilBlockedOnServiceMutex(receiver) && blocked;
            _exit(blocked && ServiceIsSpacePending("") && ConfigText() == before ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
}

// What stands behind that wait, with a mutex that the service has not: the empty entry goes, and
// the line names the request's volume.
TEST_F(RequestChoiceTest, WithAnotherMutexTheEmptyPendingEntryWouldGo) {
    pthread_mutex_t recursive = PTHREAD_RECURSIVE_MUTEX_INITIALIZER_NP;
    LogCapture log(2);

    ServiceAddPendingSpaceAtomic("");
    g_service.mutex = recursive;
    SetConfig("{'requestQueue':['5'],'requests':{'5':" + Reload("/gone") + "}}");
    EXPECT_EQ(Choose(), kChoiceNothing);
    EXPECT_FALSE(ServiceIsSpacePending(""));
    EXPECT_TRUE(log.Has(kDaemonLog.Verbose(kFunction, "Remove space (/gone) from pending list")));
    ReplaceServiceMutex();
}

TEST_F(RequestChoiceTest, AnEmptyPendingEntryDoesNotMatterWhileNothingIsDropped) {
    ServiceAddPendingSpaceAtomic("");
    SetConfig("{'requestQueue':['5'],'requests':{'5':" + Reload("/a") + "}}");
    EXPECT_EQ(Choose(), kChoiceRequest);
}

// One odd member concerns nobody but its users.
TEST_F(RequestChoiceTest, WhatAChoiceDoesNotUseMayBeAnything) {
    struct Row {
        const char* what;
        std::string content;
        int choice;
    };
    const std::string run = "'5':" + Reload("/a");
    const Row rows[] = {
        {"the counter", "{'nextRequestNum':[],'requestQueue':['5'],'requests':{" + run + "}}",
         kChoiceRequest},
        {"volumes, while none is forgotten",
         "{'volumes':7,'requestQueue':['5'],'requests':{" + run + "}}", kChoiceRequest},
        {"another volume's files",
         "{'volumes':{'/u':[]},'requestQueue':['4'],'requests':{'4':" + Reload("/gone") + "}}",
         kChoiceNothing},
        {"the files of the volume that is forgotten",
         "{'volumes':{'/gone':7},'requestQueue':['4'],'requests':{'4':" + Reload("/gone") + "}}",
         kChoiceNothing},
        {"a request that is not queued", "{'requestQueue':['5'],'requests':{'4':7," + run + "}}",
         kChoiceRequest},
        {"a request behind the chosen one",
         "{'requestQueue':['5','6'],'requests':{'6':[]," + run + "}}", kChoiceRequest},
        {"a number behind the chosen one",
         "{'requestQueue':['4','5',{}],'requests':{'4':" + Reload("/gone") + "," + run + "}}",
         kChoiceRequest},
        {"type and data of one that is dropped",
         "{'requestQueue':['4'],'requests':{'4':{'mountPath':'/gone','type':{},'data':[]}}}",
         kChoiceNothing},
    };

    for (const Row& row : rows) {
        SetConfig(row.content);
        EXPECT_EQ(Choose(), row.choice) << row.what;
    }
}

// --- errors

TEST_F(RequestChoiceTest, AnInconsistentFileIsAnErrorAndStaysAsItIs) {
    struct Row {
        const char* what;
        std::string content;
        Lines errors;
    };
    const ExpectedLine notFound = kDaemonLog.Error("ConfigParseAndGetNextAvailableRequest",
                                                   "Can't find request number (5) in config");
    const ExpectedLine noType =
        kDaemonLog.Error("ConfigParseAndGetNextAvailableRequest", "Can't get correct request type");
    const ExpectedLine noSpace = kUtilLog.Error("SpaceHasCacheAndSupportPin",
                                                "Can't get space uuid from mount path (/gone)");
    const ExpectedLine notRemoved =
        kDaemonLog.Error("ConfigParseAndGetNextAvailableRequest", "Can't remove request (4)");
    auto wrongKind = [](const std::string& member) {
        return kDaemonLog.Error("ConfigCheckKind",
                                "Config has a member of a wrong kind (" + member + ")");
    };
    auto request = [](const char* number, const std::string& body) {
        return std::string("{'requestQueue':['") + number + "'],'requests':{'" + number +
               "':" + body + "}}";
    };
    const Row rows[] = {
        {"no requests", "{'requestQueue':['5']}", {notFound}},
        {"requests null", "{'requestQueue':['5'],'requests':null}", {notFound}},
        {"a stale number",
         "{'requestQueue':['5','6'],'requests':{'6':" + Reload("/a") + "}}",
         {notFound}},
        {"a stale number behind a volume to drop: nothing is dropped",
         "{'requestQueue':['4','5'],'requests':{'4':" + Reload("/gone") + "}}",
         {noSpace, notFound}},
        {"no type", request("5", "{'mountPath':'/a','data':null}"), {noType}},
        {"type null", request("5", "{'mountPath':'/a','type':null}"), {noType}},
        {"type \"unknown\"", request("5", "{'mountPath':'/a','type':'unknown'}"), {noType}},
        {"type in other letters", request("5", "{'mountPath':'/a','type':'PinFiles'}"), {noType}},
        {"type in its English spelling",
         request("5", "{'mountPath':'/a','type':'removePendingSpace'}"),
         {noType}},
        {"type a number", request("5", "{'mountPath':'/a','type':1}"), {noType}},
        {"a number to drop that is queued twice",
         "{'requestQueue':['4','4'],'requests':{'4':" + Reload("/gone") + "}}",
         {noSpace, noSpace,
          kDaemonLog.Error("JsonArrayRemoveString", "Remove string error, count =2"),
          kDaemonLog.Error("JsonRemoveRequest", "Can't remove request num (4) from request queue"),
          notRemoved}},
        {"the same before one that could run",
         "{'requestQueue':['4','4','6'],'requests':{'4':" + Reload("/gone") +
             ",'6':" + Reload("/a") + "}}",
         {noSpace, noSpace,
          kDaemonLog.Error("JsonArrayRemoveString", "Remove string error, count =2"),
          kDaemonLog.Error("JsonRemoveRequest", "Can't remove request num (4) from request queue"),
          notRemoved}},
        {"no JSON",
         "{'requestQueue':",
         {kUtilLog.Error("ReadFileToJson", InConfig("Prase file ", " error")),
          kDaemonLog.Error("ConfigGetJsonAndNumRequest",
                           InConfig("Can't read data from config file (")),
          kDaemonLog.Error("ConfigParseAndGetNextAvailableRequest",
                           InConfig("Get request from config file (", ") error"))}},
        {"a queue that is no array",
         "{'requestQueue':{'0':'5'}}",
         {wrongKind("requestQueue"),
          kDaemonLog.Error("ConfigGetJsonAndNumRequest",
                           InConfig("Can't read data from config file (")),
          kDaemonLog.Error("ConfigParseAndGetNextAvailableRequest",
                           InConfig("Get request from config file (", ") error"))}},
        {"a number that is no text", "{'requestQueue':[{}]}", {wrongKind("requestQueue")}},
        {"requests that are no object",
         "{'requestQueue':['5'],'requests':[]}",
         {wrongKind("requests")}},
        {"a request that is no object", request("5", "'x'"), {wrongKind("5")}},
        {"a mount path that is no text",
         request("5", "{'mountPath':[]}"),
         {wrongKind("mountPath")}},
        {"a type that is no text",
         request("5", "{'mountPath':'/a','type':{}}"),
         {wrongKind("type")}},
        {"data that is no text",
         request("5", "{'mountPath':'/a','type':'pinFiles','data':[]}"),
         {wrongKind("data")}},
        {"volumes that are no object, and one to forget",
         "{'requestQueue':['4'],'requests':{'4':" + Reload("/gone") + "},'volumes':7}",
         {noSpace, wrongKind("volumes")}},
    };

    for (const Row& row : rows) {
        LogCapture log;
        SetConfig(row.content);
        std::string before = ConfigText();
        EXPECT_EQ(Choose(), kChoiceError) << row.what;
        EXPECT_EQ(ConfigText(), before) << row.what;
        EXPECT_FALSE(ServiceMutexIsHeld()) << row.what;
        EXPECT_TRUE(log.Shows(row.errors)) << row.what;

        LogCapture traced(2);
        EXPECT_EQ(Choose(), kChoiceError) << row.what;
        EXPECT_TRUE(traced.Has(kDaemonLog.Leave(kFunction))) << row.what;
    }
}

TEST_F(RequestChoiceTest, ADirectoryInThePlaceOfTheFileIsAnError) {
    ASSERT_EQ(mkdir(config(), 0755), 0);
    EXPECT_EQ(Choose(), kChoiceError);
    EXPECT_FALSE(ServiceMutexIsHeld());
}

TEST_F(RequestChoiceTest, AFileThatCannotBeWrittenIsAnError) {
    SealedFile file("{'requestQueue':['5','6'],'requests':{'5':" + Reload("/gone") +
                    ",'6':" + Reload("/a") + "}}");
    LogCapture log;

    EXPECT_EQ(ConfigParseAndGetNextAvailableRequest(file.path(), request_, number_), kChoiceError);
    EXPECT_FALSE(ServiceMutexIsHeld());
    EXPECT_TRUE(log.Shows(
        {kUtilLog.Error("SpaceHasCacheAndSupportPin",
                        "Can't get space uuid from mount path (/gone)"),
         kUtilLog.Error("WriteJsonToFile",
                        std::string("Can't open config file (") + file.path() + ")"),
         kDaemonLog.Error("ConfigParseAndGetNextAvailableRequest", "Can't write to files")}));
}

// --- waiting

TEST_F(RequestChoiceTest, WaitsUntilARequestIsStored) {
    const char* const empties[] = {nullptr, "{}", "null", "{'requestQueue':null}",
                                   "{'requestQueue':[],'volumes':{}}"};

    for (const char* content : empties) {
        Signpost waits;
        int result = -1;
        LogCapture log(2);
        OnCall(Call::kCondWait, [&](int) { waits.Reach(); });
        unlink(config());
        if (content != nullptr) {
            SetConfig(content);
        }
        Lines before = content == nullptr
                           ? Lines{kDaemonLog.Verbose("ConfigParseAndGetNextAvailableRequest",
                                                      "Config doesn't exist")}
                           : Lines{kDaemonLog.Enter("ConfigGetJsonAndNumRequest"),
                                   kDaemonLog.Leave("ConfigGetJsonAndNumRequest")};
        {
            Background worker([&] { result = Choose(); });
            ASSERT_TRUE(waits.Wait());
            // The mutex is not held meanwhile: a request can be stored.
            pthread_mutex_lock(&g_service.mutex);
            EXPECT_TRUE(
                ShowsOwn(log, Lines{kDaemonLog.Enter(kFunction)} + before +
                                  Lines{kDaemonLog.Verbose("ConfigParseAndGetNextAvailableRequest",
                                                           "Go to block mode")}));
            pthread_mutex_unlock(&g_service.mutex);
            ASSERT_EQ(ConfigAddRequest(config(), MakeRequest(kRequestReloadPinBlocks, "/b")), 0);
            EXPECT_FALSE(worker.hasEnded());
            log.Clear();
            pthread_cond_signal(&g_service.cond);
            EXPECT_TRUE(worker.Ends());
        }
        EXPECT_EQ(result, kChoiceRequest);
        EXPECT_EQ(number_, "0");
        EXPECT_STREQ(request_.mountPath, "/b");
        EXPECT_TRUE(ShowsOwn(
            log, {
                     kDaemonLog.Verbose("ConfigParseAndGetNextAvailableRequest", "Wake up"),
                     kDaemonLog.Enter("ConfigGetJsonAndNumRequest"),
                     kDaemonLog.Leave("ConfigGetJsonAndNumRequest"),
                     kDaemonLog.Verbose("ConfigParseAndGetNextAvailableRequest",
                                        "Get request (request num = 0 type = reloadPinBlocks data "
                                        "= "),
                     kDaemonLog.Leave(kFunction),
                 }));
        OnCall(Call::kCondWait, nullptr);
    }
}

// A wake-up for nothing leads back into the wait, whatever the file is by then.
TEST_F(RequestChoiceTest, WaitsOnWhenThereIsStillNothing) {
    Signpost waits;
    int result = -1;

    OnCall(Call::kCondWait, [&](int) { waits.Reach(); });
    Background worker([&] { result = Choose(); });
    auto wake = [&](int times) {
        ASSERT_TRUE(waits.Wait(times));
        pthread_mutex_lock(&g_service.mutex);
        pthread_cond_signal(&g_service.cond);
        pthread_mutex_unlock(&g_service.mutex);
    };
    wake(1);
    wake(2);
    ASSERT_TRUE(waits.Wait(3));
    pthread_mutex_lock(&g_service.mutex);
    SetConfig("{'volumes':{'/left':{'files':{'1':'x'}}}}");
    pthread_mutex_unlock(&g_service.mutex);
    wake(3);
    ASSERT_TRUE(waits.Wait(4));
    pthread_mutex_lock(&g_service.mutex);
    EXPECT_FALSE(worker.hasEnded());
    // Nothing of what was read before may be left when this is.
    SetConfig("{'requestQueue':['1','2'],'requests':{'1':" + Reload("/gone") +
              ",'2':" + Reload("/a") + "}}");
    pthread_mutex_unlock(&g_service.mutex);
    wake(4);
    EXPECT_TRUE(worker.Ends());
    EXPECT_EQ(result, kChoiceRequest);
    EXPECT_EQ(number_, "2");
    EXPECT_EQ(Styled(ConfigDocument()), Styled(Document("{'requestQueue':['2'],'requests':{'2':" +
                                                        Reload("/a") + "},'volumes':null}")));
}

TEST_F(RequestChoiceTest, AFileThatIsDamagedWhileWaitingIsAnError) {
    Signpost waits;
    int result = -1;

    OnCall(Call::kCondWait, [&](int) { waits.Reach(); });
    Background worker([&] { result = Choose(); });
    ASSERT_TRUE(waits.Wait());
    pthread_mutex_lock(&g_service.mutex);
    SetConfig("[]");
    pthread_cond_signal(&g_service.cond);
    pthread_mutex_unlock(&g_service.mutex);
    EXPECT_TRUE(worker.Ends());
    EXPECT_EQ(result, kChoiceError);
    EXPECT_FALSE(ServiceMutexIsHeld());
}

TEST_F(RequestChoiceTest, TheMutexIsHeldWhileThePlatformIsAsked) {
    bool held = false;

    g_platform.onCall = [&](const std::string& call) {
        if (call == "QUORSpaceInfoEnum(1)") {
            Background other([&] { held = ServiceMutexIsHeld(); });
        }
    };
    SetConfig("{'requestQueue':['5'],'requests':{'5':" + Reload("/a") + "}}");
    EXPECT_EQ(Choose(), kChoiceRequest);
    EXPECT_TRUE(held);
}

}  // namespace
