// SPDX-License-Identifier: MIT
// Which calls of a kind are to fail or to be cut short.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <vector>

// What becomes of one call.
struct CallOutcome {
    bool fails = false;
    int error = 0;            // for errno, or for the result where that carries the error
    size_t limit = SIZE_MAX;  // bytes that may be moved
};

// Counts calls and knows what becomes of each.
class FaultPlan {
  public:
    // Plans for `times` calls, the first of them the nth from now (1 = the next).
    void Add(int nth, int times, const CallOutcome& outcome) {
        faults_.push_back({count_ + nth, count_ + nth + times - 1, outcome});
    }

    // Counts a call; a later plan for it goes before an earlier one.
    CallOutcome Next() {
        CallOutcome outcome;

        ++count_;
        for (const Fault& fault : faults_) {
            if (fault.first <= count_ && count_ <= fault.last) {
                outcome = fault.outcome;
            }
        }
        return outcome;
    }

    int count() const { return count_; }

  private:
    struct Fault {
        int first;
        int last;
        CallOutcome outcome;
    };

    int count_ = 0;
    std::vector<Fault> faults_;
};
