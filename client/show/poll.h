// SPDX-License-Identifier: MIT
// Looking again and again until something is so, for as long as time and the operator allow.
#pragma once

#include <signal.h>

#include <limits>
#include <vector>

namespace client {

// Seconds that pass, from some start.
double MonotonicSeconds();

// Notes SIGINT, SIGTERM and SIGHUP for as long as it lives, instead of ending the command between
// two steps that belong together. What was ignored before stays ignored, as nohup wants it. One may
// live inside another; both know the same signal.
class SignalNote {
  public:
    SignalNote();
    ~SignalNote();
    SignalNote(const SignalNote&) = delete;
    SignalNote& operator=(const SignalNote&) = delete;

    // The signal that came last, 0 when none has.
    int Signal() const;

  private:
    struct Saved {
        int number;
        struct sigaction action;
    };
    std::vector<Saved> saved_;
};

constexpr double kNoLimit = std::numeric_limits<double>::infinity();

// The pauses between two looks, and the end of looking.
class Poll {
  public:
    // Seconds between two looks, and how long to look at all. A signal in `note` ends it too.
    Poll(double pause, double limit, const SignalNote* note = nullptr)
        : pause_(pause), end_(MonotonicSeconds() + limit), note_(note) {}

    // Pauses until the next look. Returns false when there is to be none.
    bool Again() const;

  private:
    bool Interrupted() const { return note_ != nullptr && note_->Signal() != 0; }

    const double pause_;
    const double end_;
    const SignalNote* const note_;
};

}  // namespace client
