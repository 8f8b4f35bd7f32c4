// SPDX-License-Identifier: MIT
// Every refusal: what the service could not store, or what would end its intake.
#include "client/request/file_check.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "client/volume/plain_links.h"
#include "tests/unit/client/client_test.h"
#include "tests/unit/support/fake_platform.h"

namespace client {

namespace {

struct NameRow {
    const char* what;
    std::string mountPath;
    std::string relative;
    const char* reason;  // a part of it; null = storable
};

std::string Deep(size_t directory, size_t name) {
    return std::string(directory, 'd') + "/" + std::string(name, 'n');
}

TEST(FileCheck, NamesThatTheServiceCannotStore) {
    const NameRow rows[] = {
        {"plain", "/mnt/pool1", "photos/a.jpg", nullptr},
        {"UTF-8", "/mnt/pool1", "b\xc3\xa4r", nullptr},
        {"a per cent sign", "/mnt/%n", "%s%n", nullptr},
        {"a blank in the mount path, which is not scanned", "/mnt/my pool", "a", nullptr},
        {"# in the mount path, which is not stored with the file", "/mnt/#1", "a", nullptr},
        {"blank", "/mnt/pool1", "my file", "white space"},
        {"tab", "/mnt/pool1", "a\tb", "white space"},
        {"newline", "/mnt/pool1", "a\nb", "white space"},
        {"vertical tab", "/mnt/pool1", "a\vb", "white space"},
        {"form feed", "/mnt/pool1", "a\fb", "white space"},
        {"carriage return", "/mnt/pool1", "ab\r", "white space"},
        {"a blank in a directory", "/mnt/pool1", "my files/a", "white space"},
        {"semicolon", "/mnt/pool1", "a;b", "\";\""},
        {"hash", "/mnt/pool1", "a#1", "\"#\""},
        {"no UTF-8", "/mnt/pool1", "b\xe4r", nullptr},
        {"semicolon in the mount path", "/mnt/a;b", "a", "\";\""},
        {"mount path not UTF-8", "/mnt/b\xe4r", "a", nullptr},
        {"empty mount path", "", "a", "empty"},
        {"longest mount path", "/" + std::string(507, 'm'), "a", nullptr},
        {"mount path too long", "/" + std::string(508, 'm'), "a", "508"},
        {"longest relative path", "/m", std::string(255, 'a') + "/" + std::string(255, 'b'),
         nullptr},
        {"relative path too long", "/m", std::string(255, 'a') + "/" + std::string(256, 'b'),
         "511"},
        {"longest directory", "/m", Deep(506, 1), nullptr},
        {"directory too long", "/m", Deep(507, 1), "directory"},
    };
    for (const NameRow& row : rows) {
        const std::string reason = WhyNotStorable(row.mountPath, row.relative);
        if (row.reason == nullptr) {
            EXPECT_EQ(reason, "") << row.what;
        } else {
            EXPECT_NE(reason.find(row.reason), std::string::npos) << row.what << ": " << reason;
        }
    }
}

class FileCheckTest : public ClientTest {
  protected:
    std::string WhyRefused(const std::string& path) {
        const std::vector<Volume> volumes = Volumes();
        FileRef file = {};
        std::string why;
        return ExamineFile(path, volumes, file, why) ? "" : why;
    }
    void ExpectRefused(const std::string& path, const std::string& part) {
        const std::string why = WhyRefused(path);
        EXPECT_NE(why.find(part), std::string::npos) << path << ": " << why;
    }
};

TEST_F(FileCheckTest, AFileIsResolvedToItsVolumeAndInode) {
    const std::string path = Make("photos/a.jpg", "12345");
    const std::vector<Volume> volumes = Volumes();
    const FileRef file = Examine(mount_ + "/photos/../photos/./a.jpg", volumes);
    EXPECT_EQ(file.volume, &volumes[0]);
    EXPECT_EQ(file.path, path);
    EXPECT_EQ(file.relative, "photos/a.jpg");
    EXPECT_EQ(file.inode, InodeOf(path));
    EXPECT_EQ(file.size, 5U);
}

TEST_F(FileCheckTest, LinksOnTheWayAreFollowedAndALinkItselfIsRefused) {
    const std::string path = Make("real/a");
    std::filesystem::create_directory_symlink("real", mount_ + "/link");
    std::filesystem::create_symlink("real/a", mount_ + "/name");
    EXPECT_EQ(Examine(mount_ + "/link/a", Volumes()).path, path);
    ExpectRefused(mount_ + "/name", "a symbolic link to real/a");
}

TEST_F(FileCheckTest, OnlyRegularFilesOfAVolume) {
    Make("file");
    std::filesystem::create_directory(mount_ + "/directory");
    ASSERT_EQ(mkfifo((mount_ + "/fifo").c_str(), 0600), 0);
    WriteFile(dir_ / "outside", "x");
    ExpectRefused(mount_ + "/nothing", "No such file");
    ExpectRefused(mount_ + "/file/below", "Not a directory");
    ExpectRefused(mount_ + "/directory", "is a directory");
    ExpectRefused(mount_ + "/fifo", "not a regular file");
    ExpectRefused(dir_ / "outside", "no volume");
    ExpectRefused("", "No such file");
    ExpectRefused(Make("a b"), "white space");
}

TEST_F(FileCheckTest, AFileOfAnotherFileSystemMountedInTheVolumeIsRefused) {
    // The machine's own /proc lies below a volume at /.
    g_platform.spaces.clear();
    g_platform.AddVolume("/", "uuid-root", "/dev/ssd2", "/dev/cache2");
    ExpectRefused("/proc/version", "another file system");
}

TEST_F(FileCheckTest, TheLongestMountPathWins) {
    std::filesystem::create_directories(mount_ + "/inner");
    g_platform.AddVolume(mount_ + "/inner", "uuid-2", "/dev/ssd2", "/dev/cache2");
    g_platform.AddVolume(mount_ + "/inn", "uuid-3", "/dev/ssd3", "/dev/cache3");
    Make("inner/a");
    EXPECT_EQ(Examine(mount_ + "/inner/a", Volumes()).relative, "a");
}

TEST_F(FileCheckTest, AVolumeMayBeGivenAsAnyPathInIt) {
    Make("photos/a");
    const std::vector<Volume> volumes = Volumes();
    for (const std::string& given : {mount_, mount_ + "/", mount_ + "///", mount_ + "/photos",
                                     mount_ + "/photos/a", mount_ + "/photos/.."}) {
        std::string why;
        EXPECT_EQ(ResolveVolume(given, volumes, why), &volumes[0]) << given << ": " << why;
    }
    for (const std::string& given :
         {std::string(), mount_ + "x", mount_ + "/nothing", dir_.path(), std::string("/proc")}) {
        std::string why;
        EXPECT_EQ(ResolveVolume(given, volumes, why), nullptr) << given;
        EXPECT_NE(why, "") << given;
    }
}

TEST_F(FileCheckTest, AVolumeThatIsNotReachableCanStillBeNamedByItsMountPath) {
    g_platform.AddVolume("/nowhere/pool9", "uuid-9", "/dev/ssd9", "/dev/cache9");
    const std::vector<Volume> volumes = Volumes();
    std::string why;
    ASSERT_NE(ResolveVolume("/nowhere/pool9/", volumes, why), nullptr);
    EXPECT_EQ(ResolveVolume("/nowhere/pool9/", volumes, why)->mountPath, "/nowhere/pool9");
}

class FollowersTest : public ClientTest {
  protected:
    Followers Find(const std::vector<std::pair<Fate, std::string>>& listed) {
        DeviceState device;
        volumes_ = Volumes();
        for (const auto& [fate, relative] : listed) {
            PinnedFile pinned;
            pinned.entry = {relative, 5};
            pinned.mountPath = mount_;
            pinned.fate = fate;
            device.listed.push_back(pinned);
        }
        return FindFollowers({device}, volumes_);
    }
    std::vector<Volume> volumes_;
};

TEST_F(FollowersTest, OnlyReplacedFilesHaveOne) {
    const std::string path = Make("d/a");
    Place(path, {{1280, 8}});
    Make("b");
    const Followers found = Find({{Fate::kReplaced, "d/a"},
                                  {Fate::kThere, "b"},
                                  {Fate::kGone, "c"},
                                  {Fate::kUnknown, "b"},
                                  {Fate::kRenamed, "b"}});
    ASSERT_EQ(found.size(), 1U);
    const Follower& follower = found.at(path);
    EXPECT_EQ(follower.why, "");
    EXPECT_EQ(follower.file.inode, InodeOf(path));
    EXPECT_EQ(follower.file.relative, "d/a");
    EXPECT_EQ(follower.file.extents.size(), 1U);
}

TEST_F(FollowersTest, WhatCannotBePinnedSaysWhy) {
    std::filesystem::create_directory(mount_ + "/directory");
    std::filesystem::create_symlink("nowhere", mount_ + "/link");
    Make("my file");
    Make("empty", "");
    for (const char* const name : {"directory", "link", "my file", "empty", "vanished"}) {
        const Followers found = Find({{Fate::kReplaced, name}});
        ASSERT_EQ(found.size(), 1U) << name;
        EXPECT_NE(found.begin()->second.why, "") << name;
    }
}

TEST_F(FileCheckTest, AFileWithALinkIsNamedByIt) {
    const std::string path = Make("my file");
    const std::vector<Volume> volumes = Volumes();
    FileRef file;
    std::string why;
    EXPECT_FALSE(ExamineFile(path, volumes, file, why));
    EXPECT_TRUE(CanBeLinked(file));
    EXPECT_FALSE(CanBeLinked(FileRef()));
    EXPECT_FALSE(CanBeLinked(Examine(Make("plain"), volumes))) << "it needs none";
    ASSERT_TRUE(MakeLink(file, why)) << why;
    file = Examine(path, volumes);
    EXPECT_EQ(file.path, path);
    EXPECT_EQ(file.relative, LinkName(InodeOf(path)));
}

}  // namespace

}  // namespace client
