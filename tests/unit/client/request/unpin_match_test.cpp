// SPDX-License-Identifier: MIT
// What unpin sends, refuses, passes over and notes, against the service's list.
#include "client/request/unpin_match.h"

#include <gtest/gtest.h>
#include <stdio.h>
#include <unistd.h>

#include "tests/unit/client/client_test.h"

namespace client {

namespace {

constexpr uint64_t kUnit = 128;  // sectors

class UnpinMatchTest : public ClientTest {
  protected:
    std::string File(const std::string& relative, bool listed) {
        const std::string path = Make(relative);
        Place(path, {{next_ += kUnit, 8}});
        if (listed) {
            state_.pinned[mount_].push_back({relative, InodeOf(path)});
        }
        return path;
    }
    // Returns the relative paths of the files that stay to be sent.
    std::vector<std::string> Match(const std::vector<std::string>& paths) {
        FileListOptions options;
        options.paths = paths;
        job_ = FileJob();
        job_.type = kRequestUnpinFiles;
        EXPECT_EQ(CollectJob(options, job_), 0);
        MatchWithList(state_, job_);
        std::vector<std::string> names;
        for (const FileRef& file : job_.list.files) {
            names.push_back(file.relative);
        }
        testing::internal::CaptureStderr();
        SayMatch(job_);
        talk_ = testing::internal::GetCapturedStderr();
        return names;
    }
    using Texts = std::vector<std::string>;

    ConfigState state_;
    FileJob job_;
    std::string talk_;
    uint64_t next_ = 0;
};

TEST_F(UnpinMatchTest, WhatIsPinnedIsSent) {
    const std::string a = File("a", true);
    const std::string b = File("b", false);
    state_.queue.push_back({"0", "pinFiles", mount_, "b#" + std::to_string(InodeOf(b))});
    EXPECT_EQ(Match({a, b}), (Texts{"a", "b"})) << "what is queued to be pinned, too";
    EXPECT_TRUE(job_.entries.empty() && job_.passedOver.empty() && job_.notPinned.empty());
    EXPECT_EQ(talk_, "");
}

TEST_F(UnpinMatchTest, WhatWasNotPinnedIsSentAllTheSameAndNoted) {
    Texts paths;
    for (int i = 0; i < 12; ++i) {
        paths.push_back(File("f" + std::to_string(i), false));
    }
    EXPECT_EQ(Match(paths).size(), 12U);
    EXPECT_EQ(job_.notPinned, paths);
    EXPECT_NE(talk_.find(paths[9] + " was not pinned"), std::string::npos) << talk_;
    EXPECT_EQ(talk_.find(paths[10]), std::string::npos);
    EXPECT_NE(talk_.find("and 2 more were not pinned"), std::string::npos);
}

TEST_F(UnpinMatchTest, AListedFileThatIsGoneIsRefusedWithTheRemedy) {
    const std::string gone = File("gone", true);
    unlink(gone.c_str());
    EXPECT_EQ(Match({gone, mount_ + "/nothing"}), Texts());
    ASSERT_EQ(job_.list.refusals.size(), 2U);
    EXPECT_EQ(job_.list.refusals[0].reason,
              "is on the service's list and gone; check --repair takes it off");
    EXPECT_EQ(job_.list.refusals[1].reason, "No such file or directory") << "not on the list";
    ASSERT_EQ(job_.entries.size(), 1U);
    EXPECT_EQ(job_.entries[0].fate, Fate::kGone);
}

TEST_F(UnpinMatchTest, AFileInThePlaceOfAListedOneIsPassedOver) {
    const std::string path = File("a", true);
    const std::string other = File("b", true);
    ASSERT_EQ(rename(File("new", false).c_str(), path.c_str()), 0);
    EXPECT_EQ(Match({path, other}), (Texts{"b"}));
    ASSERT_EQ(job_.passedOver.size(), 1U);
    EXPECT_EQ(job_.passedOver[0].path, path);
    EXPECT_NE(talk_.find("not sent " + path + ": is on the service's list and replaced"),
              std::string::npos)
        << talk_;
    EXPECT_NE(talk_.find("check --repair follows it"), std::string::npos) << talk_;
    EXPECT_EQ(job_.entries.size(), 1U);
    EXPECT_TRUE(job_.notPinned.empty() && job_.list.refusals.empty());
}

TEST_F(UnpinMatchTest, OneThatIsPinnedItselfIsSentWhateverItReplaced) {
    const std::string path = File("a", true);
    ASSERT_EQ(rename(File("b", true).c_str(), path.c_str()), 0);
    EXPECT_EQ(Match({path}), (Texts{"a"}));
    EXPECT_TRUE(job_.passedOver.empty());
    ASSERT_EQ(job_.entries.size(), 1U) << "the other entry is named all the same";
    EXPECT_EQ(job_.entries[0].fate, Fate::kReplaced);
}

TEST_F(UnpinMatchTest, ARenamedFileIsSentByItsNewNameAndRefusedByItsOldOne) {
    const std::string path = File("a", true);
    const std::string now = mount_ + "/b";
    ASSERT_EQ(rename(path.c_str(), now.c_str()), 0);
    EXPECT_EQ(Match({path, now}), (Texts{"b"}));
    ASSERT_EQ(job_.list.refusals.size(), 1U);
    EXPECT_EQ(job_.list.refusals[0].reason, "is on the service's list and renamed: lies at " + now);
    EXPECT_TRUE(job_.notPinned.empty());
}

TEST_F(UnpinMatchTest, AFileThatIsThereKeepsTheReasonOfItsRefusal) {
    const std::string path = File("a", true);
    WriteFile(path, "");
    EXPECT_EQ(Match({path, path}), Texts());
    ASSERT_EQ(job_.list.refusals.size(), 2U);
    EXPECT_EQ(job_.list.refusals[0].reason.find("is empty"), 0U);
    EXPECT_TRUE(job_.entries.empty());
}

TEST_F(UnpinMatchTest, AnEntryIsNamedOnceHoweverOftenItsPathIsGiven) {
    const std::string gone = File("d/gone", true);
    unlink(gone.c_str());
    Match({gone, mount_ + "/d/../d/gone"});
    EXPECT_EQ(job_.list.refusals.size(), 2U);
    EXPECT_EQ(job_.list.refusals[1].reason, job_.list.refusals[0].reason);
    EXPECT_EQ(job_.entries.size(), 1U);
}

}  // namespace

}  // namespace client
