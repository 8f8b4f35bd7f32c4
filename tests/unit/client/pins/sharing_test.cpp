// SPDX-License-Identifier: MIT
// Which files lose a unit when others are unpinned.
#include "client/pins/sharing.h"

#include <gtest/gtest.h>
#include <stdio.h>

#include "tests/unit/client/client_test.h"

namespace client {

namespace {

constexpr uint64_t kUnit = 128;  // sectors

class SharingTest : public ClientTest {
  protected:
    void SetUp() override {
        ClientTest::SetUp();
        job_.type = kRequestUnpinFiles;
    }
    void TearDown() override {
        job_.mapper = Mapper();
        ClientTest::TearDown();
    }
    std::string Pinned(const std::string& relative,
                       const std::vector<std::pair<uint64_t, uint64_t>>& extents) {
        const std::string path = Make(relative);
        Place(path, extents);
        state_.pinned[mount_].push_back({relative, InodeOf(path)});
        return path;
    }
    // The files that unpinning these would make lose a unit.
    std::vector<std::string> Repinned(const std::vector<std::string>& paths) {
        job_.volumes = Volumes();
        for (const std::string& path : paths) {
            FileRef file = Examine(path, job_.volumes);
            std::string why;
            EXPECT_TRUE(MapForRequest(job_.mapper, file, why)) << why;
            job_.list.files.push_back(file);
        }
        PlanRepinning(state_, job_);
        std::vector<std::string> names;
        for (const FileRef& file : job_.repinned) {
            names.push_back(file.relative);
        }
        return names;
    }
    using Names = std::vector<std::string>;

    ConfigState state_;
    FileJob job_;
};

TEST_F(SharingTest, NeighboursInAUnitArePinnedAgain) {
    const std::string a = Pinned("a", {{0, 8}, {5 * kUnit, kUnit}});
    Pinned("b", {{8, 8}});
    Pinned("c", {{kUnit, kUnit}});
    Pinned("d", {{4 * kUnit, kUnit + 1}});
    EXPECT_EQ(Repinned({a}), (Names{"b", "d"}));
}

TEST_F(SharingTest, WhatIsUnpinnedTooIsNot) {
    const std::string a = Pinned("a", {{0, 8}});
    const std::string b = Pinned("b", {{8, 8}});
    EXPECT_EQ(Repinned({a, b}), Names());
}

TEST_F(SharingTest, WhatIsGoneOrReplacedIsNot) {
    const std::string a = Pinned("a", {{0, 8}});
    const std::string gone = Pinned("gone", {{8, 8}});
    const std::string replaced = Pinned("replaced", {{16, 8}});
    unlink(gone.c_str());
    Place(Make("new"), {{24, 8}});
    rename((mount_ + "/new").c_str(), replaced.c_str());
    EXPECT_EQ(Repinned({a}), Names());
}

TEST_F(SharingTest, WhatIsQueuedToBePinnedIsPinnedAgainToo) {
    const std::string a = Pinned("a", {{0, 8}});
    const std::string next = Make("next");
    Place(next, {{16, 8}});
    state_.queue.push_back({"0", "pinFiles", mount_, "next#" + std::to_string(InodeOf(next))});
    EXPECT_EQ(Repinned({a}), (Names{"next"}));
}

TEST_F(SharingTest, WhatIsQueuedToBePinnedAndThenUnpinnedIsNot) {
    ConfigState state;
    state.queue = {{"0", "pinFiles", "/m", "a#1;b#2"},
                   {"1", "unpinFiles", "/m", "a#1"},
                   {"2", "pinFiles", "/other", "c#3"},
                   {"3", "reloadPinBlocks", "/m", ""},
                   {"4", "pinFiles", "/m", "b#2"}};
    const std::vector<StoredFile> files = QueuedToPin(state, "/m");
    ASSERT_EQ(files.size(), 1U);
    EXPECT_EQ(files[0].relative, "b");
}

}  // namespace

}  // namespace client
