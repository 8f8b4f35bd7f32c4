// SPDX-License-Identifier: MIT
#include "softcache/store/file_io.h"

#include <errno.h>
#include <fcntl.h>
#include <linux/fs.h>
#include <stdio.h>
#include <sys/ioctl.h>
#include <sys/stat.h>

namespace softcache {

int ReadFull(int fd, void* data, size_t size, uint64_t offset) {
    auto* bytes = static_cast<uint8_t*>(data);
    while (size > 0) {
        const ssize_t done = pread(fd, bytes, size, static_cast<off_t>(offset));
        if (done < 0 && errno == EINTR) {
            continue;
        }
        if (done <= 0) {
            return done < 0 ? -errno : -EIO;
        }
        bytes += done;
        size -= static_cast<size_t>(done);
        offset += static_cast<uint64_t>(done);
    }
    return 0;
}

int WriteFull(int fd, const void* data, size_t size, uint64_t offset) {
    const auto* bytes = static_cast<const uint8_t*>(data);
    while (size > 0) {
        const ssize_t done = pwrite(fd, bytes, size, static_cast<off_t>(offset));
        if (done < 0 && errno == EINTR) {
            continue;
        }
        if (done <= 0) {
            return done < 0 ? -errno : -EIO;
        }
        bytes += done;
        size -= static_cast<size_t>(done);
        offset += static_cast<uint64_t>(done);
    }
    return 0;
}

uint64_t SizeOf(int fd) {
    struct stat status;
    uint64_t size = 0;
    if (fstat(fd, &status) != 0) {
        return 0;
    }
    if (S_ISBLK(status.st_mode)) {
        return ioctl(fd, BLKGETSIZE64, &size) == 0 ? size : 0;
    }
    return static_cast<uint64_t>(status.st_size);
}

uint64_t AllocatedBytes(int fd) {
    constexpr uint64_t kBlock = 512;  // of st_blocks, whatever the file system's are
    struct stat status;
    if (fstat(fd, &status) != 0) {
        return 0;
    }
    return S_ISBLK(status.st_mode) ? SizeOf(fd) : static_cast<uint64_t>(status.st_blocks) * kBlock;
}

static std::string ReplacementName(const std::string& path) {
    return path + ".new";
}

int WriteReplacement(const std::string& path, const void* data, size_t size, mode_t mode,
                     OwnedFd& replacement) {
    const std::string name = ReplacementName(path);
    OwnedFd fd(open(name.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, mode));
    if (!fd.valid()) {
        return -errno;
    }
    const int result = WriteFull(fd.get(), data, size, 0);
    if (result != 0) {
        DropReplacement(path);
        return result;
    }
    replacement = std::move(fd);
    return 0;
}

int PutReplacement(const std::string& path) {
    if (rename(ReplacementName(path).c_str(), path.c_str()) == 0) {
        return 0;
    }
    const int error = errno;
    DropReplacement(path);
    return -error;
}

void DropReplacement(const std::string& path) {
    unlink(ReplacementName(path).c_str());
}

}  // namespace softcache
