// SPDX-License-Identifier: MIT
// A cache registry of the test's own, and entries in it whose "process" is the test.
#pragma once

#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/file.h>

#include <string>

#include "platform/linux/unique_fd.h"
#include "platform/quorstoragecore.h"
#include "tests/unit/platform/scratch.h"

using stand_in::UniqueFd;

constexpr char kRegistry[] = "/mnt/registry";
constexpr int kLooksBeforeMemory = 20;  // enough for the answers to come from memory where they may

inline std::string EntryPath(const std::string& name) {
    return std::string(kRegistry) + "/" + name + ".json";
}

inline std::string EntryText(const std::string& ssd, const std::string& device, int state = 1,
                             int supportPin = 1) {
    return R"({"version":1,"name":"vol1","pid":123,"ssd":")" + ssd + R"(","device":")" + device +
           R"(","state":)" + std::to_string(state) + R"(,"supportPin":)" +
           std::to_string(supportPin) +
           R"(,"unitSize":65536,"deviceSize":1048576,"cacheSize":65536})" + "\n";
}

inline std::string LockPath(const std::string& name) {
    return std::string(kRegistry) + "/" + name + ".lock";
}

// The registry file of a living cache: locked by a file beside it, then written aside and put into
// its place in one step, as the cache does it. It is alive until the object goes; both files stay.
class LivingEntry {
  public:
    LivingEntry(const std::string& name, const std::string& text)
        : name_(name), lock_(open(LockPath(name).c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600)) {
        EXPECT_EQ(flock(lock_.Get(), LOCK_EX | LOCK_NB), 0);
        Replace(text);
    }

    void Replace(const std::string& text) {
        const std::string temporary = std::string(kRegistry) + "/." + name_ + ".new";
        WriteFile(temporary, text);
        EXPECT_EQ(rename(temporary.c_str(), EntryPath(name_).c_str()), 0);
    }

  private:
    const std::string name_;
    const UniqueFd lock_;
};

class RegistryTest : public ScratchTest {
  protected:
    void SetUp() override {
        ScratchTest::SetUp();
        if (!IsSkipped()) {
            MakeDirectory("registry");
            setenv("QUORSOFTCACHE_REGISTRY", kRegistry, 1);
            for (int i = 0; i < kLooksBeforeMemory; ++i) {
                StatOf("none");
            }
        }
    }
    void TearDown() override {
        unsetenv("QUORSOFTCACHE_REGISTRY");
        ScratchTest::TearDown();
    }

    // The state of the cache on the SSD: "state supportPin", or the failing result as "= result".
    static std::string StatOf(const std::string& ssd) {
        FlashCacheStatQuery query = {};
        query.selector = FLASH_CACHE_STAT_BY_SSD_PATH;
        query.ssdPath = ssd.c_str();
        FlashCacheStat* stat = nullptr;
        const int result = QUORFlashCacheStatGet(&query, &stat);
        if (result < 1) {
            EXPECT_EQ(stat, nullptr);
            return "= " + std::to_string(result);
        }
        std::string text = std::to_string(stat->state) + " " + std::to_string(stat->supportPin);
        QUORFlashCacheStatFree(&stat);
        EXPECT_EQ(stat, nullptr);
        return text;
    }
};
