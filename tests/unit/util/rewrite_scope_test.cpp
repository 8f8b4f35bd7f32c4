// SPDX-License-Identifier: MIT
#include "util/rewrite_scope.h"

#include <gtest/gtest.h>
#include <pthread.h>
#include <semaphore.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tests/unit/support/unit_test.h"

namespace {

// Runs `body` in a child and returns its exit status, -1 when it did not exit by itself.
int StatusOfChild(void (*body)()) {
    const pid_t child = fork();
    if (child == 0) {
        alarm(30);
        body();
        _exit(99);
    }
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

sem_t g_entered;
int g_pipe[2];

// Takes long, and leaves a byte at its end.
void* SlowRewrite(void*) {
    const RewriteScope scope;
    sem_post(&g_entered);
    usleep(200 * 1000);
    EXPECT_EQ(write(g_pipe[1], "w", 1), 1);
    return nullptr;
}

void ExitDuringARewrite() {
    pthread_t thread;
    sem_init(&g_entered, 0, 0);
    pthread_create(&thread, nullptr, SlowRewrite, nullptr);
    sem_wait(&g_entered);
    exit(0);
}

// What the child has written.
std::string Written() {
    char text[8] = {};
    close(g_pipe[1]);
    EXPECT_GE(read(g_pipe[0], text, sizeof(text) - 1), 0);
    close(g_pipe[0]);
    return text;
}

TEST(RewriteScope, AnExitWaitsForTheRewriteOfAnotherThread) {
    ASSERT_EQ(pipe(g_pipe), 0);
    EXPECT_EQ(StatusOfChild(ExitDuringARewrite), 0);
    EXPECT_EQ(Written(), "w");
}

TEST(RewriteScope, TheSignalsThatEndTheServiceComeAfterIt) {
    for (const int number : {SIGINT, SIGTERM, SIGQUIT}) {
        static volatile sig_atomic_t seen;
        seen = 0;
        struct sigaction note = {};
        struct sigaction before = {};
        note.sa_handler = [](int) { seen = 1; };
        sigaction(number, &note, &before);
        {
            const RewriteScope scope;
            raise(number);
            EXPECT_EQ(seen, 0) << number;
        }
        EXPECT_EQ(seen, 1) << number;
        sigaction(number, &before, nullptr);
    }
}

TEST(RewriteScope, TheMaskIsAsItWas) {
    sigset_t mask;
    sigset_t hangUp;
    sigemptyset(&hangUp);
    sigaddset(&hangUp, SIGHUP);
    pthread_sigmask(SIG_BLOCK, &hangUp, &mask);
    { const RewriteScope scope; }
    sigset_t after;
    pthread_sigmask(SIG_SETMASK, &mask, &after);
    EXPECT_EQ(sigismember(&after, SIGHUP), 1);
    EXPECT_EQ(sigismember(&after, SIGTERM), 0);
}

}  // namespace
