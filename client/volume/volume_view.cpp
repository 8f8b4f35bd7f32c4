// SPDX-License-Identifier: MIT
#include "client/volume/volume_view.h"

#include <errno.h>
#include <fcntl.h>
#include <json/json.h>
#include <stdlib.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <set>

#include "client/show/text.h"
#include "util/pin_bitmap.h"
#include "util/scoped.h"
#include "util/space.h"

namespace client {

namespace {

constexpr unsigned kDeviceToBitmapShift = 19;  // 8 bits of 64 KiB to a byte
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

// The size of a cached device, in bytes; 0 when it cannot be told. Who must not open it asks for
// what everybody may know.
uint64_t SizeOf(const std::string& devicePath) {
    uint64_t size = 0;
    struct stat status = {};
    if (access(devicePath.c_str(), R_OK) == 0 || stat(devicePath.c_str(), &status) != 0) {
        return DeviceGetSizeByte(devicePath.c_str(), &size) == 0 ? size : 0;
    }
    if (S_ISREG(status.st_mode)) {
        return static_cast<uint64_t>(status.st_size);
    }
    std::ifstream("/sys/dev/block/" + std::to_string(major(status.st_rdev)) + ":" +
                  std::to_string(minor(status.st_rdev)) + "/size") >>
        size;
    return size * kSectorBytes;
}

bool ReadBits(const Json::Value& path, UnitSet& set) {
    return path.isString() && ReadUnitSet(path.asString(), set);
}

std::string Text(const CString& text) {
    return text ? text.get() : "";
}

// A device has one UUID. Where that cannot be read, two mounts that show one bitmap file show one
// file system.
bool AreOfOneDevice(const Volume& left, const Volume& right) {
    return left.mountPath == right.mountPath || (!left.uuid.empty() && left.uuid == right.uuid) ||
           AreOneFile(BitmapPathOf(left), BitmapPathOf(right));
}

}  // namespace

Residency ReadResidency(const std::string& devicePath) {
    Residency residency;
    Json::Value entry;
    if (devicePath.empty() || !FindEntry(devicePath, entry)) {
        return residency;
    }
    // Half an answer would look like units that the driver lacks.
    residency.known = ReadBits(entry["resident"], residency.resident) &&
                      ReadBits(entry["pinned"], residency.pinned);
    residency.cacheSize = entry["cacheSize"].isUInt64() ? entry["cacheSize"].asUInt64() : 0;
    return residency;
}

std::map<std::string, uint64_t> ReadCacheStats(const std::string& devicePath) {
    std::map<std::string, uint64_t> numbers;
    Json::Value entry;
    Json::Value stats;
    std::string text;
    if (devicePath.empty() || !FindEntry(devicePath, entry) || !entry["stats"].isString() ||
        ReadText(entry["stats"].asString(), text) != 0 || !ParseJson(text, stats) ||
        !stats.isObject()) {
        return numbers;
    }
    for (const std::string& name : stats.getMemberNames()) {
        if (stats[name].isUInt64()) {
            numbers[name] = stats[name].asUInt64();
        }
    }
    return numbers;
}

std::string BitmapPathOf(const Volume& volume) {
    return Text(CString(BitmapPathByDirectory(volume.mountPath.c_str())));
}

VolumeView LookAt(const Volume& volume) {
    VolumeView view;
    view.mountPath = volume.mountPath;
    view.bitmapPath = BitmapPathOf(volume);
    if (!volume.uuid.empty() && SpaceHasCache(volume.uuid.c_str()) == 1) {
        view.cachePath = Text(CString(SpaceGetCachePath(volume.uuid.c_str())));
    }
    if (!view.cachePath.empty()) {
        view.keepsPins = VolumeKeepsPins(volume);
        view.deviceSize = SizeOf(view.cachePath);
        view.residency = ReadResidency(view.cachePath);
    }
    // A missing file reads as no bits, which is what the service takes it for.
    view.hasBitmap = ReadUnitSet(view.bitmapPath, view.bits);
    view.fileBytes = view.bits.Room() / 8;
    // The service looks no further than the device goes; a shorter file is the front of the bitmap.
    if (view.deviceSize > 0) {
        view.bits.Resize(static_cast<size_t>(view.deviceSize >> kDeviceToBitmapShift));
    }
    return view;
}

bool IsMoreThanCache(const Residency& residency, uint64_t units) {
    return residency.cacheSize > 0 && units * kUnitBytes > residency.cacheSize;
}

bool AreOneFile(const std::string& path, const std::string& other) {
    struct stat left = {};
    struct stat right = {};
    return stat(path.c_str(), &left) == 0 && stat(other.c_str(), &right) == 0 &&
           left.st_dev == right.st_dev && left.st_ino == right.st_ino;
}

std::vector<const Volume*> MountsOf(const Volume& volume, const std::vector<Volume>& volumes) {
    std::vector<const Volume*> mounts;
    std::set<std::string> seen;
    for (const Volume& other : volumes) {
        if (AreOfOneDevice(volume, other) && seen.insert(other.mountPath).second) {
            mounts.push_back(&other);
        }
    }
    return mounts;
}

UnitCounts CountUnits(const VolumeView& view, const UnitSet& units) {
    UnitCounts counts;
    counts.units = units.Count();
    counts.set = counts.units - units.CountWithout(view.bits);
    counts.cacheTells = view.residency.known;
    if (counts.cacheTells) {
        counts.withDriver = counts.units - units.CountWithout(view.residency.pinned);
        counts.resident = counts.units - units.CountWithout(view.residency.resident);
    }
    return counts;
}

Json::Value RunsToJson(const UnitRuns& runs) {
    Json::Value list(Json::arrayValue);
    for (const UnitRun& run : runs) {
        Json::Value pair(Json::arrayValue);
        pair.append(Json::UInt64{run.first});
        pair.append(Json::UInt64{run.last});
        list.append(pair);
    }
    return list;
}

void AddCounts(const UnitCounts& counts, Record& record) {
    std::string text = std::to_string(counts.units) + ", set " + std::to_string(counts.set);
    if (counts.cacheTells) {
        text += ", with the driver " + std::to_string(counts.withDriver) + ", in the cache " +
                std::to_string(counts.resident);
    }
    record.Add("unitsSet", counts.set)
        .Add("unitsWithDriver", IfKnown(counts.cacheTells, counts.withDriver))
        .Add("unitsResident", IfKnown(counts.cacheTells, counts.resident))
        .Shown("units", counts.units, "units", text);
}

}  // namespace client
