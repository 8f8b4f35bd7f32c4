// SPDX-License-Identifier: MIT
#include "daemon/cache_warming.h"

#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>

#include "daemon/request_result.h"
#include "daemon/service.h"
#include "util/log.h"
#include "util/scoped.h"
#include "util/space.h"

namespace {

constexpr size_t kBufferSize = 65536;
constexpr size_t kBufferAlignment = 4096;  // direct I/O needs it
constexpr unsigned kSectorShift = 9;

// What one warming reads with, and into. Lines name the function that warms.
struct Warming {
    const char* kLogFunction;
    CString buffer;

    bool AllocateBuffer();
    int OpenCachedDevice(
        const char* cachePath) const;  // returns a descriptor, or a negative number
};

bool Warming::AllocateBuffer() {
    void* memory = nullptr;

    if (posix_memalign(&memory, kBufferAlignment, kBufferSize) != 0) {
        LogError("Can't allocate memory\n");
        return false;
    }
    buffer.reset(static_cast<char*>(memory));
    return true;
}

int Warming::OpenCachedDevice(const char* cachePath) const {
    int fd = open(cachePath, O_RDONLY | O_DIRECT);

    if (fd < 0) {
        LogError("Can't open file (%s)", cachePath);
    }
    return fd;
}

namespace read_extents {

constexpr const char* kLogFunction = "ReadMappingRangesToCache";

int ReadExtent(int fd, const FileMappingEntry& entry, void* buffer, size_t bufferSize) {
    auto startSector = static_cast<unsigned long long>(entry.deviceStartSector);
    auto numSectors = static_cast<unsigned long long>(entry.numSectors);

    if (entry.uninitialized == 1) {
        // Never written: reading it would only bring zeros into the cache.
        LogVerbose("Skip uninitialized range (disk start sector = %llu num sectors = %llu)",
                   startSector, numSectors);
        return kRequestDone;
    }
    LogVerbose("Read to null (disk start sector = %llu num sectors = %llu)", startSector,
               numSectors);
    if (ReadFdToNull(fd, entry.deviceStartSector << kSectorShift, entry.numSectors << kSectorShift,
                     buffer, bufferSize) != 0) {
        LogError("Read fd to null failed (disk start sector = %llu num sectors = %llu)",
                 startSector, numSectors);
        return kRequestFailed;
    }
    return kRequestDone;
}

}  // namespace read_extents

namespace read_files {

constexpr const char* kLogFunction = "ReadFilesToCache";

int ReadFile(const char* mountPath, int fd, const MappedFile& file, void* buffer) {
    char path[512] = {};

    if (ServiceIsSpacePending(mountPath)) {
        LogVerbose("Space is pending, Interrupted");
        return kRequestInterrupted;
    }
    snprintf(path, sizeof(path), "%s/%s", mountPath, file.path.c_str());
    int result = ReadMappingRangesToCache(mountPath, fd, file.table, buffer, kBufferSize);
    if (result == kRequestFailed) {
        LogError("Can't read file (%s) to cache", path);
    } else if (result == kRequestInterrupted) {
        LogVerbose("Interrupted");
    }
    return result;
}

// ReadFilesToCache between its entry and exit markers.
int ReadAllFiles(const char* mountPath, const std::vector<MappedFile>& files) {
    Warming warming = {kLogFunction, nullptr};
    if (!warming.AllocateBuffer()) {
        return kRequestFailed;
    }
    CString cachePath(SpaceGetCachePathByMountPath(mountPath));
    if (cachePath == nullptr) {
        LogError("Cant' get cache path from volume (%s)", mountPath);
        return kRequestFailed;
    }
    ScopedFd fd(warming.OpenCachedDevice(cachePath.get()));
    if (!fd.valid()) {
        return kRequestFailed;
    }
    for (const MappedFile& file : files) {
        int result = ReadFile(mountPath, fd.get(), file, warming.buffer.get());
        if (result != kRequestDone) {
            return result;
        }
    }
    return kRequestDone;
}

}  // namespace read_files

namespace reload {

constexpr const char* kLogFunction = "ReloadPinBlocksToCache";

// Reads the run, if there is one, and empties it. Returns 0, or -1.
int ReadAndEmptyRun(int fd, BitRun& run, void* buffer) {
    if (run.numBits == 0) {
        return 0;
    }
    if (ReadFdToNullByRange(fd, run, buffer, kBufferSize) != 0) {
        LogError("Read range to cache failed");
        return -1;
    }
    run = {};
    return 0;
}

// Walks the bitmap's bits and reads its runs.
int ReadRuns(const PinBitmap& bitmap, int fd, const char* mountPath, void* buffer) {
    uint64_t numBits = static_cast<uint64_t>(bitmap.size) * 8;
    bool anySet = false;
    BitRun run = {};
    PendingQuestion isPending(mountPath);

    for (uint64_t bit = 0; bit < numBits; ++bit) {
        if (run.numBits == 0 && BitmapStartsEmptyWord(bitmap, bit)) {
            bit += kBitsOfWord - 1;  // nothing happens between them: one question serves them all
        } else if (BitmapHasBit(bitmap, bit)) {
            run.startBit = run.numBits == 0 ? bit : run.startBit;
            ++run.numBits;
            anySet = true;
        } else if (ReadAndEmptyRun(fd, run, buffer) != 0) {
            return kRequestFailed;
        }
        if (isPending.Ask()) {
            LogVerbose("Interrupted due to space is pending");
            return kRequestInterrupted;
        }
    }
    if (ReadAndEmptyRun(fd, run, buffer) != 0) {
        return kRequestFailed;
    }
    if (!anySet) {
        LogVerbose("No pin blocks, no need to reload");
    }
    return kRequestDone;
}

// ReloadPinBlocksToCache between its entry and exit markers.
int ReloadAllRuns(const PinBitmap& bitmap, const char* cachePath, const char* mountPath) {
    Warming warming = {kLogFunction, nullptr};
    if (!warming.AllocateBuffer()) {
        return kRequestFailed;
    }
    ScopedFd fd(warming.OpenCachedDevice(cachePath));
    if (!fd.valid()) {
        return kRequestFailed;
    }
    LogVerbose("Start to read blocks");
    return ReadRuns(bitmap, fd.get(), mountPath, warming.buffer.get());
}

}  // namespace reload

}  // namespace

