// SPDX-License-Identifier: MIT
#include "tests/unit/support/unit_test.h"

#include <stdlib.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <system_error>

#include "tests/unit/support/fake_files.h"
#include "tests/unit/support/fake_heap.h"
#include "tests/unit/support/fake_ioctl.h"
#include "tests/unit/support/fake_mutex.h"
#include "tests/unit/support/fake_platform.h"
#include "tests/unit/support/fake_queue.h"
#include "tests/unit/support/fake_system.h"
#include "util/log.h"

namespace {

// Open descriptors, each with what it leads to.
std::vector<std::string> OpenDescriptors() {
    std::vector<std::string> descriptors;
    std::error_code error;

    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::string target = std::filesystem::read_symlink(entry.path(), error).string();
        // The descriptor of this walk is gone by the time it is read.
        if (target.find("/proc/") != 0) {
            descriptors.push_back(entry.path().filename().string() + " -> " + target);
        }
    }
    return descriptors;
}

void ResetEverything() {
    FakeQueueReset();
    FakeSystemReset();
    UnwatchMutex();
    FakeFilesReset();
    FakeIoctlReset();
    FakePlatformReset();
    g_printLevel = 1;
    g_logToSyslog = 1;
    g_processName = nullptr;
    g_debugFlags = 0;
}

}  // namespace

TempDir::TempDir() {
    std::string path = testing::TempDir() + "quor-unit-XXXXXX";

    if (mkdtemp(path.data()) == nullptr) {
        ADD_FAILURE() << "no temporary directory " << path;
        abort();
    }
    path_ = path;
}

TempDir::~TempDir() {
    std::error_code error;
    std::filesystem::remove_all(path_, error);
}

void WriteFile(const std::string& path, const std::string& content) {
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file << content << std::flush;
    ASSERT_TRUE(file.good()) << path;
}

std::string ReadFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::stringstream content;

    EXPECT_TRUE(file.is_open()) << path;
    content << file.rdbuf();
    return content.str();
}

bool Exists(const std::string& path) {
    std::error_code error;
    return std::filesystem::exists(path, error);
}

void UnitTest::SetUp() {
    ResetEverything();
    descriptors_ = OpenDescriptors();
    HeapWatchStart();
}

void UnitTest::TearDown() {
    HeapWatchStop();
    if (!allowLeftovers_) {
        EXPECT_EQ(HeapBlocksHeld(), std::vector<std::string>()) << "heap blocks not freed";
        EXPECT_EQ(PlatformRecordsHeld(), std::vector<std::string>()) << "records not released";
        EXPECT_EQ(OpenDescriptors(), descriptors_) << "descriptors left open";
    }
    ResetEverything();
}
