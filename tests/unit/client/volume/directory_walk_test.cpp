// SPDX-License-Identifier: MIT
// What a walk meets, in which order, and what it says of what it cannot read.
#include "client/volume/directory_walk.h"

#include <errno.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "tests/unit/support/unit_test.h"

namespace client {

namespace {

class DirectoryWalkTest : public testing::Test {
  protected:
    using Names = std::vector<std::string>;

    void Make(const std::string& relative) {
        const std::filesystem::path path = dir_ / relative;
        std::filesystem::create_directories(path.parent_path());
        WriteFile(path, "");
    }
    // What a walk below the directory meets: relative path, and "!errno" where it has one.
    Names Walk() {
        Names met;
        mounts_ = WalkBelow(dir_.path(), [&](const WalkEntry& entry) {
            const std::string error = entry.error == 0 ? "" : "!" + std::to_string(entry.error);
            met.push_back(entry.path.substr(dir_.path().size()) + error);
        });
        return met;
    }

    TempDir dir_;
    size_t mounts_ = 0;
};

TEST_F(DirectoryWalkTest, AllThatIsNoDirectoryIsMetInOrder) {
    for (const char* const name : {"b/y", "b/x/1", "a", "c", "b/x/0", ".hidden"}) {
        Make(name);
    }
    std::filesystem::create_directory(dir_ / "empty");
    EXPECT_EQ(Walk(), (Names{"/.hidden", "/a", "/b/x/0", "/b/x/1", "/b/y", "/c"}));
    EXPECT_EQ(mounts_, 0U);
}

TEST_F(DirectoryWalkTest, LinksAndPipesAreMetAndNotFollowed) {
    Make("dir/file");
    ASSERT_EQ(symlink("dir", (dir_ / "to-dir").c_str()), 0);
    ASSERT_EQ(symlink(".", (dir_ / "dir/loop").c_str()), 0);
    ASSERT_EQ(symlink("nothing", (dir_ / "dangling").c_str()), 0);
    ASSERT_EQ(mkfifo((dir_ / "pipe").c_str(), 0600), 0);
    EXPECT_EQ(Walk(), (Names{"/dangling", "/dir/file", "/dir/loop", "/pipe", "/to-dir"}));
}

TEST_F(DirectoryWalkTest, WhatCannotBeReadIsMetWithItsError) {
    int error = 0;
    const auto visit = [&error](const WalkEntry& entry) { error = entry.error; };
    EXPECT_EQ(WalkBelow(dir_ / "nothing", visit), 0U);
    EXPECT_EQ(error, ENOENT);
    Make("file");
    EXPECT_EQ(WalkBelow(dir_ / "file", visit), 0U);
    EXPECT_EQ(error, ENOTDIR);
}

TEST_F(DirectoryWalkTest, WhatGoesMeanwhileIsMetWithItsError) {
    Make("a/file");
    Make("b/file");
    Names met;
    WalkBelow(dir_.path(), [&](const WalkEntry& entry) {
        met.push_back(entry.path.substr(dir_.path().size()) + " " + std::to_string(entry.error));
        std::filesystem::remove_all(dir_ / "b");
    });
    EXPECT_EQ(met, (Names{"/a/file 0", "/b " + std::to_string(ENOENT)}));
}

TEST_F(DirectoryWalkTest, OtherFileSystemsAreCountedAndNotEntered) {
    std::filesystem::create_directory(dir_ / "mounted");
    Make("file");
    if (mount("none", (dir_ / "mounted").c_str(), "tmpfs", 0, nullptr) != 0) {
        GTEST_SKIP() << "needs root to mount";
    }
    Make("mounted/hidden");
    const Names met = Walk();
    EXPECT_EQ(umount((dir_ / "mounted").c_str()), 0);
    EXPECT_EQ(met, Names{"/file"});
    EXPECT_EQ(mounts_, 1U);
}

TEST_F(DirectoryWalkTest, NamesAreListedInOrderAndAddedToWhatIsThere) {
    Make("b");
    Make("a/x");
    Names names;
    EXPECT_EQ(ListNames(dir_.path(), names), 0);
    EXPECT_EQ(names, (Names{"a", "b"}));
    ASSERT_EQ(symlink("a", (dir_ / "link").c_str()), 0);
    Names none;
    EXPECT_EQ(ListNames(dir_ / "nothing", none), ENOENT);
    EXPECT_EQ(ListNames(dir_ / "b", none), ENOTDIR);
    EXPECT_NE(ListNames(dir_ / "link", none), 0) << "a link is not followed";
    EXPECT_TRUE(none.empty());
}

}  // namespace

}  // namespace client
