// SPDX-License-Identifier: MIT
// Writing a bitmap file while no service uses it.
#include "client/volume/bitmap_file.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>

#include "tests/unit/support/unit_test.h"

namespace client {

namespace {

class BitmapFileTest : public UnitTest {
  protected:
    void SetUp() override {
        UnitTest::SetUp();
        path_ = dir_ / "map";
    }
    bool Write(const std::string& bytes) {
        return ReplaceBitmapFile(path_, {bytes.begin(), bytes.end()}, why_);
    }
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
};

TEST_F(BitmapFileTest, TheFileHasExactlyTheBytes) {
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

TEST_F(BitmapFileTest, OneThatIsMissingIsMade) {
    struct stat status = {};
    const std::string large(300000, '\x55');
    const mode_t mask = umask(077);
    EXPECT_TRUE(Write(large)) << why_;
    umask(mask);
    EXPECT_EQ(ReadFile(path_), large);
    ASSERT_EQ(stat(path_.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777U, 0644U) << "as the service makes it";
}

TEST_F(BitmapFileTest, WhoReadsTheOldFileGoesOnReadingIt) {
    WriteFile(path_, "old");
    std::filesystem::create_hard_link(path_, dir_ / "other");
    EXPECT_TRUE(Write("new")) << why_;
    EXPECT_EQ(ReadFile(dir_ / "other"), "old") << "it was replaced, not written over";
}

TEST_F(BitmapFileTest, ASymbolicLinkIsLeftAlone) {
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

TEST_F(BitmapFileTest, WhatLiesAtTheTemporaryNameIsNotWrittenTo) {
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

TEST_F(BitmapFileTest, AFailureLeavesWhatWasThere) {
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

}  // namespace

}  // namespace client
