// SPDX-License-Identifier: MIT
#include "softcache/store/disk.h"

#include <errno.h>
#include <fcntl.h>
#include <linux/fs.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <new>

#include "softcache/store/file_io.h"

namespace softcache {

constexpr size_t kLargestBlock = 4096;
constexpr size_t kBounceBytes = 128 << 10;

AlignedBytes AllocateAligned(size_t size) {
    const size_t whole = (size + kLargestBlock - 1) / kLargestBlock * kLargestBlock;
    void* bytes = aligned_alloc(kLargestBlock, std::max(whole, kLargestBlock));
    if (bytes == nullptr) {
        throw std::bad_alloc();
    }
    return AlignedBytes(static_cast<uint8_t*>(bytes));
}

// Where data that is not aligned passes through; one for each thread.
static uint8_t* Bounce() {
    static thread_local const AlignedBytes bytes = AllocateAligned(kBounceBytes);
    return bytes.get();
}

// What direct access to the file wants, the block's size 0 when it cannot be had. File systems that
// do not say are asked for what suits every disk.
static void DirectAlignment(int fd, uint32_t& block, uint32_t& memory) {
    block = memory = kLargestBlock;
    struct stat status;
    int sector = 0;
    if (fstat(fd, &status) == 0 && S_ISBLK(status.st_mode) && ioctl(fd, BLKSSZGET, &sector) == 0) {
        block = static_cast<uint32_t>(sector);
    }
#ifdef STATX_DIOALIGN
    struct statx more {};
    if (statx(fd, "", AT_EMPTY_PATH, STATX_DIOALIGN, &more) == 0 &&
        (more.stx_mask & STATX_DIOALIGN) != 0) {
        block = more.stx_dio_offset_align;
        memory = std::max(more.stx_dio_mem_align, 1u);
    }
#endif
}

std::string Disk::GoDirect() {
    uint32_t block = 0;
    uint32_t memory = 0;
    DirectAlignment(fd_, block, memory);
    const char* unable = "its file system cannot do otherwise";
    if (block == 0 || block > kLargestBlock) {
        return unable;
    }
    if (Size() % block != 0) {
        return "its size is not a multiple of " + std::to_string(block);
    }
    const int flags = fcntl(fd_, F_GETFL);
    if (flags < 0 || fcntl(fd_, F_SETFL, flags | O_DIRECT) != 0) {
        return unable;
    }
    if (pread(fd_, Bounce(), block, 0) < 0) {  // some take the flag, and then no request
        fcntl(fd_, F_SETFL, flags);
        return unable;
    }
    block_ = block;
    memory_ = memory;
    return "";
}

bool Disk::IsAligned(const void* data, size_t size, uint64_t offset) const {
    return reinterpret_cast<uintptr_t>(data) % memory_ == 0 && size % block_ == 0 &&
           offset % block_ == 0;
}

int Disk::Read(void* data, size_t size, uint64_t offset) const {
    if (IsAligned(data, size, offset)) {
        return ReadFull(fd_, data, size, offset);
    }
    auto* bytes = static_cast<uint8_t*>(data);
    while (size > 0) {
        const size_t part = std::min(size, kBounceBytes - Lead(offset));
        const int result = ReadPart(bytes, part, offset);
        if (result != 0) {
            return result;
        }
        bytes += part;
        offset += part;
        size -= part;
    }
    return 0;
}

int Disk::Write(const void* data, size_t size, uint64_t offset) const {
    if (IsAligned(data, size, offset)) {
        return WriteFull(fd_, data, size, offset);
    }
    const auto* bytes = static_cast<const uint8_t*>(data);
    while (size > 0) {
        const size_t part = std::min(size, kBounceBytes - Lead(offset));
        const int result = WritePart(bytes, part, offset);
        if (result != 0) {
            return result;
        }
        bytes += part;
        offset += part;
        size -= part;
    }
    return 0;
}

// The whole blocks around the bytes fit into the bounce buffer, here and below.
int Disk::ReadPart(uint8_t* data, size_t size, uint64_t offset) const {
    const size_t lead = Lead(offset);
    const size_t whole = (lead + size + block_ - 1) / block_ * block_;
    const int result = ReadFull(fd_, Bounce(), whole, offset - lead);
    if (result == 0) {
        memcpy(data, Bounce() + lead, size);
    }
    return result;
}

int Disk::WritePart(const uint8_t* data, size_t size, uint64_t offset) const {
    const size_t lead = Lead(offset);
    const size_t whole = (lead + size + block_ - 1) / block_ * block_;
    const uint64_t start = offset - lead;
    int result = 0;
    if (lead != 0) {
        result = ReadFull(fd_, Bounce(), block_, start);
    }
    if (result == 0 && (lead + size) % block_ != 0) {
        result = ReadFull(fd_, Bounce() + whole - block_, block_, start + whole - block_);
    }
    if (result != 0) {
        return result;
    }
    memcpy(Bounce() + lead, data, size);
    return WriteFull(fd_, Bounce(), whole, start);
}

int Disk::Sync() const {
    return fdatasync(fd_) == 0 ? 0 : -errno;
}

uint64_t Disk::Size() const {
    return SizeOf(fd_);
}

uint64_t Disk::Allocated() const {
    return AllocatedBytes(fd_);
}

}  // namespace softcache