int ReadFdToNull(int fd, uint64_t offset, uint64_t numBytes, void* buffer, size_t bufferSize) {
    LogEnter();
    LogVerbose("offset byte = %llu num bytes = %llu", static_cast<unsigned long long>(offset),
               static_cast<unsigned long long>(numBytes));
    // The count has 32 bits, as on the target.
    auto remaining = static_cast<uint32_t>(numBytes);
    auto position = static_cast<off_t>(offset);

    if (remaining == 0) {
        return 0;
    }
    while (remaining > 0) {
        if (lseek(fd, position, SEEK_SET) == -1) {
            LogError("Can't seek to %lld", static_cast<long long>(position));
            return -1;
        }
        size_t count = std::min<size_t>(remaining, bufferSize);
        ssize_t done = read(fd, buffer, count);
        if (done <= 0) {  // at the end of the device there is no more to come
            LogError("Read block error (seek = %lld num bytes = %zu",
                     static_cast<long long>(position), count);
            return -1;
        }
        position += done;
        remaining -= static_cast<uint32_t>(done);
    }
    LogLeave();
    return 0;
}

int ReadFdToNullByRange(int fd, const BitRun& run, void* buffer, size_t bufferSize) {
    uint32_t numBytes = static_cast<uint32_t>(run.numBits) << kPinUnitByteShift;

    LogEnter();
    LogVerbose("Range's bitStart=%llu numBits=%llu (size = %llu bytes)",
               static_cast<unsigned long long>(run.startBit),
               static_cast<unsigned long long>(run.numBits),
               static_cast<unsigned long long>(numBytes));
    int result = ReadFdToNull(fd, run.startBit << kPinUnitByteShift, numBytes, buffer, bufferSize);
    LogLeave();
    return result;
}

int ReadMappingRangesToCache(const char* mountPath, int fd, const FileMappingTable& table,
                             void* buffer, size_t bufferSize) {
    LogEnter();
    LogVerbose("Mapping entry size = %zu", table.entries.size());
    for (const FileMappingEntry& entry : table.entries) {
        if (ServiceIsSpacePending(mountPath)) {
            LogVerbose("Space is pending, Interrupted");
            return kRequestInterrupted;
        }
        if (read_extents::ReadExtent(fd, entry, buffer, bufferSize) != kRequestDone) {
            return kRequestFailed;
        }
    }
    LogLeave();
    return kRequestDone;
}

int ReadFilesToCache(const char* mountPath, const std::vector<MappedFile>& files) {
    LogEnter();
    int result = read_files::ReadAllFiles(mountPath, files);
    LogLeave();
    return result;
}

int ReloadPinBlocksToCache(const PinBitmap* bitmap, const char* cachePath, const char* mountPath) {
    LogEnter();
    int result = reload::ReloadAllRuns(*bitmap, cachePath, mountPath);
    LogLeave();
    return result;
}
