// SPDX-License-Identifier: MIT
#include "softcache/store/distrust.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "softcache/store/file_io.h"

namespace softcache {

std::string DefaultDistrustDirectory() {
    return "/etc/quorsoftcache.distrusted";
}

std::string Distrust::PathOf(const SsdHead& head) const {
    std::string name;
    char digits[12];
    for (const uint8_t byte : head.id) {
        snprintf(digits, sizeof(digits), "%02x", byte);
        name += digits;
    }
    snprintf(digits, sizeof(digits), "-%08x", head.tableSeed);
    return directory_ + "/" + name + digits;
}

static int SyncDirectory(const std::string& path) {
    const OwnedFd fd(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    return fd.valid() && fsync(fd.get()) == 0 ? 0 : -errno;
}

int Distrust::Note(const SsdHead& head) const {
    const bool isMade = mkdir(directory_.c_str(), 0700) == 0;
    const std::string parent = std::filesystem::path(directory_).parent_path();
    if (isMade ? SyncDirectory(parent) != 0 : errno != EEXIST) {
        return -errno;
    }
    const OwnedFd fd(open(PathOf(head).c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
    if (!fd.valid() || fsync(fd.get()) != 0) {
        return -errno;
    }
    return SyncDirectory(directory_);
}

bool Distrust::Has(const SsdHead& head) const {
    return access(PathOf(head).c_str(), F_OK) == 0 || (errno != ENOENT && errno != ENOTDIR);
}

void Distrust::Forget(const SsdHead& head) const {
    unlink(PathOf(head).c_str());
}

}  // namespace softcache
