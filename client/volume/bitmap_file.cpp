// SPDX-License-Identifier: MIT
#include "client/volume/bitmap_file.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "client/show/output.h"
#include "client/show/text.h"
#include "util/scoped.h"

namespace client {

namespace {

constexpr mode_t kFileMode = 0644;

bool IsSymbolicLink(int directory, const std::string& name) {
    struct stat status = {};
    return fstatat(directory, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 &&
           S_ISLNK(status.st_mode);
}

bool WriteAll(int fd, const std::vector<uint8_t>& bytes) {
    size_t offset = 0;
    while (offset < bytes.size()) {
        const ssize_t done = write(fd, bytes.data() + offset, bytes.size() - offset);
        if (done == 0 || (done < 0 && errno != EINTR)) {
            return false;  // a write that takes nothing would be tried for ever
        }
        offset += done > 0 ? static_cast<size_t>(done) : 0;
    }
    return fsync(fd) == 0;
}

// The volume's users may put anything at either name: names are looked up in the directory that
// was opened, and nothing that is there already is written to.
bool Replace(int directory, const std::string& name, const std::vector<uint8_t>& bytes) {
    const std::string fresh = name + ".new";
    if (unlinkat(directory, fresh.c_str(), 0) != 0 && errno != ENOENT) {
        return false;  // no leftover of a repair that was killed, but a directory
    }
    const ScopedFd fd(openat(directory, fresh.c_str(),
                             O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, kFileMode));
    if (!fd.valid()) {
        return false;
    }
    // The operator's mask is not the service's: who could read the bitmap still can.
    if (fchmod(fd.get(), kFileMode) == 0 && WriteAll(fd.get(), bytes) &&
        renameat(directory, fresh.c_str(), directory, name.c_str()) == 0) {
        return fsync(directory) == 0;
    }
    const int error = errno;
    unlinkat(directory, fresh.c_str(), 0);
    errno = error;
    return false;
}

}  // namespace

bool ReplaceBitmapFile(const std::string& path, const std::vector<uint8_t>& bytes,
                       std::string& why) {
    const std::string name = NameOf(path);
    const ScopedFd directory(open(DirectoryOf(path).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (directory.valid() && IsSymbolicLink(directory.get(), name)) {
        why = Printable(path) + " is a symbolic link, which is not written through";
        return false;
    }
    if (!directory.valid() || !Replace(directory.get(), name, bytes)) {
        why = Printable(path) + ": " + strerror(errno);
        return false;
    }
    return true;
}

}  // namespace client
