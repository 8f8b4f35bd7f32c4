// SPDX-License-Identifier: MIT
// On real queues, in an IPC namespace of each test's own.
#include "daemon/receiver.h"

#include <errno.h>
#include <stddef.h>
#include <string.h>
#include <sys/msg.h>

#include "daemon/service.h"
#include "tests/unit/daemon/daemon_test.h"
#include "tests/unit/support/fake_files.h"
#include "tests/unit/support/fake_system.h"
#include "tests/unit/support/queue_space.h"
#include "util/message_queue.h"

namespace {

const ExpectedLine kEnter = kDaemonLog.Enter("GetRequests");
const ExpectedLine kLeave = kDaemonLog.Leave("GetRequests");

ExpectedLine NewMessage(const std::string& type) {
    return kDaemonLog.Verbose("GetRequests", "Get a new message. Request type = " + type);
}

class ReceiverTest : public DaemonTest {
  protected:
    void SetUp() override {
        DaemonTest::SetUp();
        ASSERT_TRUE(EnterQueueSpace(true)) << strerror(errno);
        RedirectPath(kMsgServerKeyPath, dir_ / "key");
        OnCall(Call::kMsgrcv, [this](int) { receives_.Reach(); });
    }

    void TearDown() override {
        OnCall(Call::kMsgrcv, nullptr);
        DaemonTest::TearDown();
    }

    // Makes the queue as the receiver will find it, so that messages can be sent before it runs.
    void MakeQueue() {
        LogCapture quiet;
        queue_ = MsgQueueGet(kMsgServerKeyPath);
        ASSERT_NE(queue_, -1);
    }

    void Send(const void* body, size_t size, long type = 1) const {
        struct {
            long type;
            char body[4096];
        } message = {};
        message.type = type;
        memcpy(message.body, body, size);
        ASSERT_EQ(msgsnd(queue_, &message, size, 0), 0) << strerror(errno);
    }

    void Send(const Request& request) const { Send(&request, sizeof(request)); }

    // Messages that wait in the queue.
    size_t Waiting() const {
        struct msqid_ds status = {};
        EXPECT_EQ(msgctl(queue_, IPC_STAT, &status), 0);
        return status.msg_qnum;
    }

    void RemoveQueue() const { EXPECT_EQ(msgctl(queue_, IPC_RMID, nullptr), 0); }

    // Runs the receiver until it has taken so many messages and then finds the queue gone; it must
    // end its thread and not return.
    void Receive(int messages) {
        FailCall(Call::kMsgrcv, messages + 1, EIDRM);
        RunUntilStop();
    }

    // Runs the receiver until it stops by itself.
    void RunUntilStop() {
        Background receiver([this] { GetRequests(config()); });
        EXPECT_TRUE(receiver.Ends());
        EXPECT_FALSE(receiver.hasReturned());
    }

    std::string InConfig(const char* before, const char* after = ")") const {
        return before + std::string(config()) + after;
    }

