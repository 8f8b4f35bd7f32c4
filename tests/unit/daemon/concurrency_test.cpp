// SPDX-License-Identifier: MIT
// Intake, pending changes and the worker at once: the real functions on a real queue and real
// files, the platform answered from a table. Meant to be run under a thread sanitizer, too.
//
// QUOR_CONCURRENCY_SECONDS says how long the long test goes on; 30 without it.
#include <errno.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ipc.h>
#include <sys/msg.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <iostream>
#include <map>
#include <random>
#include <set>

#include "daemon/cache_warming.h"
#include "daemon/receiver.h"
#include "daemon/service.h"
#include "daemon/worker.h"
#include "platform/quorflashcache.h"
#include "tests/unit/daemon/daemon_test.h"
#include "tests/unit/support/fake_files.h"
#include "tests/unit/support/fake_ioctl.h"
#include "tests/unit/support/fake_platform.h"
#include "tests/unit/support/fake_system.h"
#include "tests/unit/support/queue_space.h"
#include "util/message_queue.h"

namespace {

using Clock = std::chrono::steady_clock;
using Strings = std::vector<std::string>;

constexpr uint64_t kDeviceSize = 4194304;
constexpr int kNumVolumes = 3;
constexpr int kNumFiles = 48;             // of a volume; each lies in a unit of its own
constexpr int kRoundRequests = 60;        // messages of a round that are stored
constexpr int kRoundChanges = 400;        // messages of a round that change the pending list
constexpr int kFirstNumber = 2147483600;  // the counter wraps on the way
constexpr int64_t kNumberModulus = 2147483646;

// Lets the other threads run for a moment.
void Pause() {
    std::this_thread::sleep_for(std::chrono::microseconds(50));
}

std::chrono::seconds Duration() {
    const char* text = getenv("QUOR_CONCURRENCY_SECONDS");
    return std::chrono::seconds(text == nullptr ? 30 : atoi(text));
}

class ConcurrencyTest : public DaemonTest {
  protected:
    struct Volume3 {
        Volume volume;
        std::vector<unsigned long> inodes;
        std::set<int> pinned;  // what the requests sent so far come to
        Strings done;          // lines of the requests of this round, in the order sent
    };

    void SetUp() override;
    void TearDown() override;

    void Send(const Request& request);
    void SendRandomRequest();
    void SendRandomChange();
    void ReleaseAll();

    // Sends a round's messages from two threads and waits until all has been handled.
    void PlayRound();
    void Settle();

    // Compares what the round came to with what was sent.
    void CheckRound(LogCapture& log);
    void CheckLog(const Strings& lines);
    void CheckFile();
    void CheckBitmap(const Volume3& volume);

    std::string EntryOf(const Volume3& volume, int file) const;

