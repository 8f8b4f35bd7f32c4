// SPDX-License-Identifier: MIT
// Noticing that something has changed since it was last looked at: an answer that is remembered is
// as good as a fresh one as long as the watch over it says that nothing changed.
//
// A watch may claim a change that there was not, never the reverse; in a forked child it claims
// one. It is used by one thread at a time.
#pragma once

#include <stdint.h>

#include <string>

#include "platform/linux/unique_fd.h"

namespace stand_in {

// How long an answer is believed whose change nothing tells.
class Lifetime {
  public:
    explicit Lifetime(int64_t milliseconds) : milliseconds_(milliseconds) {}

    void Start();
    bool Over() const;

  private:
    const int64_t milliseconds_;
    int64_t start_ = 0;  // of the monotonic clock
};

// The mounts of the namespace in which Start was called.
class MountWatch {
  public:
    // From now on changes are noticed. Returns false with errno set when they cannot be.
    bool Start();

    // Whether a mount was made, moved, altered or taken away since Start or the last call, or
    // nothing was started.
    bool Changed() const;

  private:
    friend struct Changes;

    UniqueFd mounts_{-1};
    unsigned fork_ = 0;  // in which child it was started
};

// One directory: its entries, and for who asks for it the content of its files.
class DirectoryWatch {
  public:
    enum What { kNames, kNamesAndContents };

    // From now on changes of the directory that the path leads to are noticed. Returns false when
    // they cannot be. A process that has started one takes some 15 ms longer to end, as the kernel
    // then waits for everybody who may be about to tell it of a change: it pays only for who looks
    // often.
    bool Start(const std::string& path, What what);

    // Whether anything changed since Start, or nothing was started. Stays so until the next Start.
    bool Changed() const;

  private:
    friend struct Changes;
    void Stop();

    UniqueFd events_{-1};
    int watch_ = -1;     // within `events_`
    unsigned fork_ = 0;  // in which child it was started
};

// Both watches asked at the price of one.
struct Changes {
    bool mounts;
    bool directory;

    Changes(const MountWatch& mountWatch, const DirectoryWatch& directoryWatch);
};

}  // namespace stand_in
