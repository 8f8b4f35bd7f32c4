// SPDX-License-Identifier: MIT
// Waiting for what a call lacked. Whoever asks takes a failure for a no and drops what it stored,
// so a moment without descriptors or memory must not become an answer.
#pragma once

namespace stand_in {

// Whether a call that failed with this errno may succeed a little later: no descriptors, no memory,
// interrupted.
bool MayPass(int error);

// The waiting that one question may cost, at most 5 seconds however many calls it takes.
class Patience {
  public:
    // Calls `attempt`, which returns false with errno set when it fails, until it succeeds, its
    // failure is not one that may pass, or the patience is at its end. Returns what the last
    // attempt did, with its errno.
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
    // Looks at errno and keeps it. Returns false when there is nothing to wait for.
    bool WaitAfterFailure();

    int waitsLeft_ = 100;
};

}  // namespace stand_in
