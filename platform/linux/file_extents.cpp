// SPDX-License-Identifier: MIT
#include "platform/linux/file_extents.h"

#include <errno.h>
#include <linux/fiemap.h>
#include <linux/fs.h>
#include <string.h>
#include <sys/ioctl.h>

#include "platform/linux/patience.h"
#include "platform/linux/report.h"

namespace stand_in {

namespace {

constexpr uint32_t kExtentsPerCall = 256;
constexpr uint64_t kSectorSize = 512;

// Extents with these flags have no place on the device, not yet or not one of whole sectors.
constexpr uint32_t kWithoutPlace = FIEMAP_EXTENT_UNKNOWN | FIEMAP_EXTENT_DELALLOC |
                                   FIEMAP_EXTENT_ENCODED | FIEMAP_EXTENT_NOT_ALIGNED |
                                   FIEMAP_EXTENT_DATA_INLINE | FIEMAP_EXTENT_DATA_TAIL;

// The request and room for its answer, in 64-bit words, which is the alignment that it needs.
class FiemapRequest {
  public:
    // Asks for the extents from byte `start` on; nothing is synced. Returns false with errno set.
    bool Ask(int fd, uint64_t start) {
        fiemap* const map = Map();
        memset(map, 0, sizeof(fiemap));
        map->fm_start = start;
        map->fm_length = FIEMAP_MAX_OFFSET - start;
        map->fm_extent_count = kExtentsPerCall;
        return ioctl(fd, FS_IOC_FIEMAP, map) == 0;
    }
    uint32_t Count() { return Map()->fm_mapped_extents; }
    const fiemap_extent& At(uint32_t index) { return Map()->fm_extents[index]; }

  private:
    fiemap* Map() { return reinterpret_cast<fiemap*>(words_); }

    uint64_t words_[(sizeof(fiemap) + kExtentsPerCall * sizeof(fiemap_extent)) / sizeof(uint64_t)];
};

// Adds an entry for what of the extent lies at byte `from` of the file or behind it, if it has a
// place. (An extent that has grown since the last call may come again, whole.) Byte 0 of the device
// holds the superblock: it is no file's place.
void AppendEntry(const fiemap_extent& extent, uint64_t from,
                 std::vector<FileMappingEntry>& entries) {
    if ((extent.fe_flags & kWithoutPlace) != 0 || extent.fe_physical == 0) {
        return;
    }
    const uint64_t seen = extent.fe_logical < from ? from - extent.fe_logical : 0;
    FileMappingEntry entry = {};
    entry.startSector = (extent.fe_logical + seen) / kSectorSize;
    entry.numSectors = (extent.fe_length - seen) / kSectorSize;
    entry.deviceStartSector = (extent.fe_physical + seen) / kSectorSize;
    entry.uninitialized = (extent.fe_flags & FIEMAP_EXTENT_UNWRITTEN) != 0 ? 1 : 0;
    entries.push_back(entry);
}

// Whether the file's data lies on the real-time device of an XFS, whose sectors are not the
// volume's.
bool IsOnRealtimeDevice(int fd) {
    fsxattr attributes = {};
    return ioctl(fd, FS_IOC_FSGETXATTR, &attributes) == 0 &&
           (attributes.fsx_xflags & FS_XFLAG_REALTIME) != 0;
}

}  // namespace

bool ReadFileExtents(int fd, const std::string& path, std::vector<FileMappingEntry>& entries) {
    if (IsOnRealtimeDevice(fd)) {
        Report("file %s lies on the real-time device, not on the volume's", path.c_str());
        return false;
    }
    std::vector<FileMappingEntry> read;
    FiemapRequest request;
    uint64_t covered = 0;  // bytes of the file that the extents so far reach to
    for (;;) {
        if (!Patience().Try([&] { return request.Ask(fd, covered); })) {
            Report("extents of file %s cannot be read: %s", path.c_str(), strerror(errno));
            return false;
        }
        const uint64_t before = covered;
        for (uint32_t i = 0; i < request.Count(); ++i) {
            const fiemap_extent& extent = request.At(i);
            const uint64_t end = extent.fe_logical + extent.fe_length;
            if (end > covered) {
                AppendEntry(extent, covered, read);
                covered = end;
            }
            if ((extent.fe_flags & FIEMAP_EXTENT_LAST) != 0) {
                entries = std::move(read);
                return true;
            }
        }
        if (covered == before) {  // nothing more
            entries = std::move(read);
            return true;
        }
    }
}

}  // namespace stand_in
