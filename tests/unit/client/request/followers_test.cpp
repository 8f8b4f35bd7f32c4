// SPDX-License-Identifier: MIT
// What lies at the paths of listed files that were replaced.
#include "client/request/followers.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "tests/unit/client/client_test.h"

namespace client {

namespace {

class FollowersTest : public ClientTest {
  protected:
    Followers Find(const std::vector<std::pair<Fate, std::string>>& listed) {
        DeviceState device;
        volumes_ = Volumes();
        for (const auto& [fate, relative] : listed) {
            PinnedFile pinned;
            pinned.entry = {relative, 5};
            pinned.mountPath = mount_;
            pinned.fate = fate;
            device.listed.push_back(pinned);
        }
        return FindFollowers({device}, volumes_);
    }
    std::vector<Volume> volumes_;
};

TEST_F(FollowersTest, OnlyReplacedFilesHaveOne) {
    const std::string path = Make("d/a");
    Place(path, {{1280, 8}});
    Make("b");
    const Followers found = Find({{Fate::kReplaced, "d/a"},
                                  {Fate::kThere, "b"},
                                  {Fate::kGone, "c"},
                                  {Fate::kUnknown, "b"},
                                  {Fate::kRenamed, "b"}});
    ASSERT_EQ(found.size(), 1U);
    const Follower& follower = found.at(path);
    EXPECT_EQ(follower.why, "");
    EXPECT_EQ(follower.file.inode, InodeOf(path));
    EXPECT_EQ(follower.file.relative, "d/a");
    EXPECT_EQ(follower.file.extents.size(), 1U);
}

TEST_F(FollowersTest, WhatCannotBePinnedSaysWhy) {
    std::filesystem::create_directory(mount_ + "/directory");
    std::filesystem::create_symlink("nowhere", mount_ + "/link");
    Make("my file");
    Make("empty", "");
    for (const char* const name : {"directory", "link", "my file", "empty", "vanished"}) {
        const Followers found = Find({{Fate::kReplaced, name}});
        ASSERT_EQ(found.size(), 1U) << name;
        EXPECT_NE(found.begin()->second.why, "") << name;
    }
}

}  // namespace

}  // namespace client
