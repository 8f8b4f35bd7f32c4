// SPDX-License-Identifier: MIT
#include "softcache/pin_store.h"

#include "tests/unit/softcache/test_files.h"

namespace softcache {
namespace {

TEST(PinStore, GivesBackWhatWasStored) {
    const TempDir dir;
    const std::string path = PinStorePath(dir / "ssd");
    EXPECT_EQ(path, dir / "ssd.pins");
    for (const size_t size : {size_t{100}, size_t{3}, size_t{0}, size_t{70000}}) {
        const Bytes bitmap = RandomBytes(size, 1);
        ASSERT_EQ(StorePins(path, bitmap), 0);
        EXPECT_EQ(FileBytes(path), bitmap) << "the raw bytes and nothing else";
        Bytes loaded = {1, 2, 3};
        std::string reason;
        EXPECT_EQ(LoadPins(path, size, loaded, reason), PinLoad::kLoaded);
        EXPECT_EQ(loaded, bitmap);
        EXPECT_FALSE(std::filesystem::exists(path + ".new"));
    }
}

TEST(PinStore, AShorterBitmapFitsADeviceThatGrew) {
    const TempDir dir;
    ASSERT_EQ(StorePins(dir / "p", {1, 2}), 0);
    Bytes loaded;
    std::string reason;
    EXPECT_EQ(LoadPins(dir / "p", 3, loaded, reason), PinLoad::kLoaded);
    EXPECT_EQ(loaded, (Bytes{1, 2}));
}

TEST(PinStore, WhatDoesNotFitIsLeftAlone) {
    const TempDir dir;
    Bytes loaded = {9};
    std::string reason = "none";
    EXPECT_EQ(LoadPins(dir / "absent", 10, loaded, reason), PinLoad::kAbsent);
    EXPECT_EQ(reason, "none");

    ASSERT_EQ(StorePins(dir / "p", Bytes(11, 1)), 0);
    EXPECT_EQ(LoadPins(dir / "p", 10, loaded, reason), PinLoad::kUnusable);
    EXPECT_EQ(reason, "11 bytes, this device takes 10");
    EXPECT_EQ(FileBytes(dir / "p"), Bytes(11, 1));

    EXPECT_EQ(LoadPins(dir.Path(), 1 << 20, loaded, reason), PinLoad::kUnusable);
    EXPECT_EQ(reason, "not a regular file");
    ASSERT_EQ(mkfifo((dir / "fifo").c_str(), 0600), 0);
    EXPECT_EQ(LoadPins(dir / "fifo", 10, loaded, reason), PinLoad::kUnusable) << "and no waiting";
    ASSERT_EQ(symlink("loop", (dir / "loop").c_str()), 0);
    EXPECT_EQ(LoadPins(dir / "loop", 10, loaded, reason), PinLoad::kUnusable);
    EXPECT_EQ(reason, "Too many levels of symbolic links");
    EXPECT_EQ(loaded, Bytes{9});
}

TEST(PinStore, AFailureLeavesTheOldOne) {
    const TempDir dir;
    ASSERT_EQ(StorePins(dir / "p", Bytes(5, 7)), 0);
    {
        const FileSizeLimit limit(100);
        EXPECT_EQ(StorePins(dir / "p", Bytes(200, 8)), -EFBIG);
    }
    EXPECT_EQ(FileBytes(dir / "p"), Bytes(5, 7));
    EXPECT_FALSE(std::filesystem::exists(dir / "p.new"));
    EXPECT_EQ(StorePins(dir / "no/such/p", Bytes(1, 1)), -ENOENT);
}

}  // namespace
}  // namespace softcache
