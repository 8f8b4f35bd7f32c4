// SPDX-License-Identifier: MIT
#include "platform/linux/cache_registry.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <json/json.h>
#include <stdlib.h>
#include <string.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <algorithm>
#include <memory>

#include "platform/linux/report.h"
#include "platform/linux/small_file.h"
#include "platform/linux/unique_fd.h"

namespace {

constexpr char kRegistryDirectory[] = "/run/quorsoftcache";
constexpr int kRegistryVersion = 1;
constexpr int kReplacedAttempts = 100;

struct DirectoryCloser {
    void operator()(DIR* directory) const { closedir(directory); }
};

std::string RegistryDirectory() {
    const char* const given = getenv("QUORSOFTCACHE_REGISTRY");
    return given == nullptr || *given == '\0' ? kRegistryDirectory : given;
}

bool IsEntryName(const std::string& name) {
    const std::string ending = ".json";
    return name.size() > ending.size() && name.front() != '.' &&
           name.compare(name.size() - ending.size(), ending.size(), ending) == 0;
}

// Stores the paths of the registry files, sorted. Returns false when the directory cannot be read.
bool ListEntries(const std::string& directory, std::vector<std::string>& paths) {
    const std::string prefix = directory + "/";
    const std::unique_ptr<DIR, DirectoryCloser> open(opendir(directory.c_str()));
    if (!open) {
        return errno == ENOENT;
    }
    for (;;) {
        errno = 0;
        const dirent* const entry = readdir(open.get());
        if (entry == nullptr) {
            break;
        }
        if (IsEntryName(entry->d_name)) {
            paths.push_back(prefix + entry->d_name);
        }
    }
    const int failure = errno;
    std::sort(paths.begin(), paths.end());
    errno = failure;
    return failure == 0;
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

// Whether another process (or descriptor) keeps the open registry file locked.
bool IsLocked(int fd) {
    if (flock(fd, LOCK_SH | LOCK_NB) == 0) {
        return false;  // the lock goes with the descriptor
    }
    return errno == EWOULDBLOCK;
}

// Whether `path` still names the open file.
bool IsStillAt(int fd, const std::string& path) {
    struct stat opened = {};
    struct stat named = {};
    return fstat(fd, &opened) == 0 && lstat(path.c_str(), &named) == 0 &&
           opened.st_dev == named.st_dev && opened.st_ino == named.st_ino;
}

// Opens the registry file and tells whether its cache lives. Returns -1 with errno set.
int OpenEntry(const std::string& path, bool& living) {
    for (int attempt = 0; attempt < kReplacedAttempts; ++attempt) {
        UniqueFd file(OpenSmallFile(path, O_NOFOLLOW));
        if (!file.Valid()) {
            return -1;
        }
        living = IsLocked(file.Get());
        if (living || IsStillAt(file.Get(), path)) {
            return file.Release();
        }
        // The cache has put a new file in the place of this one since it was opened.
    }
    errno = EBUSY;
    return -1;
}

// Stores the entry of the registry file when its cache lives. Adds a line to `lines` when the file
// is not in order.
bool ReadEntry(const std::string& path, CacheEntry& cache, std::vector<std::string>& lines) {
    bool living = false;
    std::string content;
    const UniqueFd file(OpenEntry(path, living));
    if (!file.Valid() && errno == ENOENT) {
        return false;  // its cache has just gone
    }
    if (!file.Valid() || !ReadSmallFile(file.Get(), content)) {
        lines.push_back(
            Format("cache registry file %s is passed over: %s", path.c_str(), strerror(errno)));
        return false;
    }
    const std::string wrong = ParseEntry(content, cache);
    if (!wrong.empty()) {
        lines.push_back(Format("cache registry file %s is damaged and passed over: %s",
                               path.c_str(), wrong.c_str()));
        return false;
    }
    return living;
}

}  // namespace

bool ReadCacheRegistry(std::vector<CacheEntry>& caches) {
    const std::string directory = RegistryDirectory();
    std::vector<std::string> paths;
    if (!ListEntries(directory, paths)) {
        Report("cache registry %s cannot be read: %s", directory.c_str(), strerror(errno));
        return false;
    }
    static StandingLines& standing = *new StandingLines;  // may be in use while the process exits
    std::vector<CacheEntry> living;
    std::vector<std::string> lines;
    for (const std::string& path : paths) {
        CacheEntry cache;
        if (ReadEntry(path, cache, lines)) {
            living.push_back(cache);
        }
    }
    standing.Send(lines);
    caches = std::move(living);
    return true;
}

int FindCacheBySsd(const std::string& ssdPath, CacheEntry& cache) {
    std::vector<CacheEntry> caches;
    if (!ReadCacheRegistry(caches)) {
        return -1;
    }
    for (const CacheEntry& candidate : caches) {
        if (candidate.ssd == ssdPath) {
            cache = candidate;
            return 1;
        }
    }
    return 0;
}
