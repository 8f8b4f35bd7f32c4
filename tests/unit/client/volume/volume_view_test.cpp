// SPDX-License-Identifier: MIT
// A volume as disk, driver and cache show it, and the mount paths that are one device.
#include "client/volume/volume_view.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>

#include "tests/unit/client/client_test.h"
#include "tests/unit/support/fake_ioctl.h"
#include "tests/unit/support/fake_platform.h"

namespace client {

namespace {

class VolumeViewTest : public ClientTest {
  protected:
    static constexpr size_t kBitmapBytes = kDeviceSize >> 19;

    VolumeView View() { return LookAt({mount_, "uuid-1"}); }
    std::string Bitmap() const { return mount_ + "/quorcachepinfile.bitmap"; }

    static std::vector<std::string> Paths(const std::vector<const Volume*>& volumes) {
        std::vector<std::string> paths;
        for (const Volume* const volume : volumes) {
            paths.push_back(volume->mountPath);
        }
        return paths;
    }
};

TEST_F(VolumeViewTest, AVolumeWithACacheShowsDeviceAndBits) {
    WriteBitmap({0, 9, 1023});
    const VolumeView view = View();
    EXPECT_EQ(view.mountPath, mount_);
    EXPECT_EQ(view.cachePath, device_);
    EXPECT_EQ(view.deviceSize, kDeviceSize);
    EXPECT_EQ(view.bitmapPath, Bitmap());
    EXPECT_TRUE(view.hasBitmap);
    EXPECT_EQ(view.fileBytes, kBitmapBytes);
    EXPECT_EQ(view.bits.Count(), 3U);
    EXPECT_TRUE(view.bits.Has(1023));
    EXPECT_FALSE(view.residency.known);
}

TEST_F(VolumeViewTest, BitsHaveTheRoomOfTheDeviceWhateverTheFileHas) {
    for (const size_t bytes : {size_t{0}, size_t{1}, kBitmapBytes, kBitmapBytes + 1}) {
        WriteFile(Bitmap(), std::string(bytes, '\xff'));
        const VolumeView view = View();
        EXPECT_TRUE(view.hasBitmap) << bytes;
        EXPECT_EQ(view.fileBytes, bytes);
        EXPECT_EQ(view.bits.Room(), kBitmapBytes * 8) << bytes;
        EXPECT_EQ(view.bits.Count(), std::min(bytes, kBitmapBytes) * 8);
    }
}

TEST_F(VolumeViewTest, NoBitmapFileIsNotAnEmptyOne) {
    EXPECT_FALSE(View().hasBitmap);
    EXPECT_EQ(View().bits.Room(), kBitmapBytes * 8);
    std::filesystem::create_directory(Bitmap());
    EXPECT_FALSE(View().hasBitmap);
}

TEST_F(VolumeViewTest, ADeviceWhoseSizeCannotBeReadLeavesTheFilesRoom) {
    WriteBitmap({5});
    g_platform.cachePaths["/dev/ssd1"].path = dir_ / "nothing";
    const VolumeView view = View();
    EXPECT_EQ(view.cachePath, dir_ / "nothing");
    EXPECT_EQ(view.deviceSize, 0U);
    EXPECT_EQ(view.bits.Room(), kBitmapBytes * 8);
    EXPECT_TRUE(view.bits.Has(5));
}

TEST_F(VolumeViewTest, AVolumeWithoutACacheStillHasItsBitmapFile) {
    WriteBitmap({5});
    g_platform.configs.clear();
    EXPECT_EQ(View().cachePath, "");
    EXPECT_EQ(View().deviceSize, 0U);
    EXPECT_TRUE(View().hasBitmap);
    EXPECT_EQ(LookAt({mount_, ""}).cachePath, "");
}

TEST_F(VolumeViewTest, OneFileIsOneUnderEveryName) {
    const std::string path = Make("a");
    const std::string other = Make("b");
    ASSERT_EQ(link(path.c_str(), (mount_ + "/hard").c_str()), 0);
    ASSERT_EQ(symlink("a", (mount_ + "/soft").c_str()), 0);
    EXPECT_TRUE(AreOneFile(path, path));
    EXPECT_TRUE(AreOneFile(path, mount_ + "/hard"));
    EXPECT_TRUE(AreOneFile(path, mount_ + "/soft"));
    EXPECT_FALSE(AreOneFile(path, other));
    EXPECT_FALSE(AreOneFile(path, mount_ + "/nothing"));
    EXPECT_FALSE(AreOneFile(mount_ + "/nothing", mount_ + "/nothing"));
}

TEST_F(VolumeViewTest, MountPathsOfADeviceAreKnownByUuidAndByTheirBitmapFile) {
    const std::string again = dir_ / "again";
    const std::string apart = dir_ / "apart";
    std::filesystem::create_directory(again);
    std::filesystem::create_directory(apart);
    WriteBitmap({1});
    WriteFile(apart + "/quorcachepinfile.bitmap", "");
    ASSERT_EQ(link(Bitmap().c_str(), (again + "/quorcachepinfile.bitmap").c_str()), 0);
    const std::vector<Volume> volumes = {{"/far", "uuid-1"}, {mount_, "uuid-1"}, {apart, "uuid-2"},
                                         {again, ""},        {mount_, "uuid-1"}, {"/lost", ""}};
    using Names = std::vector<std::string>;
    EXPECT_EQ(Paths(MountsOf(volumes[1], volumes)), (Names{"/far", mount_, again}));
    EXPECT_EQ(Paths(MountsOf(volumes[2], volumes)), Names{apart});
    // Without a UUID and without a bitmap file, a volume is none but itself.
    EXPECT_EQ(Paths(MountsOf(volumes[5], volumes)), Names{"/lost"});
    EXPECT_EQ(Paths(MountsOf(volumes[3], volumes)), (Names{mount_, again}));
}

}  // namespace

}  // namespace client
