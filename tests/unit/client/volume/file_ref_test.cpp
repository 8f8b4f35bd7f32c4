// SPDX-License-Identifier: MIT
// Files of several volumes, sorted by volume.
#include "client/volume/file_ref.h"

#include <gtest/gtest.h>

namespace client {

namespace {

TEST(FileRef, VolumesStandInTheOrderOfTheirFirstFile) {
    const Volume a = {"/mnt/a", ""};
    const Volume b = {"/mnt/b", ""};
    const auto file = [](const Volume& volume, uint32_t inode) {
        return FileRef{&volume, "", "", inode, 0, {{0, 8, inode * uint64_t{100}, 0}}};
    };
    const std::vector<FileRef> files = {file(b, 1), file(a, 2), file(b, 3)};
    const std::vector<VolumeFiles> groups = GroupByVolume(files);
    ASSERT_EQ(groups.size(), 2U);
    EXPECT_EQ(groups[0].volume, &b);
    ASSERT_EQ(groups[0].files.size(), 2U);
    EXPECT_EQ(groups[0].files[0].inode, 1U);
    EXPECT_EQ(groups[0].files[1].inode, 3U);
    EXPECT_EQ(groups[1].volume, &a);
    EXPECT_EQ(groups[1].files.size(), 1U);
    const std::vector<FileMappingEntry> extents = ExtentsOf(groups[0].files);
    ASSERT_EQ(extents.size(), 2U);
    EXPECT_EQ(extents[1].deviceStartSector, 300U);
    EXPECT_TRUE(GroupByVolume({}).empty());
}

}  // namespace

}  // namespace client
