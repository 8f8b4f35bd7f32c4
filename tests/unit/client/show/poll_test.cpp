// SPDX-License-Identifier: MIT
// When looking again ends, and which signals are noted.
#include "client/show/poll.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

namespace client {

namespace {

TEST(Poll, EndsWhenTimeIsOverAndNotBefore) {
    const double begin = MonotonicSeconds();
    const Poll poll(0.01, 0.1);
    int looks = 1;
    while (poll.Again()) {
        ++looks;
    }
    EXPECT_GE(MonotonicSeconds() - begin, 0.1);
    EXPECT_GE(looks, 2);
    EXPECT_LE(looks, 12) << "it pauses between two looks";
}

TEST(Poll, WithoutTimeItLooksOnce) {
    EXPECT_FALSE(Poll(10, 0).Again());
}

TEST(Poll, APauseIsNoLongerThanTheTimeThatIsLeft) {
    const double begin = MonotonicSeconds();
    const Poll poll(100, 0.05);
    EXPECT_TRUE(poll.Again()) << "one look at the very end";
    EXPECT_FALSE(poll.Again());
    EXPECT_LT(MonotonicSeconds() - begin, 50);
}

TEST(Poll, WithoutALimitOnlyASignalEndsIt) {
    const SignalNote note;
    const Poll poll(0.001, kNoLimit, &note);
    EXPECT_TRUE(poll.Again());
    EXPECT_TRUE(poll.Again());
    raise(SIGTERM);
    EXPECT_FALSE(poll.Again());
}

TEST(Poll, ASignalCutsThePauseShort) {
    const SignalNote note;
    const Poll poll(100, kNoLimit, &note);
    const double begin = MonotonicSeconds();
    const pid_t child = fork();
    if (child == 0) {
        usleep(200 * 1000);
        kill(getppid(), SIGINT);
        _exit(0);
    }
    EXPECT_FALSE(poll.Again());
    EXPECT_LT(MonotonicSeconds() - begin, 50);
    EXPECT_EQ(waitpid(child, nullptr, 0), child);
}

TEST(Poll, WithoutANoteASignalIsNoneOfItsBusiness) {
    const SignalNote note;
    raise(SIGINT);
    EXPECT_TRUE(Poll(0.001, 10).Again());
}

TEST(SignalNote, TellsWhichSignalCameAndRestoresWhatWasBefore) {
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
        struct sigaction now = {};
        {
            const SignalNote note;
            EXPECT_EQ(note.Signal(), 0) << "an earlier one is forgotten";
            raise(number);
            EXPECT_EQ(note.Signal(), number);
        }
        ASSERT_EQ(sigaction(number, nullptr, &now), 0);
        EXPECT_EQ(now.sa_handler, SIG_DFL);
    }
}

TEST(SignalNote, WhatWasIgnoredStaysIgnored) {
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
        ASSERT_NE(signal(number, SIG_IGN), SIG_ERR);
        {
            const SignalNote note;
            raise(number);
            EXPECT_EQ(note.Signal(), 0);
        }
        EXPECT_EQ(signal(number, SIG_DFL), SIG_IGN);
    }
}

TEST(SignalNote, OneInsideAnotherForgetsNothing) {
    const SignalNote outer;
    raise(SIGINT);
    {
        const SignalNote inner;
        EXPECT_EQ(inner.Signal(), SIGINT);
        raise(SIGHUP);
    }
    EXPECT_EQ(outer.Signal(), SIGHUP);
    raise(SIGTERM);
    EXPECT_EQ(outer.Signal(), SIGTERM) << "the inner one's end leaves the outer one's handlers";
}

}  // namespace

}  // namespace client
