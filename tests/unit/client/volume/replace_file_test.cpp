// SPDX-License-Identifier: MIT
// Replacing a file in one step, for a bitmap and for a configuration file.
#include "client/volume/replace_file.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "tests/unit/support/fake_system.h"
#include "tests/unit/support/unit_test.h"

namespace client {

namespace {

class ReplaceFileTest : public UnitTest {
  protected:
    void SetUp() override {
        UnitTest::SetUp();
        path_ = dir_ / "map";
    }
    bool Write(const std::string& bytes) { return ReplaceFile(path_, bytes, model_, why_); }
    // What lies beside the file.
    size_t Others() {
        size_t count = 0;
        for (const auto& entry : std::filesystem::directory_iterator(dir_.path())) {
            count += entry.path() != path_ ? 1U : 0U;
        }
        return count;
    }

    std::string path_;
    std::string why_;
    std::string model_;  // whose mode and owner the file gets
};

TEST_F(ReplaceFileTest, TheFileHasExactlyTheBytes) {
    const std::string zeros("\0\0\x01\xff", 4);
    for (const std::string& before : {std::string(), std::string("ab"), std::string(9000, 'x')}) {
        WriteFile(path_, before);
        EXPECT_TRUE(Write(zeros)) << why_;
        EXPECT_EQ(ReadFile(path_), zeros) << before.size() << " bytes before";
    }
    EXPECT_TRUE(Write("")) << why_;
    EXPECT_EQ(ReadFile(path_), "");
    EXPECT_EQ(Others(), 0U);
}

TEST_F(ReplaceFileTest, OneThatIsMissingIsMade) {
    struct stat status = {};
    const std::string large(300000, '\x55');
    const mode_t mask = umask(077);
    EXPECT_TRUE(Write(large)) << why_;
    umask(mask);
    EXPECT_EQ(ReadFile(path_), large);
    ASSERT_EQ(stat(path_.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777U, 0644U) << "as the service makes it";
}

TEST_F(ReplaceFileTest, WhoReadsTheOldFileGoesOnReadingIt) {
    WriteFile(path_, "old");
    std::filesystem::create_hard_link(path_, dir_ / "other");
    EXPECT_TRUE(Write("new")) << why_;
    EXPECT_EQ(ReadFile(dir_ / "other"), "old") << "it was replaced, not written over";
}

TEST_F(ReplaceFileTest, ASymbolicLinkIsLeftAlone) {
    WriteFile(dir_ / "elsewhere", "old");
    for (const char* const target : {"elsewhere", "nowhere"}) {
        std::filesystem::create_symlink(target, path_);
        EXPECT_FALSE(Write("new"));
        EXPECT_EQ(why_, path_ + " is a symbolic link, which is not written through");
        EXPECT_TRUE(std::filesystem::is_symlink(path_));
        std::filesystem::remove(path_);
    }
    EXPECT_EQ(ReadFile(dir_ / "elsewhere"), "old");
    EXPECT_FALSE(Exists(dir_ / "nowhere"));
}

TEST_F(ReplaceFileTest, WhatLiesAtTheTemporaryNameIsNotWrittenTo) {
    WriteFile(dir_ / "victim", "precious");
    std::filesystem::create_symlink(dir_ / "victim", path_ + ".new");
    EXPECT_TRUE(Write("new")) << why_;
    EXPECT_EQ(ReadFile(dir_ / "victim"), "precious");
    EXPECT_EQ(ReadFile(path_), "new");
    WriteFile(path_ + ".new", "left by one that was killed");
    EXPECT_TRUE(Write("newer")) << why_;
    EXPECT_EQ(ReadFile(path_), "newer");
    EXPECT_EQ(Others(), 1U) << "the victim";
}

TEST_F(ReplaceFileTest, AFailureLeavesWhatWasThere) {
    std::filesystem::create_directory(path_);
    EXPECT_FALSE(Write("new"));
    EXPECT_EQ(why_, path_ + ": Is a directory");
    EXPECT_EQ(Others(), 0U) << "the temporary file is gone";
    std::filesystem::remove(path_);
    WriteFile(path_, "old");
    std::filesystem::create_directory(path_ + ".new");
    EXPECT_FALSE(Write("new"));
    EXPECT_EQ(ReadFile(path_), "old");
    path_ = dir_ / "none/map";
    EXPECT_FALSE(Write("new"));
    EXPECT_EQ(why_, path_ + ": No such file or directory");
}

TEST_F(ReplaceFileTest, TheOldOnesOwnerAndModeStayWhereTheyAreToStay) {
    struct stat status = {};
    model_ = path_;
    EXPECT_FALSE(Write("new"));
    EXPECT_EQ(why_, path_ + ": No such file or directory") << "nobody's file is not made";
    WriteFile(path_, "old");
    const bool root = chown(path_.c_str(), 12, 34) == 0;
    ASSERT_EQ(chmod(path_.c_str(), 06640), 0);
    EXPECT_TRUE(Write("new")) << why_;
    EXPECT_EQ(ReadFile(path_), "new");
    ASSERT_EQ(stat(path_.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777U, 06640U) << "the change of owner did not cost the bits";
    EXPECT_EQ(status.st_uid, root ? 12U : geteuid());
    EXPECT_EQ(status.st_gid, root ? 34U : getegid());
    model_.clear();
    EXPECT_TRUE(Write("ours")) << why_;
    ASSERT_EQ(stat(path_.c_str(), &status), 0);
    EXPECT_EQ(status.st_uid, geteuid()) << "what a user of the volume put there is not his again";
    EXPECT_EQ(status.st_mode & 07777U, 0644U);
}

TEST_F(ReplaceFileTest, AFileIsMadeWhereThereIsNone) {
    struct stat status = {};
    const mode_t mask = umask(027);
    EXPECT_TRUE(CreateFile(path_, "new", why_)) << why_;
    umask(mask);
    EXPECT_EQ(ReadFile(path_), "new");
    ASSERT_EQ(stat(path_.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777U, 0640U) << "what the mask leaves";
    EXPECT_FALSE(CreateFile(path_, "newer", why_));
    EXPECT_EQ(why_, path_ + ": File exists");
    EXPECT_EQ(ReadFile(path_), "new");
    const std::string link = dir_ / "link";
    std::filesystem::create_symlink(dir_ / "nowhere", link);
    EXPECT_FALSE(CreateFile(link, "new", why_)) << "a link that leads nowhere is there";
    EXPECT_FALSE(Exists(dir_ / "nowhere"));
    EXPECT_FALSE(CreateFile(dir_ / "none/map", "new", why_));
    EXPECT_EQ(why_, dir_ / "none/map" + ": No such file or directory");
}

TEST_F(ReplaceFileTest, NoPartOfAFileIsLeftBehind) {
    FailCall(Call::kFsync, 1, ENOSPC);
    EXPECT_FALSE(CreateFile(path_, "new", why_));
    EXPECT_EQ(why_, path_ + ": No space left on device");
    EXPECT_FALSE(Exists(path_));
}

}  // namespace

}  // namespace client
