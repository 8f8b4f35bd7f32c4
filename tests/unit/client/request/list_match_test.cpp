// SPDX-License-Identifier: MIT
// What unpin is given against the service's list.
#include "client/request/list_match.h"

#include <gtest/gtest.h>
#include <stdio.h>
#include <unistd.h>

#include <filesystem>

#include "tests/unit/client/client_test.h"
#include "tests/unit/support/fake_platform.h"

namespace client {

namespace {

class ListMatchTest : public ClientTest {
  protected:
    using Names = std::vector<std::string>;

    void TearDown() override {
        job_.mapper = Mapper();
        ClientTest::TearDown();
    }
    std::string Pinned(const std::string& relative) {
        const std::string path = Make(relative);
        Place(path, {{128, 8}});
        state_.pinned[mount_].push_back({relative, InodeOf(path)});
        return path;
    }
    // "relative#inode state" of the entries that no plain request reaches.
    Names Stale(const Names& paths) {
        FileListOptions options;
        options.paths = paths;
        job_ = FileJob();
        EXPECT_EQ(CollectJob(options, job_), 0);
        match_ = MatchList(state_, job_);
        Names names;
        for (const StaleEntry& entry : match_.stale) {
            names.push_back(entry.stored.relative + "#" + std::to_string(entry.stored.inode) + " " +
                            entry.state);
        }
        return names;
    }
    Names Files() const {
        Names names;
        for (const FileRef& file : job_.list.files) {
            names.push_back(file.relative);
        }
        return names;
    }

    ConfigState state_;
    FileJob job_;
    ListMatch match_;
};

TEST_F(ListMatchTest, APinnedFileIsNothingSpecial) {
    const std::string a = Pinned("a");
    EXPECT_EQ(Stale({a}), Names());
    EXPECT_EQ(Files(), Names{"a"});
    EXPECT_TRUE(match_.notPinned.empty());
}

TEST_F(ListMatchTest, TheEntryOfAFileThatIsGoneIsReachedByItsPath) {
    const std::string a = Pinned("d/a");
    const std::string expected = "d/a#" + std::to_string(InodeOf(a)) + " gone";
    unlink(a.c_str());
    EXPECT_EQ(Stale({a}), Names{expected});
    EXPECT_TRUE(job_.list.refusals.empty());
    EXPECT_EQ(Stale({mount_ + "/d/./a", mount_ + "/d/../d/a"}), Names{expected});
    rmdir((mount_ + "/d").c_str());
    EXPECT_EQ(Stale({a}), Names{expected}) << "with its directory";
}

TEST_F(ListMatchTest, WhatIsNotOnTheListStaysRefused) {
    Pinned("a");
    EXPECT_EQ(Stale({mount_ + "/nothing"}), Names());
    EXPECT_EQ(job_.list.refusals.size(), 1U);
}

TEST_F(ListMatchTest, TheEntryOfAReplacedFileIsReachedAndTheNewFileNamedToo) {
    const std::string a = Pinned("a");
    const std::string expected = "a#" + std::to_string(InodeOf(a)) + " replaced";
    Place(Make("new"), {{256, 8}});
    rename((mount_ + "/new").c_str(), a.c_str());
    EXPECT_EQ(Stale({a}), Names{expected});
    EXPECT_EQ(Files(), Names{"a"});
    EXPECT_TRUE(match_.notPinned.empty()) << "its path is on the list";
    state_.pinned[mount_].push_back({"a", InodeOf(a)});
    EXPECT_EQ(Stale({a}), Names{expected}) << "also when the list holds both";
}

TEST_F(ListMatchTest, AnEntryWhosePathIsALinkOrADirectoryNow) {
    const std::string a = Pinned("a");
    const std::string b = Pinned("b");
    const std::string inodeOfA = std::to_string(InodeOf(a));
    const std::string inodeOfB = std::to_string(InodeOf(b));
    std::filesystem::rename(a, mount_ + "/a2");
    std::filesystem::rename(b, mount_ + "/b2");
    std::filesystem::create_symlink("a2", a);
    std::filesystem::create_directory(b);
    EXPECT_EQ(Stale({a, b}), (Names{"a#" + inodeOfA + " replaced", "b#" + inodeOfB + " replaced"}));
}

TEST_F(ListMatchTest, AnEntryWhoseFileIsEmptyNow) {
    const std::string a = Pinned("a");
    const std::string b = Pinned("b");
    std::filesystem::resize_file(a, 0);
    Place(b, {});
    EXPECT_EQ(Stale({a, b}),
              (Names{"a#" + std::to_string(InodeOf(a)) + " empty",
                     "b#" + std::to_string(InodeOf(b)) + " out of reach of a plain request"}));
    EXPECT_TRUE(job_.list.refusals.empty());
}

TEST_F(ListMatchTest, AnEntryWhoseFileIsNamedByAnotherPathIsLeftToThePlainRequest) {
    const std::string a = Pinned("a");
    const std::string b = mount_ + "/b";
    std::filesystem::rename(a, b);
    EXPECT_EQ(Stale({a, b}), Names());
    EXPECT_EQ(Files(), Names{"b"});
    EXPECT_TRUE(match_.notPinned.empty());
}

TEST_F(ListMatchTest, WhatWasNotPinnedIsTold) {
    Pinned("a");
    const std::string b = Make("b");
    const std::string c = Make("c");
    Place(b, {{256, 8}});
    Place(c, {{512, 8}});
    state_.queue.push_back({"0", "pinFiles", mount_, "c#" + std::to_string(InodeOf(c))});
    EXPECT_EQ(Stale({b, c}), Names());
    EXPECT_EQ(Files(), (Names{"b", "c"}));
    EXPECT_EQ(match_.notPinned, Names{b}) << "the other is queued to be pinned";
}

TEST_F(ListMatchTest, OnAVolumeWithoutACacheNothingIsReached) {
    const std::string a = Pinned("a");
    unlink(a.c_str());
    g_platform.configs.clear();
    EXPECT_EQ(Stale({a}), Names());
    EXPECT_EQ(job_.list.refusals.size(), 1U);
}

}  // namespace

}  // namespace client
