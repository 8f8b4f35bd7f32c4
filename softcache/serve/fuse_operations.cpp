// SPDX-License-Identifier: MIT
#include "softcache/serve/fuse_operations.h"

#include <errno.h>
#include <fcntl.h>
#include <linux/falloc.h>

#include <algorithm>
#include <string>
#include <vector>

#include "softcache/serve/control_commands.h"
#include "softcache/serve/device_ioctl.h"
#include "softcache/serve/directory.h"

namespace softcache {

// Of the kernel's interface, though the library's header does not name it: the caller's pointers
// have 4 bytes. FUSE_IOCTL_COMPAT says so only where the kernel's own have 8.
constexpr unsigned kIoctlCaller32Bit = 1u << 3;

// The kernel asks again every time: sizes change, and a look at a dead mount must not seem alive.
constexpr double kNoTimeout = 0.0;

static FuseContext& Context(fuse_req_t request) {
    return *static_cast<FuseContext*>(fuse_req_userdata(request));
}

static ServedCache& Served(fuse_req_t request) {
    return Context(request).served;
}

static void Init(void* context, fuse_conn_info* connection) {
    // O_TRUNC comes as a change of size then, which the device refuses and `control` ignores.
    connection->want &= ~static_cast<unsigned>(FUSE_CAP_ATOMIC_O_TRUNC);
    static_cast<FuseContext*>(context)->onServing();
}

static void Lookup(fuse_req_t request, fuse_ino_t parent, const char* name) {
    const DirectoryEntry* found = parent == kRootId ? FindEntry(name) : nullptr;
    if (found == nullptr) {
        fuse_reply_err(request, ENOENT);
        return;
    }
    fuse_entry_param entry{};
    entry.ino = found->id;
    entry.attr_timeout = kNoTimeout;
    entry.entry_timeout = kNoTimeout;
    DescribeFile(Served(request), found->id, entry.attr);
    fuse_reply_entry(request, &entry);
}

static void GetAttr(fuse_req_t request, fuse_ino_t id, fuse_file_info*) {
    struct stat status;
    if (DescribeFile(Served(request), id, status)) {
        fuse_reply_attr(request, &status, kNoTimeout);
    } else {
        fuse_reply_err(request, ENOENT);
    }
}

// Nothing can be changed. Times are taken without effect, so is the size of `control`, which every
// shell sets to 0 before it writes.
static void SetAttr(fuse_req_t request, fuse_ino_t id, struct stat* wanted, int what,
                    fuse_file_info*) {
    struct stat status;
    if (!DescribeFile(Served(request), id, status)) {
        fuse_reply_err(request, ENOENT);
        return;
    }
    const bool resizes = (what & FUSE_SET_ATTR_SIZE) != 0 && wanted->st_size != status.st_size;
    const bool changesOwner =
        (what & (FUSE_SET_ATTR_MODE | FUSE_SET_ATTR_UID | FUSE_SET_ATTR_GID)) != 0;
    if (changesOwner || (resizes && id != kControlId)) {
        fuse_reply_err(request, EPERM);
        return;
    }
    fuse_reply_attr(request, &status, kNoTimeout);
}

static void ReadDir(fuse_req_t request, fuse_ino_t, size_t size, off_t offset, fuse_file_info*) {
    std::vector<char> buffer(size);
    size_t used = 0;
    const auto entries = static_cast<off_t>(std::size(kDirectory));
    for (off_t next = offset; next < entries; ++next) {
        const DirectoryEntry& entry = kDirectory[next];
        struct stat status {};
        status.st_ino = static_cast<ino_t>(entry.id);
        status.st_mode = entry.mode;
        const size_t needed = fuse_add_direntry(request, buffer.data() + used, size - used,
                                                entry.name, &status, next + 1);
        if (needed > size - used) {
            break;
        }
        used += needed;
    }
    fuse_reply_buf(request, buffer.data(), used);
}

// Root may open anything; a file is served the way its mode says all the same.
static void Open(fuse_req_t request, fuse_ino_t id, fuse_file_info* file) {
    const int access = file->flags & O_ACCMODE;
    const bool snapshot = id != kDeviceId && id != kControlId;
    if ((snapshot && access != O_RDONLY) || (id == kControlId && access != O_WRONLY)) {
        fuse_reply_err(request, EACCES);
        return;
    }
    FuseContext& context = Context(request);
    if (snapshot) {
        file->fh = context.snapshots.Keep(fuse_req_ctx(request)->uid,
                                          [&] { return FileSnapshot(context.served, id); });
    }
    file->direct_io = 1;  // no page cache in front of the cache
    if (fuse_reply_open(request, file) != 0) {
        context.snapshots.Drop(file->fh);  // the caller is gone, no release will follow
    }
}

static void Release(fuse_req_t request, fuse_ino_t, fuse_file_info* file) {
    Context(request).snapshots.Drop(file->fh);
    fuse_reply_err(request, 0);
}

static void ReadDevice(fuse_req_t request, ServedCache& served, size_t size, uint64_t offset) {
    static thread_local std::vector<char> buffer;
    const uint64_t deviceSize = served.cache.DeviceSize();
    size = static_cast<size_t>(std::min<uint64_t>(size, deviceSize - std::min(offset, deviceSize)));
    buffer.resize(std::max(buffer.size(), size));
    int result = served.faults.BeforeRead(offset, size);
    if (result == 0) {
        result = served.cache.Read(buffer.data(), size, offset);
    }
    if (result == 0) {
        fuse_reply_buf(request, buffer.data(), size);
    } else {
        fuse_reply_err(request, -result);
    }
}

static void Read(fuse_req_t request, fuse_ino_t id, size_t size, off_t offset,
                 fuse_file_info* file) {
    if (id == kDeviceId) {
        ReadDevice(request, Served(request), size, static_cast<uint64_t>(offset));
        return;
    }
    const auto content = Context(request).snapshots.Content(file->fh);
    if (content == nullptr) {
        fuse_reply_err(request, ESTALE);  // the same user has opened a great deal since
        return;
    }
    const size_t begin = std::min(static_cast<size_t>(offset), content->size());
    fuse_reply_buf(request, content->data() + begin, std::min(size, content->size() - begin));
}

// As a disk does it: what lies on the device is written, at its end there is no space.
static void WriteDevice(fuse_req_t request, ServedCache& served, const char* data, size_t size,
                        uint64_t offset, int flags) {
    const uint64_t deviceSize = served.cache.DeviceSize();
    if (offset >= deviceSize) {
        fuse_reply_err(request, ENOSPC);
        return;
    }
    size = static_cast<size_t>(std::min<uint64_t>(size, deviceSize - offset));
    int result = served.Write(data, size, offset);
    if (result == 0 && (flags & (O_SYNC | O_DSYNC)) != 0) {
        result = served.Flush((flags & O_SYNC) != O_SYNC);
    }
    if (result == 0) {
        fuse_reply_write(request, size);
    } else {
        fuse_reply_err(request, -result);
    }
}

static void Write(fuse_req_t request, fuse_ino_t id, const char* data, size_t size, off_t offset,
                  fuse_file_info* file) {
    if (id == kDeviceId) {
        WriteDevice(request, Served(request), data, size, static_cast<uint64_t>(offset),
                    file->flags);
        return;
    }
    const int result = RunControlText(std::string(data, size), Served(request));
    if (result == 0) {
        fuse_reply_write(request, size);
    } else {
        fuse_reply_err(request, -result);
    }
}

static void Fsync(fuse_req_t request, fuse_ino_t id, int dataOnly, fuse_file_info*) {
    const int result = id == kDeviceId ? Served(request).Flush(dataOnly != 0) : 0;
    fuse_reply_err(request, -result);
}

// The device keeps its size: what reaches over its end is cut off where the caller asked for that
// too, and refused where he did not.
static void Fallocate(fuse_req_t request, fuse_ino_t id, int mode, off_t offset, off_t length,
                      fuse_file_info*) {
    ServedCache& served = Served(request);
    const auto begin = static_cast<uint64_t>(offset);
    const uint64_t deviceSize = served.cache.DeviceSize();
    const uint64_t room = deviceSize - std::min(begin, deviceSize);
    const uint64_t inside = std::min(static_cast<uint64_t>(length), room);
    const bool reachesOver = inside < static_cast<uint64_t>(length);
    if (id != kDeviceId) {
        fuse_reply_err(request, EOPNOTSUPP);
    } else if (reachesOver && (mode & FALLOC_FL_KEEP_SIZE) == 0) {
        fuse_reply_err(request, ENOSPC);
    } else {
        fuse_reply_err(request, inside == 0 ? 0 : -served.Allocate(mode, begin, inside));
    }
}

static void Ioctl(fuse_req_t request, fuse_ino_t id, unsigned command, void* argument,
                  fuse_file_info*, unsigned flags, const void*, size_t, size_t) {
    if (id != kDeviceId) {
        fuse_reply_err(request, ENOTTY);
        return;
    }
    const bool narrow = (flags & (FUSE_IOCTL_COMPAT | kIoctlCaller32Bit)) != 0;
    const Caller caller = {fuse_req_ctx(request)->pid, narrow ? 4u : 8u};
    IoctlReply reply;
    const int result =
        DeviceIoctl(Served(request), caller, command, reinterpret_cast<uintptr_t>(argument), reply);
    if (result == 0) {
        fuse_reply_ioctl(request, 0, &reply.value, reply.bytes);
    } else {
        fuse_reply_err(request, -result);
    }
}

const fuse_lowlevel_ops& FuseOperations() {
    static const fuse_lowlevel_ops operations = [] {
        fuse_lowlevel_ops ops{};
        ops.init = Init;
        ops.lookup = Lookup;
        ops.getattr = GetAttr;
        ops.setattr = SetAttr;
        ops.readdir = ReadDir;
        ops.open = Open;
        ops.release = Release;
        ops.read = Read;
        ops.write = Write;
        ops.fsync = Fsync;
        ops.fallocate = Fallocate;
        ops.ioctl = Ioctl;
        return ops;
    }();
    return operations;
}

}  // namespace softcache
