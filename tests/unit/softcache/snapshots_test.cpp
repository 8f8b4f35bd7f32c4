// SPDX-License-Identifier: MIT
#include "softcache/serve/snapshots.h"

#include <gtest/gtest.h>

#include <vector>

namespace softcache {
namespace {

constexpr uid_t kOperator = 0;
constexpr uid_t kAnybody = 1000;
constexpr size_t kMiB = 1 << 20;

class SnapshotsTest : public ::testing::Test {
  protected:
    // A content of that many bytes, unlike every other one unless `mark` is.
    uint64_t Keep(uid_t user, size_t bytes, size_t mark) {
        return snapshots_.Keep(user, [&] {
            std::string content = std::to_string(mark);
            content.resize(bytes, '.');
            return content;
        });
    }
    bool Has(uint64_t handle) const { return snapshots_.Content(handle) != nullptr; }

    OpenSnapshots snapshots_;
};

TEST_F(SnapshotsTest, EachOpenFileHasTheContentOfItsMoment) {
    const uint64_t first = Keep(kAnybody, 10, 1);
    const uint64_t second = Keep(kAnybody, 10, 2);
    EXPECT_EQ(*snapshots_.Content(first), "1.........");
    EXPECT_EQ(*snapshots_.Content(second), "2.........");
    snapshots_.Drop(first);
    EXPECT_FALSE(Has(first));
    EXPECT_TRUE(Has(second));
    snapshots_.Drop(first);  // once more does no harm
}

TEST_F(SnapshotsTest, EqualContentsInARowAreOne) {
    std::vector<uint64_t> handles;
    for (int i = 0; i < 300; ++i) {
        handles.push_back(Keep(i % 2 == 0 ? kAnybody : kOperator, 3 * kMiB, 7));
    }
    for (const uint64_t handle : handles) {
        ASSERT_EQ(snapshots_.Content(handle), snapshots_.Content(handles[0]));
    }
}

TEST_F(SnapshotsTest, TheOldestOfAUserGoBeyondTheBoundAndNobodyElses) {
    const uint64_t others = Keep(kOperator, 3 * kMiB, 1000);
    std::vector<uint64_t> handles;
    for (size_t i = 0; i < 300; ++i) {
        handles.push_back(Keep(kAnybody, 3 * kMiB, i));
    }
    size_t kept = 0;
    for (const uint64_t handle : handles) {
        kept += Has(handle) ? 1 : 0;
    }
    EXPECT_EQ(kept, OpenSnapshots::kMostKeptBytes / (3 * kMiB));
    EXPECT_TRUE(Has(handles[299]));
    EXPECT_FALSE(Has(handles[0]));
    EXPECT_TRUE(Has(others));
}

TEST_F(SnapshotsTest, TheLastOnesStayHoweverLargeTheyAre) {
    std::vector<uint64_t> handles;
    for (size_t i = 0; i < OpenSnapshots::kAlwaysKept + 1; ++i) {
        handles.push_back(Keep(kAnybody, 20 * kMiB, i));
    }
    EXPECT_FALSE(Has(handles[0]));
    for (size_t i = 1; i < handles.size(); ++i) {
        EXPECT_TRUE(Has(handles[i])) << i;
    }
}

}  // namespace
}  // namespace softcache
