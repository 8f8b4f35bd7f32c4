// SPDX-License-Identifier: MIT
#include "softcache/serve/registry.h"

#include <json/json.h>
#include <sys/file.h>

#include <thread>

#include "tests/unit/softcache/test_files.h"

namespace softcache {
namespace {

class RegistryTest : public ::testing::Test {
  protected:
    RegistryTest() {
        record_.name = "vol1";
        record_.ssd = "/ssd.img";
        record_.mountPoint = "/mnt/c";
        record_.deviceSize = 5000000000;
        record_.cacheSize = 1 << 20;
    }

    Json::Value Entry() {
        Json::Value entry;
        std::istringstream text(FileText(path_));
        EXPECT_TRUE(Json::Reader().parse(text, entry));
        return entry;
    }

    // What a reader asks: is the process that wrote it still there?
    static bool Alive(int fd) { return flock(fd, LOCK_SH | LOCK_NB) != 0 && errno == EWOULDBLOCK; }
    bool Alive() { return Alive(OpenFile(lock_, O_RDONLY).get()); }

    static mode_t ModeOf(const std::string& path) {
        struct stat status {};
        EXPECT_EQ(stat(path.c_str(), &status), 0) << path;
        return status.st_mode & 07777;
    }

    TempDir dir_;
    std::string registry_ = dir_ / "run/caches";
    std::string path_ = registry_ + "/vol1.json";
    std::string lock_ = registry_ + "/vol1.lock";
    RegistryRecord record_;
};

TEST_F(RegistryTest, TheEntryTellsEverythingAndIsLocked) {
    RegistryEntry entry(registry_, record_);
    ASSERT_EQ(entry.Publish(), "") << "the directory is made";
    Json::Value expected;
    expected["version"] = 1;
    expected["name"] = "vol1";
    expected["pid"] = getpid();
    expected["ssd"] = "/ssd.img";
    expected["device"] = "/mnt/c/device";
    expected["state"] = 1;
    expected["supportPin"] = 1;
    expected["unitSize"] = 65536;
    expected["deviceSize"] = Json::UInt64(5000000000);
    expected["cacheSize"] = 1 << 20;
    expected["stats"] = "/mnt/c/stats.json";
    expected["control"] = "/mnt/c/control";
    expected["resident"] = "/mnt/c/resident";
    expected["pinned"] = "/mnt/c/pinned";
    EXPECT_EQ(Entry(), expected);
    EXPECT_TRUE(Alive());
    EXPECT_FALSE(std::filesystem::exists(path_ + ".new"));
}

TEST_F(RegistryTest, AChangeReplacesTheFileUnderTheSameLock) {
    RegistryEntry entry(registry_, record_);
    ASSERT_EQ(entry.Publish(), "");
    const OwnedFd before = OpenFile(path_, O_RDONLY);
    const OwnedFd lockBefore = OpenFile(lock_, O_RDONLY);
    EXPECT_EQ(entry.SetState(3), 0);
    EXPECT_EQ(Entry()["state"], 3);
    EXPECT_TRUE(Alive());
    EXPECT_TRUE(Alive(lockBefore.get()));
    struct stat status;
    ASSERT_EQ(fstat(before.get(), &status), 0);
    EXPECT_EQ(status.st_nlink, 0u);
    EXPECT_EQ(entry.SetSupportPin(false), 0);
    EXPECT_EQ(Entry()["supportPin"], 0);
    EXPECT_EQ(Entry()["state"], 3);
}

TEST_F(RegistryTest, AChangeBeforeTheEntryIsThereComesWithIt) {
    RegistryEntry entry(registry_, record_);
    EXPECT_EQ(entry.SetState(4), 0);
    EXPECT_FALSE(std::filesystem::exists(path_));
    ASSERT_EQ(entry.Publish(), "");
    EXPECT_EQ(Entry()["state"], 4);
}

TEST_F(RegistryTest, AFailedChangeChangesNothing) {
    RegistryEntry entry(registry_, record_);
    ASSERT_EQ(entry.Publish(), "");
    const std::string text = FileText(path_);
    {
        const FileSizeLimit limit(10);
        EXPECT_EQ(entry.SetState(9), -EFBIG);
    }
    EXPECT_EQ(FileText(path_), text);
    EXPECT_EQ(entry.SetSupportPin(false), 0);
    EXPECT_EQ(Entry()["state"], 1);
}

TEST_F(RegistryTest, RemoveTakesTheEntryAway) {
    RegistryEntry entry(registry_, record_);
    ASSERT_EQ(entry.Publish(), "");
    const OwnedFd reader = OpenFile(lock_, O_RDONLY);
    entry.Remove();
    EXPECT_FALSE(std::filesystem::exists(path_));
    EXPECT_FALSE(std::filesystem::exists(lock_));
    EXPECT_FALSE(Alive(reader.get()));
    entry.Remove();  // once more does no harm
}

// Whoever can open a file can lock it, and hold up everybody who wants it.
TEST_F(RegistryTest, NobodyElseCanKeepACacheFromStartingOrEnding) {
    std::filesystem::create_directories(registry_);
    NewFile(path_, {'s', 't', 'a', 'l', 'e'});
    const OwnedFd directory = OpenFile(registry_, O_RDONLY | O_DIRECTORY);
    const OwnedFd stale = OpenFile(path_, O_RDONLY);
    ASSERT_EQ(flock(directory.get(), LOCK_EX | LOCK_NB), 0);
    ASSERT_EQ(flock(stale.get(), LOCK_EX | LOCK_NB), 0);
    RegistryEntry entry(registry_, record_);
    EXPECT_EQ(entry.Publish(), "");
    EXPECT_EQ(ModeOf(lock_), 0600u);
    EXPECT_EQ(ModeOf(registry_ + "/.lock"), 0600u);
    EXPECT_EQ(ModeOf(path_), 0644u);
    const OwnedFd standing = OpenFile(path_, O_RDONLY);
    ASSERT_EQ(flock(standing.get(), LOCK_EX | LOCK_NB), 0);
    EXPECT_EQ(entry.SetState(2), 0);
    entry.Remove();
    EXPECT_FALSE(std::filesystem::exists(path_));
}

TEST_F(RegistryTest, AStartWaitsForWhoeverAsksWhetherItLives) {
    std::filesystem::create_directories(registry_);
    NewFile(lock_, {});
    OwnedFd reader = OpenFile(lock_, O_RDONLY);
    ASSERT_EQ(flock(reader.get(), LOCK_SH | LOCK_NB), 0);
    RegistryEntry entry(registry_, record_);
    std::thread start([&] { EXPECT_EQ(entry.Publish(), ""); });
    while (!std::filesystem::exists(registry_ + "/.lock")) {
        std::this_thread::yield();
    }
    reader = OwnedFd();
    start.join();
    EXPECT_TRUE(Alive());
}

TEST_F(RegistryTest, ALockThatCannotBeAskedIsNoLeaveToStart) {
    std::filesystem::create_directories(registry_);
    ASSERT_EQ(symlink("vol1.json", lock_.c_str()), 0);
    const std::string whyNot = "registry lock " + lock_ + ": Too many levels of symbolic links";
    EXPECT_EQ(WhyNotServe(registry_, "vol1"), whyNot);
    EXPECT_EQ(RegistryEntry(registry_, record_).Publish(), whyNot);
    EXPECT_FALSE(std::filesystem::exists(path_));
}

TEST_F(RegistryTest, AStartThatFailsLeavesNothingBehind) {
    RegistryEntry entry(registry_, record_);
    {
        const FileSizeLimit limit(10);
        EXPECT_NE(entry.Publish(), "");
    }
    EXPECT_FALSE(std::filesystem::exists(path_));
    EXPECT_FALSE(std::filesystem::exists(lock_));
    EXPECT_EQ(entry.Publish(), "");
}

TEST_F(RegistryTest, RemoveLeavesAnotherCachesEntryAlone) {
    RegistryEntry entry(registry_, record_);
    ASSERT_EQ(entry.Publish(), "");
    std::filesystem::remove(path_);
    NewFile(path_, {'x'});
    entry.Remove();
    EXPECT_EQ(FileText(path_), "x");
}

TEST_F(RegistryTest, OneNameIsServedOnce) {
    RegistryEntry first(registry_, record_);
    ASSERT_EQ(first.Publish(), "");
    const std::string text = FileText(path_);
    RegistryEntry second(registry_, record_);
    const std::string whyNot = "name vol1 is already served: " + path_;
    EXPECT_EQ(WhyNotServe(registry_, "vol1"), whyNot);
    EXPECT_EQ(second.Publish(), whyNot);
    EXPECT_EQ(FileText(path_), text);
    EXPECT_EQ(WhyNotServe(registry_, "vol2"), "");
    first.Remove();
    EXPECT_EQ(second.Publish(), "");
}

TEST_F(RegistryTest, AStaleEntryIsReplaced) {
    std::filesystem::create_directories(registry_);
    NewFile(path_, {'s', 't', 'a', 'l', 'e'});
    EXPECT_EQ(WhyNotServe(registry_, "vol1"), "");
    RegistryEntry entry(registry_, record_);
    EXPECT_EQ(entry.Publish(), "");
    EXPECT_EQ(Entry()["name"], "vol1");
}

TEST_F(RegistryTest, NamesThatWouldNotMakeAFile) {
    for (const char* name : {"", ".", "..", ".hidden", "-v", "a/b", "a b", "a\nb", "é", "a\"b"}) {
        EXPECT_NE(WhyNotServe(registry_, name), "") << name;
    }
    EXPECT_NE(WhyNotServe(registry_, std::string(65, 'a')), "");
    for (const char* name : {"a", "vol1", "A.b-c_9"}) {
        EXPECT_EQ(WhyNotServe(registry_, name), "") << name;
    }
    EXPECT_EQ(WhyNotServe(registry_, std::string(64, 'a')), "");
}

TEST_F(RegistryTest, ADirectoryThatCannotBeIsNamed) {
    NewFile(dir_ / "file", {});
    RegistryEntry entry(dir_ / "file/sub", record_);
    EXPECT_EQ(entry.Publish(), "registry " + (dir_ / "file/sub") + ": Not a directory");
}

TEST(RegistryDirectory, ComesFromTheEnvironment) {
    ASSERT_EQ(setenv("QUORSOFTCACHE_REGISTRY", "/somewhere", 1), 0);
    EXPECT_EQ(DefaultRegistryDirectory(), "/somewhere");
    ASSERT_EQ(setenv("QUORSOFTCACHE_REGISTRY", "", 1), 0);
    EXPECT_EQ(DefaultRegistryDirectory(), "/run/quorsoftcache");
    ASSERT_EQ(unsetenv("QUORSOFTCACHE_REGISTRY"), 0);
    EXPECT_EQ(DefaultRegistryDirectory(), "/run/quorsoftcache");
}

}  // namespace
}  // namespace softcache