    std::vector<Volume3> volumes_;
    int queue_ = -1;
    std::atomic<int> sent_{0};
    int64_t stored_ = 0;  // since the start
    int acks_ = 0;        // of this round
    int reloads_ = 0;
    int interruptions_ = 0;  // since the start
    int waits_ = 0;          // of the worker, when it was last asked for
    Signpost receives_;
    Signpost workerWaits_;
    std::mt19937 requestRandom_{1};
    std::mt19937 changeRandom_{2};
};

void ConcurrencyTest::SetUp() {
    DaemonTest::SetUp();
    ASSERT_TRUE(EnterQueueSpace(true)) << strerror(errno);
    RedirectPath(kMsgServerKeyPath, dir_ / "key");
    for (int i = 0; i < kNumVolumes; ++i) {
        Volume3 entry;
        entry.volume = AddVolume("volume" + std::to_string(i), kDeviceSize);
        for (int file = 0; file < kNumFiles; ++file) {
            auto start = static_cast<uint64_t>(file) * 128;
            entry.inodes.push_back(
                AddFile(entry.volume, "f" + std::to_string(file), {{start, 8}, {start + 16, 8}}));
        }
        volumes_.push_back(entry);
    }
    UseConfigInMemory();
    SetConfig("{'nextRequestNum':" + std::to_string(kFirstNumber) + "}");
    // Only the worker asks the platform; what it has asked is of no use here.
    g_platform.onCall = [](const std::string&) { g_platform.calls.clear(); };
    OnCall(Call::kMsgrcv, [this](int) { receives_.Reach(); });
    OnCall(Call::kCondWait, [this](int) { workerWaits_.Reach(); });
    // A second of the service takes a little time, and so does a read, so that messages come
    // between.
    OnCall(Call::kSleep, [](int) { Pause(); });
    OnCall(Call::kRead, [](int) { Pause(); });
}

void ConcurrencyTest::TearDown() {
    for (Call call : {Call::kMsgrcv, Call::kCondWait, Call::kSleep, Call::kRead}) {
        OnCall(call, nullptr);
    }
    g_platform.onCall = nullptr;
    DaemonTest::TearDown();
}

void ConcurrencyTest::Send(const Request& request) {
    struct {
        long type;
        Request body;
    } message = {1, request};

    ++sent_;
    EXPECT_EQ(msgsnd(queue_, &message, sizeof(request), 0), 0) << strerror(errno);
}

std::string ConcurrencyTest::EntryOf(const Volume3& volume, int file) const {
    return "f" + std::to_string(file) + "#" +
           std::to_string(volume.inodes[static_cast<size_t>(file)]);
}

void ConcurrencyTest::SendRandomRequest() {
    auto random = [this](int limit) {
        return static_cast<int>(requestRandom_() % static_cast<unsigned>(limit));
    };
    Volume3& volume = volumes_[static_cast<size_t>(random(kNumVolumes))];
    int kind = random(10);

    ++stored_;
    if (kind == 0) {
        ++acks_;
        Send(MakeRequest(kRequestAck, volume.volume.mountPath));
    } else if (kind == 1) {
        // Its volume has no cache: it is dropped without a word.
        Send(MakeRequest(kRequestReloadPinBlocks, "/gone"));
    } else if (kind == 2) {
        ++reloads_;
        Send(MakeRequest(kRequestReloadPinBlocks, volume.volume.mountPath));
    } else {
        bool pin = kind < 7;
        std::string paths;
        std::string entries;
        for (int i = random(3); i >= 0; --i) {
            int file = random(kNumFiles);
            paths += volume.volume.mountPath + "/f" + std::to_string(file) + ";";
            entries += (entries.empty() ? "" : ";") + EntryOf(volume, file);
            if (pin) {
                volume.pinned.insert(file);
            } else {
                volume.pinned.erase(file);
            }
        }
        volume.done.push_back(std::string("Handle request (type=") +
                              (pin ? "pinFiles" : "unpinFiles") + " files=" + entries + ") OK ");
        Send(MakeRequest(pin ? kRequestPinFiles : kRequestUnpinFiles, volume.volume.mountPath,
                         paths));
    }
}

void ConcurrencyTest::SendRandomChange() {
    auto random = [this](int limit) {
        return static_cast<int>(changeRandom_() % static_cast<unsigned>(limit));
    };
    int i = random(kNumVolumes + 1);
    std::string mountPath =
        i < kNumVolumes ? volumes_[static_cast<size_t>(i)].volume.mountPath : "/other";

    Send(MakeRequest(random(2) == 0 ? kRequestAddPendingSpace : kRequestRemovePendingSpace,
                     mountPath));
}

void ConcurrencyTest::ReleaseAll() {
    for (const Volume3& volume : volumes_) {
        Send(MakeRequest(kRequestRemovePendingSpace, volume.volume.mountPath));
    }
}

void ConcurrencyTest::Settle() {
    // Every message has been handled once the receiver asks for one more.
    ASSERT_TRUE(receives_.Wait(sent_ + 1));
    for (bool empty = false; !empty;) {
        pthread_mutex_lock(&g_service.mutex);
        empty = ConfigDocument()["requestQueue"].empty();
        waits_ = CallCount(Call::kCondWait);
        pthread_mutex_unlock(&g_service.mutex);
        std::this_thread::yield();
    }
    // The worker waits, or is on its way there: one more wait, and it has said what it has done.
    pthread_cond_signal(&g_service.cond);
    ASSERT_TRUE(workerWaits_.Wait(waits_ + 1));
}

void ConcurrencyTest::PlayRound() {
    {
        Background changes([this] {
            for (int i = 0; i < kRoundChanges; ++i) {
                SendRandomChange();
                Pause();
            }
        });
        for (int i = 0; i < kRoundRequests; ++i) {
            SendRandomRequest();
        }
    }
    ReleaseAll();
    Settle();
}

void ConcurrencyTest::CheckLog(const Strings& lines) {
    const std::string head = std::string("<3>") + kDaemonLog.file + ":# ";
    std::map<std::string, Strings> done;  // by volume
    int acks = 0;
    int reloads = 0;

    for (const std::string& line : lines) {
        std::string text = line.compare(0, head.size(), head) == 0 ? line.substr(head.size()) : "";
        if (text == "Get unhandle request (ack)") {
            ++acks;
        } else if (text == "Handle request (type=reloadPinBlocks) OK ") {
            ++reloads;
        } else if (text.find(" files=") != std::string::npos) {
            // Inode numbers tell whose files they are.
            for (const Volume3& volume : volumes_) {
                size_t at = text.find('#') + 1;
                unsigned long inode = std::stoul(text.substr(at));
                if (std::count(volume.inodes.begin(), volume.inodes.end(), inode) != 0) {
                    done[volume.volume.mountPath].push_back(text);
                }
            }
        } else if (text.find("Get interrupted !") != std::string::npos) {
            ++interruptions_;
        } else if (text.find("Could be a new space") == std::string::npos &&
                   text.find("type = ack), drop it.") == std::string::npos &&
                   text != "Drop requests finish" &&
                   line.find("Can't get space uuid from mount path (/gone)") == std::string::npos) {
            ADD_FAILURE() << "unexpected line: " << line;
        }
    }
    EXPECT_EQ(acks, acks_);
    EXPECT_EQ(reloads, reloads_);
    for (const Volume3& volume : volumes_) {
        EXPECT_EQ(done[volume.volume.mountPath], volume.done) << "each once, in the order sent";
    }
}

void ConcurrencyTest::CheckFile() {
    Json::Value volumes(Json::objectValue);

    for (const Volume3& volume : volumes_) {
        for (int file : volume.pinned) {
            volumes[volume.volume.mountPath]["files"]
                   [std::to_string(volume.inodes[static_cast<size_t>(file)])] =
                       "f" + std::to_string(file);
        }
    }
    Json::Value document = ConfigDocument();
    EXPECT_TRUE(document["requestQueue"].isNull());
    EXPECT_TRUE(document["requests"].empty());
    EXPECT_EQ(document["nextRequestNum"].asInt64(), (kFirstNumber + stored_) % kNumberModulus);
    EXPECT_EQ(Styled(document["volumes"]), Styled(volumes));
}

void ConcurrencyTest::CheckBitmap(const Volume3& volume) {
    std::string bits(8, '\0');

    for (int file : volume.pinned) {
        auto at = static_cast<size_t>(file / 8);
        bits[at] = static_cast<char>(bits[at] | 1 << file % 8);
    }
    if (Exists(volume.volume.bitmapPath)) {
        EXPECT_EQ(ReadFile(volume.volume.bitmapPath), bits);
    } else {
        EXPECT_TRUE(volume.pinned.empty());
    }
}

void ConcurrencyTest::CheckRound(LogCapture& log) {
    CheckLog(log.SystemLines());
    CheckFile();
    FakeIoctlReset();  // its records are of no use here
    for (Volume3& volume : volumes_) {
        CheckBitmap(volume);
        volume.done.clear();
        SetDeviceSize(volume.volume.cachePath, kDeviceSize);
    }
    acks_ = 0;
    reloads_ = 0;
    log.Clear();
}

TEST_F(ConcurrencyTest, NothingIsLostAndNothingIsDoneTwice) {
    const auto end = Clock::now() + Duration();
    ServiceOptions options = {config(), 0, 0};
    LogCapture log(1);
    int rounds = 0;

    {
        Background worker([&] { DoRequests(&options); });
        Background receiver([&] { GetRequests(config()); });
        ASSERT_TRUE(receives_.Wait());
        queue_ = g_msgQueueId;
        while (Clock::now() < end && !HasFailure()) {
            PlayRound();
            CheckRound(log);
            ++rounds;
        }
        // The queue goes, and with it the receiver; a stale number ends the worker.
        EXPECT_EQ(msgctl(queue_, IPC_RMID, nullptr), 0);
        EXPECT_TRUE(receiver.Ends());
        pthread_mutex_lock(&g_service.mutex);
        SetConfig("{'requestQueue':['stale']}");
        pthread_cond_signal(&g_service.cond);
        pthread_mutex_unlock(&g_service.mutex);
        EXPECT_TRUE(worker.Ends());
    }
    EXPECT_GT(rounds, 0);
    std::cout << rounds << " rounds, " << stored_ << " requests, " << interruptions_
              << " interruptions\n";
}

// A space that is pending all the time is pending to every reader at any moment, whatever comes and
// goes beside it; one that never is never is.
TEST_F(ConcurrencyTest, ReadersSeeWholeLists) {
    const auto end = Clock::now() + Duration() / 10;
    std::atomic<bool> stop{false};
    std::vector<std::unique_ptr<Background>> readers;

    ASSERT_EQ(ServiceAddPendingSpaceAtomic("/always"), 0);
    for (int i = 0; i < 2; ++i) {
        readers.push_back(std::make_unique<Background>([&] {
            while (!stop) {
                ASSERT_TRUE(ServiceIsSpacePending("/always"));
                ASSERT_FALSE(ServiceIsSpacePending("/never"));
            }
        }));
    }
    while (Clock::now() < end) {
        for (int i = 0; i < 20; ++i) {
            ASSERT_EQ(ServiceAddPendingSpaceAtomic(("/volume" + std::to_string(i)).c_str()), 0);
        }
        for (int i = 0; i < 20; ++i) {
            ASSERT_EQ(ServiceRemovePendingSpaceAtomic(("/volume" + std::to_string(i)).c_str()), 0);
        }
    }
    stop = true;
}

// The worker walks a bitmap, asking after every bit; the process ends under it.
TEST_F(ConcurrencyTest, TheProcessEndsWhileTheWorkerReadsTheList) {
    const std::string mountPath = volumes_[0].volume.mountPath;
    const std::string cachePath = volumes_[0].volume.cachePath;

    for (int i = 0; i < 8; ++i) {
        EXPECT_EXIT(
            {
                Signpost asks;
                std::vector<uint8_t> bytes(4096);
                PinBitmap bitmap = {};
                bitmap.data = bytes.data();
                bitmap.size = static_cast<uint32_t>(bytes.size());
                ServiceAddPendingSpaceAtomic("/other");
                std::thread worker([&] {
                    for (;;) {
                        ReloadPinBlocksToCache(&bitmap, cachePath.c_str(), mountPath.c_str());
                        asks.Reach();
                    }
                });
                asks.Wait();
                for (int change = 0; change < i; ++change) {
                    ServiceAddPendingSpaceAtomic(std::to_string(change).c_str());
                }
                exit(0);
            },
            testing::ExitedWithCode(0), "");
    }
}

}  // namespace
