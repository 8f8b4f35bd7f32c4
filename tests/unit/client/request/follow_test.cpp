// SPDX-License-Identifier: MIT
// Recognising requests in the configuration file, look by look.
#include "client/request/follow.h"

#include <gtest/gtest.h>

#include "util/request.h"

namespace client {

namespace {

constexpr WatchState kUnseen = WatchState::kUnseen;
constexpr WatchState kQueued = WatchState::kQueued;
constexpr WatchState kLeft = WatchState::kLeft;

Message Pin(const std::string& stored, const std::string& mountPath = "/mnt/pool1") {
    return {kRequestPinFiles, mountPath, "", stored, 1, {}};
}

StoredRequest Stored(const std::string& number, const std::string& data,
                     const std::string& type = "pinFiles",
                     const std::string& mountPath = "/mnt/pool1") {
    return {number, type, mountPath, data};
}

ConfigState State(int64_t next, std::vector<StoredRequest> queue) {
    ConfigState state;
    state.nextNumber = next;
    state.queue = std::move(queue);
    return state;
}

std::vector<WatchState> States(const std::vector<Watched>& requests) {
    std::vector<WatchState> states;
    for (const Watched& request : requests) {
        states.push_back(request.state);
    }
    return states;
}

using S = std::vector<WatchState>;

TEST(Follow, ARequestIsSeenQueuedAndThenLeaves) {
    std::vector<Watched> requests = ToWatch({Pin("a#1"), Pin("b#2")}, 2);
    Follow(requests, State(5, {}), 5, false);
    EXPECT_EQ(States(requests), (S{kUnseen, kUnseen}));
    Follow(requests, State(6, {Stored("5", "a#1")}), 5, false);
    EXPECT_EQ(States(requests), (S{kQueued, kUnseen}));
    EXPECT_EQ(requests[0].number, "5");
    Follow(requests, State(7, {Stored("6", "b#2")}), 5, false);
    EXPECT_EQ(States(requests), (S{kLeft, kQueued}));
    Follow(requests, State(7, {}), 5, false);
    EXPECT_EQ(States(requests), (S{kLeft, kLeft}));
}

TEST(Follow, OtherRequestsAreNotTakenForOurs) {
    std::vector<Watched> requests = ToWatch({Pin("a#1")}, 1);
    Follow(requests,
           State(20, {Stored("10", "a#1"), Stored("15", "a#1", "unpinFiles"),
                      Stored("16", "a#1", "pinFiles", "/mnt/pool2"), Stored("17", "a#1;b#2"),
                      Stored("18", "")}),
           12, false);
    EXPECT_EQ(States(requests), (S{kUnseen}));
}

TEST(Follow, EqualRequestsAreToldApartByTheirNumbers) {
    std::vector<Watched> requests = ToWatch({Pin("a#1"), Pin("a#1")}, 2);
    Follow(requests, State(2, {Stored("0", "a#1"), Stored("1", "a#1")}), 0, false);
    EXPECT_EQ(requests[0].number, "0");
    EXPECT_EQ(requests[1].number, "1");
    Follow(requests, State(2, {Stored("1", "a#1")}), 0, false);
    EXPECT_EQ(States(requests), (S{kLeft, kQueued}));
}

TEST(Follow, NumbersAfterTheWrapAreLater) {
    std::vector<Watched> requests = ToWatch({Pin("a#1"), Pin("b#2")}, 2);
    Follow(requests, State(1, {Stored("2147483645", "a#1"), Stored("0", "b#2")}), 2147483645,
           false);
    EXPECT_EQ(States(requests), (S{kQueued, kQueued}));
}

TEST(Follow, WhatIsMissingBeforeASeenOneHasComeAndGone) {
    std::vector<Watched> requests = ToWatch({Pin("a#1"), Pin("b#2"), Pin("c#3")}, 3);
    Follow(requests, State(2, {Stored("1", "b#2")}), 0, false);
    EXPECT_EQ(States(requests), (S{kLeft, kQueued, kUnseen}));
}

TEST(Follow, AnEmptyMessageQueueTellsOnlyWhenAllWereNumbered) {
    std::vector<Watched> requests = ToWatch({Pin("a#1"), Pin("b#2")}, 2);
    Follow(requests, State(0, {}), 0, true);
    EXPECT_EQ(States(requests), (S{kUnseen, kUnseen})) << "received, not stored yet";
    Follow(requests, State(1, {}), 0, true);
    EXPECT_EQ(States(requests), (S{kUnseen, kUnseen}));
    Follow(requests, State(2, {}), 0, true);
    EXPECT_EQ(States(requests), (S{kLeft, kLeft}));
}

TEST(Follow, OnlyWhatWasSentIsWatched) {
    EXPECT_EQ(ToWatch({Pin("a#1"), Pin("b#2")}, 1).size(), 1U);
}

TEST(Follow, AReloadIsKnownByItsVolume) {
    std::vector<Watched> requests =
        ToWatch({VolumeMessage(kRequestReloadPinBlocks, "/mnt/pool1")}, 1);
    Follow(requests, State(1, {Stored("0", "", "reloadPinBlocks")}), 0, false);
    EXPECT_EQ(States(requests), (S{kQueued}));
}

TEST(Follow, WhatIsQueuedIsWatchedOnceAndByItsVolume) {
    const ConfigState state =
        State(9, {Stored("3", "a#1;b#2"), Stored("4", "", "reloadPinBlocks", "/mnt/pool2"),
                  Stored("5", "c#3")});
    std::vector<Watched> requests;
    WatchQueued(state, "/mnt/pool1", requests);
    ASSERT_EQ(requests.size(), 2U);
    EXPECT_EQ(requests[0].number, "3");
    EXPECT_EQ(requests[0].message.numFiles, 2U);
    EXPECT_EQ(requests[1].number, "5");
    WatchQueued(state, "", requests);
    ASSERT_EQ(requests.size(), 3U) << "what is watched already is not taken again";
    EXPECT_EQ(requests[2].message.type, kRequestReloadPinBlocks);
    EXPECT_EQ(States(requests), (S{kQueued, kQueued, kQueued}));
    Follow(requests, State(9, {Stored("4", "", "reloadPinBlocks", "/mnt/pool2")}), 0, false);
    EXPECT_EQ(States(requests), (S{kLeft, kLeft, kQueued}));
}

}  // namespace

}  // namespace client
