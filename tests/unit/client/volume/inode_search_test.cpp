// SPDX-License-Identifier: MIT
// Which file of a volume a listed inode number still is.
#include "client/volume/inode_search.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "tests/unit/client/client_test.h"

namespace client {

namespace {

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

}  // namespace

}  // namespace client
