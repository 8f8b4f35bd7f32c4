// SPDX-License-Identifier: MIT
#include "platform/linux/cache_registry.h"

#include <dirent.h>
#include <errno.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>

#include <algorithm>
#include <map>
#include <memory>
#include <mutex>

#include "platform/linux/change_watch.h"
#include "platform/linux/patience.h"
#include "platform/linux/registry_file.h"
#include "platform/linux/report.h"

namespace stand_in {

namespace {

constexpr char kRegistryDirectory[] = "/run/quorsoftcache";
constexpr int kLooksBeforeWatch = 16;  // a watch pays only for who looks often
constexpr int64_t kUntoldMilliseconds = 10;

struct DirectoryCloser {
    void operator()(DIR* directory) const { closedir(directory); }
};

const char* RegistryDirectory() {
    const char* const given = getenv("QUORSOFTCACHE_REGISTRY");
    return given == nullptr || *given == '\0' ? kRegistryDirectory : given;
}

// Stores the paths of the registry files, none where there is no directory. Returns false with
// errno set when the directory cannot be read.
bool ListEntries(const std::string& directory, std::vector<std::string>& paths) {
    const std::string prefix = directory + "/";
    paths.clear();
    const std::unique_ptr<DIR, DirectoryCloser> open(opendir(directory.c_str()));
    if (!open) {
        return errno == ENOENT;
    }
    for (;;) {
        errno = 0;
        const dirent* const entry = readdir(open.get());
        if (entry == nullptr) {
            return errno == 0;
        }
        if (IsRegistryEntryName(entry->d_name)) {
            paths.push_back(prefix + entry->d_name);
        }
    }
}

using KnownEntries = std::map<std::string, CacheEntry>;  // by the path of the registry file

// One look at the whole registry.
class Look {
  public:
    // `known` is what the look before found.
    explicit Look(const KnownEntries& known) : known_(known) {}

    void AtDirectory(const std::string& directory) {
        std::vector<std::string> paths;
        if (!patience_.Try([&] { return ListEntries(directory, paths); })) {
            lines.push_back(
                Format("cache registry %s cannot be read: %s", directory.c_str(), strerror(errno)));
            complete = false;
            settled = false;
            paths = KnownIn(directory);
        }
        std::sort(paths.begin(), paths.end());
        for (const std::string& path : paths) {
            CacheEntry entry;
            if (Read(path, entry) && Lives(path)) {
                found[path] = entry;
            }
        }
    }

    KnownEntries found;  // those of living caches
    bool complete = true;
    bool settled = true;              // false: something could not be had, and may be the next time
    std::vector<RegistryLock> locks;  // of the entries, also of the leftovers
    std::vector<std::string> lines;   // about what is not in order

  private:
    std::vector<std::string> KnownIn(const std::string& directory) const {
        std::vector<std::string> paths;
        for (const auto& [path, entry] : known_) {
            if (path.compare(0, directory.size() + 1, directory + "/") == 0) {
                paths.push_back(path);
            }
        }
        return paths;
    }

    // Stores the entry. When its file cannot be read for the moment, the one that was known counts.
    bool Read(const std::string& path, CacheEntry& entry) {
        std::string content;
        if (patience_.Try([&] { return ReadRegistryEntry(path, content); })) {
            const std::string wrong = ParseRegistryEntry(content, entry);
            if (!wrong.empty()) {
                lines.push_back(Format("cache registry file %s is damaged and passed over: %s",
                                       path.c_str(), wrong.c_str()));
            }
            return wrong.empty();
        }
        if (errno == ENOENT) {
            return false;  // its cache has just gone
        }
        const auto known = known_.find(path);
        const bool counts = known != known_.end() && !IsNoRegistryEntry(errno);
        settled = settled && IsNoRegistryEntry(errno);
        lines.push_back(Format("cache registry file %s %s: %s", path.c_str(),
                               counts ? "counts as it was read before" : "is passed over",
                               strerror(errno)));
        if (counts) {
            entry = known->second;
        } else if (!IsNoRegistryEntry(errno)) {
            complete = false;
        }
        return counts;
    }

