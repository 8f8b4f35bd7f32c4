// SPDX-License-Identifier: MIT
#include "platform/linux/cache_registry.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <json/json.h>
#include <stdlib.h>
#include <string.h>
#include <sys/file.h>

#include <algorithm>
#include <map>
#include <memory>
#include <mutex>
#include <string_view>

#include "platform/linux/patience.h"
#include "platform/linux/report.h"
#include "platform/linux/small_file.h"
#include "platform/linux/unique_fd.h"

namespace stand_in {

namespace {

constexpr char kRegistryDirectory[] = "/run/quorsoftcache";
constexpr int kRegistryVersion = 1;
constexpr std::string_view kEntryEnding = ".json";

struct DirectoryCloser {
    void operator()(DIR* directory) const { closedir(directory); }
};

std::string RegistryDirectory() {
    const char* const given = getenv("QUORSOFTCACHE_REGISTRY");
    return given == nullptr || *given == '\0' ? kRegistryDirectory : given;
}

bool IsEntryName(const std::string& name) {
    const size_t end = kEntryEnding.size();
    return name.size() > end && name.front() != '.' &&
           name.compare(name.size() - end, end, kEntryEnding) == 0;
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
        if (IsEntryName(entry->d_name)) {
            paths.push_back(prefix + entry->d_name);
        }
    }
}

// The first thing wrong with the document, or null when it has all that an entry needs.
const char* WhatIsWrong(const Json::Value& document) {
    if (!document.isObject()) {
        return "not an object";
    }
    const Json::Value& version = document["version"];
    if (!version.isInt() || version.asInt() != kRegistryVersion) {
        return "its version is not 1";
    }
    for (const char* const member : {"ssd", "device"}) {
        const Json::Value& path = document[member];
        if (!path.isString() || path.asString().empty() || path.asString().front() != '/' ||
            path.asString().find('\0') != std::string::npos) {
            return "\"ssd\" and \"device\" must be absolute paths";
        }
    }
    if (!document["state"].isInt() || !document["supportPin"].isInt()) {
        return "\"state\" and \"supportPin\" must be integers";
    }
    return nullptr;
}

// Turns a registry file's content into an entry. Returns what is wrong with it, an empty text when
// nothing is.
std::string ParseEntry(const std::string& content, CacheEntry& cache) {
    Json::CharReaderBuilder builder;
    Json::CharReaderBuilder::strictMode(&builder.settings_);
    const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
    Json::Value document;
    std::string error;
    bool parsed = false;
    try {  // deep nesting is reported by an exception
        parsed = reader->parse(content.data(), content.data() + content.size(), &document, &error);
    } catch (const std::exception& exception) {
        error = exception.what();
    }
    if (!parsed) {
        std::replace(error.begin(), error.end(), '\n', ' ');
        return error;
    }
    if (const char* const wrong = WhatIsWrong(document)) {
        return wrong;
    }
    const Json::Value& entry = document;
    cache = {entry["ssd"].asString(), entry["device"].asString(), entry["state"].asInt(),
             entry["supportPin"].asInt()};
    return "";
}

// What is known of the process behind an entry.
enum class Life { kLives, kGone, kUnknown };  // kUnknown: errno says why

// The file beside the entry that its cache keeps locked.
std::string LockPath(const std::string& entryPath) {
    return entryPath.substr(0, entryPath.size() - kEntryEnding.size()) + ".lock";
}

// Whether somebody keeps the lock file locked.
Life AskLock(const std::string& path, Patience& patience) {
    UniqueFd lock(-1);
    if (!patience.Try([&] {
            lock.Reset(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
            return lock.Valid();
        })) {
        return errno == ENOENT ? Life::kGone : Life::kUnknown;
    }
    bool free = false;  // the lock is had for a moment and goes with the descriptor
    const auto ask = [&] {
        free = flock(lock.Get(), LOCK_SH | LOCK_NB) == 0;
        return free || errno == EWOULDBLOCK;
    };
    if (!patience.Try(ask)) {
        return Life::kUnknown;
    }
    return free ? Life::kGone : Life::kLives;
}

// Reads the registry file. Returns false with errno set.
bool ReadContent(const std::string& path, std::string& content) {
    const UniqueFd file(OpenSmallFile(path, O_NOFOLLOW));
    return file.Valid() && ReadSmallFile(file.Get(), content);
}

// Whether a file that cannot be read for this reason is none that a cache wrote: a link, not a
// regular file, too large.
bool IsNoEntry(int error) {
    return error == ELOOP || error == EINVAL || error == EFBIG;
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
    std::vector<std::string> lines;  // about what is not in order

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
        if (patience_.Try([&] { return ReadContent(path, content); })) {
            const std::string wrong = ParseEntry(content, entry);
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
        const bool counts = known != known_.end() && !IsNoEntry(errno);
        lines.push_back(Format("cache registry file %s %s: %s", path.c_str(),
                               counts ? "counts as it was read before" : "is passed over",
                               strerror(errno)));
        if (counts) {
            entry = known->second;
        } else if (!IsNoEntry(errno)) {
            complete = false;
        }
        return counts;
    }

    // A cache is believed to live until it is known to be gone: a no would make the service forget
    // what is pinned.
    bool Lives(const std::string& path) {
        const std::string lockPath = LockPath(path);
        const Life life = AskLock(lockPath, patience_);
        if (life == Life::kUnknown) {
            lines.push_back(
                Format("cache registry lock %s cannot be asked, the cache counts as "
                       "living: %s",
                       lockPath.c_str(), strerror(errno)));
        }
        return life != Life::kGone;
    }

    const KnownEntries& known_;
    Patience patience_;
};

}  // namespace

CacheListing ReadCacheRegistry() {
    // All three may be in use while the process exits.
    static StandingLines& standing = *new StandingLines;
    static std::mutex& mutex = *new std::mutex;  // guards `known`
    static KnownEntries& known = *new KnownEntries;
    const std::lock_guard<std::mutex> lock(mutex);
    Look look(known);
    look.AtDirectory(RegistryDirectory());
    standing.Send(look.lines);
    CacheListing listing;
    listing.complete = look.complete;
    for (const auto& [path, entry] : look.found) {
        listing.caches.push_back(entry);
    }
    known = std::move(look.found);
    return listing;
}

int FindCacheBySsd(const std::string& ssdPath, CacheEntry& cache) {
    const CacheListing listing = ReadCacheRegistry();
    for (const CacheEntry& candidate : listing.caches) {
        if (candidate.ssd == ssdPath) {
            cache = candidate;
            return 1;
        }
    }
    return listing.complete ? 0 : -1;
}

}  // namespace stand_in
