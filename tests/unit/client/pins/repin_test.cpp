// SPDX-License-Identifier: MIT
// Which files lose a unit when others are unpinned.
#include "client/pins/repin.h"

#include <gtest/gtest.h>
#include <stdio.h>
#include <unistd.h>

#include "tests/unit/client/pins/pins_test.h"

namespace client {

namespace {

class RepinTest : public PinsTest {
  protected:
    using Names = std::vector<std::string>;

    // A pinned file, as one that is to be unpinned.
    FileRef Leaving(const std::string& relative, const Extents& extents) {
        FileRef file = File(relative, extents);
        List(relative);
        return file;
    }
    Names Repinned(const std::vector<FileRef>& leaving) {
        Names names;
        for (const FileRef& file : FilesToRepin(ReadDevices(state_, volumes_), leaving)) {
            names.push_back(file.relative);
        }
        return names;
    }
};

TEST_F(RepinTest, NeighboursInAUnitArePinnedAgain) {
    const FileRef a = Leaving("a", {{0, 8}, {5 * kUnit, kUnit}});
    Pinned("b", {{8, 8}});
    Pinned("c", {{kUnit, kUnit}});
    Pinned("d", {{4 * kUnit, kUnit + 1}});
    EXPECT_EQ(Repinned({a}), (Names{"b", "d"}));
}

TEST_F(RepinTest, WhatIsUnpinnedTooIsNot) {
    const FileRef a = Leaving("a", {{0, 8}});
    const FileRef b = Leaving("b", {{8, 8}});
    EXPECT_EQ(Repinned({a, b}), Names());
}

TEST_F(RepinTest, WhatIsNotAtItsPathIsNot) {
    const FileRef a = Leaving("a", {{0, 8}});
    const std::string gone = Pinned("gone", {{8, 8}});
    const std::string replaced = Pinned("replaced", {{16, 8}});
    unlink(gone.c_str());
    Place(Make("new"), {{24, 8}});
    rename((mount_ + "/new").c_str(), replaced.c_str());
    EXPECT_EQ(Repinned({a}), Names());
}

TEST_F(RepinTest, WhatIsQueuedToBePinnedIsPinnedAgainToo) {
    const FileRef a = Leaving("a", {{0, 8}});
    Place(Make("next"), {{16, 8}});
    Queue("next");
    EXPECT_EQ(Repinned({a}), (Names{"next"}));
}

TEST_F(RepinTest, TheOtherMountPathKeepsItsEntryOfTheSameFile) {
    const std::string again = MountAgain();
    const FileRef a = Leaving("a", {{0, 8}});
    state_.pinned[again].push_back({"a", a.inode});
    const std::vector<FileRef> files = FilesToRepin(ReadDevices(state_, volumes_), {a});
    ASSERT_EQ(files.size(), 1U);
    EXPECT_EQ(files[0].volume->mountPath, again);
}

}  // namespace

}  // namespace client
