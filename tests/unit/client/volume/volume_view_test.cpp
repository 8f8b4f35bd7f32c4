// SPDX-License-Identifier: MIT
// A volume as disk, driver and cache show it, and the mount paths that are one device.
#include "client/volume/volume_view.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <memory>

#include "tests/unit/client/client_test.h"
#include "tests/unit/support/fake_ioctl.h"
#include "tests/unit/support/fake_platform.h"
#include "util/scoped.h"

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

class ResidencyTest : public ClientTest {
  protected:
    void SetUp() override {
        ClientTest::SetUp();
        std::filesystem::create_directory(dir_ / "registry");
        WriteFile(dir_ / "resident", "\x03");
        WriteFile(dir_ / "pinned", "\x01");
    }

    // Writes an entry of the registry; returns its path.
    std::string Enter(const std::string& name, const std::string& content) {
        const std::string path = dir_ / ("registry/" + name);
        WriteFile(path, content);
        return path;
    }
    std::string Entry(const std::string& device) const {
        return R"({"device":")" + device + R"(","resident":")" + (dir_ / "resident") +
               R"(","pinned":")" + (dir_ / "pinned") + R"(","cacheSize":67108864})";
    }
    // Opens the lock file beside an entry.
    static int OpenLock(const std::string& path) {
        const std::filesystem::path lock = std::filesystem::path(path).replace_extension(".lock");
        return open(lock.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    }
    // Locks an entry, as the process behind it does.
    void Live(const std::string& path) {
        lock_ = std::make_unique<ScopedFd>(OpenLock(path));
        ASSERT_EQ(flock(lock_->get(), LOCK_EX), 0);
    }
    void TearDown() override {
        lock_.reset();
        ClientTest::TearDown();
    }

    std::unique_ptr<ScopedFd> lock_;
};

TEST_F(ResidencyTest, ALivingCacheIsBelieved) {
    Live(Enter("vol.json", Entry("/dev/cached")));
    const Residency residency = ReadResidency("/dev/cached");
    EXPECT_TRUE(residency.known);
    EXPECT_EQ(residency.cacheSize, 64U << 20);
    EXPECT_EQ(residency.resident.Count(), 2U);
    EXPECT_EQ(residency.pinned.Count(), 1U);
}

TEST_F(ResidencyTest, AnEntryThatNobodyHoldsIsLeftOver) {
    const std::string path = Enter("vol.json", Entry("/dev/cached"));
    EXPECT_FALSE(ReadResidency("/dev/cached").known) << "it has no lock file";
    const ScopedFd shared(OpenLock(path));
    EXPECT_FALSE(ReadResidency("/dev/cached").known) << "the lock file is left over too";
    ASSERT_EQ(flock(shared.get(), LOCK_SH), 0);
    EXPECT_FALSE(ReadResidency("/dev/cached").known) << "another reader is no cache";
}

TEST_F(ResidencyTest, OnlyTheDevicesOwnEntryCounts) {
    Enter("a.json", Entry("/dev/other"));
    Enter("b.json", "{");
    Enter("c.txt", Entry("/dev/cached"));
    std::filesystem::create_directory(dir_ / "registry/d.json");
    Live(Enter("e.json", Entry("/dev/cached")));
    EXPECT_TRUE(ReadResidency("/dev/cached").known);
    EXPECT_FALSE(ReadResidency("/dev/cach").known);
    EXPECT_FALSE(ReadResidency("").known);
}

TEST_F(ResidencyTest, ADamagedEntryIsNoCache) {
    const std::pair<const char*, std::string> rows[] = {
        {"empty", ""},
        {"cut short", Entry("/dev/cached").substr(0, 20)},
        {"a list", "[]"},
        {"null", "null"},
        {"no device", "{}"},
        {"a device of another kind", R"({"device":[]})"},
        {"nested without end", std::string(100000, '[')},
        {"no bits", R"({"device":"/dev/cached"})"},
        {"bits of another kind", R"({"device":"/dev/cached","resident":7,"pinned":null})"},
        {"bits that are not there",
         R"({"device":"/dev/cached","resident":"/nothing","pinned":"/nothing"})"},
    };
    for (const auto& [what, content] : rows) {
        Live(Enter("vol.json", content));
        EXPECT_FALSE(ReadResidency("/dev/cached").known) << what;
        lock_.reset();
    }
}

