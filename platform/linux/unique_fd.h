// SPDX-License-Identifier: MIT
// A file descriptor that closes itself.
#pragma once

#include <unistd.h>

namespace stand_in {

class UniqueFd {
  public:
    explicit UniqueFd(int fd) : fd_(fd) {}
    ~UniqueFd() { Reset(-1); }
    UniqueFd(UniqueFd&& other) noexcept : fd_(other.Release()) {}
    UniqueFd(const UniqueFd&) = delete;
    UniqueFd& operator=(const UniqueFd&) = delete;

    int Get() const { return fd_; }
    bool Valid() const { return fd_ >= 0; }

    // Gives the descriptor away; the caller closes it.
    int Release() {
        const int fd = fd_;
        fd_ = -1;
        return fd;
    }

    void Reset(int fd) {
        if (fd_ >= 0) {
            close(fd_);
        }
        fd_ = fd;
    }

  private:
    int fd_;
};

}  // namespace stand_in
