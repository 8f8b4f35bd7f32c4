// SPDX-License-Identifier: MIT
#include "client/volume/residency.h"

#include <errno.h>
#include <fcntl.h>
#include <json/json.h>
#include <stdlib.h>
#include <sys/file.h>

#include <filesystem>

#include "client/show/text.h"
#include "util/scoped.h"

namespace client {

namespace {

constexpr char kRegistryDirectory[] = "/run/quorsoftcache";

std::string RegistryDirectory() {
    const char* const given = getenv("QUORSOFTCACHE_REGISTRY");
    return given == nullptr || *given == '\0' ? kRegistryDirectory : given;
}

// The process behind an entry keeps the lock file beside it locked. Only root can open that; others
// believe the entry, and find out when they read what its cache shows.
bool IsLiving(const std::filesystem::path& entryPath) {
    std::filesystem::path path = entryPath;
    path.replace_extension(".lock");
    const ScopedFd fd(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
    return fd.valid() ? flock(fd.get(), LOCK_SH | LOCK_NB) != 0 : errno != ENOENT;
}

bool ReadEntry(const std::string& path, Json::Value& entry) {
    std::string text;
    return ReadText(path, text) == 0 && ParseJson(text, entry) && entry.isObject() &&
           entry["device"].isString();
}

// Stores the entry of the living cache with this device. Returns false when there is none.
bool FindEntry(const std::string& devicePath, Json::Value& entry) {
    std::error_code error;
    for (std::filesystem::directory_iterator it(RegistryDirectory(), error), end;
         !error && it != end; it.increment(error)) {
        const std::string path = it->path();
        // Alive first: what nobody holds, a pipe say, is not even opened for reading.
        if (it->path().extension() == ".json" && IsLiving(path) && ReadEntry(path, entry) &&
            entry["device"].asString() == devicePath) {
            return true;
        }
    }
    return false;
}

bool ReadBits(const Json::Value& path, UnitSet& set) {
    return path.isString() && ReadUnitSet(path.asString(), set);
}

}  // namespace

Residency ReadResidency(const std::string& devicePath) {
    Residency residency;
    Json::Value entry;
    if (devicePath.empty() || !FindEntry(devicePath, entry)) {
        return residency;
    }
    residency.known = ReadBits(entry["resident"], residency.resident) &&
                      ReadBits(entry["pinned"], residency.pinned);
    residency.cacheSize = entry["cacheSize"].isUInt64() ? entry["cacheSize"].asUInt64() : 0;
    return residency;
}

}  // namespace client
