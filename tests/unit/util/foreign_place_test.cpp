// SPDX-License-Identifier: MIT
// Links in the place of the bitmap file, which is the one file that the service opens among
// others'.
#include "util/foreign_place.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "tests/unit/support/log_capture.h"
#include "tests/unit/support/unit_test.h"
#include "tests/unit/util/bitmap_bytes.h"
#include "tests/unit/util/lines.h"
#include "util/pin_bitmap.h"
#include "util/scoped.h"

namespace {

class ForeignPlaceTest : public UnitTest {
  protected:
    void SetUp() override {
        UnitTest::SetUp();
        if (geteuid() != 0) {
            GTEST_SKIP() << "files are given to other users, which takes root";
        }
        ASSERT_EQ(mkdir(directory_.c_str(), 0755), 0);
        ASSERT_EQ(symlink("../elsewhere", path_.c_str()), 0);
    }

    // Makes the link and its directory anew, with these owners and this mode of the directory.
    void Make(uid_t linkOwner, uid_t directoryOwner, mode_t mode) {
        ASSERT_EQ(lchown(path_.c_str(), linkOwner, 0), 0);
        ASSERT_EQ(chown(directory_.c_str(), directoryOwner, 0), 0);
        ASSERT_EQ(chmod(directory_.c_str(), mode), 0);
    }

    std::string directory_ = dir_ / "volume";
    std::string path_ = directory_ + "/quorcachepinfile.bitmap";
    std::string target_ = dir_ / "elsewhere";
};

struct Row {
    const char* why;
    uid_t linkOwner;
    uid_t directoryOwner;
    mode_t mode;
    bool followed;
};

const Row kRows[] = {
    {"all of it is root's", 0, 0, 0755, true},
    {"nobody else may even look", 0, 0, 0700, true},
    {"others may write", 0, 0, 0757, false},
    {"others may write, but delete only what is theirs", 0, 0, 01777, false},
    {"the group may write", 0, 0, 0775, false},
    {"the directory is a user's", 0, 1000, 0755, false},
    {"the link is a user's", 1000, 0, 0755, false},
    {"both are a user's", 1000, 1000, 0755, false},
};

TEST_F(ForeignPlaceTest, ALinkIsFollowedOnlyWhereItIsRootsAlone) {
    for (const Row& row : kRows) {
        SCOPED_TRACE(row.why);
        Make(row.linkOwner, row.directoryOwner, row.mode);
        WriteFile(target_, "y");
        LogCapture log;
        std::vector<uint8_t> bytes = Bytes("x");
        PinBitmap bitmap = Over(bytes);
        Lines refused = {
            kUtilLog.Error("OpenInForeignPlace", "File (" + path_ +
                                                     ") is a symbolic link that others than root "
                                                     "can change")};
        Lines notRead = {refused[0], kUtilLog.Error("BitmapMemInitByFile",
                                                    "Can't open bitmap file (" + path_ + ")\n")};
        Lines notWritten = {
            refused[0],
            kUtilLog.Error("BitmapFileWrite", "Can't open bitmap file (" + path_ + ") \n")};
        EXPECT_EQ(BitmapMemInitByFile(path_.c_str(), &bitmap), row.followed ? 0 : -1);
        EXPECT_TRUE(log.Shows(row.followed ? Lines() : notRead));
        EXPECT_EQ(Text(bytes), row.followed ? "y" : "x");
        bytes[0] = 'z';
        EXPECT_EQ(BitmapFileWrite(&bitmap, path_.c_str()), row.followed ? 0 : -1);
        EXPECT_TRUE(log.Shows(row.followed ? Lines() : notWritten));
        EXPECT_EQ(ReadFile(target_), row.followed ? "z" : "y");
    }
}

TEST_F(ForeignPlaceTest, ALongPathIsOpenedToItsEnd) {
    std::string directory = dir_ / std::string(255, 'd') + "/" + std::string(255, 'd');

    std::filesystem::create_directories(directory);
    ScopedFd fd(OpenInForeignPlace((directory + "/a").c_str(), O_RDWR | O_CREAT, 0600));
    EXPECT_TRUE(fd.valid());
    EXPECT_TRUE(Exists(directory + "/a"));
}

TEST_F(ForeignPlaceTest, ALinkToNothingMakesTheFileWhereItMayBeFollowed) {
    for (const Row& row : kRows) {
        Make(row.linkOwner, row.directoryOwner, row.mode);
        LogCapture log;
        unlink(target_.c_str());
        ScopedFd fd(OpenInForeignPlace(path_.c_str(), O_RDWR | O_CREAT, 0644));
        EXPECT_EQ(fd.valid(), row.followed) << row.why;
        EXPECT_EQ(Exists(target_), row.followed) << row.why;
        log.Clear();
    }
}

TEST_F(ForeignPlaceTest, ALinkThatLeadsNowhereIsLeftToTheCaller) {
    LogCapture log;

    ASSERT_EQ(symlink("loop", (directory_ + "/loop").c_str()), 0);
    EXPECT_EQ(OpenInForeignPlace((directory_ + "/loop").c_str(), O_RDONLY, 0), -1);
    EXPECT_EQ(OpenInForeignPlace((directory_ + "/loop/file").c_str(), O_RDONLY, 0), -1);
    EXPECT_TRUE(log.Shows({})) << "the caller reports what is no matter of trust";
}

TEST_F(ForeignPlaceTest, APipeIsNotWaitedForBehindALinkEither) {
    ASSERT_EQ(mkfifo(target_.c_str(), 0600), 0);
    EXPECT_TRUE(ScopedFd(OpenInForeignPlace(path_.c_str(), O_RDONLY, 0)).valid());
}

}  // namespace
