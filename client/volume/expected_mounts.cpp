// SPDX-License-Identifier: MIT
#include "client/volume/expected_mounts.h"

#include <fcntl.h>
#include <mntent.h>
#include <stdio.h>
#include <sys/stat.h>

#include <memory>

#include "client/volume/volumes.h"

namespace client {

namespace {

constexpr char kFstab[] = "/etc/fstab";

// Whether something is mounted at the directory. A kernel that cannot tell is taken to say yes.
bool IsMountPoint(const std::string& directory) {
    struct statx status = {};
    return statx(AT_FDCWD, directory.c_str(), AT_NO_AUTOMOUNT, 0, &status) == 0 &&
           ((status.stx_attributes_mask & STATX_ATTR_MOUNT_ROOT) == 0 ||
            (status.stx_attributes & STATX_ATTR_MOUNT_ROOT) != 0);
}

}  // namespace

std::vector<std::string> ExpectedMounts() {
    std::vector<std::string> mountPoints;
    const std::unique_ptr<FILE, int (*)(FILE*)> file(fopen(kFstab, "re"), fclose);
    struct mntent entry = {};
    char line[4096];
    while (file && getmntent_r(file.get(), &entry, line, sizeof(line)) != nullptr) {
        if (entry.mnt_dir[0] == '/') {
            mountPoints.emplace_back(entry.mnt_dir);
        }
    }
    return mountPoints;
}

std::string FindUnmounted(const std::string& path, const std::vector<std::string>& mountPoints) {
    std::string longest;
    for (const std::string& mountPoint : mountPoints) {
        const bool holds = path == mountPoint || !PathBelow(mountPoint, path).empty();
        if (holds && mountPoint.size() > longest.size() && !IsMountPoint(mountPoint)) {
            longest = mountPoint;
        }
    }
    return longest;
}

}  // namespace client
