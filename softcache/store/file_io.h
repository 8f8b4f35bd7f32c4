// SPDX-License-Identifier: MIT
// Whole reads and writes at an offset, a descriptor that closes itself, and files that are replaced
// in one step.
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <unistd.h>

#include <string>
#include <utility>

namespace softcache {

// An open descriptor, closed when it goes; -1 = none.
class OwnedFd {
  public:
    OwnedFd() = default;
    explicit OwnedFd(int fd) : fd_(fd) {}
    OwnedFd(OwnedFd&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    OwnedFd& operator=(OwnedFd&& other) noexcept {
        std::swap(fd_, other.fd_);
        return *this;
    }
    ~OwnedFd() {
        if (fd_ >= 0) {
            close(fd_);
        }
    }

    int get() const { return fd_; }
    bool valid() const { return fd_ >= 0; }

  private:
    int fd_ = -1;
};

// Read or write exactly `size` bytes at byte `offset`. Return 0 or -errno; a file that ends before
// the last byte is -EIO.
int ReadFull(int fd, void* data, size_t size, uint64_t offset);
int WriteFull(int fd, const void* data, size_t size, uint64_t offset);

// The size of an open regular file or block device, and how much of it has space of its own (of a
// block device: all), in bytes; 0 when that cannot be found out.
uint64_t SizeOf(int fd);
uint64_t AllocatedBytes(int fd);

// Writes `size` bytes into a new file of `mode` beside `path` (its name plus ".new", which no
// reader of `path` looks at), ready to be renamed over it. Returns 0 and the open descriptor, or
// -errno with nothing left behind.
int WriteReplacement(const std::string& path, const void* data, size_t size, mode_t mode,
                     OwnedFd& replacement);

// Renames the replacement over `path`. Returns 0, or -errno with the replacement removed.
int PutReplacement(const std::string& path);

// Removes a replacement that is not to be put.
void DropReplacement(const std::string& path);

}  // namespace softcache
