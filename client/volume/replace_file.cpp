// SPDX-License-Identifier: MIT
#include "client/volume/replace_file.h"

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

bool WriteAll(int fd, const std::string& bytes) {
    size_t offset = 0;
    while (offset < bytes.size()) {
        const ssize_t done = write(fd, bytes.data() + offset, bytes.size() - offset);
        if (done == 0 || (done < 0 && errno != EINTR)) {
            return false;  // a write that takes nothing would be tried for ever
        }
        offset += done > 0 ? static_cast<size_t>(done) : 0;
    }
    return true;
}

// Gives the fresh file the mode and owner of the model. The operator's mask is not the service's:
// who could read the old file still can.
bool Settle(int fd, const struct stat* model) {
    if (model == nullptr) {
        return fchmod(fd, 0644) == 0;
    }
    struct stat now = {};
    // Who may not change owners need not when they agree. The owner comes first: a change of owner
    // takes mode bits away.
    return fstat(fd, &now) == 0 &&
           ((now.st_uid == model->st_uid && now.st_gid == model->st_gid) ||
            fchown(fd, model->st_uid, model->st_gid) == 0) &&
           fchmod(fd, model->st_mode & 07777U) == 0;
}

}  // namespace

// The volume's users may put anything at either name. So names are looked up in the directory that
// was opened, and nothing that is there already is written to.
bool ReplaceFile(const std::string& path, const std::string& bytes, const std::string& model,
                 std::string& why) {
    const std::string name = NameOf(path);
    const std::string freshName = name + ".new";
    const ScopedFd directory(open(DirectoryOf(path).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    struct stat old = {};
    struct stat like = {};
    if (directory.valid() &&
        fstatat(directory.get(), name.c_str(), &old, AT_SYMLINK_NOFOLLOW) == 0 &&
        S_ISLNK(old.st_mode)) {
        why = Printable(path) + " is a symbolic link, which is not written through";
        return false;
    }
    if (!directory.valid() || (!model.empty() && stat(model.c_str(), &like) != 0)) {
        why = Printable(directory.valid() ? model : path) + ": " + strerror(errno);
        return false;
    }
    // What a repair that was killed left behind goes; a directory is no such thing, and stays.
    const bool clear = unlinkat(directory.get(), freshName.c_str(), 0) == 0 || errno == ENOENT;
    // Nobody reads it before it has its owner.
    const ScopedFd fresh(!clear
                             ? -1
                             : openat(directory.get(), freshName.c_str(),
                                      O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (!fresh.valid()) {
        why = Printable(path) + ".new: " + strerror(errno);
        return false;
    }
    // The bytes are on the disk before the name leads to them, and the name before it is reported.
    if (WriteAll(fresh.get(), bytes) && Settle(fresh.get(), model.empty() ? nullptr : &like) &&
        fsync(fresh.get()) == 0 &&
        renameat(directory.get(), freshName.c_str(), directory.get(), name.c_str()) == 0 &&
        fsync(directory.get()) == 0) {
        return true;
    }
    why = Printable(path) + ": " + strerror(errno);
    unlinkat(directory.get(), freshName.c_str(), 0);
    return false;
}

bool CreateFile(const std::string& path, const std::string& bytes, std::string& why) {
    const ScopedFd fd(open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666));
    if (fd.valid() && WriteAll(fd.get(), bytes) && fsync(fd.get()) == 0) {
        return true;
    }
    why = Printable(path) + ": " + strerror(errno);
    if (fd.valid()) {
        unlink(path.c_str());
    }
    return false;
}

}  // namespace client