    int queue_ = -1;
    Signpost receives_;
};

Request Reload(const std::string& mountPath) {
    return MakeRequest(kRequestReloadPinBlocks, mountPath);
}

// Mount paths of the stored requests, in queue order.
std::string StoredVolumes(const Json::Value& document) {
    std::string volumes;
    for (const Json::Value& number : document["requestQueue"]) {
        volumes += document["requests"][number.asString()]["mountPath"].asString() + " ";
    }
    return volumes;
}

// --- the queue

TEST_F(ReceiverTest, TheQueueIsMadeAndItsIdKept) {
    LogCapture log(2);
    Receive(0);
    queue_ = g_msgQueueId;
    EXPECT_EQ(queue_, msgget(static_cast<key_t>(std::stol(ReadFile(dir_ / "key"))), 0));
    EXPECT_TRUE(ShowsOwn(
        log, {
                 kEnter,
                 kDaemonLog.Verbose("GetRequests",
                                    "Get server messsage queue id = " + std::to_string(queue_)),
                 kDaemonLog.Error("GetRequests",
                                  std::string("Receive messaged failed: ") + strerror(EIDRM)),
                 kLeave,
             }));
}

TEST_F(ReceiverTest, AQueueThatCannotBeHadStopsIntake) {
    for (int level : {1, 2}) {
        LogCapture log(level);
        g_msgQueueId = 12345;
        FailCall(Call::kFtok, 1, EACCES);
        WriteFile(dir_ / "key", "");
        RunUntilStop();
        EXPECT_EQ(g_msgQueueId, -1);
        EXPECT_EQ(CallCount(Call::kMsgrcv), 0);
        EXPECT_TRUE(
            ShowsOwn(log, {
                              kEnter,
                              kDaemonLog.Error("GetRequests",
                                               "Create server messsage queue by file "
                                               "(/var/run/quorcachepinfile-msg-server.key) failed"),
                              kLeave,
                          }));
    }
}

TEST_F(ReceiverTest, AQueueOfAnEarlierStartIsServed) {
    MakeQueue();
    Send(Reload("/a"));
    Receive(1);
    EXPECT_EQ(StoredVolumes(ConfigDocument()), "/a ");
}

TEST_F(ReceiverTest, AFailedReceiveStopsIntake) {
    MakeQueue();
    Send(Reload("/a"));
    for (int error : {EINTR, EACCES, ENOMEM}) {
        LogCapture log;
        FailCall(Call::kMsgrcv, 1, error);
        RunUntilStop();
        EXPECT_EQ(Waiting(), 1U);
        EXPECT_TRUE(log.Shows({kDaemonLog.Error(
            "GetRequests", std::string("Receive messaged failed: ") + strerror(error))}));
    }
}

// --- storing

TEST_F(ReceiverTest, RequestsAreStoredInTheOrderOfTheirArrival) {
    MakeQueue();
    WriteFile(dir_ / "a", "");
    for (const char* volume : {"/a", "/b", "/c", "/d", "/e"}) {
        Send(Reload(volume));
    }
    Receive(5);
    EXPECT_EQ(StoredVolumes(ConfigDocument()), "/a /b /c /d /e ");
}

TEST_F(ReceiverTest, StoringIsTraced) {
    MakeQueue();
    LogCapture log(2);
    Send(Reload("/a"));
    Receive(1);
    EXPECT_TRUE(ShowsOwn(
        log, {
                 kEnter,
                 kDaemonLog.Verbose("GetRequests",
                                    "Get server messsage queue id = " + std::to_string(queue_)),
                 NewMessage("reloadPinBlocks"),
                 kDaemonLog.Enter("ConfigAddRequest"),
                 kDaemonLog.Enter("JsonAddRequest"),
                 kDaemonLog.Verbose("JsonAddRequest",
                                    "After request is added: jsConf:" + Styled(ConfigDocument())),
                 kDaemonLog.Leave("ConfigAddRequest"),
                 kDaemonLog.Verbose("GetRequests", "Signal a new request is added"),
                 kDaemonLog.Error("GetRequests",
                                  std::string("Receive messaged failed: ") + strerror(EIDRM)),
                 kLeave,
             }));
}

TEST_F(ReceiverTest, EachStoredRequestWakesAWaiter) {
    MakeQueue();
    pthread_mutex_lock(&g_service.mutex);
    Background receiver([this] { GetRequests(config()); });
    for (int i = 1; i <= 3; ++i) {
        Send(Reload("/a"));
        pthread_cond_wait(&g_service.cond, &g_service.mutex);
        while (!Exists(config()) || ConfigDocument()["nextRequestNum"].asInt() != i) {
            pthread_cond_wait(&g_service.cond, &g_service.mutex);
        }
    }
    pthread_mutex_unlock(&g_service.mutex);
    receives_.Wait(4);
    RemoveQueue();
    EXPECT_TRUE(receiver.Ends());
}

TEST_F(ReceiverTest, EveryTypeButThePendingOnesIsStored) {
    struct Row {
        int type;
        const char* name;
        bool needsFiles;
    };
    const Row rows[] = {{0, "unknown", false},
                        {1, "pinFiles", true},
                        {2, "unpinFiles", true},
                        {3, "ack", false},
                        {6, "reloadPinBlocks", false}};
    std::string path = dir_ / "a";

    MakeQueue();
    WriteFile(path, "");
    for (const Row& row : rows) {
        Send(MakeRequest(row.type, dir_.path(), row.needsFiles ? path : ""));
    }
    Receive(5);
    Json::Value document = ConfigDocument();
    ASSERT_EQ(document["requestQueue"].size(), 5U);
    for (Json::ArrayIndex i = 0; i < 5; ++i) {
        EXPECT_EQ(document["requests"][std::to_string(i)]["type"].asString(), rows[i].name);
    }
}

TEST_F(ReceiverTest, MessagesOfAnotherTypeStayInTheQueue) {
    Request other = Reload("/other");

    MakeQueue();
    Send(&other, sizeof(other), 2);
    Send(&other, sizeof(other), 7);
    Send(Reload("/a"));
    Background receiver([this] { GetRequests(config()); });
    receives_.Wait(2);
    EXPECT_EQ(Waiting(), 2U);
    RemoveQueue();
    EXPECT_TRUE(receiver.Ends());
    EXPECT_EQ(StoredVolumes(ConfigDocument()), "/a ");
}

// --- what stops intake, for good

struct StopRow {
    const char* what;
    Request request;
    const char* typeName;
    Lines errors;
};

TEST_F(ReceiverTest, ABadMessageStopsIntakeAndNothingBehindItIsRead) {
    const ExpectedLine wrong = kDaemonLog.Error("GetRequests", "Get wrong message format");
    const ExpectedLine noSpace = kDaemonLog.Error("CheckNormalMsg", "Space UUID is not set");
    const ExpectedLine noFiles = kDaemonLog.Error("CheckNormalMsg", "Should provide file paths");
    const ExpectedLine noType =
        kUtilLog.Error("RequestTypeToString", "Convert request type to string errror");
    const ExpectedLine notAdded = kDaemonLog.Error("ConfigAddRequest", "Can't add request to json");
    const ExpectedLine notStored =
        kDaemonLog.Error("GetRequests", InConfig("Can't add request to config ("));
    const Lines notConverted = {kDaemonLog.Error("JsonAddRequest", "Get relative paths failed"),
                                notAdded, notStored};
    std::string v = dir_.path();
    const StopRow rows[] = {
        {"pin without a mount path", MakeRequest(1, "", v + "/a"), "pinFiles", {noSpace, wrong}},
        {"unpin without a mount path",
         MakeRequest(2, "", v + "/a"),
         "unpinFiles",
         {noSpace, wrong}},
        {"reload without a mount path", MakeRequest(6, ""), "reloadPinBlocks", {noSpace, wrong}},
        {"unknown without a mount path", MakeRequest(0, ""), "unknown", {noSpace, wrong}},
        {"no type and no mount path", MakeRequest(99, ""), "(null)", {noSpace, wrong}},
        {"all zero", Request{}, "unknown", {noSpace, wrong}},
        {"pin without files", MakeRequest(1, v), "pinFiles", {noFiles, wrong}},
        {"unpin without files", MakeRequest(2, v), "unpinFiles", {noFiles, wrong}},
        {"type 7", MakeRequest(7, v), "(null)", {noType, notAdded, notStored}},
        {"type -1", MakeRequest(-1, v), "(null)", {noType, notAdded, notStored}},
        {"the smallest type", MakeRequest(INT32_MIN, v), "(null)", {noType, notAdded, notStored}},
        {"the largest type", MakeRequest(INT32_MAX, v), "(null)", {noType, notAdded, notStored}},
        {"a path outside the volume", MakeRequest(1, v, "/elsewhere/a"), "pinFiles",
         Lines{kDaemonLog.Error(
             "FileGetRelativePathByMountPath",
             "Failed to Get relative path (Volume path=" + v + " File path=/elsewhere/a")} +
             notConverted},
        {"a file that is not there", MakeRequest(2, v, v + "/missing"), "unpinFiles",
         Lines{kUtilLog.Error("FileGetInodeNumber", "Stat file " + v + "/missing error"),
               kDaemonLog.Error("AbsolutePathsToFileInodeList",
                                "Cant' get inode number of file (" + v + "/missing)")} +
             notConverted},
        {"%n in the mount path", MakeRequest(1, "/v%n%n%n%s", v + "/a"), "pinFiles",
         Lines{kDaemonLog.Error(
             "FileGetRelativePathByMountPath",
             "Failed to Get relative path (Volume path=/v%n%n%n%s File path=" + v + "/a")} +
             notConverted},
        {"no terminators", MakeRequest(1, "/" + Text(511), Text(1024, 'd')), "pinFiles",
         Lines{kDaemonLog.Error("FileGetRelativePathByMountPath",
                                "Failed to Get relative path (Volume path=/" + Text(510) +
                                    " File path=" + Text(1023, 'd'))} +
             notConverted},
    };

    MakeQueue();
    WriteFile(dir_ / "a", "");
    for (const StopRow& row : rows) {
        SetConfig("{'mark':1}");
        std::string before = ConfigText();
        LogCapture log;
        Send(row.request);
        Send(Reload("/behind"));
        RunUntilStop();
        EXPECT_TRUE(log.Shows(row.errors)) << row.what;
        EXPECT_EQ(ConfigText(), before) << row.what;
        EXPECT_EQ(Waiting(), 1U) << row.what;
        EXPECT_FALSE(ServiceMutexIsHeld()) << row.what;
        RemoveQueue();
        MakeQueue();
    }
}

TEST_F(ReceiverTest, WhatWasStoredBeforeABadMessageStays) {
    MakeQueue();
    LogCapture log(2);
    Send(Reload("/a"));
    Send(MakeRequest(kRequestPinFiles, "/a"));
    Send(Reload("/b"));
    RunUntilStop();
    EXPECT_EQ(StoredVolumes(ConfigDocument()), "/a ");
    EXPECT_EQ(Waiting(), 1U);
    EXPECT_TRUE(log.Has(kLeave));

    // The next start goes on with what is left.
    Receive(1);
    EXPECT_EQ(StoredVolumes(ConfigDocument()), "/a /b ");
}

TEST_F(ReceiverTest, AFileThatCannotBeReadStopsIntake) {
    MakeQueue();
    LogCapture log;
    SetConfig("[]");
    std::string before = ConfigText();
    Send(Reload("/a"));
    RunUntilStop();
    EXPECT_EQ(ConfigText(), before);
    EXPECT_TRUE(log.Has(
        kDaemonLog.Error("ConfigAddRequest", InConfig("Can't read data from config file ("))));
    EXPECT_TRUE(
        log.Has(kDaemonLog.Error("GetRequests", InConfig("Can't add request to config ("))));
}

// --- lengths

TEST_F(ReceiverTest, AMessageThatIsTooLongStopsIntakeAndStaysInTheQueue) {
    char body[sizeof(Request) + 1] = {};
    Request request = Reload("/a");

    MakeQueue();
    memcpy(body, &request, sizeof(request));
    for (int start = 0; start < 3; ++start) {
        LogCapture log;
        if (start == 0) {
            Send(body, sizeof(body));
        }
        RunUntilStop();
        EXPECT_EQ(Waiting(), 1U) << "the next start meets it again";
        EXPECT_FALSE(Exists(config()));
        EXPECT_TRUE(log.Shows({kDaemonLog.Error(
            "GetRequests", std::string("Receive messaged failed: ") + strerror(E2BIG))}));
    }
}

// Meant: the buffer is not cleared between messages.
TEST_F(ReceiverTest, AShortMessageKeepsTheBytesOfTheOneBefore) {
    Request first = Reload("/the-first-volume");
    Request second = Reload("/other");

    MakeQueue();
    Send(first);
    Send(&second, offsetof(Request, mountPath));      // the type alone
    Send(&second, offsetof(Request, mountPath) + 6);  // up to the end of "/other"
    Send(&second, 0);
    Receive(4);
    EXPECT_EQ(StoredVolumes(ConfigDocument()),
              "/the-first-volume /the-first-volume /otherirst-volume /otherirst-volume ");
}

// A terminator that came in between cleared nothing behind it.
TEST_F(ReceiverTest, AShortMessageBringsBackTheBytesOfAMessageBeforeTheLast) {
    Request first = Reload("/the-first-volume");
    Request second = Reload("/b");

    MakeQueue();
    Send(first);
    Send(&second, offsetof(Request, mountPath) + 3);  // "/b" and its end
    Send(&first, offsetof(Request, mountPath) + 3);   // "/th"
    Receive(3);
    EXPECT_EQ(StoredVolumes(ConfigDocument()), "/the-first-volume /b /the-first-volume ");
}

TEST_F(ReceiverTest, AnInterruptedReceiveIsNotTriedAgain) {
    MakeQueue();
    LogCapture log;
    Send(Reload("/a"));
    FailCall(Call::kMsgrcv, 1, EINTR);
    RunUntilStop();
    EXPECT_EQ(CallCount(Call::kMsgrcv), 1);
    EXPECT_EQ(Waiting(), 1U);
    EXPECT_TRUE(log.Shows({kDaemonLog.Error(
        "GetRequests", std::string("Receive messaged failed: ") + strerror(EINTR))}));
}

// The data of the message before, too: an unpin of the files that were pinned.
TEST_F(ReceiverTest, AShortMessageKeepsTheDataOfTheOneBefore) {
    std::string path = dir_ / "a";
    int32_t unpin = kRequestUnpinFiles;

    WriteFile(path, "");
    SetInodeNumber(path, 5);
    MakeQueue();
    Send(MakeRequest(kRequestPinFiles, dir_.path(), path));
    Send(&unpin, sizeof(unpin));
    Receive(2);
    Json::Value document = ConfigDocument();
    EXPECT_EQ(document["requests"]["1"]["type"].asString(), "unpinFiles");
    EXPECT_EQ(document["requests"]["1"]["data"].asString(), "a#5");
}

TEST_F(ReceiverTest, TheFirstShortMessageIsCompletedWithZeros) {
    int32_t type = kRequestReloadPinBlocks;

    MakeQueue();
    LogCapture log;
    Send(&type, sizeof(type));
    RunUntilStop();
    EXPECT_TRUE(log.Shows({kDaemonLog.Error("CheckNormalMsg", "Space UUID is not set"),
                           kDaemonLog.Error("GetRequests", "Get wrong message format")}));
}

TEST_F(ReceiverTest, ATextWithoutATerminatorEndsWithItsField) {
    MakeQueue();
    Send(MakeRequest(kRequestReloadPinBlocks, "/" + Text(511), Text(1024, 'd')));
    Receive(1);
    EXPECT_EQ(StoredVolumes(ConfigDocument()), "/" + Text(510) + " ");
}

TEST_F(ReceiverTest, AMountPathOf511CharactersIsStoredWhole) {
    MakeQueue();
    Send(MakeRequest(kRequestReloadPinBlocks, "/" + Text(510)));
    Receive(1);
    EXPECT_EQ(StoredVolumes(ConfigDocument()), "/" + Text(510) + " ");
}

TEST_F(ReceiverTest, AMessageFillsItsFields) {
    std::string path = dir_ / "a";
    std::string filler = Text(1023 - path.size(), ';');

    WriteFile(path, "");
    SetInodeNumber(path, 5);
    MakeQueue();
    Send(MakeRequest(kRequestPinFiles, dir_.path(), filler + path));
    Receive(1);
    EXPECT_EQ(ConfigDocument()["requests"]["0"]["data"].asString(), "a#5");
}

// --- pending spaces

TEST_F(ReceiverTest, PendingSpacesAreKeptAndNeverStored) {
    MakeQueue();
    Send(MakeRequest(kRequestAddPendingSpace, "/a", "data is ignored"));
    Send(MakeRequest(kRequestAddPendingSpace, "/b"));
    Send(MakeRequest(kRequestAddPendingSpace, ""));
    Send(MakeRequest(kRequestRemovePendingSpace, "/a"));
    Receive(4);
    EXPECT_FALSE(ServiceIsSpacePending("/a"));
    EXPECT_TRUE(ServiceIsSpacePending("/b"));
    EXPECT_TRUE(ServiceIsSpacePending(""));
    EXPECT_FALSE(Exists(config()));
}

TEST_F(ReceiverTest, PendingSpacesAreTraced) {
    MakeQueue();
    for (int level : {1, 2}) {
        LogCapture log(level);
        Send(MakeRequest(kRequestAddPendingSpace, "/a"));
        Send(MakeRequest(kRequestAddPendingSpace, "/a"));
        Send(MakeRequest(kRequestRemovePendingSpace, "/a"));
        Send(MakeRequest(kRequestRemovePendingSpace, "/a"));
        FailCall(Call::kMsgrcv, 5, EINTR);
        RunUntilStop();
        EXPECT_TRUE(ShowsOwn(
            log,
            {
                kEnter,
                kDaemonLog.Verbose("GetRequests",
                                   "Get server messsage queue id = " + std::to_string(queue_)),
                NewMessage("addPendingSpace"),
                kDaemonLog.Verbose("ServiceAddPendingSpaceAtomic", "Add pending space = /a"),
                NewMessage("addPendingSpace"),
                kDaemonLog.Verbose("GetRequests", "Space (/a) is already in pending list"),
                NewMessage("removePendigSpace"),
                kDaemonLog.Verbose("ServiceRemovePendingSpaceAtomic", "Remove pending space (/a)"),
                NewMessage("removePendigSpace"),
                kDaemonLog.Notice("GetRequests",
                                  "Space (/a) is not in pending list. Could be a new space"),
                kDaemonLog.Error("GetRequests",
                                 std::string("Receive messaged failed: ") + strerror(EINTR)),
                kLeave,
            }));
    }
}

TEST_F(ReceiverTest, APendingTextWithoutATerminatorEndsWithItsField) {
    MakeQueue();
    Send(MakeRequest(kRequestAddPendingSpace, "/" + Text(511)));
    Receive(1);
    EXPECT_TRUE(ServiceIsSpacePending(("/" + Text(510)).c_str()));
}

TEST_F(ReceiverTest, ATypeWithoutANameIsTracedAsTheLibrarysNullMarker) {
    MakeQueue();
    LogCapture log(2);
    Send(MakeRequest(7, ""));
    RunUntilStop();
    EXPECT_TRUE(log.Has(NewMessage("(null)")));
    EXPECT_TRUE(
        log.Has(kUtilLog.Error("RequestTypeToString", "Convert request type to string errror")));
}

// Somebody else changes the list between the receiver's question and its change. The receiver is
// held on the mutex for that.
TEST_F(ReceiverTest, ALostRaceStopsIntake) {
    struct Row {
        int type;
        bool pendingBefore;
        bool staysLocked;
        Lines errors;
    };
    const Row rows[] = {
        {kRequestAddPendingSpace,
         false,
         true,
         {kDaemonLog.Error("ServiceAddPendingSpaceAtomic", "Space (/a) is already pending"),
          kDaemonLog.Error("GetRequests", "Add spend space error")}},
        {kRequestRemovePendingSpace,
         true,
         false,
         {kDaemonLog.Error("ServiceRemovePendingSpaceAtomic", "Space (/a) is not pending"),
          kDaemonLog.Error("GetRequests", "Remove pending space error")}},
    };
    auto list = [](bool pending) {
        using Spaces = PendingSpaceList::Spaces;
        g_service.pendingSpaces.Publish(
            std::make_shared<const Spaces>(pending ? Spaces{"/a"} : Spaces()));
    };

    MakeQueue();
    for (const Row& row : rows) {
        LogCapture log;
        list(row.pendingBefore);
        Send(MakeRequest(row.type, "/a"));
        Send(Reload("/behind"));
        {
            pthread_mutex_lock(&g_service.mutex);
            Background receiver([this] { GetRequests(config()); });
            ASSERT_TRUE(WaitUntilBlockedOnServiceMutex(receiver));
            list(!row.pendingBefore);
            pthread_mutex_unlock(&g_service.mutex);
            EXPECT_TRUE(receiver.Ends());
            EXPECT_FALSE(receiver.hasReturned());
        }
        EXPECT_TRUE(log.Shows(row.errors));
        EXPECT_EQ(Waiting(), 1U);
        EXPECT_EQ(ServiceMutexIsHeld(), row.staysLocked);
        if (row.staysLocked) {
            ReplaceServiceMutex();
        }
        RemoveQueue();
        MakeQueue();
    }
}

// --- the check of a message

TEST_F(ReceiverTest, CheckNormalMsg) {
    struct Row {
        const char* what;
        Request request;
        const char* error;  // null: acceptable
    };
    constexpr char kNoSpace[] = "Space UUID is not set";
    constexpr char kNoFiles[] = "Should provide file paths";
    const Row rows[] = {
        {"pin", MakeRequest(1, "/v", "/v/a"), nullptr},
        {"unpin", MakeRequest(2, "/v", "/v/a"), nullptr},
        {"reload without data", MakeRequest(6, "/v"), nullptr},
        {"reload with data", MakeRequest(6, "/v", "x"), nullptr},
        {"unknown", MakeRequest(0, "/v"), nullptr},
        {"ack", MakeRequest(3, "/v"), nullptr},
        {"pending types, which never come here", MakeRequest(4, "/v"), nullptr},
        {"a type without a name", MakeRequest(77, "/v"), nullptr},
        {"a negative type", MakeRequest(-1, "/v"), nullptr},
        {"the smallest type", MakeRequest(INT32_MIN, "/v"), nullptr},
        {"no terminators", MakeRequest(1, Text(512), Text(1024)), nullptr},
        {"a mount path of one byte", MakeRequest(6, "\x01"), nullptr},
        {"data of separators only", MakeRequest(1, "/v", ";"), nullptr},
        {"pin without data", MakeRequest(1, "/v"), kNoFiles},
        {"unpin without data", MakeRequest(2, "/v"), kNoFiles},
        {"data behind a null byte", MakeRequest(1, "/v", std::string("\0x", 2)), kNoFiles},
        {"no mount path", MakeRequest(6, ""), kNoSpace},
        {"a mount path behind a null byte", MakeRequest(6, std::string("\0/v", 3)), kNoSpace},
        {"neither: the mount path comes first", MakeRequest(1, ""), kNoSpace},
    };

    AtEveryLogSetting([&](LogCapture& log) {
        for (const Row& row : rows) {
            RequestMsg msg = {1, row.request};
            EXPECT_EQ(CheckNormalMsg(msg), row.error == nullptr ? 0 : -1) << row.what;
            EXPECT_TRUE(log.Shows(row.error == nullptr
                                      ? Lines()
                                      : Lines{kDaemonLog.Error("CheckNormalMsg", row.error)}))
                << row.what;
        }
    });
}

}  // namespace