    // A cache is believed to live until it is known to be gone: a no would make the service forget
    // what is pinned.
    bool Lives(const std::string& path) {
        RegistryLock lock(path, patience_);
        const Life life = lock.WhatLives();
        if (life == Life::kUnknown) {
            settled = false;
            lines.push_back(
                Format("cache registry lock %s cannot be asked, the cache counts as "
                       "living: %s",
                       lock.Path().c_str(), strerror(errno)));
        }
        if (lock.Exists()) {
            locks.push_back(std::move(lock));
        }
        return life != Life::kGone;
    }

    const KnownEntries& known_;
    Patience patience_;
};

// Which directory a path leads to.
struct Place {
    dev_t device = 0;
    ino_t inode = 0;

    // Returns false when the path leads nowhere.
    bool Find(const std::string& path) {
        struct stat status = {};
        const bool found = stat(path.c_str(), &status) == 0;
        device = status.st_dev;
        inode = status.st_ino;
        return found;
    }
    bool operator==(const Place& other) const {
        return device == other.device && inode == other.inode;
    }
};

// What the last look found, and what tells whether it still holds.
class Memory {
  public:
    // Returns the list of the last look, or null when a new one is due.
    std::shared_ptr<const CacheListing> Recall(const char* directory) {
        if (!listing_ || directory != directory_) {
            return nullptr;
        }
        const Changes changes(mounts_, watch_);
        const bool holds = !changes.directory && IsInPlace(changes.mounts) && LocksAreTheSame();
        return holds ? listing_ : nullptr;
    }

    std::shared_ptr<const CacheListing> LookAt(const std::string& directory) {
        listing_.reset();
        const bool watched = Watch(directory);
        Look look(known_);
        look.AtDirectory(directory);
        standing_.Send(look.lines);
        auto listing = std::make_shared<CacheListing>();
        listing->complete = look.complete;
        for (const auto& [path, entry] : look.found) {
            listing->caches.push_back(entry);
        }
        known_ = std::move(look.found);
        locks_ = std::move(look.locks);
        directory_ = directory;
        listing_ = watched && look.settled ? listing : nullptr;
        return listing;
    }

  private:
    // Returns whether changes are noticed from now on.
    bool Watch(const std::string& directory) {
        Place after;
        placeAge_.Start();
        return ++looks_ >= kLooksBeforeWatch && mounts_.Start() && place_.Find(directory) &&
               watch_.Start(directory, DirectoryWatch::kNamesAndContents) &&
               after.Find(directory) && after == place_;
    }

    // Whether the path still leads to the directory that is watched: another one may be mounted
    // over it, or, of which nobody tells, a directory further up may be renamed.
    bool IsInPlace(bool mountsChanged) {
        if (!mountsChanged && !placeAge_.Over()) {
            return true;
        }
        placeAge_.Start();
        Place now;
        return now.Find(directory_) && now == place_;
    }

    // Not even the end of a process that kept a lock is told.
    bool LocksAreTheSame() const {
        return std::all_of(locks_.begin(), locks_.end(),
                           [](const RegistryLock& lock) { return lock.SaysTheSame(); });
    }

    StandingLines standing_;
    KnownEntries known_;
    int looks_ = 0;
    std::string directory_;
    Place place_;
    Lifetime placeAge_{kUntoldMilliseconds};
    MountWatch mounts_;
    DirectoryWatch watch_;
    std::vector<RegistryLock> locks_;
    std::shared_ptr<const CacheListing> listing_;
};

}  // namespace

std::shared_ptr<const CacheListing> ReadCacheRegistry() {
    // Both may be in use while the process exits.
    static std::mutex& mutex = *new std::mutex;
    static Memory& memory = *new Memory;
    const std::lock_guard<std::mutex> lock(mutex);
    const char* const directory = RegistryDirectory();
    const auto listing = memory.Recall(directory);
    return listing ? listing : memory.LookAt(directory);
}

int FindCacheBySsd(const std::string& ssdPath, CacheEntry& cache) {
    const std::shared_ptr<const CacheListing> listing = ReadCacheRegistry();
    for (const CacheEntry& candidate : listing->caches) {
        if (candidate.ssd == ssdPath) {
            cache = candidate;
            return 1;
        }
    }
    return listing->complete ? 0 : -1;
}

}  // namespace stand_in
