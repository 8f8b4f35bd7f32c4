// SPDX-License-Identifier: MIT
// How long requests take, by looks at given times.
#include "client/request/pace.h"

#include <gtest/gtest.h>

namespace client {

namespace {

std::vector<StoredRequest> Queue(const std::vector<std::string>& numbers) {
    std::vector<StoredRequest> queue;
    for (const std::string& number : numbers) {
        queue.push_back({number, "pinFiles", "/mnt/pool1", "a#1"});
    }
    return queue;
}

TEST(Pace, BeforeOneHasLeftNothingIsKnown) {
    Pace pace;
    EXPECT_EQ(pace.SecondsFor(3), 0);
    pace.Look(Queue({"1", "2"}), 100);
    pace.Look(Queue({"1", "2", "3"}), 110);
    EXPECT_EQ(pace.SecondsFor(3), 0);
}

TEST(Pace, EachTakesWhatThoseTookThatLeft) {
    Pace pace;
    pace.Look(Queue({"1", "2", "3", "4"}), 100);
    pace.Look(Queue({"2", "3", "4"}), 104);
    EXPECT_DOUBLE_EQ(pace.SecondsFor(3), 12);
    pace.Look(Queue({"4", "5", "6"}), 106);
    EXPECT_DOUBLE_EQ(pace.SecondsFor(3), 6) << "three in six seconds";
    EXPECT_EQ(pace.SecondsFor(0), 0);
}

TEST(Pace, TheFirstHasBegunWhenTheOneBeforeItLeft) {
    Pace pace;
    pace.Look(Queue({"1", "2", "3"}), 100);
    pace.Look(Queue({"2", "3"}), 104);
    pace.Look(Queue({"2", "3"}), 107);
    EXPECT_DOUBLE_EQ(pace.SecondsFor(2), 5);
    pace.Look(Queue({"2", "3"}), 120);
    EXPECT_EQ(pace.SecondsFor(2), 0) << "it takes longer than expected: not known any more";
}

TEST(Pace, ATimeWithoutRequestsDoesNotCount) {
    Pace pace;
    pace.Look(Queue({}), 10);
    pace.Look(Queue({"1"}), 100);
    pace.Look(Queue({}), 104);
    pace.Look(Queue({}), 500);
    pace.Look(Queue({"2", "3"}), 1000);
    pace.Look(Queue({"3"}), 1002);
    EXPECT_DOUBLE_EQ(pace.SecondsFor(1), 3) << "two in four and two seconds";
}

}  // namespace

}  // namespace client
