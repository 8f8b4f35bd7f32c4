// SPDX-License-Identifier: MIT
#include "platform/linux/small_file.h"

#include <errno.h>
#include <fcntl.h>
#include <stdint.h>
#include <sys/stat.h>

#include "platform/linux/unique_fd.h"

namespace stand_in {

int OpenSmallFile(const std::string& path, int flags) {
    UniqueFd file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | flags));
    struct stat status = {};
    if (!file.Valid() || fstat(file.Get(), &status) != 0) {
        return -1;
    }
    if (!S_ISREG(status.st_mode)) {
        file.Reset(-1);
        errno = EINVAL;
    }
    return file.Release();
}

namespace {

bool ReadUpTo(size_t limit, int fd, std::string& content) {
    std::string all;
    char buffer[4096];
    for (;;) {
        const ssize_t got = read(fd, buffer, sizeof buffer);
        if (got < 0 && errno == EINTR) {
            continue;
        }
        if (got < 0) {
            return false;
        }
        if (got == 0) {
            content = std::move(all);
            return true;
        }
        if (static_cast<size_t>(got) > limit - all.size()) {
            errno = EFBIG;
            return false;
        }
        all.append(buffer, static_cast<size_t>(got));
    }
}

}  // namespace

bool ReadSmallFile(int fd, std::string& content) {
    return ReadUpTo(kSmallFileLimit, fd, content);
}

bool ReadAll(int fd, std::string& content) {
    return ReadUpTo(SIZE_MAX, fd, content);
}

}  // namespace stand_in
