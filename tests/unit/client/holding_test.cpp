// SPDX-License-Identifier: MIT
// What is said to hold after requests are done.
#include "client/holding.h"

#include <gtest/gtest.h>
#include <sys/file.h>
#include <unistd.h>

#include <filesystem>

#include "tests/unit/client/client_test.h"

namespace {

constexpr uint64_t kUnit = 128;  // sectors

class HoldingTest : public ClientTest {
  protected:
    void SetUp() override {
        ClientTest::SetUp();
        volumes_ = Volumes();
    }
    void Add(const std::string& relative, const std::vector<std::pair<uint64_t, uint64_t>>& extents,
             bool listed) {
        const std::string path = Make(relative);
        Place(path, extents);
        FileRef file = Examine(path, volumes_);
        std::string why;
        EXPECT_TRUE(MapForRequest(mapper_, file, why)) << why;
        files_.push_back(file);
        if (listed) {
            state_.pinned[mount_].push_back({relative, file.inode});
        }
    }
    Holding AfterPin() {
        const std::vector<Holding> holdings = HoldingAfterPin(state_, files_, mapper_);
        EXPECT_EQ(holdings.size(), 1U);
        EXPECT_EQ(AllHold(holdings),
                  holdings.at(0).wrong.empty() && holdings.at(0).whyAbsent.empty());
        return holdings.at(0);
    }
    Holding AfterUnpin() {
        const std::vector<Holding> holdings = HoldingAfterUnpin(state_, files_, volumes_, mapper_);
        EXPECT_EQ(holdings.size(), 1U);
        return holdings.at(0);
    }
    // A cache that tells: bytes of what it holds and of the bitmap that it was given.
    void LetTheCacheTell(const std::string& resident, const std::string& pinned) {
        const std::string registry = dir_ / "registry";
        std::filesystem::create_directory(registry);
        WriteFile(dir_ / "resident", resident);
        WriteFile(dir_ / "pinned", pinned);
        WriteFile(registry + "/vol.json", R"({"name":"vol","cacheSize":1048576,"device":")" +
                                              device_ + R"(","resident":")" + (dir_ / "resident") +
                                              R"(","pinned":")" + (dir_ / "pinned") + "\"}");
        lock_ = open((registry + "/vol.lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
        ASSERT_EQ(flock(lock_, LOCK_EX), 0);
    }
    void TearDown() override {
        mapper_ = Mapper();
        if (lock_ != -1) {
            close(lock_);
        }
        ClientTest::TearDown();
    }

    std::vector<Volume> volumes_;
    std::vector<FileRef> files_;
    ConfigState state_;
    Mapper mapper_;
    int lock_ = -1;
};

TEST_F(HoldingTest, APinHoldsWhenListedAndSet) {
    Add("a", {{0, 2 * kUnit}}, true);
    Add("b", {{kUnit, kUnit}}, true);
    WriteBitmap({0, 1});
    const Holding holding = AfterPin();
    EXPECT_TRUE(holding.wrong.empty());
    EXPECT_EQ(holding.files, 2U);
    EXPECT_EQ(holding.wanted, 2U) << "the shared unit counts once";
    EXPECT_EQ(holding.set, 2U);
    EXPECT_FALSE(holding.cacheTells);
}

TEST_F(HoldingTest, ADroppedPinIsKnownByTheList) {
    Add("a", {{0, kUnit}}, false);
    WriteBitmap({0});
    const Holding holding = AfterPin();
    ASSERT_EQ(holding.wrong.size(), 1U);
    EXPECT_NE(holding.wrong[0].reason.find("not on the service's list"), std::string::npos);
}

TEST_F(HoldingTest, MissingBitsAndVanishedFilesAreNamed) {
    Add("a", {{0, 3 * kUnit}}, true);
    Add("b", {{10 * kUnit, kUnit}}, true);
    Add("c", {{20 * kUnit, kUnit}}, true);
    WriteBitmap({0, 10, 20});
    Place(files_[1].path, {});
    const Holding holding = AfterPin();
    ASSERT_EQ(holding.wrong.size(), 2U);
    EXPECT_EQ(holding.wrong[0].path, files_[0].path);
    EXPECT_EQ(holding.wrong[0].reason, "2 units of 3 not set");
    EXPECT_EQ(holding.wrong[1].path, files_[1].path);
}

TEST_F(HoldingTest, TheDriversBitmapCountsWhereTheCacheTells) {
    Add("a", {{0, kUnit}}, true);
    Add("b", {{kUnit, kUnit}}, true);
    WriteBitmap({0, 1});
    LetTheCacheTell("\x01", "\x01");
    const Holding holding = AfterPin();
    EXPECT_TRUE(holding.cacheTells);
    EXPECT_EQ(holding.driver, 1U);
    EXPECT_EQ(holding.resident, 1U);
    ASSERT_EQ(holding.wrong.size(), 1U);
    EXPECT_EQ(holding.wrong[0].path, files_[1].path);
}

TEST_F(HoldingTest, WhatWasPinnedAndIsNotInTheCacheIsSaidWithTheReason) {
    Add("a", {{0, 3 * kUnit}}, true);
    WriteBitmap({0, 1, 2});
    LetTheCacheTell("\x01", "\x07");
    Holding holding = AfterPin();
    EXPECT_TRUE(holding.wrong.empty());
    EXPECT_EQ(holding.absent, 2U);
    EXPECT_NE(holding.whyAbsent.find("reload reads again"), std::string::npos);

    WriteFile(mount_ + "/quorcachepinfile.bitmap", std::string(128, '\xff'));
    holding = AfterPin();
    EXPECT_EQ(holding.absent, 2U);
    EXPECT_EQ(holding.whyAbsent, "64.0 MiB are pinned, the cache holds 1.0 MiB");
    testing::internal::CaptureStdout();
    PrintHolding({holding}, true);
    EXPECT_NE(testing::internal::GetCapturedStdout().find(
                  "  not in the cache 2 units: 64.0 MiB are pinned, the cache holds 1.0 MiB\n"),
              std::string::npos);
}

TEST_F(HoldingTest, WhatWasNeverWrittenNeedNotBeInTheCache) {
    Add("a", {{0, 3 * kUnit}}, true);
    files_[0].extents[0].uninitialized = 1;
    WriteBitmap({0, 1, 2});
    LetTheCacheTell("", "\x07");
    EXPECT_EQ(AfterPin().absent, 0U);
}

TEST_F(HoldingTest, ACacheWhoseProcessIsGoneTellsNothing) {
    Add("a", {{0, kUnit}}, true);
    WriteBitmap({0});
    LetTheCacheTell("", "");
    ASSERT_EQ(flock(lock_, LOCK_UN), 0);
    EXPECT_FALSE(AfterPin().cacheTells);
}

TEST_F(HoldingTest, AnUnpinHoldsWhenTheFilesAreOffTheListAndTheirBitsClear) {
    Add("a", {{0, 2 * kUnit}}, false);
    WriteBitmap({5});
    EXPECT_TRUE(AfterUnpin().wrong.empty());
    WriteBitmap({1});
    ASSERT_EQ(AfterUnpin().wrong.size(), 1U);
    EXPECT_NE(AfterUnpin().wrong[0].reason.find("1 unit still set"), std::string::npos);
}

TEST_F(HoldingTest, AnUnpinDoesNotHoldWhileTheDriverHasItsUnits) {
    Add("kept", {{2 * kUnit, kUnit}}, true);
    files_.clear();
    Add("a", {{0, 3 * kUnit}}, false);
    WriteBitmap({2});
    LetTheCacheTell("", "\x07");
    Holding holding = AfterUnpin();
    ASSERT_EQ(holding.wrong.size(), 1U);
    EXPECT_EQ(holding.wrong[0].reason.find("2 units still with the driver"), 0U)
        << holding.wrong[0].reason;
    WriteFile(dir_ / "pinned", "\x04");
    EXPECT_TRUE(AfterUnpin().wrong.empty());
}

TEST_F(HoldingTest, AUnitThatAPinnedFileNeedsMayStaySet) {
    Add("kept", {{kUnit, kUnit}}, true);
    files_.clear();
    Add("a", {{0, 2 * kUnit}}, false);
    WriteBitmap({1});
    const Holding holding = AfterUnpin();
    EXPECT_TRUE(holding.wrong.empty());
    EXPECT_EQ(holding.wanted, 1U) << "only the other unit should be clear";
}

TEST_F(HoldingTest, AFileThatIsStillListedIsNotReleased) {
    Add("a", {{0, kUnit}}, true);
    WriteBitmap({});
    ASSERT_EQ(AfterUnpin().wrong.size(), 1U);
    EXPECT_EQ(AfterUnpin().wrong[0].reason, "is still on the service's list");
}

}  // namespace
