// SPDX-License-Identifier: MIT
#include "tests/unit/daemon/daemon_test.h"

#include <fcntl.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <fstream>

#include "daemon/receiver.h"
#include "daemon/service.h"
#include "tests/unit/support/fake_files.h"
#include "tests/unit/support/fake_ioctl.h"
#include "tests/unit/support/fake_platform.h"

namespace {

constexpr auto kDeadline = std::chrono::seconds(60);

template <size_t kSize>
void CopyField(char (&field)[kSize], const std::string& text) {
    memcpy(field, text.data(), std::min(text.size(), kSize));
}

std::string WithQuotes(std::string text) {
    std::replace(text.begin(), text.end(), '\'', '"');
    return text;
}

Json::Value Parse(const std::string& text) {
    Json::Value document;
    Json::Reader reader;

    EXPECT_TRUE(reader.parse(text, document)) << text;
    return document;
}

// Address of the futex that the thread sleeps on, 0 when it does not sleep in a system call that
// takes one.
uintptr_t WaitAddress(pid_t thread) {
    std::ifstream file("/proc/self/task/" + std::to_string(thread) + "/syscall");
    std::string number;
    std::string address;

    if (!(file >> number >> address) || number != std::to_string(SYS_futex)) {
        return 0;
    }
    return std::stoul(address, nullptr, 16);
}

}  // namespace

