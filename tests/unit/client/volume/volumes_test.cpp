// SPDX-License-Identifier: MIT
// Which volume a path belongs to, and what is said when it belongs to none.
#include "client/volume/volumes.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>

#include "tests/unit/client/client_test.h"
#include "tests/unit/support/fake_platform.h"

namespace client {

namespace {

class VolumesTest : public ClientTest {
  protected:
    // The mount path that VOLUME means, or the reason why it means none in brackets.
    static std::string Resolved(const std::string& given, const std::vector<Volume>& volumes) {
        std::string why;
        const Volume* const volume = ResolveVolume(given, volumes, why);
        EXPECT_EQ(volume == nullptr, !why.empty()) << given;
        return volume == nullptr ? "(" + why + ")" : volume->mountPath;
    }
};

TEST_F(VolumesTest, TheVolumesAreThePlatformsInItsOrder) {
    g_platform.spaces = {{"/mnt/b", "uuid-b"}, {"/mnt/a", "", false}, {"/mnt/b", "uuid-b"}};
    const std::vector<Volume> volumes = Volumes();
    ASSERT_EQ(volumes.size(), 3U);
    EXPECT_EQ(volumes[0].mountPath, "/mnt/b");
    EXPECT_EQ(volumes[0].uuid, "uuid-b");
    EXPECT_EQ(volumes[1].mountPath, "/mnt/a");
    EXPECT_EQ(volumes[1].uuid, "");
    EXPECT_EQ(g_platform.calls[0], "QUORSpaceInfoEnum(1)");
}

TEST_F(VolumesTest, NoVolumesAreNoFailureAndAFailureIsOne) {
    std::vector<Volume> volumes;
    g_platform.spaces.clear();
    EXPECT_TRUE(ListVolumes(volumes));
    g_platform.enumResult = -1;
    EXPECT_FALSE(ListVolumes(volumes));
    EXPECT_TRUE(volumes.empty());
}

TEST_F(VolumesTest, APathIsBelowAMountPathByWholeNames) {
    const struct {
        const char* mountPath;
        const char* path;
        const char* below;
    } rows[] = {
        {"/mnt/a", "/mnt/a/b/c", "b/c"},
        {"/mnt/a", "/mnt/a", ""},
        {"/mnt/a", "/mnt/ab", ""},
        {"/mnt/a", "/mnt", ""},
        {"/mnt/a", "", ""},
        {"/", "/etc", "etc"},
        {"/", "/", ""},
        {"/mnt/a", "mnt/a/b", ""},
        {"", "/b", "b"},
        {"/mnt/a", "/mnt/a/", ""},
        {"/mnt/a", "/mnt/a/ ", " "},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(PathBelow(row.mountPath, row.path), row.below)
            << row.mountPath << ' ' << row.path;
    }
    EXPECT_EQ(PathOnVolume("/mnt/a", "b/c"), "/mnt/a/b/c");
}

TEST_F(VolumesTest, TheLongestMountPathHoldsAPath) {
    const std::vector<Volume> volumes = {{"/m", "1"}, {"/m/in", "2"}, {"/", "3"}, {"/m/in", "4"}};
    const std::pair<const char*, const char*> rows[] = {
        {"/m/a", "1"},     {"/m", "1"},     {"/m/in", "2"}, {"/m/in/a", "2"},
        {"/m/inner", "1"}, {"/other", "3"}, {"/", "3"},
    };
    for (const auto& [path, uuid] : rows) {
        const Volume* const volume = FindVolumeOf(path, volumes);
        ASSERT_NE(volume, nullptr) << path;
        EXPECT_EQ(volume->uuid, uuid) << path;
    }
    EXPECT_EQ(FindVolumeOf("/a", {{"/m", ""}}), nullptr);
    EXPECT_EQ(FindVolumeOf("/a", {}), nullptr);
}

TEST_F(VolumesTest, AVolumeIsNamedByItsMountPathOrByAnythingInIt) {
    const std::vector<Volume> volumes = Volumes();
    Make("dir/file");
    ASSERT_EQ(symlink(mount_.c_str(), (dir_ / "link").c_str()), 0);
    for (const std::string& given :
         {mount_, mount_ + "/", mount_ + "///", mount_ + "/dir", mount_ + "/dir/file",
          mount_ + "/dir/../dir/", dir_ / "link", dir_ / "link/dir/file"}) {
        EXPECT_EQ(Resolved(given, volumes), mount_) << given;
    }
    // Known by its text alone: the service compares no more.
    EXPECT_EQ(Resolved("/not/there//", {{"/not/there", ""}}), "/not/there");
    EXPECT_EQ(Resolved("//", {{"/", ""}}), "/");
}

TEST_F(VolumesTest, WhatIsOnNoVolumeIsRefusedWithTheReason) {
    const std::vector<Volume> volumes = Volumes();
    std::filesystem::create_directory(dir_ / "beside");
    EXPECT_EQ(Resolved("", volumes), "(an empty path names no volume)");
    EXPECT_EQ(Resolved(mount_ + "/nothing", volumes), "(No such file or directory)");
    EXPECT_EQ(Resolved(dir_ / "beside", volumes), "(no volume that the service knows holds it)");
    // Below the mount path by its text, on another file system all the same.
    EXPECT_EQ(Resolved("/proc/version", {{"/", ""}}),
              "(no volume that the service knows holds it)");
}

TEST_F(VolumesTest, PinsAreKeptByACacheThatIsEstablishedAndSupportsThem) {
    const Volume volume = {mount_, "uuid-1"};
    EXPECT_TRUE(VolumeKeepsPins(volume));
    EXPECT_FALSE(VolumeKeepsPins({mount_, ""}));
    EXPECT_FALSE(VolumeKeepsPins({mount_, "uuid-2"}));
    g_platform.stats["/dev/ssd1"].supportPin = 0;
    EXPECT_FALSE(VolumeKeepsPins(volume));
    g_platform.stats.clear();
    EXPECT_FALSE(VolumeKeepsPins(volume));
}

}  // namespace

}  // namespace client
