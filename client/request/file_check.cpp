// SPDX-License-Identifier: MIT
#include "client/request/file_check.h"

#include <errno.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>

#include <filesystem>

#include "client/show/output.h"
#include "client/show/text.h"
#include "client/volume/plain_links.h"
#include "client/volume/volume_view.h"
#include "util/scoped.h"
#include "util/stored_format.h"

namespace client {

namespace {

// The service builds "%s/%%s" of the mount path in one buffer.
constexpr size_t kMostMountPath = kPathBufferSize - sizeof("/%s");
constexpr size_t kMostRelativePath = kPathBufferSize - 1;
// It takes a file's directory from as much of its path as the buffer holds: the slash and one
// character of the name must be in it.
constexpr size_t kMostDirectory = kPathBufferSize - sizeof("/n");

std::string TooLong(const char* what, size_t length, size_t most) {
    return std::string(what) + " is " + std::to_string(length) +
           " characters long; the service takes " + std::to_string(most);
}

// Returns why no request can name what has this status, empty when it is a regular file.
std::string WhyNotRegular(const std::string& given, const struct stat& status) {
    if (S_ISREG(status.st_mode)) {
        return "";
    }
    // The service would look for the target's inode in the link's directory, and not find it.
    if (S_ISLNK(status.st_mode)) {
        std::error_code error;
        const std::string target = std::filesystem::read_symlink(given, error).string();
        return "is a symbolic link to " + Printable(error ? "?" : target) +
               "; name the file that it leads to";
    }
    return S_ISDIR(status.st_mode) ? kIsDirectory : "is not a regular file";
}

// Stores the path with its directory resolved and its last component as it is.
bool ResolveDirectory(const std::string& given, std::string& path) {
    const CString resolved(realpath(DirectoryOf(given).c_str(), nullptr));
    if (!resolved) {
        return false;
    }
    path = resolved.get();
    path += (path == "/" ? "" : "/") + NameOf(given);
    return true;
}

}  // namespace

std::string WhyNotMountPath(const std::string& mountPath) {
    if (mountPath.empty()) {
        return "its mount path is empty";
    }
    if (mountPath.size() > kMostMountPath) {
        return TooLong("its mount path", mountPath.size(), kMostMountPath);
    }
    // The receiver cuts its list of paths there, the mount path's part included.
    if (mountPath.find(kListSeparator) != std::string::npos) {
        return "its mount path holds \";\", which separates files in a request";
    }
    return "";
}

std::string WhyNotStorable(const std::string& mountPath, const std::string& relative) {
    std::string whyNot = WhyNotMountPath(mountPath);
    const std::string path = PathOnVolume(mountPath, relative);
    if (!whyNot.empty()) {
        return whyNot;
    }
    // The service reads the stored list word by word.
    if (HasWhiteSpace(relative)) {
        return "its name holds white space, at which the service would cut it";
    }
    if (relative.find(kListSeparator) != std::string::npos) {
        return "its name holds \";\", which separates files in a request";
    }
    if (relative.find(kInodeMark) != std::string::npos) {
        return "its name holds \"#\", which separates name and inode in the service's store";
    }
    if (relative.size() > kMostRelativePath) {
        return TooLong("its path in the volume", relative.size(), kMostRelativePath);
    }
    if (path.find_last_of('/') > kMostDirectory) {
        return TooLong("its directory's path", path.find_last_of('/'), kMostDirectory);
    }
    if (path.size() > kMostListLength) {
        return TooLong("its path", path.size(), kMostListLength);
    }
    return "";
}

bool IsBitmapFile(const FileRef& file) {
    const std::string& mountPath = file.volume->mountPath;
    return PathOnVolume(mountPath, PathBelow(mountPath, file.path)) == BitmapPathOf(*file.volume);
}

bool ExamineFile(const std::string& given, const std::vector<Volume>& volumes, FileRef& file,
                 std::string& why) {
    struct stat status = {};
    struct stat mount = {};
    // The last component is not followed, and its directory is.
    if (lstat(given.c_str(), &status) != 0 || !ResolveDirectory(given, file.path)) {
        why = strerror(errno);
        return false;
    }
    why = WhyNotRegular(given, status);
    if (!why.empty()) {
        return false;
    }
    // By the path alone; the next question is whether that is true.
    file.volume = FindVolumeOf(file.path, volumes);
    if (file.volume == nullptr || stat(file.volume->mountPath.c_str(), &mount) != 0) {
        why = WhyOnNoVolume();
        return false;
    }
    // The service would look for the inode on the volume, and may find another file by that number.
    if (mount.st_dev != status.st_dev) {
        why = "lies on another file system that is mounted in volume " +
              Printable(file.volume->mountPath);
        return false;
    }
    file.relative = PathBelow(file.volume->mountPath, file.path);
    file.inode = static_cast<uint32_t>(status.st_ino);
    file.size = static_cast<uint64_t>(status.st_size);
    why = WhyNotStorable(file.volume->mountPath, file.relative);
    if (CanBeLinked(file) && HasLink(file.volume->mountPath, file.inode)) {
        file.relative = LinkName(file.inode);
        why.clear();
    }
    return why.empty();
}

bool MapForRequest(Mapper& mapper, FileRef& file, std::string& why) {
    switch (mapper.Map(file)) {
        case MapOutcome::kMapped:
            return true;
        case MapOutcome::kNothing:
            why =
                "has no place on the device (empty, or all hole): the service would wait a "
                "minute for it and then drop the whole request";
            return false;
        default:
            why = "its extents cannot be read (ext4 and XFS report them)";
            return false;
    }
}

Followers FindFollowers(const std::vector<DeviceState>& devices,
                        const std::vector<Volume>& volumes) {
    Followers followers;
    Mapper mapper;
    for (const DeviceState& device : devices) {
        for (const PinnedFile& pinned : device.listed) {
            // Only there another file lies in the place.
            if (pinned.fate != Fate::kReplaced) {
                continue;
            }
            const std::string path = ListedPath(pinned);
            Follower& follower = followers[path];
            // The reason stays with the path: the entry goes, and its operator should know why
            // nothing takes its place.
            if (ExamineFile(path, volumes, follower.file, follower.why)) {
                MapForRequest(mapper, follower.file, follower.why);
            }
        }
    }
    return followers;
}

bool CanBeLinked(const FileRef& file) {
    return file.volume != nullptr && !file.relative.empty() &&
           !WhyNotStorable(file.volume->mountPath, file.relative).empty() &&
           WhyNotStorable(file.volume->mountPath, LinkName(file.inode)).empty();
}

}  // namespace client
