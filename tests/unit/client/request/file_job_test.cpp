// SPDX-License-Identifier: MIT
// The files of one call: what is refused after they were collected, and what is packed.
#include "client/request/file_job.h"

#include <gtest/gtest.h>

#include "client/show/exit_status.h"
#include "client/volume/plain_links.h"
#include "tests/unit/client/client_test.h"
#include "tests/unit/support/fake_platform.h"

namespace client {

namespace {

class FileJobTest : public ClientTest {
  protected:
    std::string Placed(const std::string& relative) {
        const std::string path = Make(relative);
        Place(path, {{next_ += 128, 8}});
        return path;
    }
    int Collect(const std::vector<std::string>& paths) {
        FileListOptions options;
        options.paths = paths;
        return CollectJob(options, job_);
    }
    int Pack(bool keepGoing) {
        testing::internal::CaptureStderr();
        const int status = PackJob(keepGoing, job_);
        talk_ = testing::internal::GetCapturedStderr();
        return status;
    }

    FileJob job_;
    std::string talk_;
    uint64_t next_ = 0;
};

TEST_F(FileJobTest, FilesAreMappedAndPacked) {
    ASSERT_EQ(Collect({Placed("a"), Placed("b")}), kExitDone);
    ASSERT_EQ(job_.list.files.size(), 2U);
    EXPECT_EQ(job_.list.files[1].extents.size(), 1U);
    EXPECT_EQ(Pack(false), kExitDone);
    ASSERT_EQ(job_.messages.size(), 1U);
    EXPECT_EQ(job_.messages[0].data, mount_ + "/a;" + mount_ + "/b");
    EXPECT_EQ(talk_, "");
}

TEST_F(FileJobTest, WhatHasNoPlaceOnTheDeviceIsRefused) {
    const std::string hole = Make("hole");
    Place(hole, {});
    ASSERT_EQ(Collect({Placed("a"), hole}), kExitDone);
    ASSERT_EQ(job_.list.refusals.size(), 1U);
    EXPECT_EQ(job_.list.refusals[0].path, hole);
    EXPECT_EQ(job_.list.refusals[0].reason.find("has no place on the device"), 0U);
}

TEST_F(FileJobTest, WithoutACacheThatKeepsPinsAllIsRefused) {
    g_platform.stats["/dev/ssd1"].supportPin = 0;
    ASSERT_EQ(Collect({Placed("a")}), kExitDone);
    ASSERT_EQ(job_.list.refusals.size(), 1U);
    EXPECT_NE(job_.list.refusals[0].reason.find("has no cache that keeps pins now"),
              std::string::npos);
    EXPECT_EQ(Pack(true), kExitRefused) << "there are no others";
    EXPECT_NE(talk_.find("nothing was sent\n"), std::string::npos) << talk_;
}

TEST_F(FileJobTest, OneRefusalKeepsAllBackUnlessTheOthersAreWanted) {
    ASSERT_EQ(Collect({Placed("a"), mount_ + "/nothing"}), kExitDone);
    EXPECT_EQ(Pack(false), kExitRefused);
    EXPECT_NE(talk_.find("refused " + mount_ + "/nothing: No such file"), std::string::npos);
    EXPECT_NE(talk_.find("--keep-going sends the other files"), std::string::npos);
    EXPECT_EQ(Pack(true), kExitDone);
    EXPECT_EQ(job_.messages.size(), 1U);
}

TEST_F(FileJobTest, AListThatCannotBeReadIsAWrongCommandLine) {
    FileListOptions options;
    options.lists = {dir_ / "nothing"};
    testing::internal::CaptureStderr();
    EXPECT_EQ(CollectJob(options, job_), kExitUsage);
    EXPECT_NE(testing::internal::GetCapturedStderr().find("nothing"), std::string::npos);
}

TEST_F(FileJobTest, WhatIsPinnedAgainFollowsTheOthers) {
    job_.type = kRequestUnpinFiles;
    ASSERT_EQ(Collect({Placed("a")}), kExitDone);
    ASSERT_EQ(Pack(false), kExitDone);
    job_.repinned = {Examine(Placed("b"), job_.volumes)};
    PackRepinned(job_);
    ASSERT_EQ(job_.messages.size(), 2U);
    EXPECT_EQ(job_.messages[0].type, kRequestUnpinFiles);
    EXPECT_EQ(job_.messages[1].type, kRequestPinFiles);
    EXPECT_EQ(job_.messages[1].data, mount_ + "/b");
}

TEST_F(FileJobTest, LinksAreMadeForWhatNoRequestCanName) {
    const std::string path = Placed("my file");
    FileListOptions options;
    options.link = true;
    options.paths = {path, Placed("b")};
    ASSERT_EQ(CollectJob(options, job_), kExitDone);
    LinkFiles(false, job_);
    ASSERT_EQ(Pack(false), kExitDone);
    ASSERT_EQ(job_.messages.size(), 1U);
    EXPECT_EQ(job_.messages[0].data, mount_ + "/" + LinkName(InodeOf(path)) + ";" + mount_ + "/b");
    EXPECT_EQ(job_.list.files[0].path, path);
}

TEST_F(FileJobTest, NothingIsLinkedBesideARefusalUnlessTheOthersGo) {
    const std::string path = Placed("my file");
    FileListOptions options;
    options.link = true;
    options.paths = {path, mount_ + "/nothing"};
    ASSERT_EQ(CollectJob(options, job_), kExitDone);
    LinkFiles(false, job_);
    EXPECT_FALSE(HasLink(mount_, InodeOf(path)));
    LinkFiles(true, job_);
    EXPECT_TRUE(HasLink(mount_, InodeOf(path)));
}

TEST_F(FileJobTest, AFileThatCannotBeLinkedIsRefused) {
    const std::string path = Placed("my file");
    WriteFile(mount_ + "/.quorcachepin", "in the way");
    FileListOptions options;
    options.link = true;
    options.paths = {path};
    ASSERT_EQ(CollectJob(options, job_), kExitDone);
    LinkFiles(false, job_);
    ASSERT_EQ(job_.list.refusals.size(), 1U);
    EXPECT_EQ(job_.list.refusals[0].reason, mount_ + "/.quorcachepin: Not a directory");
    EXPECT_TRUE(job_.list.files.empty());
}

}  // namespace

}  // namespace client
