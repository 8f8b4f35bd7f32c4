// SPDX-License-Identifier: MIT
// Two files with the same low bits lie on volumes of terabytes only: story_command_pin has them.
#include "client/request/namesakes.h"

#include <unistd.h>

#include "tests/unit/client/client_test.h"

namespace client {

class NamesakesTest : public ClientTest {
  protected:
    void Name(const std::string& path, uint32_t inode) {
        FileRef file;
        file.path = path;
        file.volume = &volumes_[0];
        file.inode = inode;
        list_.files.push_back(file);
    }

    std::vector<Volume> volumes_ = {{mount_, "uuid-1"}};
    FileList list_;
    ConfigState state_;
};

TEST_F(NamesakesTest, WhatIsTheSameFileIsNoOther) {
    const std::string path = Make("a");
    const std::string link = mount_ + "/link";
    ASSERT_EQ(::link(path.c_str(), link.c_str()), 0);
    state_.pinned[mount_] = {{"a", InodeOf(path)}};
    Name(path, InodeOf(path));
    Name(link, InodeOf(path));
    RefuseNamesakes(state_, volumes_, list_);
    EXPECT_EQ(list_.files.size(), 2U);
    EXPECT_TRUE(list_.refusals.empty());
}

TEST_F(NamesakesTest, AnEntryWhoseFileIsGoneOrReplacedIsNoReason) {
    const std::string path = Make("a");
    const std::string other = Make("b");
    state_.pinned[mount_] = {{"gone", InodeOf(path)}};
    state_.queue.push_back({"0", "pinFiles", mount_, "b#" + std::to_string(InodeOf(path))});
    Name(path, InodeOf(path));
    Name(other, InodeOf(other));
    RefuseNamesakes(state_, volumes_, list_);
    EXPECT_EQ(list_.files.size(), 2U);
    EXPECT_TRUE(list_.refusals.empty());
}

}  // namespace client
