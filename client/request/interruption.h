// SPDX-License-Identifier: MIT
// Signals that would end the command between two steps that belong together.
#pragma once

#include <signal.h>

#include <vector>

namespace client {

// Notes SIGINT, SIGTERM and SIGHUP for as long as it lives. What was ignored before stays ignored,
// as nohup wants it.
class InterruptNote {
  public:
    InterruptNote();
    ~InterruptNote();
    InterruptNote(const InterruptNote&) = delete;
    InterruptNote& operator=(const InterruptNote&) = delete;

    // The signal that has come, 0 when none has.
    static int Signal();

  private:
    struct Saved {
        int number;
        struct sigaction action;
    };
    std::vector<Saved> saved_;
};

}  // namespace client
