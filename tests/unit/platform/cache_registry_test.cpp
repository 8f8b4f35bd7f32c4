// SPDX-License-Identifier: MIT
// Which registry files count, asked through the two libraries that read them.
#include <signal.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include "platform/quorflashcache.h"
#include "tests/unit/platform/registry_fixture.h"

namespace {

class CacheRegistryTest : public RegistryTest {};

TEST_F(CacheRegistryTest, TellsStateAndSupportPinAsTheCacheWroteThem) {
    LivingEntry cache("vol1", EntryText("/ssd1", "/dev1", 1, 0));
    const LivingEntry other("vol2", EntryText("/ssd2", "/dev2", 3, 1));
    EXPECT_EQ(StatOf("/ssd1"), "1 0");
    EXPECT_EQ(StatOf("/ssd2"), "3 1");
    cache.Replace(EntryText("/ssd1", "/dev1", 2, 1));
    EXPECT_EQ(StatOf("/ssd1"), "2 1");  // told afresh
    EXPECT_TRUE(LogLines().empty());
}

TEST_F(CacheRegistryTest, AnSsdIsKnownByItsExactPathOnly) {
    const LivingEntry cache("vol1", EntryText("/ssd1", "/dev1"));
    for (const char* const path : {"", "/ssd", "/ssd11", "//ssd1", "/ssd1/", "ssd1"}) {
        EXPECT_EQ(StatOf(path), "= 0") << path;
    }
    EXPECT_TRUE(LogLines().empty());
}

TEST_F(CacheRegistryTest, AFileThatNobodyLocksIsALeftoverAndPassedOverSilently) {
    {
        const LivingEntry cache("vol1", EntryText("/ssd1", "/dev1"));
        ASSERT_EQ(StatOf("/ssd1"), "1 1");
    }
    EXPECT_EQ(StatOf("/ssd1"), "= 0");
    const LivingEntry successor("vol2", EntryText("/ssd1", "/dev9", 2, 0));
    EXPECT_EQ(StatOf("/ssd1"), "2 0");  // behind the leftover of the same SSD
    EXPECT_TRUE(LogLines().empty());
}

TEST_F(CacheRegistryTest, TheEntryOfAProcessThatWasKilledIsALeftover) {
    int ready[2] = {};
    ASSERT_EQ(pipe(ready), 0);
    const pid_t child = fork();
    if (child == 0) {
        const LivingEntry cache("vol1", EntryText("/ssd1", "/dev1"));
        if (write(ready[1], "x", 1) == 1) {
            pause();  // until it is killed
        }
        _exit(1);
    }
    char byte = 0;
    EXPECT_EQ(read(ready[0], &byte, 1), 1);
    EXPECT_EQ(StatOf("/ssd1"), "1 1");
    kill(child, SIGKILL);
    EXPECT_EQ(waitpid(child, nullptr, 0), child);
    EXPECT_EQ(StatOf("/ssd1"), "= 0");
    close(ready[0]);
    close(ready[1]);
}

TEST_F(CacheRegistryTest, ALivingCacheIsNotMissedWhileItReplacesItsFile) {
    LivingEntry cache("vol1", EntryText("/ssd1", "/dev1"));
    int replaced = 1;
    SetFlockHook([&] {  // between the reading of the file and the test of its lock
        cache.Replace(EntryText("/ssd1", "/dev1", ++replaced, 1));
        return 0;
    });
    EXPECT_EQ(StatOf("/ssd1"), "1 1");
    EXPECT_EQ(StatOf("/ssd1"), "2 1");
    EXPECT_EQ(LogLines(), std::vector<std::string>{});
}

TEST_F(CacheRegistryTest, ALockThatNeverWasIsThatOfALeftover) {
    WriteFile(EntryPath("vol1"), EntryText("/ssd1", "/dev1"));
    EXPECT_EQ(StatOf("/ssd1"), "= 0");
    EXPECT_TRUE(LogLines().empty());
}

// Anybody may read an entry, and lock what he may read.
TEST_F(CacheRegistryTest, ALockOnTheEntryItselfMeansNothing) {
    WriteFile(EntryPath("vol1"), EntryText("/ssd1", "/dev1"));
    const UniqueFd anybody(open(EntryPath("vol1").c_str(), O_RDONLY | O_CLOEXEC));
    ASSERT_EQ(flock(anybody.Get(), LOCK_EX | LOCK_NB), 0);
    EXPECT_EQ(StatOf("/ssd1"), "= 0");
    const LivingEntry cache("vol1", EntryText("/ssd1", "/dev1"));
    EXPECT_EQ(StatOf("/ssd1"), "1 1");
}

TEST_F(CacheRegistryTest, AFileThatIsRemovedWhileItIsLookedAtIsNoEntry) {
    { const LivingEntry cache("vol1", EntryText("/ssd1", "/dev1")); }
    SetFlockHook([] { return unlink(EntryPath("vol1").c_str()); });
    EXPECT_EQ(StatOf("/ssd1"), "= 0");
    EXPECT_EQ(LogLines(), std::vector<std::string>{});
}

struct DamagedRow {
    const char* what;
    std::string text;
    const char* reason;  // that the line ends in; empty when it is the parser's own
};

std::string Changed(const std::string& from, const std::string& to) {
    std::string text = EntryText("/ssd1", "/dev1");
    return text.replace(text.find(from), from.size(), to);
}

TEST_F(CacheRegistryTest, ADamagedFileIsNamedAndPassedOver) {
    const char* const paths = "\"ssd\" and \"device\" must be absolute paths";
    const char* const numbers = "\"state\" and \"supportPin\" must be integers";
    const DamagedRow rows[] = {
        {"empty", "", ""},
        {"garbage", "\x01\xff{", ""},
        {"cut off", EntryText("/ssd1", "/dev1").substr(0, 40), ""},
        {"more behind it", EntryText("/ssd1", "/dev1") + "}", ""},
        {"nested deeply", std::string(100000, '['), ""},
        {"an array", "[]", "not an object"},
        {"a member twice", Changed("\"pid\"", "\"ssd\""), ""},
        {"no version", Changed("\"version\"", "\"vers\""), "its version is not 1"},
        {"another version", Changed("\"version\":1", "\"version\":2"), "its version is not 1"},
        {"version as text", Changed("\"version\":1", "\"version\":\"1\""), "its version is not 1"},
        {"no SSD", Changed("\"ssd\"", "\"sdd\""), paths},
        {"SSD a number", Changed("\"/ssd1\"", "7"), paths},
        {"SSD an object", Changed("\"/ssd1\"", "{}"), paths},
        {"SSD not absolute", Changed("/ssd1", "ssd1"), paths},
        {"SSD empty", Changed("/ssd1", ""), paths},
        {"device with a NUL", Changed("/dev1", "/dev\\u0000/x"), paths},
        {"device null", Changed("\"/dev1\"", "null"), paths},
        {"state as text", Changed("\"state\":1", "\"state\":\"1\""), numbers},
        {"state too large", Changed("\"state\":1", "\"state\":4294967297"), numbers},
        {"supportPin as truth", Changed("\"supportPin\":1", "\"supportPin\":true"), numbers},
        {"no supportPin", Changed("\"supportPin\"", "\"x\""), numbers},
        {"longer than any", std::string(1024 * 1024 + 1, ' '), "File too large"},
    };
    for (const DamagedRow& row : rows) {
        const LivingEntry good("b-good", EntryText("/ssd2", "/dev2"));
        LivingEntry damaged("a-damaged", EntryText("/ssd1", "/dev1"));
        ASSERT_EQ(StatOf("/ssd1"), "1 1");
        damaged.Replace(row.text);
        ClearLog();
        EXPECT_EQ(StatOf("/ssd1"), "= 0") << row.what;
        EXPECT_EQ(StatOf("/ssd2"), "1 1") << row.what;
        ASSERT_EQ(LogLines().size(), 1u) << row.what;  // said once as long as it stands
        const std::string line = LogLines()[0];
        EXPECT_EQ(
            line.rfind("libquorstoragecore: cache registry file /mnt/registry/a-damaged.json is ",
                       0),
            0u)
            << row.what << ": " << line;
        EXPECT_NE(line.find("passed over: "), std::string::npos) << line;
        EXPECT_EQ(line.find('\n'), std::string::npos) << line;
        const std::string reason = row.reason;
        EXPECT_EQ(line.substr(line.size() - reason.size()), reason) << row.what;
    }
}

TEST_F(CacheRegistryTest, ADamagedFileIsNamedAlsoWhenNobodyLocksIt) {
    const std::string path = EntryPath("broken");
    WriteFile(path, "{}");
    EXPECT_EQ(StatOf("/ssd1"), "= 0");
    EXPECT_EQ(LogLines(),
              (std::vector<std::string>{"libquorstoragecore: cache registry file " + path +
                                        " is damaged and passed over: its version is not 1"}));
}

TEST_F(CacheRegistryTest, OtherThanRegularFilesArePassedOverWithoutWaiting) {
    const LivingEntry good("z-good", EntryText("/ssd1", "/dev1"));
    ASSERT_EQ(mkfifo(EntryPath("a-pipe").c_str(), 0600), 0);
    ASSERT_EQ(mkdir(EntryPath("b-directory").c_str(), 0700), 0);
    ASSERT_EQ(symlink("z-good.json", EntryPath("c-link").c_str()), 0);
    EXPECT_EQ(StatOf("/ssd1"), "1 1");
    ASSERT_EQ(LogLines().size(), 3u);
    EXPECT_EQ(LogLines()[0], "libquorstoragecore: cache registry file " + EntryPath("a-pipe") +
                                 " is passed over: Invalid argument");
}

TEST_F(CacheRegistryTest, FilesOfOtherNamesAreNotEntries) {
    const LivingEntry good("vol1", EntryText("/ssd1", "/dev1"));
    for (const char* const name : {"/.vol1.json", "/vol1.json.tmp", "/.json", "/json", "/readme"}) {
        WriteFile(kRegistry + std::string(name), "garbage");
    }
    EXPECT_EQ(StatOf("/ssd1"), "1 1");
    EXPECT_TRUE(LogLines().empty());
}

TEST_F(CacheRegistryTest, NoDirectoryMeansNoCachesAndNoLine) {
    setenv("QUORSOFTCACHE_REGISTRY", "/mnt/missing", 1);
    EXPECT_EQ(StatOf("/ssd1"), "= 0");
    EXPECT_TRUE(LogLines().empty());
}

TEST_F(CacheRegistryTest, ADirectoryThatCannotBeReadIsAFailure) {
    WriteFile("/mnt/file", "");
    setenv("QUORSOFTCACHE_REGISTRY", "/mnt/file", 1);
    EXPECT_EQ(StatOf("/ssd1"), "= -1");
    char path[64] = "untouched";
    EXPECT_EQ(QUORFlashcacheGetCachePath("/ssd1", path, sizeof path), -1);
    EXPECT_STREQ(path, "untouched");
    EXPECT_EQ(LogLines(),
              (std::vector<std::string>{
                  "libquorstoragecore: cache registry /mnt/file cannot be read: Not a directory",
                  "libquorflashcache: cache registry /mnt/file cannot be read: Not a directory"}));
}

TEST_F(CacheRegistryTest, TheCachedDeviceIsToldWholeOrNotAtAll) {
    const std::string device = "/" + std::string(510, 'd');  // just fits into 512
    const LivingEntry cache("vol1", EntryText("/ssd1", device));
    const LivingEntry longer("vol2", EntryText("/ssd2", device + "d"));
    char path[512] = "untouched";
    EXPECT_EQ(QUORFlashcacheGetCachePath("/ssd3", path, sizeof path), 0);
    EXPECT_EQ(QUORFlashcacheGetCachePath(nullptr, path, sizeof path), -1);
    EXPECT_TRUE(LogLines().empty());
    EXPECT_EQ(QUORFlashcacheGetCachePath("/ssd2", path, sizeof path), -1);
    EXPECT_EQ(QUORFlashcacheGetCachePath("/ssd1", path, 511), -1);
    EXPECT_EQ(QUORFlashcacheGetCachePath("/ssd1", path, 0), -1);
    EXPECT_STREQ(path, "untouched");
    EXPECT_EQ(LogLines()[1], "libquorflashcache: cached device " + device +
                                 " of SSD /ssd1 does not fit into 511 bytes");
    EXPECT_EQ(QUORFlashcacheGetCachePath("/ssd1", path, sizeof path), 1);
    EXPECT_EQ(path, device);
}

}  // namespace
