// SPDX-License-Identifier: MIT
// Waiting for what a call lacked. The service takes a failure for a "no" and drops what it has
// stored, so a moment without descriptors or memory must not become an answer.
#pragma once

namespace stand_in {

// Returns whether a call that failed with this errno may succeed a little later: out of descriptors
// or memory, or interrupted.
bool MayPass(int error);

// The waiting that one question may cost, at most 5 seconds however many calls it takes.
class Patience {
  public:
    // Calls `attempt`, which returns false with errno set when it fails, again and again until it
    // succeeds, fails for a reason that does not pass, or the patience is used up. Returns the
    // result of the last attempt, with its errno.
    template <typename Attempt>
    bool Try(Attempt attempt) {
        while (!attempt()) {
            if (!WaitAfterFailure()) {
                return false;
            }
        }
        return true;
    }

  private:
    // Waits, unless errno is a failure that does not pass or the patience is used up; then returns
    // false. Leaves errno as it was.
    bool WaitAfterFailure();

    int waitsLeft_ = 100;
};

}  // namespace stand_in
