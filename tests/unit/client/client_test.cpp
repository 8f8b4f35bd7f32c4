// SPDX-License-Identifier: MIT
#include "tests/unit/client/client_test.h"

#include <errno.h>
#include <fcntl.h>
#include <stdlib.h>
#include <string.h>
#include <sys/file.h>
#include <sys/ipc.h>
#include <sys/msg.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "tests/unit/support/fake_files.h"
#include "tests/unit/support/fake_ioctl.h"
#include "tests/unit/support/fake_platform.h"
#include "tests/unit/support/queue_space.h"
#include "util/message_queue.h"
#include "util/request.h"

namespace client {

void ClientTest::SetUp() {
    UnitTest::SetUp();
    mount_ = std::filesystem::canonical(dir_.path()).string() + "/vol";
    device_ = dir_ / "device";
    std::filesystem::create_directory(mount_);
    WriteFile(device_, "");
    g_platform.AddVolume(mount_, "uuid-1", "/dev/ssd1", device_);
    SetDeviceSize(device_, kDeviceSize);
    RedirectPath(kMsgServerKeyPath, dir_ / "key");
    // No test meets a cache that runs on this machine.
    setenv("QUORSOFTCACHE_REGISTRY", (dir_ / "registry").c_str(), 1);
}

void ClientTest::TearDown() {
    if (lock_ != -1) {
        close(lock_);
    }
    UnitTest::TearDown();
}

std::string ClientTest::Make(const std::string& relative, const std::string& content) {
    const std::filesystem::path path = std::filesystem::path(mount_) / relative;
    std::filesystem::create_directories(path.parent_path());
    WriteFile(path, content);
    return path;
}

void ClientTest::Place(const std::string& path,
                       const std::vector<std::pair<uint64_t, uint64_t>>& extents) {
    FakeMapping mapping;
    uint64_t fileSector = 0;
    for (const auto& [start, sectors] : extents) {
        mapping.entries.push_back({fileSector, sectors, start, 0});
        fileSector += sectors;
    }
    g_platform.mappings[InodeOf(path)] = {mapping};
}

std::string ClientTest::MakeAt(const std::string& relative, uint64_t unit, uint64_t count) {
    const std::string path = Make(relative);
    Place(path, {{unit * kUnit, count * kUnit}});
    return path;
}

void ClientTest::WriteBitmap(const std::vector<uint64_t>& units) {
    std::string bytes(kDeviceSize >> 19, '\0');
    for (const uint64_t unit : units) {
        bytes[unit / 8] =
            static_cast<char>(static_cast<unsigned char>(bytes[unit / 8]) | (1U << (unit % 8)));
    }
    WriteFile(mount_ + "/quorcachepinfile.bitmap", bytes);
}

void ClientTest::LetTheCacheTell(const std::string& resident, const std::string& pinned) {
    const std::string registry = dir_ / "registry";
    std::filesystem::create_directory(registry);
    WriteFile(dir_ / "resident", resident);
    WriteFile(dir_ / "pinned", pinned);
    WriteFile(registry + "/vol.json", R"({"name":"vol","cacheSize":1048576,"device":")" + device_ +
                                          R"(","resident":")" + (dir_ / "resident") +
                                          R"(","pinned":")" + (dir_ / "pinned") + "\"}");
    lock_ = open((registry + "/vol.lock").c_str(), O_RDONLY | O_CREAT | O_CLOEXEC, 0600);
    ASSERT_EQ(flock(lock_, LOCK_EX), 0);
}

std::vector<Volume> ClientTest::Volumes() {
    std::vector<Volume> volumes;
    EXPECT_TRUE(ListVolumes(volumes));
    return volumes;
}

FileRef ClientTest::Examine(const std::string& path, const std::vector<Volume>& volumes) {
    FileRef file = {};
    std::string why;
    EXPECT_TRUE(ExamineFile(path, volumes, file, why)) << path << ": " << why;
    return file;
}

void QueueClientTest::SetUp() {
    ClientTest::SetUp();
    if (!EnterQueueSpace(true)) {
        GTEST_SKIP() << "needs root for an IPC namespace of its own: " << strerror(errno);
    }
}

int QueueClientTest::MakeQueue(size_t requests) {
    struct msqid_ds record = {};
    const std::string keyFile = dir_ / "key";
    WriteFile(keyFile, "");
    const key_t key = ftok(keyFile.c_str(), 120);
    const int id = msgget(key, IPC_CREAT | IPC_EXCL | 0644);
    EXPECT_EQ(msgctl(id, IPC_STAT, &record), 0) << strerror(errno);
    record.msg_qbytes = requests * sizeof(Request);
    EXPECT_EQ(msgctl(id, IPC_SET, &record), 0) << strerror(errno);
    WriteFile(keyFile, std::to_string(key));
    return id;
}

uint32_t InodeOf(const std::string& path) {
    struct stat status = {};
    EXPECT_EQ(lstat(path.c_str(), &status), 0) << path;
    return static_cast<uint32_t>(status.st_ino);
}

}  // namespace client
