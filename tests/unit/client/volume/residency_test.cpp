// SPDX-License-Identifier: MIT
// What a cache's entry in the registry is believed, and when it is not.
#include "client/volume/residency.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <filesystem>
#include <memory>

#include "tests/unit/client/client_test.h"
#include "util/scoped.h"

namespace client {

namespace {

class ResidencyTest : public ClientTest {
  protected:
    void SetUp() override {
        ClientTest::SetUp();
        std::filesystem::create_directory(dir_ / "registry");
        WriteFile(dir_ / "resident", "\x03");
        WriteFile(dir_ / "pinned", "\x01");
    }

    // Writes an entry of the registry; returns its path.
    std::string Enter(const std::string& name, const std::string& content) {
        const std::string path = dir_ / ("registry/" + name);
        WriteFile(path, content);
        return path;
    }
    std::string Entry(const std::string& device) const {
        return R"({"device":")" + device + R"(","resident":")" + (dir_ / "resident") +
               R"(","pinned":")" + (dir_ / "pinned") + R"(","cacheSize":67108864})";
    }
    // Opens the lock file beside an entry.
    static int OpenLock(const std::string& path) {
        const std::filesystem::path lock = std::filesystem::path(path).replace_extension(".lock");
        return open(lock.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    }
    // Locks an entry, as the process behind it does.
    void Live(const std::string& path) {
        lock_ = std::make_unique<ScopedFd>(OpenLock(path));
        ASSERT_EQ(flock(lock_->get(), LOCK_EX), 0);
    }
    void TearDown() override {
        lock_.reset();
        ClientTest::TearDown();
    }

    std::unique_ptr<ScopedFd> lock_;
};

TEST_F(ResidencyTest, ALivingCacheIsBelieved) {
    Live(Enter("vol.json", Entry("/dev/cached")));
    const Residency residency = ReadResidency("/dev/cached");
    EXPECT_TRUE(residency.known);
    EXPECT_EQ(residency.cacheSize, 64U << 20);
    EXPECT_EQ(residency.resident.Count(), 2U);
    EXPECT_EQ(residency.pinned.Count(), 1U);
}

TEST_F(ResidencyTest, AnEntryThatNobodyHoldsIsLeftOver) {
    const std::string path = Enter("vol.json", Entry("/dev/cached"));
    EXPECT_FALSE(ReadResidency("/dev/cached").known) << "it has no lock file";
    const ScopedFd shared(OpenLock(path));
    EXPECT_FALSE(ReadResidency("/dev/cached").known) << "the lock file is left over too";
    ASSERT_EQ(flock(shared.get(), LOCK_SH), 0);
    EXPECT_FALSE(ReadResidency("/dev/cached").known) << "another reader is no cache";
}

TEST_F(ResidencyTest, OnlyTheDevicesOwnEntryCounts) {
    Enter("a.json", Entry("/dev/other"));
    Enter("b.json", "{");
    Enter("c.txt", Entry("/dev/cached"));
    std::filesystem::create_directory(dir_ / "registry/d.json");
    Live(Enter("e.json", Entry("/dev/cached")));
    EXPECT_TRUE(ReadResidency("/dev/cached").known);
    EXPECT_FALSE(ReadResidency("/dev/cach").known);
    EXPECT_FALSE(ReadResidency("").known);
}

TEST_F(ResidencyTest, ADamagedEntryIsNoCache) {
    const std::pair<const char*, std::string> rows[] = {
        {"empty", ""},
        {"cut short", Entry("/dev/cached").substr(0, 20)},
        {"a list", "[]"},
        {"null", "null"},
        {"no device", "{}"},
        {"a device of another kind", R"({"device":[]})"},
        {"nested without end", std::string(100000, '[')},
        {"no bits", R"({"device":"/dev/cached"})"},
        {"bits of another kind", R"({"device":"/dev/cached","resident":7,"pinned":null})"},
        {"bits that are not there",
         R"({"device":"/dev/cached","resident":"/nothing","pinned":"/nothing"})"},
    };
    for (const auto& [what, content] : rows) {
        Live(Enter("vol.json", content));
        EXPECT_FALSE(ReadResidency("/dev/cached").known) << what;
        lock_.reset();
    }
}

TEST_F(ResidencyTest, ASizeOfAnotherKindIsNotKnownAndNoMore) {
    std::string entry = Entry("/dev/cached");
    entry.replace(entry.find("67108864"), 8, "\"64 MiB\"");
    Live(Enter("vol.json", entry));
    const Residency residency = ReadResidency("/dev/cached");
    EXPECT_TRUE(residency.known);
    EXPECT_EQ(residency.cacheSize, 0U);
}

TEST_F(ResidencyTest, WithoutARegistryThereIsNothingToKnow) {
    std::filesystem::remove_all(dir_ / "registry");
    EXPECT_FALSE(ReadResidency("/dev/cached").known);
    WriteFile(dir_ / "registry", "a file");
    EXPECT_FALSE(ReadResidency("/dev/cached").known);
}

TEST_F(ResidencyTest, APipeInTheRegistryHoldsNobodyUp) {
    ASSERT_EQ(mkfifo((dir_ / "registry/a.json").c_str(), 0600), 0);
    Live(Enter("b.json", Entry("/dev/cached")));
    EXPECT_TRUE(ReadResidency("/dev/cached").known);
}

}  // namespace

}  // namespace client
