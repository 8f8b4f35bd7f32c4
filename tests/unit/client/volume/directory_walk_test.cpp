// SPDX-License-Identifier: MIT
// What a walk meets, in which order, and what it says of what it cannot read; which file of a
// volume a listed inode number still is.
#include "client/volume/directory_walk.h"

#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "tests/unit/client/client_test.h"
#include "util/scoped.h"

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
    Names mounts_;
};

TEST_F(DirectoryWalkTest, AllThatIsNoDirectoryIsMetInOrder) {
    for (const char* const name : {"b/y", "b/x/1", "a", "c", "b/x/0", ".hidden"}) {
        Make(name);
    }
    std::filesystem::create_directory(dir_ / "empty");
    EXPECT_EQ(Walk(), (Names{"/.hidden", "/a", "/b/x/0", "/b/x/1", "/b/y", "/c"}));
    EXPECT_EQ(mounts_, Names());
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
    EXPECT_EQ(WalkBelow(dir_ / "nothing", visit), Names());
    EXPECT_EQ(error, ENOENT);
    Make("file");
    EXPECT_EQ(WalkBelow(dir_ / "file", visit), Names());
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

TEST_F(DirectoryWalkTest, OtherFileSystemsAreNamedAndNotEntered) {
    std::filesystem::create_directory(dir_ / "mounted");
    Make("file");
    if (mount("none", (dir_ / "mounted").c_str(), "tmpfs", 0, nullptr) != 0) {
        GTEST_SKIP() << "needs root to mount";
    }
    Make("mounted/hidden");
    const Names met = Walk();
    EXPECT_EQ(umount((dir_ / "mounted").c_str()), 0);
    EXPECT_EQ(met, Names{"/file"});
    EXPECT_EQ(mounts_, Names{dir_ / "mounted"});
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

class InodeSearchTest : public ClientTest {
  protected:
    InodeSearch Search(const std::set<uint32_t>& inodes) const {
        return SearchVolume(mount_, inodes, Bitmap());
    }
    std::string Bitmap() const { return mount_ + "/quorcachepinfile.bitmap"; }

    // Sets the moment of the bitmap file's last change, seconds since 1970.
    void Pinned(time_t moment) {
        const struct timespec times[] = {{moment, 0}, {moment, 0}};
        WriteFile(Bitmap(), "");
        ASSERT_EQ(utimensat(AT_FDCWD, Bitmap().c_str(), times, 0), 0);
    }
};

TEST_F(InodeSearchTest, FilesAreFoundWhereverTheyLie) {
    const std::string top = Make("top");
    const std::string deep = Make("a/b/c/deep");
    Make("other");
    const InodeSearch search = Search({InodeOf(top), InodeOf(deep), 4000000000U});
    EXPECT_EQ(search.paths,
              (std::map<uint32_t, std::string>{{InodeOf(top), top}, {InodeOf(deep), deep}}));
    EXPECT_EQ(search.unreadable, "");
}

TEST_F(InodeSearchTest, AFileOfTwoNamesIsFoundByTheFirst) {
    const std::string path = Make("b");
    ASSERT_EQ(link(path.c_str(), (mount_ + "/a").c_str()), 0);
    EXPECT_EQ(Search({InodeOf(path)}).paths.at(InodeOf(path)), mount_ + "/a");
}

TEST_F(InodeSearchTest, OnlyRegularFilesCount) {
    std::filesystem::create_directory(mount_ + "/dir");
    ASSERT_EQ(symlink("dir", (mount_ + "/link").c_str()), 0);
    ASSERT_EQ(mkfifo((mount_ + "/pipe").c_str(), 0600), 0);
    for (const char* const name : {"/dir", "/link", "/pipe"}) {
        EXPECT_TRUE(Search({InodeOf(mount_ + name)}).paths.empty()) << name;
    }
}

TEST_F(InodeSearchTest, AFileBornAfterTheLastPinIsAnother) {
    const std::string path = Make("a");
    const uint32_t inode = InodeOf(path);
    EXPECT_EQ(Search({inode}).paths.size(), 1U) << "nothing was ever pinned";
    Pinned(time(nullptr) + 1000);
    EXPECT_EQ(Search({inode}).paths.size(), 1U) << "it was there when something was pinned";
    Pinned(1000);
    EXPECT_TRUE(Search({inode}).paths.empty()) << "it only inherited the number";
    EXPECT_EQ(Search({inode}).unreadable, "");
}

TEST_F(InodeSearchTest, WhatCannotBeSearchedIsNamed) {
    std::filesystem::remove_all(mount_);
    EXPECT_EQ(Search({1}).unreadable, mount_ + ": No such file or directory");
    EXPECT_TRUE(Search({1}).paths.empty());
}

TEST_F(InodeSearchTest, WhatAnotherMountHidesMayBeOneOfThem) {
    const std::string mounted = mount_ + "/mounted";
    const std::string hidden = Make("mounted/sub/hidden");
    const std::string seen = Make("seen");
    const uint32_t inode = InodeOf(hidden);
    if (mount("none", mounted.c_str(), "tmpfs", 0, nullptr) != 0) {
        GTEST_SKIP() << "needs root to mount";
    }
    const InodeSearch found = Search({inode});
    const InodeSearch gone = Search({InodeOf(seen), 4000000000U});
    // An emulator need not know how to copy a mount.
    const ScopedFd copy(open_tree(AT_FDCWD, mount_.c_str(), OPEN_TREE_CLONE | OPEN_TREE_CLOEXEC));
    // Somebody else may look around and not copy the mount.
    EXPECT_EQ(chmod(dir_.path().c_str(), 0755), 0);
    EXPECT_EQ(seteuid(65534), 0);
    const InodeSearch blind = Search({4000000000U});
    const InodeSearch all = Search({InodeOf(seen)});
    EXPECT_EQ(seteuid(0), 0);
    EXPECT_EQ(umount(mounted.c_str()), 0);
    const std::string why = mounted + ": another file system is mounted over it";
    EXPECT_TRUE(found.paths.empty());
    EXPECT_EQ(found.unreadable, why);
    EXPECT_EQ(gone.paths.size(), 1U);
    EXPECT_EQ(gone.unreadable, copy.valid() ? "" : why) << "below the mount lies another file";
    EXPECT_EQ(blind.unreadable, why) << "what cannot be looked at is not known to hold none";
    EXPECT_EQ(all.unreadable, "") << "nothing is left to look for";
}

}  // namespace

}  // namespace client
