// SPDX-License-Identifier: MIT
#include "client/show/poll.h"

#include <time.h>

#include <algorithm>

namespace client {

namespace {

volatile sig_atomic_t g_signal = 0;
int g_notes = 0;  // that live

void Note(int number) {
    g_signal = number;
}

}  // namespace

double MonotonicSeconds() {
    struct timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

SignalNote::SignalNote() {
    // The inner of two knows what the outer has seen already.
    if (g_notes++ == 0) {
        g_signal = 0;
    }
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
        struct sigaction note = {};
        Saved saved = {number, {}};
        note.sa_handler = Note;
        // Who started the command with nohup does not want it to end.
        if (sigaction(number, nullptr, &saved.action) == 0 && saved.action.sa_handler != SIG_IGN &&
            sigaction(number, &note, nullptr) == 0) {
            saved_.push_back(saved);
        }
    }
}

SignalNote::~SignalNote() {
    --g_notes;
    for (const Saved& saved : saved_) {
        sigaction(saved.number, &saved.action, nullptr);
    }
}

int SignalNote::Signal() const {
    return g_signal;
}

bool Poll::Again() const {
    const double left = end_ - MonotonicSeconds();
    if (Interrupted() || left <= 0) {
        return false;
    }
    // The last look is at the end, not a pause before it.
    const double pause = std::min(pause_, left);
    const auto seconds = static_cast<time_t>(pause);
    const struct timespec rest = {seconds,
                                  static_cast<long>((pause - static_cast<double>(seconds)) * 1e9)};
    nanosleep(&rest, nullptr);  // a signal cuts it short
    return !Interrupted();
}

}  // namespace client
