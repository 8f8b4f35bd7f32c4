// SPDX-License-Identifier: MIT
// What the daemon's tests share: a fresh service, requests and documents in short, functions that
// block, and the daemon's own lines of a log.
#pragma once

#include <json/json.h>

#include <atomic>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "tests/unit/support/log_capture.h"
#include "tests/unit/support/unit_test.h"
#include "util/request.h"

using Lines = std::vector<ExpectedLine>;

Lines operator+(Lines left, const Lines& right);

// Whether exactly these of the daemon's own lines have come to the system log since the last
// question. Those of the utilities, which have tests of their own, are passed over.
testing::AssertionResult ShowsOwn(LogCapture& log, const Lines& lines);

// What a file that reads or writes well leaves in the log.
Lines ReadJsonLines();
Lines WriteJsonLines();

// A zero-filled record with these texts, each cut to what its field holds (no terminator then).
Request MakeRequest(int type, const std::string& mountPath, const std::string& data = "");

// A document from text in which ' stands for ". Fails the test when it is none.
Json::Value Document(const std::string& text);

// The styled form, for comparing documents with a readable difference.
std::string Styled(const Json::Value& value);

// True while somebody holds the service mutex.
bool ServiceMutexIsHeld();

// Puts a new mutex in the place of one that a test has changed, or left locked by a thread that has
// ended.
void ReplaceServiceMutex();

// A text of `count` times `c`.
inline std::string Text(size_t count, char c = 'x') {
    return std::string(count, c);
}

// A file with this content (' stands for ") that can be read but not opened for writing, by root
// neither.
class SealedFile {
  public:
    explicit SealedFile(const std::string& text);
    ~SealedFile();
    SealedFile(const SealedFile&) = delete;
    SealedFile& operator=(const SealedFile&) = delete;

    const char* path() const { return path_.c_str(); }

  private:
    int fd_;
    std::string path_;
};

// Waits for conditions that another thread brings about; gives up, failing the test, after a time
// that no working machine needs.
class Signpost {
  public:
    // Called by the other thread.
    void Reach();

    // Returns false, with a failed test, when it was not reached `times` times in all.
    bool Wait(int times = 1);

  private:
    std::mutex mutex_;
    std::condition_variable reached_;
    int times_ = 0;
};

// A function that blocks or ends its thread, in a thread of its own. It must have ended when this
// goes: a test that finds it blocked for good ends its process.
class Background {
  public:
    explicit Background(std::function<void()> body);
    ~Background();
    Background(const Background&) = delete;
    Background& operator=(const Background&) = delete;

    // Waits for the end. Returns false, with a failed test, when it does not come.
    bool Ends();

    bool hasEnded() const { return hasEnded_; }
    bool hasReturned() const { return hasReturned_; }  // rather than ended its thread
    pid_t threadId() const { return threadId_; }

  private:
    Signpost started_;
    Signpost ended_;
    std::atomic<bool> hasEnded_{false};
    std::atomic<bool> hasReturned_{false};
    std::atomic<pid_t> threadId_{0};
    std::thread thread_;
};

// Waits until the thread sleeps on the service mutex. Returns false when it ends instead.
bool WaitUntilBlockedOnServiceMutex(const Background& thread);

class DaemonTest : public UnitTest {
  protected:
    void SetUp() override;
    void TearDown() override;

    // The configuration file: its path, its content as it is to be and as it is.
    const char* config() const { return configPath_.c_str(); }
    void SetConfig(const std::string& text);  // ' stands for "
    std::string ConfigText() const;
    Json::Value ConfigDocument() const;

    // Puts the configuration file where rewriting it costs next to nothing. It exists from then on.
    void UseConfigInMemory();

    // A volume with a cache that supports pinning: a directory for the mount path and a file for
    // the cached device, both named by `name`, and fakes that answer for them.
    struct Volume {
        std::string mountPath;
        std::string uuid;
        std::string ssdPath;
        std::string cachePath;
        std::string bitmapPath;
    };
    Volume AddVolume(const std::string& name = "volume1", uint64_t deviceSize = 4194304);

    // A file of the volume with these extents on the device, as { start sector, sectors }.
    struct Extent {
        uint64_t deviceStart;
        uint64_t numSectors;
        uint32_t uninitialized = 0;
    };
    unsigned long AddFile(const Volume& volume, const std::string& name,
                          const std::vector<Extent>& extents);

  private:
    std::string configPath_;
    int configFd_ = -1;
};
