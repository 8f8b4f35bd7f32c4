// SPDX-License-Identifier: MIT
// Links with plain names: made for the file that was meant, in a directory that can be trusted.
#include "client/volume/plain_links.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "tests/unit/client/client_test.h"

namespace client {

namespace {

class PlainLinksTest : public ClientTest {
  protected:
    void SetUp() override {
        ClientTest::SetUp();
        if (geteuid() != 0) {
            GTEST_SKIP() << "needs root: the directory must be root's";
        }
        volumes_ = Volumes();
        directory_ = mount_ + "/.quorcachepin";
    }
    FileRef File(const std::string& relative) {
        FileRef file;
        file.volume = FindMounted(mount_, volumes_);
        file.path = Make(relative);
        file.relative = relative;
        file.inode = InodeOf(file.path);
        return file;
    }
    std::string LinkOf(const FileRef& file) const { return mount_ + "/" + LinkName(file.inode); }
    static nlink_t Names(const std::string& path) {
        struct stat status = {};
        EXPECT_EQ(stat(path.c_str(), &status), 0) << path;
        return status.st_nlink;
    }

    std::vector<Volume> volumes_;
    std::string directory_;
    std::string why_;
};

TEST(PlainLinks, NamesOfLinks) {
    EXPECT_EQ(LinkName(4294967295U), ".quorcachepin/4294967295");
    EXPECT_TRUE(IsLinkName(".quorcachepin/12"));
    for (const char* const name : {".quorcachepin/", ".quorcachepin/012", ".quorcachepin/12x",
                                   ".quorcachepin/a", "a/.quorcachepin/12", ".quorcachepin",
                                   ".quorcachepin/4294967296", ".quorcachepin/-1", ""}) {
        EXPECT_FALSE(IsLinkName(name)) << name;
    }
}

TEST_F(PlainLinksTest, IsMadeOnceAndTakenAway) {
    const FileRef file = File("my file");
    EXPECT_FALSE(HasLink(mount_, file.inode));
    ASSERT_TRUE(MakeLink(file, why_)) << why_;
    ASSERT_TRUE(MakeLink(file, why_)) << "it is there already: " << why_;
    EXPECT_TRUE(HasLink(mount_, file.inode));
    EXPECT_EQ(LinkedInodes(mount_), std::vector<uint32_t>{file.inode});
    EXPECT_EQ(InodeOf(LinkOf(file)), file.inode);
    EXPECT_EQ(Names(file.path), 2U);
    struct stat status = {};
    ASSERT_EQ(stat(directory_.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777U, 0700U);
    EXPECT_TRUE(RemoveLink(mount_, file.inode));
    EXPECT_EQ(Names(file.path), 1U);
    EXPECT_FALSE(std::filesystem::exists(directory_)) << "it was empty";
    EXPECT_FALSE(RemoveLink(mount_, file.inode)) << "nothing is known without it";
}

TEST_F(PlainLinksTest, LastNamesAloneAreTakenAway) {
    const FileRef kept = File("a b");
    const FileRef gone = File("c d");
    ASSERT_TRUE(MakeLink(kept, why_) && MakeLink(gone, why_)) << why_;
    WriteFile(directory_ + "/other", "x");
    WriteFile(directory_ + "/7", "another's number");
    unlink(gone.path.c_str());
    EXPECT_FALSE(RemoveLink(mount_, gone.inode)) << "its data would go";
    EXPECT_EQ(RemoveLastNames(mount_), std::vector<std::string>{LinkName(gone.inode)});
    EXPECT_EQ(LinkedInodes(mount_), std::vector<uint32_t>{kept.inode})
        << "a file under another's number is no link";
    EXPECT_TRUE(std::filesystem::exists(directory_ + "/other"));
    EXPECT_TRUE(std::filesystem::exists(directory_ + "/7"));
}

TEST_F(PlainLinksTest, ADirectoryThatIsNotRootsAloneIsRefused) {
    const FileRef file = File("my file");
    const auto refuses = [&](const std::string& reason) {
        EXPECT_FALSE(MakeLink(file, why_)) << reason;
        EXPECT_EQ(why_, directory_ + ": " + reason);
        EXPECT_FALSE(HasLink(mount_, file.inode));
        EXPECT_TRUE(RemoveLastNames(mount_).empty());
        EXPECT_EQ(Names(file.path), 1U);
    };
    std::filesystem::create_directory(mount_ + "/elsewhere");
    std::filesystem::create_directory_symlink(mount_ + "/elsewhere", directory_);
    refuses("Not a directory");
    unlink(directory_.c_str());
    WriteFile(directory_, "x");
    refuses("Not a directory");
    unlink(directory_.c_str());
    mkdir(directory_.c_str(), 0700);
    ASSERT_EQ(chown(directory_.c_str(), 1000, 0), 0);
    refuses("is not root's alone");
    ASSERT_EQ(chown(directory_.c_str(), 0, 0), 0);
    for (const mode_t mode : {0710U, 0701U, 0755U, 01777U}) {
        chmod(directory_.c_str(), mode);
        refuses("is not root's alone");
    }
}

TEST_F(PlainLinksTest, AFileThatWasReplacedSinceIsNotLinked) {
    FileRef file = File("my file");
    file.inode += 1;
    EXPECT_FALSE(MakeLink(file, why_));
    EXPECT_EQ(why_, "was moved or replaced since it was examined");
    const FileRef other = File("other file");
    unlink(other.path.c_str());
    std::filesystem::create_symlink("/etc/passwd", other.path);
    EXPECT_FALSE(MakeLink(other, why_));
    EXPECT_EQ(why_, "was moved or replaced since it was examined");
    const FileRef taken = File("third file");
    WriteFile(mount_ + "/" + LinkName(taken.inode), "another file under its number");
    EXPECT_FALSE(MakeLink(taken, why_));
    EXPECT_EQ(why_, mount_ + "/" + LinkName(taken.inode) + ": File exists");
}

}  // namespace

}  // namespace client
