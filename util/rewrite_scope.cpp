// SPDX-License-Identifier: MIT
#include "util/rewrite_scope.h"

#include <pthread.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <initializer_list>

namespace {

constexpr int kPatience = 10000;                      // pauses that an exit makes at most
constexpr struct timespec kPause = {0, 100L * 1000};  // nanoseconds

std::atomic<bool> g_exiting{false};
std::atomic<int> g_rewrites{0};

// The handler of the three signals leaves by `exit`, which runs this while the other thread goes
// on. The thread that the signal interrupts is never in a scope itself.
struct ExitGate {
    ~ExitGate() {
        g_exiting = true;
        for (int i = 0; i < kPatience && g_rewrites > 0; ++i) {
            nanosleep(&kPause, nullptr);
        }
    }
} g_exitGate;

}  // namespace

RewriteScope::RewriteScope() {
    sigset_t ending;
    sigemptyset(&ending);
    for (const int signal : {SIGINT, SIGTERM, SIGQUIT}) {
        sigaddset(&ending, signal);
    }
    pthread_sigmask(SIG_BLOCK, &ending, &before_);
    // First counted, then looked: an exit that does not see the count is seen here.
    ++g_rewrites;
    if (g_exiting) {
        --g_rewrites;
        for (;;) {
            pause();
        }
    }
}

RewriteScope::~RewriteScope() {
    --g_rewrites;
    pthread_sigmask(SIG_SETMASK, &before_, nullptr);
}
