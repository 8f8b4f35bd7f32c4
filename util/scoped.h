// SPDX-License-Identifier: MIT
// Owners of what the C interfaces hand out, so that early returns release it.
#pragma once

#include <stdlib.h>
#include <unistd.h>

#include <memory>

struct FreeDeleter {
    void operator()(void* memory) const { free(memory); }
};

// A text or buffer of the C heap.
using CString = std::unique_ptr<char, FreeDeleter>;

// An open descriptor, closed at the end of the scope; a negative one is none.
class ScopedFd {
  public:
    explicit ScopedFd(int fd) : fd_(fd) {}
    ~ScopedFd() {
        if (fd_ >= 0) {
            close(fd_);
        }
    }
    ScopedFd(const ScopedFd&) = delete;
    ScopedFd& operator=(const ScopedFd&) = delete;

    int get() const { return fd_; }
    bool valid() const { return fd_ >= 0; }

  private:
    int fd_;
};