Lines operator+(Lines left, const Lines& right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

testing::AssertionResult ShowsOwn(LogCapture& log, const Lines& lines) {
    std::vector<std::string> expected;
    std::vector<std::string> own;
    std::string source = std::string(">") + kDaemonLog.file + ":";

    for (const ExpectedLine& line : lines) {
        std::string shown = ShownLine(line, log.level(), LogTarget::kSyslog);
        if (!shown.empty()) {
            expected.push_back(shown);
        }
    }
    for (const std::string& line : log.SystemLines()) {
        if (line.find(source) != std::string::npos) {
            own.push_back(line);
        }
    }
    log.Clear();
    if (own == expected) {
        return testing::AssertionSuccess();
    }
    return testing::AssertionFailure() << "lines: " << testing::PrintToString(own)
                                       << "\nexpected: " << testing::PrintToString(expected);
}

Lines ReadJsonLines() {
    return {kUtilLog.Enter("ReadFileToJson"), kUtilLog.Leave("ReadFileToJson")};
}

Lines WriteJsonLines() {
    return {kUtilLog.Enter("WriteJsonToFile"), kUtilLog.Leave("WriteJsonToFile")};
}

Request MakeRequest(int type, const std::string& mountPath, const std::string& data) {
    Request request = {};

    request.type = type;
    CopyField(request.mountPath, mountPath);
    CopyField(request.data, data);
    return request;
}

Json::Value Document(const std::string& text) {
    return Parse(WithQuotes(text));
}

std::string Styled(const Json::Value& value) {
    return value.toStyledString();
}

bool ServiceMutexIsHeld() {
    if (pthread_mutex_trylock(&g_service.mutex) != 0) {
        return true;
    }
    pthread_mutex_unlock(&g_service.mutex);
    return false;
}

void ReplaceServiceMutex() {
    g_service.mutex = PTHREAD_MUTEX_INITIALIZER;
}

SealedFile::SealedFile(const std::string& text)
    : fd_(memfd_create("sealed file", MFD_ALLOW_SEALING)),
      path_("/proc/self/fd/" + std::to_string(fd_)) {
    std::string json = WithQuotes(text);

    EXPECT_EQ(write(fd_, json.data(), json.size()), static_cast<ssize_t>(json.size()));
    EXPECT_EQ(fcntl(fd_, F_ADD_SEALS, F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_WRITE), 0);
}

SealedFile::~SealedFile() {
    close(fd_);
}

void Signpost::Reach() {
    std::lock_guard<std::mutex> lock(mutex_);
    ++times_;
    reached_.notify_all();
}

bool Signpost::Wait(int times) {
    std::unique_lock<std::mutex> lock(mutex_);

    if (!reached_.wait_for(lock, kDeadline, [&] { return times_ >= times; })) {
        ADD_FAILURE() << "reached " << times_ << " times, not " << times;
        return false;
    }
    return true;
}

Background::Background(std::function<void()> body)
    : thread_([this, body = std::move(body)] {
          // The end shows also when the body ends its thread.
          struct End {
              ~End() {
                  owner->hasEnded_ = true;
                  owner->ended_.Reach();
              }
              Background* owner;
          } end{this};
          threadId_ = gettid();
          started_.Reach();
          body();
          hasReturned_ = true;
      }) {
    started_.Wait();
}

Background::~Background() {
    if (!Ends()) {
        fprintf(stderr, "a thread of the test does not end\n");
        _exit(1);
    }
    thread_.join();
}

bool Background::Ends() {
    return ended_.Wait();
}

bool WaitUntilBlockedOnServiceMutex(const Background& thread) {
    auto address = reinterpret_cast<uintptr_t>(&g_service.mutex);

    while (!thread.hasEnded()) {
        uintptr_t waits = WaitAddress(thread.threadId());
        if (waits >= address && waits < address + sizeof(g_service.mutex)) {
            return true;
        }
        std::this_thread::yield();
    }
    return false;
}

void DaemonTest::SetUp() {
    UnitTest::SetUp();
    configPath_ = dir_ / "config.json";
    g_msgQueueId = -1;
    g_service.state = 0;
    g_service.pendingSpaces.Publish(nullptr);
    AllowDirectAnywhere();
}

void DaemonTest::TearDown() {
    EXPECT_FALSE(ServiceMutexIsHeld());
    g_service.pendingSpaces.Publish(nullptr);
    if (configFd_ >= 0) {
        close(configFd_);
    }
    UnitTest::TearDown();
}

void DaemonTest::UseConfigInMemory() {
    configFd_ = memfd_create("configuration file", 0);
    configPath_ = "/proc/self/fd/" + std::to_string(configFd_);
}

void DaemonTest::SetConfig(const std::string& text) {
    WriteFile(configPath_, WithQuotes(text));
}

std::string DaemonTest::ConfigText() const {
    return ReadFile(configPath_);
}

Json::Value DaemonTest::ConfigDocument() const {
    return Parse(ConfigText());
}

DaemonTest::Volume DaemonTest::AddVolume(const std::string& name, uint64_t deviceSize) {
    Volume volume;

    volume.mountPath = dir_ / name;
    volume.uuid = name + "-uuid";
    volume.ssdPath = "/dev/" + name + "-ssd";
    volume.cachePath = dir_ / (name + ".device");
    volume.bitmapPath = volume.mountPath + "/quorcachepinfile.bitmap";
    EXPECT_EQ(mkdir(volume.mountPath.c_str(), 0755), 0);
    WriteFile(volume.cachePath, "");
    EXPECT_EQ(truncate(volume.cachePath.c_str(), static_cast<off_t>(deviceSize)), 0);
    SetDeviceSize(volume.cachePath, deviceSize);
    g_platform.AddVolume(volume.mountPath, volume.uuid, volume.ssdPath, volume.cachePath);
    return volume;
}

unsigned long DaemonTest::AddFile(const Volume& volume, const std::string& name,
                                  const std::vector<Extent>& extents) {
    std::string path = volume.mountPath + "/" + name;
    struct stat status = {};
    FakeMapping mapping;
    uint64_t sector = 0;

    WriteFile(path, "content");
    EXPECT_EQ(stat(path.c_str(), &status), 0);
    for (const Extent& extent : extents) {
        mapping.entries.push_back(
            {sector, extent.numSectors, extent.deviceStart, extent.uninitialized});
        sector += extent.numSectors;
    }
    auto inode = static_cast<unsigned long>(static_cast<uint32_t>(status.st_ino));
    g_platform.mappings[inode] = {mapping};
    return inode;
}
