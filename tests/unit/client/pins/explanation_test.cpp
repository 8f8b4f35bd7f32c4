// SPDX-License-Identifier: MIT
// Everything about one file, and why it is not in the cache.
#include "client/pins/explanation.h"

#include <gtest/gtest.h>
#include <stdio.h>

#include <functional>

#include "tests/unit/client/pins/pins_test.h"
#include "tests/unit/support/fake_platform.h"

namespace client {

namespace {

class ExplanationTest : public PinsTest {
  protected:
    Explanation Of(const std::string& relative) {
        ServiceState service;
        service.known = known_;
        service.why = "nobody knows";
        service.state = state_;
        return Explain(Examine(mount_ + "/" + relative, volumes_), service, volumes_);
    }
    bool known_ = true;
};

TEST_F(ExplanationTest, ListQueueUnitsAndSharersAreTold) {
    Pinned("a", {{0, 2 * kUnit}, {1023 * kUnit, 2 * kUnit}});
    Pinned("b", {{kUnit, 8}});
    Queue("b");
    Queue("a");
    WriteBitmap({0, 1});
    LetTheCacheTell("\x01", "\x03");
    const Explanation a = Of("a");
    EXPECT_TRUE(a.pinned);
    EXPECT_EQ(a.pinnedAs, "");
    EXPECT_EQ(a.queued, std::vector<std::string>{"request 1 (pinFiles), place 2 of 2"});
    EXPECT_EQ(a.units, 4U);
    EXPECT_EQ(a.counts.units, 3U);
    EXPECT_EQ(a.counts.set, 2U);
    EXPECT_EQ(a.counts.withDriver, 2U);
    EXPECT_EQ(a.counts.resident, 1U);
    const Json::Value shares = DescribeExplanation(a).ToJson()["shares"];
    ASSERT_EQ(shares.size(), 1U);
    EXPECT_EQ(shares[0]["path"], mount_ + "/b");
    EXPECT_EQ(shares[0]["units"].asInt(), 1);
}

TEST_F(ExplanationTest, AFileIsKnownByItsInode) {
    const std::string path = Pinned("old");
    rename(path.c_str(), (mount_ + "/new").c_str());
    EXPECT_TRUE(Of("new").pinned);
    EXPECT_EQ(Of("new").pinnedAs, "old");
    EXPECT_EQ(DescribeExplanation(Of("new")).ToJson()["fate"].asString(), "renamed");
    Place(Make("old"), {{0, 8}});
    EXPECT_FALSE(Of("old").pinned);
    EXPECT_TRUE(Of("old").pathReplaced);
}

TEST_F(ExplanationTest, WhyItIsNotInTheCache) {
    const std::string full(128, '\xff');
    const struct {
        const char* what;
        std::function<void()> change;
        std::string why;
    } kSteps[] = {
        {"not pinned", [] {}, "it is not pinned, so nothing keeps it there"},
        {"state unknown", [this] { known_ = false; },
         "whether it is pinned is not known: nobody knows"},
        {"bits missing",
         [this] {
             known_ = true;
             List("a");
         },
         "2 units not set: it grew, was rewritten, or a unit it shares was cleared; check --repair "
         "pins it again"},
        {"driver behind",
         [this] {
             WriteBitmap({0, 1});
         },
         "the driver has not the bitmap that the file holds; check --repair hands it over"},
        {"not read", [this] { WriteFile(dir_ / "pinned", "\x03"); },
         "it was not read since the cache began, or the reading was interrupted or failed; reload "
         "reads it"},
        {"too much",
         [&] {
             WriteFile(mount_ + "/quorcachepinfile.bitmap", full);
             WriteFile(dir_ / "pinned", full);
         },
         "more is pinned than the cache holds"},
        {"preallocated",
         [this] { g_platform.mappings[InodeOf(mount_ + "/a")][0].entries[0].uninitialized = 1; },
         "128.0 KiB of it were never written, and the service does not read those"},
        {"queued", [this] { Queue("a"); }, "its request is not done yet"},
        {"resident", [this] { WriteFile(dir_ / "resident", "\x03"); }, ""},
    };
    Place(Make("a"), {{0, 2 * kUnit}});
    WriteBitmap({});
    LetTheCacheTell("", "");
    for (const auto& step : kSteps) {
        step.change();
        EXPECT_EQ(WhyNotResident(Of("a")), step.why) << step.what;
    }
}

TEST_F(ExplanationTest, WithoutACacheNothingIsSaidToLieAtTheDevicesEnd) {
    g_platform.configs.clear();
    Place(Make("a"), {{0, 2 * kUnit}});
    const Explanation a = Of("a");
    EXPECT_EQ(WhyNotResident(a), "the volume has no cache");
    testing::internal::CaptureStdout();
    DescribeExplanation(a).Print();
    EXPECT_EQ(testing::internal::GetCapturedStdout().find("device's end"), std::string::npos);
}

TEST_F(ExplanationTest, TheTextShowsTenExtentsAndTheRestIsCounted) {
    Extents extents;
    for (uint64_t i = 0; i < 12; ++i) {
        extents.push_back({i * 2 * kUnit, 8});
    }
    Place(Make("a"), extents);
    Record record = DescribeExplanation(Of("a"));
    EXPECT_EQ(record.ToJson()["extents"].size(), 12U);
    EXPECT_EQ(record.ToJson()["unitRuns"].size(), 12U);
    testing::internal::CaptureStdout();
    record.Print();
    EXPECT_NE(testing::internal::GetCapturedStdout().find("and 2 more (--json shows all)"),
              std::string::npos);
}

TEST_F(ExplanationTest, TheTextSaysWhatTheJsonSays) {
    Pinned("a", {{0, 2 * kUnit}, {1023 * kUnit, 2 * kUnit}});
    Pinned("b", {{kUnit, 8}});
    state_.queue.push_back(
        {"7", "unpinFiles", mount_, "a#" + std::to_string(InodeOf(mount_ + "/a"))});
    WriteBitmap({0, 1, 1023});
    const Explanation a = Of("a");
    testing::internal::CaptureStdout();
    DescribeExplanation(a).Print();
    const std::string text = testing::internal::GetCapturedStdout();
    for (const std::string& line :
         {mount_ + "/a\n", "  volume  " + mount_ + "\n", std::string("  size    1 byte\n"),
          std::string("  pinned  yes\n"),
          std::string("  queued  request 7 (unpinFiles), place 1 of 1\n"),
          std::string("  units   3, set 3\n"),
          std::string("          1 unit at the device's end, for which there are no bits\n"),
          "  shares  1 unit with " + mount_ + "/b\n"}) {
        EXPECT_NE(text.find(line), std::string::npos) << line << text;
    }
    EXPECT_EQ(text.find("not resident"), std::string::npos) << "the cache is mute";
    EXPECT_FALSE(a.queuedToPin);
}

TEST_F(ExplanationTest, AFileWhoseExtentsCannotBeReadHasNoUnits) {
    const std::string path = Pinned("a", {{0, kUnit}});
    g_platform.mappings[InodeOf(path)][0].result = -1;
    testing::internal::CaptureStdout();
    DescribeExplanation(Of("a")).Print();
    const std::string text = testing::internal::GetCapturedStdout();
    EXPECT_NE(text.find("  extents  its extents cannot be read\n"), std::string::npos) << text;
    EXPECT_EQ(text.find("  units "), std::string::npos) << text;
}

}  // namespace

}  // namespace client
