// SPDX-License-Identifier: MIT
#include "tests/unit/softcache/power_loss.h"

#include <dlfcn.h>
#include <linux/falloc.h>
#include <sys/uio.h>

namespace {

std::vector<int> g_watched;
std::vector<softcache::DiskEvent> g_events;

// The place of a watched descriptor, or -1.
ptrdiff_t Place(int fd) {
    const auto found = std::find(g_watched.begin(), g_watched.end(), fd);
    return found == g_watched.end() ? -1 : found - g_watched.begin();
}

template <typename Function>
Function* Real(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

ssize_t WriteAt(int fd, const void* data, size_t size, off_t offset) {
    const iovec bytes = {const_cast<void*>(data), size};
    return pwritev(fd, &bytes, 1, offset);
}

bool NoteSync(int fd) {
    const ptrdiff_t place = Place(fd);
    if (place >= 0) {
        g_events.push_back({static_cast<size_t>(place), true, 0, {}});
    }
    return place >= 0;
}

}  // namespace

ssize_t pwrite(int fd, const void* data, size_t size, off_t offset) {
    const ptrdiff_t place = Place(fd);
    if (place >= 0) {
        const auto* bytes = static_cast<const uint8_t*>(data);
        g_events.push_back({static_cast<size_t>(place), false, static_cast<uint64_t>(offset),
                            softcache::Bytes(bytes, bytes + size)});
    }
    return WriteAt(fd, data, size, offset);
}

int fdatasync(int fd) {
    return NoteSync(fd) ? 0 : Real<int(int)>("fdatasync")(fd);
}

int fsync(int fd) {
    return NoteSync(fd) ? 0 : Real<int(int)>("fsync")(fd);
}

int fallocate(int fd, int mode, off_t offset, off_t length) {
    if (Place(fd) < 0) {
        return Real<int(int, int, off_t, off_t)>("fallocate64")(fd, mode, offset, length);
    }
    if ((mode & (FALLOC_FL_PUNCH_HOLE | FALLOC_FL_ZERO_RANGE)) == 0) {
        return 0;
    }
    const softcache::Bytes zeros(static_cast<size_t>(length), 0);
    return pwrite(fd, zeros.data(), zeros.size(), offset) < 0 ? -1 : 0;
}

namespace softcache {

void WatchDisks(const std::vector<int>& fds) {
    g_watched = fds;
    g_events.clear();
}

std::vector<DiskEvent> TakeDiskEvents() {
    return std::exchange(g_events, {});
}

size_t DiskEventsSoFar() {
    return g_events.size();
}

void FragileDisk::Apply(const DiskEvent& event) {
    if (!event.isSync) {
        pending_.push_back(event);
        return;
    }
    for (const DiskEvent& write : pending_) {
        std::copy(write.bytes.begin(), write.bytes.end(),
                  stable_.begin() + static_cast<ptrdiff_t>(write.offset));
    }
    pending_.clear();
}

Bytes FragileDisk::AfterLoss(double kept, std::mt19937_64& random) const {
    constexpr uint64_t kSector = 512;
    std::bernoulli_distribution isKept(kept);
    Bytes content = stable_;
    for (const DiskEvent& write : pending_) {
        for (uint64_t done = 0; done < write.bytes.size();) {
            const uint64_t at = write.offset + done;
            const uint64_t part =
                std::min<uint64_t>(kSector - at % kSector, write.bytes.size() - done);
            if (isKept(random)) {
                memcpy(content.data() + at, write.bytes.data() + done, static_cast<size_t>(part));
            }
            done += part;
        }
    }
    return content;
}

}  // namespace softcache
