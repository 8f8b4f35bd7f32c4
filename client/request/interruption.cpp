// SPDX-License-Identifier: MIT
#include "client/request/interruption.h"

namespace client {

namespace {

volatile sig_atomic_t g_signal = 0;

void Note(int number) {
    g_signal = number;
}

}  // namespace

InterruptNote::InterruptNote() {
    g_signal = 0;
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
        struct sigaction note = {};
        Saved saved = {number, {}};
        note.sa_handler = Note;
        if (sigaction(number, nullptr, &saved.action) == 0 && saved.action.sa_handler != SIG_IGN &&
            sigaction(number, &note, nullptr) == 0) {
            saved_.push_back(saved);
        }
    }
}

InterruptNote::~InterruptNote() {
    for (const Saved& saved : saved_) {
        sigaction(saved.number, &saved.action, nullptr);
    }
}

int InterruptNote::Signal() {
    return g_signal;
}

}  // namespace client
