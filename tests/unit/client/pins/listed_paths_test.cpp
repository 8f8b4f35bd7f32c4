// SPDX-License-Identifier: MIT
// Which listed entries a path names, and what is said of each.
#include "client/pins/listed_paths.h"

#include <gtest/gtest.h>
#include <stdio.h>
#include <unistd.h>

#include <filesystem>

#include "tests/unit/client/client_test.h"

namespace client {

namespace {

class ListedPathsTest : public ClientTest {
  protected:
    std::string Listed(const std::string& relative) {
        const std::string path = Make(relative);
        List(relative, InodeOf(path));
        return path;
    }
    void List(const std::string& relative, uint32_t inode) {
        state_.pinned[mount_].push_back({relative, inode});
    }
    // "fate inode" of each entry that the path names.
    std::vector<std::string> Named(const std::string& path) {
        volumes_ = Volumes();
        std::vector<std::string> found;
        for (const auto& [given, pinned] : EntriesNamed({"/other", path}, state_, volumes_)) {
            EXPECT_EQ(given, path);
            found.push_back(FateName(pinned.fate) + (" " + std::to_string(pinned.entry.inode)));
            why_ = WhyNotUnpinnable(pinned);
        }
        return found;
    }
    using Texts = std::vector<std::string>;

    std::vector<Volume> volumes_;
    ConfigState state_;
    std::string why_;
};

TEST_F(ListedPathsTest, AFileThatLiesThereIsNotAmongThem) {
    const std::string path = Listed("a");
    EXPECT_EQ(Named(path), Texts());
    EXPECT_EQ(Named(mount_ + "/b"), Texts());
    EXPECT_EQ(Named(""), Texts());
    EXPECT_EQ(Named("/"), Texts());
}

TEST_F(ListedPathsTest, AFileThatIsGoneIsNamedWithTheRemedy) {
    const std::string path = Listed("d/a");
    const std::string inode = std::to_string(InodeOf(path));
    std::filesystem::remove_all(mount_ + "/d");
    EXPECT_EQ(Named(path), (Texts{"gone " + inode}));
    EXPECT_EQ(why_, "is on the service's list and gone; check --repair takes it off");
}

TEST_F(ListedPathsTest, AFileThatWasRenamedIsNamedWithItsNewPath) {
    const std::string path = Listed("a");
    std::filesystem::create_directory(mount_ + "/d");
    ASSERT_EQ(rename(path.c_str(), (mount_ + "/d/b").c_str()), 0);
    ASSERT_EQ(Named(path).size(), 1U);
    EXPECT_EQ(why_, "is on the service's list and renamed: lies at " + mount_ + "/d/b");
}

TEST_F(ListedPathsTest, AFileThatWasReplacedIsNamedWithTheRemedy) {
    const std::string path = Make("a");
    List("a", 5);
    EXPECT_EQ(Named(path), (Texts{"replaced 5"}));
    EXPECT_EQ(why_, "is on the service's list and replaced: inode 5 was pinned, inode " +
                        std::to_string(InodeOf(path)) + " is there now; check --repair follows it");
}

TEST_F(ListedPathsTest, OneOfAVolumeThatIsNotMountedCannotBeLookedAt) {
    state_.pinned["/mnt/away"].push_back({"a", 7});
    EXPECT_EQ(Named("/mnt/away/a"), (Texts{"cannot be looked at 7"}));
    EXPECT_EQ(why_, "is on the service's list and cannot be looked at: its volume is not mounted");
}

TEST_F(ListedPathsTest, APathIsResolvedAsFarAsItExists) {
    List("gone/a", 5);
    std::filesystem::create_directory(mount_ + "/d");
    std::filesystem::create_directory_symlink(mount_, dir_ / "link");
    for (const std::string& path : {mount_ + "/gone/a", mount_ + "/./gone//a",
                                    mount_ + "/d/../gone/a", dir_ / "link/gone/a"}) {
        EXPECT_EQ(Named(path), (Texts{"gone 5"})) << path;
    }
    const std::filesystem::path before = std::filesystem::current_path();
    std::filesystem::current_path(mount_);
    EXPECT_EQ(Named("gone/a"), (Texts{"gone 5"}));
    std::filesystem::current_path(before);
    EXPECT_EQ(Named(mount_ + "/gone/a/"), Texts()) << "names no file";
}

TEST_F(ListedPathsTest, OfSeveralEntriesAllAreNamed) {
    List("a", 5);
    List("a", 6);
    const std::string path = Listed("a");
    EXPECT_EQ(Named(path), (Texts{"replaced 5", "replaced 6"}));
}

}  // namespace

}  // namespace client
