// SPDX-License-Identifier: MIT
// An open file or block device, read and written at any offset, past the page cache where that can
// be had.
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>

#include <memory>
#include <string>

namespace softcache {

struct FreeBytes {
    void operator()(uint8_t* bytes) const { free(bytes); }
};
using AlignedBytes = std::unique_ptr<uint8_t, FreeBytes>;

// `size` bytes of memory, aligned to 4096, freed when they go.
AlignedBytes AllocateAligned(size_t size);

// A record of a descriptor, which stays the caller's and outlives it. Any number of threads may
// read and write; but two that write into the same block, one of them not all of it, take turns.
class Disk {
  public:
    explicit Disk(int fd) : fd_(fd) {}

    // From now on past the page cache. Returns an empty text, or why that cannot be had, and then
    // nothing has changed.
    std::string GoDirect();

    // Read or write exactly `size` bytes at byte `offset`, whatever the alignment of any of them.
    // Return 0 or -errno; a file that ends before the last byte is -EIO.
    int Read(void* data, size_t size, uint64_t offset) const;
    int Write(const void* data, size_t size, uint64_t offset) const;

    // Brings to stable storage what was written. Returns 0 or -errno.
    int Sync() const;

    int Fd() const { return fd_; }
    uint64_t Size() const;       // bytes; 0 when that cannot be found out
    uint64_t Allocated() const;  // bytes of it that have space of their own; of a device, all

  private:
    // Bytes from the beginning of the block.
    size_t Lead(uint64_t offset) const { return static_cast<size_t>(offset % block_); }
    bool IsAligned(const void* data, size_t size, uint64_t offset) const;
    int ReadPart(uint8_t* data, size_t size, uint64_t offset) const;
    int WritePart(const uint8_t* data, size_t size, uint64_t offset) const;

    int fd_;
    uint32_t block_ = 1;   // what offsets and lengths must be multiples of
    uint32_t memory_ = 1;  // and what addresses must be
};

}  // namespace softcache
