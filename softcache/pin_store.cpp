// SPDX-License-Identifier: MIT
#include "softcache/pin_store.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/stat.h>

#include "softcache/file_io.h"

namespace softcache {

std::string PinStorePath(const std::string& ssdPath) {
    return ssdPath + ".pins";
}

int StorePins(const std::string& path, const std::vector<uint8_t>& bitmap) {
    OwnedFd file;
    int result = WriteReplacement(path, bitmap.data(), bitmap.size(), 0600, file);
    if (result != 0) {
        return result;
    }
    if (fsync(file.get()) != 0) {
        result = -errno;
        DropReplacement(path);
        return result;
    }
    result = PutReplacement(path);
    return result != 0 ? result : SyncDirectoryOf(path);
}

PinLoad LoadPins(const std::string& path, size_t maxBytes, std::vector<uint8_t>& bitmap,
                 std::string& reason) {
    const OwnedFd file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (!file.valid() && errno == ENOENT) {
        return PinLoad::kAbsent;
    }
    struct stat status;
    if (!file.valid() || fstat(file.get(), &status) != 0) {
        reason = strerror(errno);
        return PinLoad::kUnusable;
    }
    const auto size = static_cast<uint64_t>(status.st_size);
    if (!S_ISREG(status.st_mode) || size > maxBytes) {
        reason = !S_ISREG(status.st_mode) ? "not a regular file"
                                          : std::to_string(size) + " bytes, this device takes " +
                                                std::to_string(maxBytes);
        return PinLoad::kUnusable;
    }
    std::vector<uint8_t> bytes(static_cast<size_t>(size));
    const int result = ReadFull(file.get(), bytes.data(), bytes.size(), 0);
    if (result != 0) {
        reason = strerror(-result);
        return PinLoad::kUnusable;
    }
    bitmap = std::move(bytes);
    return PinLoad::kLoaded;
}

}  // namespace softcache