TEST_F(ResidencyTest, ASizeOfAnotherKindIsNotKnownAndNoMore) {
    std::string entry = Entry("/dev/cached");
    entry.replace(entry.find("67108864"), 8, "\"64 MiB\"");
    Live(Enter("vol.json", entry));
    const Residency residency = ReadResidency("/dev/cached");
    EXPECT_TRUE(residency.known);
    EXPECT_EQ(residency.cacheSize, 0U);
}

TEST_F(ResidencyTest, WithoutARegistryThereIsNothingToKnow) {
    std::filesystem::remove_all(dir_ / "registry");
    EXPECT_FALSE(ReadResidency("/dev/cached").known);
    WriteFile(dir_ / "registry", "a file");
    EXPECT_FALSE(ReadResidency("/dev/cached").known);
}

TEST_F(ResidencyTest, APipeInTheRegistryHoldsNobodyUp) {
    ASSERT_EQ(mkfifo((dir_ / "registry/a.json").c_str(), 0600), 0);
    Live(Enter("b.json", Entry("/dev/cached")));
    EXPECT_TRUE(ReadResidency("/dev/cached").known);
}

TEST_F(ResidencyTest, TheNumbersOfALivingCacheAreRead) {
    using Numbers = std::map<std::string, uint64_t>;
    const std::string stats = dir_ / "stats.json";
    const std::string entry = R"({"device":"/dev/cached","stats":")" + stats + R"("})";
    const std::pair<const char*, Numbers> rows[] = {
        {R"({"hits":7,"misses":18446744073709551615,"lastBitmap":null,"requests":[1],"x":-1})",
         {{"hits", 7}, {"misses", 18446744073709551615U}}},
        {"{}", {}},
        {"[1]", {}},
        {"{", {}},
    };
    for (const auto& [text, expected] : rows) {
        WriteFile(stats, text);
        Live(Enter("vol.json", entry));
        EXPECT_EQ(ReadCacheStats("/dev/cached"), expected) << text;
        EXPECT_EQ(ReadCacheStats("/dev/other"), Numbers()) << text;
        lock_.reset();
    }
    EXPECT_EQ(ReadCacheStats("/dev/cached"), Numbers()) << "a dead one's are left over";
    for (const char* const odd : {R"({"device":"/dev/cached","stats":7})",
                                  R"({"device":"/dev/cached","stats":"/nothing"})"}) {
        Live(Enter("vol.json", odd));
        EXPECT_EQ(ReadCacheStats("/dev/cached"), Numbers()) << odd;
        lock_.reset();
    }
    EXPECT_EQ(ReadCacheStats(""), Numbers());
}

VolumeView View(bool cacheTells) {
    VolumeView view;
    view.bits = UnitSet(std::vector<uint8_t>{0x0f, 0});
    view.residency.known = cacheTells;
    view.residency.pinned = UnitSet(std::vector<uint8_t>{0x07, 0});
    view.residency.resident = UnitSet(std::vector<uint8_t>{0xf1, 0xff});
    return view;
}

TEST(UnitCounts, EachStationIsCountedForTheUnitsAskedAbout) {
    UnitSet units(2);
    units.Put({{2, 4}});
    const UnitCounts counts = CountUnits(View(true), units);
    EXPECT_EQ(counts.units, 3U);
    EXPECT_EQ(counts.set, 2U);
    EXPECT_EQ(counts.withDriver, 1U);
    EXPECT_EQ(counts.resident, 1U);
    Record record;
    AddCounts(counts, record);
    EXPECT_EQ(record.ToJson()["units"].asInt(), 3);
    EXPECT_EQ(record.ToJson()["unitsSet"].asInt(), 2);
    EXPECT_EQ(record.ToJson()["unitsWithDriver"].asInt(), 1);
    EXPECT_EQ(record.ToJson()["unitsResident"].asInt(), 1);
}

TEST(UnitCounts, OfAMuteCacheNothingIsKnown) {
    UnitSet units(2);
    units.Put({{0, 0}});
    const UnitCounts counts = CountUnits(View(false), units);
    EXPECT_EQ(counts.set, 1U);
    Record record;
    AddCounts(counts, record);
    EXPECT_TRUE(record.ToJson()["unitsWithDriver"].isNull());
    EXPECT_TRUE(record.ToJson()["unitsResident"].isNull());
    testing::internal::CaptureStdout();
    record.Print();
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "units  1, set 1\n");
}

}  // namespace

}  // namespace client
