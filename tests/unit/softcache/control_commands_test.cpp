// SPDX-License-Identifier: MIT
#include "softcache/serve/control_commands.h"

#include "tests/unit/softcache/served_fixture.h"

namespace softcache {
namespace {

struct Row {
    const char* text;
    bool good;
    const char* proves;
};

TEST(ControlText, Table) {
    const Row rows[] = {
        {"clear-faults\n", true, "a verb alone"},
        {"clear-faults", true, "the last line end may be missing"},
        {"\n\nreset-counters\n\n", true, "empty lines count for nothing"},
        {"", true, "nothing to do"},
        {"refuse-control 1\nfail-read 0 1\ndelay-read 0\n", true, "several lines"},
        {"  state\t3  ", true, "any blanks between the words"},
        {"fail-read 18446744073709551615 18446744073709551615", true, "up to 64 bits"},
        {"state 2147483647", true, "the largest state"},
        {"support-pin 0", true, "off"},
        {"support-pin 1", true, "on"},
        {"delay-read 4294967295", true, "the longest delay"},
        {"delay-backing 6", true, "a slow backing"},
        {"flush", false, "no such verb"},
        {"clear-fault", false, "half a verb"},
        {"Clear-faults", false, "another case"},
        {"clear-faults now", false, "a word too many"},
        {"clear-faults\nbad\n", false, "one bad line is enough"},
        {"   ", false, "a line of blanks is not empty"},
        {"refuse-control", false, "a number is missing"},
        {"refuse-control 0", false, "there is no 0th request"},
        {"refuse-control 1 2", false, "a number too many"},
        {"refuse-control -1", false, "negative"},
        {"refuse-control +1", false, "a sign"},
        {"refuse-control 1x", false, "rubbish behind the number"},
        {"refuse-control 0x1", false, "decimal only"},
        {"refuse-control 4294967296", false, "beyond its bound"},
        {"fail-read 5", false, "a length is missing"},
        {"fail-read 0 0", false, "an empty range touches nothing"},
        {"fail-read 0 18446744073709551616", false, "beyond 64 bits"},
        {"delay-read 4294967296", false, "beyond its bound"},
        {"delay-backing", false, "no number"},
        {"support-pin 2", false, "neither 0 nor 1"},
        {"support-pin yes", false, "no number"},
        {"state 2147483648", false, "beyond 31 bits"},
        {"state -1", false, "negative"},
    };
    for (const Row& row : rows) {
        std::vector<ControlCommand> commands = {{ControlVerb::kState, {99, 0}}};
        EXPECT_EQ(ParseControlText(row.text, commands), row.good) << row.text << ": " << row.proves;
        if (!row.good) {
            ASSERT_EQ(commands.size(), 1u) << row.text << ": untouched";
            EXPECT_EQ(commands[0].numbers[0], 99u);
        }
    }
}

TEST(ControlText, KeepsTheOrderAndTheNumbers) {
    std::vector<ControlCommand> commands;
    ASSERT_TRUE(ParseControlText("fail-read 65536 512\nrefuse-control 3\n", commands));
    ASSERT_EQ(commands.size(), 2u);
    EXPECT_EQ(commands[0].verb, ControlVerb::kFailRead);
    EXPECT_EQ(commands[0].numbers[0], 65536u);
    EXPECT_EQ(commands[0].numbers[1], 512u);
    EXPECT_EQ(commands[1].verb, ControlVerb::kRefuseControl);
    EXPECT_EQ(commands[1].numbers[0], 3u);
}

class ControlCommandsTest : public ServedOnFiles {};

TEST_F(ControlCommandsTest, FaultsComeAndGo) {
    ASSERT_EQ(RunControlText("refuse-control 2\nfail-read 1000 24\n", *served_), 0);
    EXPECT_EQ(served_->faults.BeforeRead(0, 1001), -EIO);
    EXPECT_FALSE(served_->faults.TakeControl());
    EXPECT_TRUE(served_->faults.TakeControl());
    ASSERT_EQ(RunControlText("refuse-control 1\nclear-faults", *served_), 0);
    EXPECT_EQ(served_->faults.BeforeRead(0, 1001), 0);
    EXPECT_FALSE(served_->faults.TakeControl());
}

TEST_F(ControlCommandsTest, NothingIsDoneWhenALineIsBad) {
    EXPECT_EQ(RunControlText("fail-read 0 1\nrefuse-control\n", *served_), -EINVAL);
    EXPECT_EQ(served_->faults.BeforeRead(0, 1), 0);
}

TEST_F(ControlCommandsTest, WithoutTestDoorsNothingIsMadeToFail) {
    served_->testDoors = false;
    EXPECT_EQ(RunControlText("reset-counters\nfail-read 0 1\n", *served_), -EPERM);
    EXPECT_EQ(served_->faults.BeforeRead(0, 1), 0);
    EXPECT_EQ(RunControlText("reset-counters\n", *served_), 0);
}

TEST_F(ControlCommandsTest, ResetForgetsWhatHappenedButNotWhatIsInForce) {
    Read(0, 2 * kUnitSize);
    served_->cache.SetPins({1});
    served_->record.AddBitmap(0, 1, {1});
    served_->record.AddUnpin(0, {{1, 1}});
    served_->record.AddUnpin(-EIO, {});
    ASSERT_EQ(RunControlText("reset-counters\n", *served_), 0);
    served_->record.AddUnpin(0, {});
    const Json::Value stats = Stats();
    EXPECT_EQ(stats["reads"], 0);
    EXPECT_EQ(stats["misses"], 0);
    EXPECT_TRUE(stats["releasedRanges"].empty());
    EXPECT_EQ(stats["controlRequests"], Parse(R"({"bitmap":0,"unpin":1,"refused":0})"));
    EXPECT_EQ(stats["requests"], Parse(R"([{"seq":1,"request":"unpin","result":0,"ranges":0}])"));
    EXPECT_EQ(stats["residentUnits"], 2);
    EXPECT_EQ(stats["pinnedUnits"], 1);
    EXPECT_EQ(stats["lastBitmap"], Parse(R"({"bytes":1,"bitsSet":1})"));
}

TEST_F(ControlCommandsTest, StateAndSupportPinRewriteTheRegistryEntry) {
    ASSERT_EQ(served_->registry.Publish(), "");
    ASSERT_EQ(RunControlText("state 5\nsupport-pin 0\n", *served_), 0);
    Json::Value entry = Parse(FileText(dir_ / "reg/vol1.json"));
    EXPECT_EQ(entry["state"], 5);
    EXPECT_EQ(entry["supportPin"], 0);
    ASSERT_EQ(RunControlText("support-pin 1", *served_), 0);
    entry = Parse(FileText(dir_ / "reg/vol1.json"));
    EXPECT_EQ(entry["state"], 5);
    EXPECT_EQ(entry["supportPin"], 1);

    std::filesystem::remove_all(dir_ / "reg");
    EXPECT_EQ(RunControlText("state 7", *served_), -ENOENT);
}

}  // namespace
}  // namespace softcache
