// SPDX-License-Identifier: MIT
#include "client/volume/volumes.h"

#include <errno.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <memory>

#include "client/show/text.h"
#include "util/scoped.h"
#include "util/space.h"

namespace client {

namespace {

constexpr int kAllSpaces = 1;

struct SpaceListDeleter {
    void operator()(SpaceInfo* list) const { QUORSpaceInfoFree(list); }
};

std::string WithoutTrailingSlashes(const std::string& path) {
    const size_t last = path.find_last_not_of('/');
    return last == std::string::npos ? path.substr(0, 1) : path.substr(0, last + 1);
}

bool OnSameFileSystem(const std::string& path, const std::string& other) {
    struct stat left = {};
    struct stat right = {};
    return stat(path.c_str(), &left) == 0 && stat(other.c_str(), &right) == 0 &&
           left.st_dev == right.st_dev;
}

}  // namespace

bool ListVolumes(std::vector<Volume>& volumes) {
    SpaceInfo* first = nullptr;
    if (QUORSpaceInfoEnum(kAllSpaces, &first) < 0) {
        return false;
    }
    // The whole list is freed by its first.
    const std::unique_ptr<SpaceInfo, SpaceListDeleter> list(first);
    for (const SpaceInfo* space = first; space != nullptr; space = space->next) {
        const CString uuid(QUORSpaceUUIDGet(space));
        // A path that fills its field has no terminator.
        const size_t length = strnlen(space->referencePath, sizeof(space->referencePath));
        volumes.push_back({std::string(space->referencePath, length), uuid ? uuid.get() : ""});
    }
    return true;
}

std::string PathOnVolume(const std::string& mountPath, const std::string& relative) {
    // For the volume "/" with two slashes, as the service stores and compares it.
    return mountPath + "/" + relative;
}

std::string PathBelow(const std::string& mountPath, const std::string& path) {
    const std::string start = mountPath == "/" ? mountPath : mountPath + "/";
    return StartsWith(path, start) ? path.substr(start.size()) : "";
}

const Volume* FindVolumeOf(const std::string& path, const std::vector<Volume>& volumes) {
    const Volume* best = nullptr;
    for (const Volume& volume : volumes) {
        // A volume may be mounted within another: the inner one is meant.
        const bool holds = volume.mountPath == path || !PathBelow(volume.mountPath, path).empty();
        if (holds && (best == nullptr || volume.mountPath.size() > best->mountPath.size())) {
            best = &volume;
        }
    }
    return best;
}

const Volume* FindMounted(const std::string& mountPath, const std::vector<Volume>& volumes) {
    for (const Volume& volume : volumes) {
        if (volume.mountPath == mountPath) {
            return &volume;
        }
    }
    return nullptr;
}

std::string WhyOnNoVolume() {
    return geteuid() == 0
               ? "lies on no volume that the service knows"
               : "lies on no volume that can be told without reading its device, which needs root";
}

std::string WhyNotThere(const std::string& mountPath) {
    const bool there = access(mountPath.c_str(), F_OK) == 0;
    return geteuid() == 0 || !there || OnSameFileSystem(mountPath, mountPath + "/..")
               ? "is not mounted"
               : "cannot be told from others without reading its device, which needs root";
}

const Volume* ResolveVolume(const std::string& given, const std::vector<Volume>& volumes,
                            std::string& why) {
    if (given.empty()) {
        why = "an empty path names no volume";
        return nullptr;
    }
    // Without looking at the disk: a mount path that hangs can still be named.
    if (const Volume* const exact = FindMounted(WithoutTrailingSlashes(given), volumes)) {
        return exact;
    }
    const CString resolved(realpath(given.c_str(), nullptr));
    if (!resolved) {
        why = strerror(errno);
        return nullptr;
    }
    const Volume* const volume = FindVolumeOf(resolved.get(), volumes);
    //  !OnSameFileSystem(|Below the mount path may lie a file system that is no volume.
    if (volume == nullptr || !OnSameFileSystem(resolved.get(), volume->mountPath)) {
        why = geteuid() == 0 ? "no volume that the service knows holds it" : WhyOnNoVolume();
        return nullptr;
    }
    return volume;
}

bool VolumeKeepsPins(const Volume& volume) {
    return !volume.uuid.empty() && SpaceHasCacheAndSupportPinByUUID(volume.uuid.c_str()) == 1;
}

}  // namespace client
