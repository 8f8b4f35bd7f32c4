// SPDX-License-Identifier: MIT
#include "softcache/registry.h"

#include <errno.h>
#include <fcntl.h>
#include <json/json.h>
#include <stdlib.h>
#include <string.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <filesystem>

#include "softcache/unit_table.h"

namespace softcache {

constexpr size_t kMaxName = 64;

std::string DefaultRegistryDirectory() {
    const char* directory = getenv("QUORSOFTCACHE_REGISTRY");
    return directory != nullptr && *directory != '\0' ? directory : "/run/quorsoftcache";
}

static std::string EntryPath(const std::string& directory, const std::string& name) {
    return directory + "/" + name + ".json";
}

static bool UsableName(const std::string& name) {
    const char* allowed = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789._-";
    return !name.empty() && name.size() <= kMaxName && name[0] != '.' && name[0] != '-' &&
           name.find_first_not_of(allowed) == std::string::npos;
}

// True while the process that wrote the entry lives.
static bool EntryAlive(const std::string& path) {
    const OwnedFd entry(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    return entry.valid() && flock(entry.get(), LOCK_SH | LOCK_NB) != 0 && errno == EWOULDBLOCK;
}

std::string WhyNotServe(const std::string& directory, const std::string& name) {
    if (!UsableName(name)) {
        return "name '" + name +
               "': 1 to 64 letters, digits, '.', '_' or '-', not starting with '.' or '-'";
    }
    const std::string path = EntryPath(directory, name);
    return EntryAlive(path) ? "name " + name + " is already served: " + path : "";
}

static std::string EntryText(const RegistryRecord& record) {
    Json::Value entry(Json::objectValue);
    entry["version"] = 1;
    entry["name"] = record.name;
    entry["pid"] = static_cast<Json::Int>(getpid());
    entry["ssd"] = record.ssd;
    entry["device"] = record.mountPoint + "/device";
    entry["state"] = record.state;
    entry["supportPin"] = record.supportPin ? 1 : 0;
    entry["unitSize"] = static_cast<Json::UInt>(kUnitSize);
    entry["deviceSize"] = static_cast<Json::UInt64>(record.deviceSize);
    entry["cacheSize"] = static_cast<Json::UInt64>(record.cacheSize);
    entry["stats"] = record.mountPoint + "/stats.json";
    entry["control"] = record.mountPoint + "/control";
    entry["resident"] = record.mountPoint + "/resident";
    entry["pinned"] = record.mountPoint + "/pinned";
    Json::StreamWriterBuilder writer;
    writer["indentation"] = "  ";
    return Json::writeString(writer, entry) + "\n";
}

RegistryEntry::RegistryEntry(std::string directory, RegistryRecord record)
    : directory_(std::move(directory)), record_(std::move(record)) {}

// Looking and putting are one step among caches that start or stop: the directory itself is the
// lock.
static OwnedFd LockDirectory(const std::string& directory) {
    OwnedFd lock(open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (lock.valid() && flock(lock.get(), LOCK_EX) != 0) {
        return OwnedFd();
    }
    return lock;
}

std::string RegistryEntry::Publish() {
    const std::lock_guard<std::mutex> lock(mutex_);
    std::error_code error;
    std::filesystem::create_directories(directory_, error);
    const OwnedFd directoryLock = LockDirectory(directory_);
    if (!directoryLock.valid()) {
        return "registry " + directory_ + ": " + strerror(errno);
    }
    std::string whyNot = WhyNotServe(directory_, record_.name);
    if (!whyNot.empty()) {
        return whyNot;
    }
    const int result = Write(record_);
    return result == 0
               ? ""
               : "registry entry " + EntryPath(directory_, record_.name) + ": " + strerror(-result);
}

int RegistryEntry::Write(const RegistryRecord& record) {
    const std::string path = EntryPath(directory_, record.name);
    const std::string text = EntryText(record);
    OwnedFd file;
    int result = WriteReplacement(path, text.data(), text.size(), 0644, file);
    if (result != 0) {
        return result;
    }
    // Locked before anybody can see it.
    if (flock(file.get(), LOCK_EX | LOCK_NB) != 0) {
        result = -errno;
        DropReplacement(path);
        return result;
    }
    result = PutReplacement(path);
    if (result == 0) {
        previous_ = std::move(entry_);
        entry_ = std::move(file);
    }
    return result;
}

int RegistryEntry::Change(const RegistryRecord& changed) {
    const int result = entry_.valid() ? Write(changed) : 0;
    if (result == 0) {
        record_ = changed;
    }
    return result;
}

int RegistryEntry::SetState(int32_t state) {
    const std::lock_guard<std::mutex> lock(mutex_);
    RegistryRecord changed = record_;
    changed.state = state;
    return Change(changed);
}

int RegistryEntry::SetSupportPin(bool supportPin) {
    const std::lock_guard<std::mutex> lock(mutex_);
    RegistryRecord changed = record_;
    changed.supportPin = supportPin;
    return Change(changed);
}

void RegistryEntry::Remove() {
    const std::lock_guard<std::mutex> lock(mutex_);
    const OwnedFd directoryLock = LockDirectory(directory_);
    const std::string path = EntryPath(directory_, record_.name);
    struct stat mine;
    struct stat standing;
    if (entry_.valid() && fstat(entry_.get(), &mine) == 0 && stat(path.c_str(), &standing) == 0 &&
        mine.st_ino == standing.st_ino && mine.st_dev == standing.st_dev) {
        unlink(path.c_str());
    }
    entry_ = OwnedFd();
    previous_ = OwnedFd();
}

}  // namespace softcache
