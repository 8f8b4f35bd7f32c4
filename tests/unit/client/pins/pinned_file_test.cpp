// SPDX-License-Identifier: MIT
// What has become of listed files.
#include "client/pins/pinned_file.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "client/volume/plain_links.h"
#include "tests/unit/client/pins/pins_test.h"
#include "tests/unit/support/fake_platform.h"

namespace client {

namespace {

using PinnedFileTest = PinsTest;

TEST_F(PinnedFileTest, AFileAtItsPathIsThere) {
    const std::string path = Pinned("d/a", {{3 * kUnit, kUnit + 1}});
    const PinnedFile pinned = Listed("d/a");
    EXPECT_EQ(pinned.fate, Fate::kThere);
    EXPECT_EQ(pinned.why, "");
    EXPECT_EQ(pinned.mountPath, mount_);
    EXPECT_EQ(pinned.file.path, path);
    EXPECT_EQ(pinned.file.relative, "d/a");
    EXPECT_EQ(pinned.file.size, 1U);
    ASSERT_EQ(pinned.units.size(), 1U);
    EXPECT_EQ(pinned.units[0].first, 3U);
    EXPECT_EQ(pinned.units[0].last, 4U);
}

TEST_F(PinnedFileTest, AnEmptiedFileIsThereAndNeedsNothing) {
    const std::string path = Pinned("a", {});
    truncate(path.c_str(), 0);
    EXPECT_EQ(Listed("a").fate, Fate::kThere);
    EXPECT_TRUE(Listed("a").units.empty());
}

TEST_F(PinnedFileTest, WhatLiesNowhereOnTheVolumeIsGone) {
    unlink(Pinned("d/a").c_str());
    List("no/such/directory/b", 4000000000U);
    EXPECT_EQ(Listed("d/a").fate, Fate::kGone);
    EXPECT_EQ(Listed("d/a").why, "is nowhere on its volume");
    EXPECT_EQ(Listed("no/such/directory/b").fate, Fate::kGone);
    EXPECT_TRUE(Listed("d/a").units.empty());
}

TEST_F(PinnedFileTest, ARenamedFileIsFoundWhereverItLiesOnTheVolume) {
    const std::string path = Pinned("d/a", {{kUnit, kUnit}});
    std::filesystem::create_directories(mount_ + "/e/f");
    for (const char* const name : {"/d/b", "/b", "/e/f/c"}) {
        const std::string now = mount_ + name;
        rename((name == std::string("/d/b") ? path
                : name == std::string("/b") ? mount_ + "/d/b"
                                            : mount_ + "/b")
                   .c_str(),
               now.c_str());
        const PinnedFile pinned = Listed("d/a");
        EXPECT_EQ(pinned.fate, Fate::kRenamed) << name;
        EXPECT_EQ(pinned.why, "lies at " + now);
        EXPECT_EQ(pinned.file.path, now);
        EXPECT_EQ(pinned.units.size(), 1U) << "its units stay needed";
    }
}

TEST_F(PinnedFileTest, AnotherLinkOfTheFileIsTheFile) {
    const std::string path = Pinned("a");
    ASSERT_EQ(link(path.c_str(), (mount_ + "/b").c_str()), 0);
    EXPECT_EQ(Listed("a").fate, Fate::kThere);
    unlink(path.c_str());
    EXPECT_EQ(Listed("a").fate, Fate::kRenamed);
}

TEST_F(PinnedFileTest, AnotherFileAtThePathHasReplacedIt) {
    const std::string path = Pinned("a");
    const std::string link = Pinned("link");
    const uint32_t inode = InodeOf(path);
    Make("new");
    rename((mount_ + "/new").c_str(), path.c_str());
    unlink(link.c_str());
    std::filesystem::create_symlink("a", link);
    EXPECT_EQ(Listed("a").fate, Fate::kReplaced);
    EXPECT_EQ(Listed("a").why, "inode " + std::to_string(inode) + " was pinned, inode " +
                                   std::to_string(InodeOf(path)) + " is there now");
    EXPECT_EQ(Listed("link").fate, Fate::kReplaced);
    EXPECT_TRUE(Listed("a").units.empty());
}

TEST_F(PinnedFileTest, ARotatedFileIsReplacedThoughItLivesOnUnderAnotherName) {
    const std::string path = Pinned("log");
    rename(path.c_str(), (mount_ + "/log.1").c_str());
    Make("log");
    EXPECT_EQ(Listed("log").fate, Fate::kReplaced);
}

TEST_F(PinnedFileTest, WhatTheServiceCutAtABlankLiesUnderItsWholeName) {
    const std::string path = Make("t/my file");
    Place(path, {{3 * kUnit, 2 * kUnit}});
    List("t/my", InodeOf(path));
    EXPECT_EQ(Listed("t/my").fate, Fate::kRenamed);
    EXPECT_EQ(Listed("t/my").why, "lies at " + path);
    Make("t/my");
    EXPECT_EQ(Listed("t/my").fate, Fate::kRenamed) << "what lies at the cut name was never pinned";
    EXPECT_EQ(CountUnits(Listed("t/my").units), 2U);
}

TEST_F(PinnedFileTest, AFileThatOnlyInheritedTheNumberIsNotTheListedOne) {
    const std::string path = Make("b");
    WriteBitmap({0});
    const struct timespec longAgo[] = {{1, 0}, {1, 0}};
    utimensat(AT_FDCWD, (mount_ + "/quorcachepinfile.bitmap").c_str(), longAgo, 0);
    List("a", InodeOf(path));
    EXPECT_EQ(Listed("a").fate, Fate::kGone) << "born after the last pin";
}

TEST_F(PinnedFileTest, TheBitmapFileIsNoListedFileWhateverItsNumber) {
    WriteBitmap({0});
    List("a", InodeOf(mount_ + "/quorcachepinfile.bitmap"));
    EXPECT_EQ(Listed("a").fate, Fate::kGone);
}

TEST_F(PinnedFileTest, WhereItCannotBeLookedForAFileIsNotGone) {
    std::filesystem::create_symlink("loop", mount_ + "/loop");
    std::filesystem::create_symlink("/proc", mount_ + "/other");
    List("loop/a", 5);
    List("other/no/such/b", 6);
    List("other/version", 7);
    const std::string hidden = "another file system is mounted over " + mount_ + "/other";
    EXPECT_EQ(Listed("loop/a").fate, Fate::kUnknown);
    EXPECT_EQ(Listed("other/no/such/b").fate, Fate::kUnknown);
    EXPECT_EQ(Listed("other/no/such/b").why, hidden);
    EXPECT_EQ(Listed("other/version").fate, Fate::kUnknown);
}

TEST_F(PinnedFileTest, WhatCannotBeMappedIsUnknown) {
    const std::string path = Pinned("a");
    g_platform.mappings[InodeOf(path)][0].result = -1;
    EXPECT_EQ(Listed("a").fate, Fate::kUnknown);
    EXPECT_EQ(Listed("a").why, "its extents cannot be read");
}

TEST_F(PinnedFileTest, WithoutItsVolumeAFileIsUnknown) {
    const std::vector<PinnedFile> entries = UnmountedEntries({{"a", 1}, {"b", 2}}, "/nowhere");
    ASSERT_EQ(entries.size(), 2U);
    EXPECT_EQ(entries[1].entry.relative, "b");
    EXPECT_EQ(entries[1].mountPath, "/nowhere");
    EXPECT_EQ(entries[1].fate, Fate::kUnknown);
    EXPECT_EQ(entries[1].why, "its volume is not mounted");
    const Volume away = {"/nowhere", ""};
    EXPECT_EQ(InspectEntries({{"a", 1}}, away).at(0).fate, Fate::kUnknown);
}

TEST_F(PinnedFileTest, FatesHaveOneNameEach) {
    EXPECT_STREQ(FateName(Fate::kThere), "there");
    EXPECT_STREQ(FateName(Fate::kGone), "gone");
    EXPECT_STREQ(FateName(Fate::kReplaced), "replaced");
    EXPECT_STREQ(FateName(Fate::kRenamed), "renamed");
    EXPECT_STREQ(FateName(Fate::kUnknown), "cannot be looked at");
}

TEST_F(PinnedFileTest, AFileListedByALinkIsShownByItsOwnName) {
    const FileRef file = File("file", {{0, kUnit}});
    std::string why;
    ASSERT_TRUE(MakeLink(file, why)) << why;
    std::filesystem::rename(file.path, mount_ + "/my file");
    const std::string link = LinkName(file.inode);
    List(link);
    EXPECT_EQ(Listed(link).fate, Fate::kThere);
    EXPECT_EQ(Listed(link).file.path, mount_ + "/my file");
    EXPECT_EQ(Listed(link).file.relative, link) << "what requests name";
    EXPECT_EQ(ListedPath(Listed(link)), mount_ + "/my file");
    EXPECT_EQ(CountUnits(Listed(link).units), 1U);
    std::filesystem::rename(mount_ + "/my file", mount_ + "/your file");
    EXPECT_EQ(Listed(link).fate, Fate::kThere) << "the link did not move";
    EXPECT_EQ(ListedPath(Listed(link)), mount_ + "/your file");
    std::filesystem::remove(mount_ + "/your file");
    EXPECT_EQ(Listed(link).fate, Fate::kGone);
    EXPECT_EQ(ListedPath(Listed(link)), mount_ + "/" + link);
}

}  // namespace

}  // namespace client
