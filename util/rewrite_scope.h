// SPDX-License-Identifier: MIT
// The moment in which a file that is rewritten in place is empty: no orderly end of the process may
// fall into it.
#pragma once

#include <signal.h>

// While it lives, an `exit` begun by another thread waits for it, a second at most, and the signals
// that end the service are held back in this thread. A thread that wants one once the process has
// begun to exit waits for the process's end.
class RewriteScope {
  public:
    RewriteScope();
    ~RewriteScope();
    RewriteScope(const RewriteScope&) = delete;
    RewriteScope& operator=(const RewriteScope&) = delete;

  private:
    sigset_t before_;
};
