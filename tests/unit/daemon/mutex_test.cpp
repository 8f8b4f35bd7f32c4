// SPDX-License-Identifier: MIT
// What each operation does under the service mutex, from its first step to its last, and what it
// does without.
#include <errno.h>
#include <sys/msg.h>
#include <unistd.h>

#include <memory>

#include "daemon/quorcachepinfiled.h"
#include "daemon/receiver.h"
#include "daemon/request_choice.h"
#include "daemon/request_store.h"
#include "daemon/service.h"
#include "daemon/worker.h"
#include "tests/unit/daemon/daemon_test.h"
#include "tests/unit/support/fake_files.h"
#include "tests/unit/support/fake_mutex.h"
#include "tests/unit/support/fake_platform.h"
#include "tests/unit/support/fake_system.h"
#include "tests/unit/support/queue_space.h"
#include "util/message_queue.h"

namespace {

using Spaces = PendingSpaceList::Spaces;

constexpr char kQueued7[] =
    "{'requestQueue':['7'],'requests':{'7':{'type':'ack','mountPath':'/v','data':null}}}";
constexpr char kSequence[] = "lock locked stat open write unlock ";

class MutexTest : public DaemonTest {
  protected:
    void TearDown() override {
        Unwatch();
        DaemonTest::TearDown();
    }

    // Lists from now on, in order: the mutex's steps, looks at files, openings, writes of any file,
    // questions to the platform (several in a row as one), waits and receives.
    void Watch() {
        steps_.clear();
        WatchMutex(&g_service.mutex, [this](const std::string& step) { steps_ += step + " "; });
        OnCall(Call::kStat, [this](int) { steps_ += "stat "; });
        OnCall(Call::kOpen, [this](int) { steps_ += "open "; });
        OnCall(Call::kWrite, [this](int) { steps_ += "write "; });
        OnCall(Call::kPwrite, [this](int) { steps_ += "bitmap "; });
        OnCall(Call::kCondWait, [this](int) { steps_ += "wait "; });
        OnCall(Call::kMsgrcv, [this](int) { steps_ += "receive "; });
        g_platform.onCall = [this](const std::string&) {
            const std::string question = "platform ";
            bool again = steps_.size() >= question.size() &&
                         steps_.substr(steps_.size() - question.size()) == question;
            steps_ += again ? "" : question;
        };
    }

    static void Unwatch() {
        UnwatchMutex();
        for (Call call : {Call::kStat, Call::kOpen, Call::kWrite, Call::kPwrite, Call::kCondWait,
                          Call::kMsgrcv}) {
            OnCall(call, nullptr);
        }
        g_platform.onCall = nullptr;
    }

    int Choose() {
        Request request = {};
        std::string number;
        return ConfigParseAndGetNextAvailableRequest(config(), request, number);
    }

    // Runs the receiver for the messages that wait, then finds the queue gone.
    void Receive(int messages) {
        FailCall(Call::kMsgrcv, messages + 1, EIDRM);
        Background receiver([this] { GetRequests(config()); });
        EXPECT_TRUE(receiver.Ends());
    }

