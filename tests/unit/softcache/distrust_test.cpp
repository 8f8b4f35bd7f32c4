// SPDX-License-Identifier: MIT
#include "softcache/store/distrust.h"

#include "tests/unit/softcache/test_files.h"

namespace softcache {

static SsdHead Head(uint8_t id, uint32_t seed) {
    SsdHead head;
    head.id.fill(id);
    head.tableSeed = seed;
    return head;
}

TEST(Distrust, IsOfOneTableOfOneSsd) {
    const TempDir dir;
    const Distrust distrust(dir / "notes");
    EXPECT_FALSE(distrust.Has(Head(1, 7)));
    ASSERT_EQ(distrust.Note(Head(1, 7)), 0);
    EXPECT_TRUE(distrust.Has(Head(1, 7)));
    EXPECT_FALSE(distrust.Has(Head(1, 8)));
    EXPECT_FALSE(distrust.Has(Head(2, 7)));
    EXPECT_TRUE(std::filesystem::exists(dir / "notes/01010101010101010101010101010101-00000007"));
    ASSERT_EQ(distrust.Note(Head(1, 7)), 0) << "once more";
    distrust.Forget(Head(1, 8));
    EXPECT_TRUE(distrust.Has(Head(1, 7)));
    distrust.Forget(Head(1, 7));
    EXPECT_FALSE(distrust.Has(Head(1, 7)));
}

TEST(Distrust, WhatCannotBeNotedIsSaidSo) {
    const TempDir dir;
    EXPECT_EQ(Distrust(dir / "no/notes").Note(Head(1, 7)), -ENOENT);
    NewFile(dir / "file", {});
    EXPECT_EQ(Distrust(dir / "file").Note(Head(1, 7)), -ENOTDIR);
    EXPECT_FALSE(Distrust(dir / "file").Has(Head(1, 7)));
}

TEST(Distrust, WhatCannotBeFoundOutCountsAsNoted) {
    const TempDir dir;
    ASSERT_EQ(symlink("loop", (dir / "loop").c_str()), 0);
    EXPECT_TRUE(Distrust(dir / "loop").Has(Head(1, 7)));
}

}  // namespace softcache
