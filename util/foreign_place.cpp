// SPDX-License-Identifier: MIT
#include "util/foreign_place.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <string>

#include "util/log.h"

namespace {

// The path of the directory that the file's own name stands in.
std::string DirectoryOf(const std::string& path) {
    size_t slash = path.rfind('/');

    return slash == std::string::npos ? "." : path.substr(0, slash + 1);
}

// A sticky directory counts as any other: whoever may write to it can make a link in it.
bool OnlyRootChanges(const std::string& directory) {
    struct stat status = {};

    return stat(directory.c_str(), &status) == 0 && status.st_uid == 0 &&
           (status.st_mode & (S_IWGRP | S_IWOTH)) == 0;
}

}  // namespace

int OpenInForeignPlace(const char* path, int flags, mode_t mode) {
    struct stat link = {};
    int fd = open(path, flags | O_NONBLOCK | O_NOFOLLOW, mode);

    if (fd >= 0 || errno != ELOOP || lstat(path, &link) != 0 || !S_ISLNK(link.st_mode)) {
        return fd;
    }
    if (link.st_uid != 0 || !OnlyRootChanges(DirectoryOf(path))) {
        LogError("File (%s) is a symbolic link that others than root can change", path);
        return -1;
    }
    return open(path, flags | O_NONBLOCK, mode);
}