    std::string steps_;
};

TEST_F(MutexTest, EverySequenceHoldsTheMutexFromTheFirstLookToTheWrite) {
    Request request = MakeRequest(kRequestReloadPinBlocks, "/v");
    const std::function<int()> sequences[] = {
        [&] { return ConfigAddRequest(config(), request); },
        [&] { return ConfigUpdatedByFinishedRequest(config(), request, "7"); },
        [&] { return ConfigDropErrorRequest(config(), request, "7"); },
    };

    for (const auto& sequence : sequences) {
        SetConfig(kQueued7);
        Watch();
        EXPECT_EQ(sequence(), 0);
        Unwatch();
        EXPECT_EQ(steps_, kSequence);
    }
    unlink(config());
    Watch();
    EXPECT_EQ(ConfigAddRequest(config(), request), 0);
    Unwatch();
    EXPECT_EQ(steps_, kSequence) << "a missing file is looked for under the mutex, too";
}

// A writer that came between would be undone by the write.
TEST_F(MutexTest, AChoiceHoldsTheMutexFromItsFirstLookToItsWrite) {
    LogCapture quiet;
    Volume volume = AddVolume();

    SetConfig(
        "{'requestQueue':['7','8'],'requests':{'7':{'type':'ack','mountPath':'/gone'},"
        "'8':{'type':'ack','mountPath':'" +
        volume.mountPath + "'}}}");
    Watch();
    EXPECT_EQ(Choose(), kChoiceRequest);
    Unwatch();
    EXPECT_EQ(steps_, "lock locked stat platform open write unlock ");
}

// A request that was stored between "nothing is queued" and the wait would wake nobody.
TEST_F(MutexTest, NothingComesBetweenALookAndTheWait) {
    LogCapture quiet;
    Volume volume = AddVolume();
    std::string stored = "{'requestQueue':['8'],'requests':{'8':{'type':'ack','mountPath':'" +
                         volume.mountPath + "'}}}";

    for (bool exists : {false, true}) {
        if (exists) {
            SetConfig("{}");
        } else {
            unlink(config());
        }
        Watch();
        // The wait ends at once, and something has come meanwhile.
        FailCall(Call::kCondWait, 1, EINVAL);
        OnCall(Call::kCondWait, [&](int) {
            steps_ += "wait ";
            SetConfig(stored);
        });
        EXPECT_EQ(Choose(), kChoiceRequest);
        Unwatch();
        EXPECT_EQ(steps_, "lock locked stat wait stat platform unlock ");
    }
}

TEST_F(MutexTest, TheWorkerIsWokenBehindTheMutexAndMessagesAreReceivedWithoutIt) {
    ASSERT_TRUE(EnterQueueSpace(true));
    RedirectPath(kMsgServerKeyPath, dir_ / "key");
    RequestMsg msg = {kRequestMsgType, MakeRequest(kRequestReloadPinBlocks, "/v")};
    int queue = MsgQueueGet(kMsgServerKeyPath);
    ASSERT_NE(queue, -1);
    ASSERT_EQ(msgsnd(queue, &msg, sizeof(msg.body), 0), 0);

    LogCapture quiet;
    Watch();
    Receive(1);
    Unwatch();
    std::string expected = std::string("receive ") + kSequence + "signal receive ";
    EXPECT_EQ(steps_.substr(steps_.find("receive ")), expected);
}

TEST_F(MutexTest, TheWorkerIsWokenWhenThatHasBeenTold) {
    ASSERT_TRUE(EnterQueueSpace(true));
    RedirectPath(kMsgServerKeyPath, dir_ / "key");
    RequestMsg msg = {kRequestMsgType, MakeRequest(kRequestReloadPinBlocks, "/v")};
    ASSERT_EQ(msgsnd(MsgQueueGet(kMsgServerKeyPath), &msg, sizeof(msg.body), 0), 0);

    LogCapture log(2);
    bool told = false;
    WatchMutex(&g_service.mutex, [&](const std::string& step) {
        if (step == "signal") {
            told = log.Has(kDaemonLog.Verbose("GetRequests", "Signal a new request is added"));
        }
    });
    Receive(1);
    UnwatchMutex();
    EXPECT_TRUE(told);
}

TEST_F(MutexTest, PendingMessagesTakeTheMutexForTheChangeAlone) {
    ASSERT_TRUE(EnterQueueSpace(true));
    RedirectPath(kMsgServerKeyPath, dir_ / "key");
    int queue = MsgQueueGet(kMsgServerKeyPath);
    ASSERT_NE(queue, -1);
    // The first and the last have nothing to do.
    for (int type : {5, 4, 4, 5, 5}) {
        RequestMsg msg = {kRequestMsgType, MakeRequest(type, "/v")};
        ASSERT_EQ(msgsnd(queue, &msg, sizeof(msg.body), 0), 0);
    }

    LogCapture quiet;
    Watch();
    Receive(5);
    Unwatch();
    EXPECT_EQ(steps_.substr(steps_.find("receive ")),
              "receive receive lock locked unlock receive receive lock locked unlock receive "
              "receive ");
}

// The list is read, changed and published while the mutex is held, and only then.
TEST_F(MutexTest, AChangeOfThePendingListStartsFromTheListUnderTheMutex) {
    struct Row {
        std::function<int()> change;
        Spaces before;  // when the mutex is asked for
        Spaces locked;  // once it is had
        Spaces after;
    };
    const Row rows[] = {
        {[] { return ServiceAddPendingSpaceAtomic("/b"); }, {}, {"/a"}, {"/a", "/b"}},
        {[] { return ServiceRemovePendingSpaceAtomic("/b"); }, {"/b"}, {"/b", "/a"}, {"/a"}},
    };

    for (const Row& row : rows) {
        Spaces atUnlock;
        g_service.pendingSpaces.Publish(std::make_shared<const Spaces>(row.before));
        WatchMutex(&g_service.mutex, [&](const std::string& step) {
            if (step == "locked") {
                // What another thread has published by the time that the mutex is free.
                g_service.pendingSpaces.Publish(std::make_shared<const Spaces>(row.locked));
            } else if (step == "unlock") {
                auto list = g_service.pendingSpaces.Snapshot();
                atUnlock = list == nullptr ? Spaces() : *list;
            }
        });
        EXPECT_EQ(row.change(), 0);
        UnwatchMutex();
        EXPECT_EQ(atUnlock, row.after);
        EXPECT_EQ(*g_service.pendingSpaces.Snapshot(), row.after);
    }
}

TEST_F(MutexTest, ChangesOfThePendingListAreToldBehindTheMutex) {
    LogCapture log(2);
    size_t lines = 0;

    WatchMutex(&g_service.mutex, [&](const std::string&) { lines += log.SystemLines().size(); });
    EXPECT_EQ(ServiceAddPendingSpaceAtomic("/a"), 0);
    EXPECT_EQ(lines, 0U);
    log.Clear();
    EXPECT_EQ(ServiceRemovePendingSpaceAtomic("/a"), 0);
    EXPECT_EQ(lines, 0U);
    log.Clear();
    EXPECT_EQ(ServiceRemovePendingSpaceAtomic("/a"), -1);
    UnwatchMutex();
    EXPECT_EQ(lines, 0U);
    log.Clear();
}

TEST_F(MutexTest, ARequestRunsWithoutTheMutexAndIsTakenAwayUnderIt) {
    LogCapture quiet;
    Volume volume = AddVolume();
    Request request = MakeRequest(kRequestPinFiles, volume.mountPath,
                                  "a#" + std::to_string(AddFile(volume, "a", {{0, 8}})));

    SetConfig(kQueued7);
    Watch();
    EXPECT_EQ(HandleRequestAndModifyConfig(config(), request, "7"), 0);
    Unwatch();
    size_t taken = steps_.find("lock ");
    EXPECT_NE(steps_.substr(0, taken).find("bitmap "), std::string::npos) << steps_;
    EXPECT_EQ(steps_.substr(taken), kSequence);
}

TEST_F(MutexTest, ASignalEndsTheProcessWhileTheMutexIsHeld) {
    EXPECT_EXIT(
        {
            alarm(20);
            pthread_mutex_lock(&g_service.mutex);
            SignalHandler(SIGTERM);
        },
        testing::ExitedWithCode(0), "");
}

}  // namespace
