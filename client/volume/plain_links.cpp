// SPDX-License-Identifier: MIT
#include "client/volume/plain_links.h"

#include <errno.h>
#include <fcntl.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "client/show/output.h"
#include "client/show/text.h"
#include "client/volume/directory_walk.h"
#include "util/scoped.h"

namespace client {

namespace {

constexpr mode_t kOwnerOnly = 0700;
constexpr mode_t kOthers = 0077;

std::string DescriptorPath(const ScopedFd& fd) {
    return "/proc/self/fd/" + std::to_string(fd.get());
}

// The directory of a volume's links, held open, so that nothing that a user of the volume does to
// names above it leads elsewhere.
class LinkDirectory {
  public:
    LinkDirectory(const std::string& mountPath, bool make)
        : top_(open(mountPath.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)),
          made_(!make || mkdirat(top_.get(), kLinkDirectory, kOwnerOnly) == 0 || errno == EEXIST),
          fd_(openat(top_.get(), kLinkDirectory, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC)) {
        const int error = errno;
        struct stat top = {};
        if (!made_ || !fd_.valid() || fstat(top_.get(), &top) != 0 ||
            fstat(fd_.get(), &own_) != 0) {
            why_ = strerror(error);
        } else if (own_.st_uid != 0 || (own_.st_mode & kOthers) != 0) {
            why_ = "is not root's alone";
        } else if (own_.st_dev != top.st_dev) {
            why_ = "lies on another file system";
        }
    }

    bool IsSound() const { return why_.empty(); }
    const std::string& WhyNot() const { return why_; }
    int Fd() const { return fd_.get(); }
    dev_t Device() const { return own_.st_dev; }

    // Stores the status of the file's link. Returns whether it is there.
    bool Look(uint32_t inode, struct stat& status) const {
        return IsSound() &&
               fstatat(fd_.get(), std::to_string(inode).c_str(), &status, AT_SYMLINK_NOFOLLOW) ==
                   0 &&
               S_ISREG(status.st_mode) && static_cast<uint32_t>(status.st_ino) == inode;
    }
    bool Remove(uint32_t inode) const {
        return unlinkat(fd_.get(), std::to_string(inode).c_str(), 0) == 0;
    }
    // As long as there are links it stays.
    void RemoveIfEmpty() const { unlinkat(top_.get(), kLinkDirectory, AT_REMOVEDIR); }

    std::vector<uint32_t> Inodes() const {
        std::vector<std::string> names;
        std::vector<uint32_t> inodes;
        if (IsSound()) {
            ListNames(DescriptorPath(fd_) + "/.", names);
        }
        for (const std::string& name : names) {
            if (IsLinkName(std::string(kLinkDirectory) + "/" + name)) {
                inodes.push_back(static_cast<uint32_t>(strtoull(name.c_str(), nullptr, 10)));
            }
        }
        return inodes;
    }

  private:
    const ScopedFd top_;
    const bool made_;
    const ScopedFd fd_;
    struct stat own_ = {};
    std::string why_;
};

}  // namespace

bool HasLink(const std::string& mountPath, uint32_t inode) {
    struct stat status = {};
    return LinkDirectory(mountPath, false).Look(inode, status);
}

std::vector<uint32_t> LinkedInodes(const std::string& mountPath) {
    const LinkDirectory links(mountPath, false);
    std::vector<uint32_t> inodes;
    for (const uint32_t inode : links.Inodes()) {
        struct stat status = {};
        if (links.Look(inode, status)) {
            inodes.push_back(inode);
        }
    }
    return inodes;
}

bool MakeLink(const FileRef& file, std::string& why) {
    const std::string& mountPath = file.volume->mountPath;
    const LinkDirectory links(mountPath, true);
    struct stat status = {};
    struct stat there = {};
    if (!links.IsSound()) {
        why = Printable(PathOnVolume(mountPath, kLinkDirectory)) + ": " + links.WhyNot();
        return false;
    }
    // Whatever happens to the path meanwhile, the link leads to the file that is held here.
    const ScopedFd source(open(file.path.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
    if (!source.valid() || fstat(source.get(), &status) != 0 || !S_ISREG(status.st_mode) ||
        status.st_dev != links.Device() || static_cast<uint32_t>(status.st_ino) != file.inode) {
        why = "was moved or replaced since it was examined";
        return false;
    }
    if (linkat(AT_FDCWD, DescriptorPath(source).c_str(), links.Fd(),
               std::to_string(file.inode).c_str(), AT_SYMLINK_FOLLOW) == 0) {
        return true;
    }
    const int error = errno;
    if (error == EEXIST && links.Look(file.inode, there) && there.st_ino == status.st_ino) {
        return true;
    }
    why = Printable(PathOnVolume(mountPath, LinkName(file.inode))) + ": " + strerror(error);
    return false;
}

bool RemoveLink(const std::string& mountPath, uint32_t inode) {
    const LinkDirectory links(mountPath, false);
    struct stat status = {};
    if (!links.Look(inode, status)) {
        return links.IsSound();
    }
    const bool gone = status.st_nlink > 1 && links.Remove(inode);
    links.RemoveIfEmpty();
    return gone;
}

std::vector<std::string> RemoveLastNames(const std::string& mountPath) {
    const LinkDirectory links(mountPath, false);
    std::vector<std::string> removed;
    for (const uint32_t inode : links.Inodes()) {
        struct stat status = {};
        if (links.Look(inode, status) && status.st_nlink == 1 && links.Remove(inode)) {
            removed.push_back(LinkName(inode));
        }
    }
    if (!removed.empty()) {
        links.RemoveIfEmpty();
    }
    return removed;
}

}  // namespace client
