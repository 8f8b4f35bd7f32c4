// SPDX-License-Identifier: MIT
#include "softcache/serve/registry.h"

#include <errno.h>
#include <fcntl.h>
#include <json/json.h>
#include <stdlib.h>
#include <string.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <filesystem>

#include "softcache/store/unit_table.h"

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

static std::string LockPath(const std::string& directory, const std::string& name) {
    return directory + "/" + name + ".lock";
}

// Only root can open a lock, so nobody else can keep it.
static OwnedFd OpenLock(const std::string& path, int flags) {
    return OwnedFd(open(path.c_str(), flags | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, 0600));
}

// Whether a cache serves under this name now: 1, 0, or -errno when that cannot be found out.
static int IsServed(const std::string& directory, const std::string& name) {
    const OwnedFd lock = OpenLock(LockPath(directory, name), O_RDONLY);
    if (!lock.valid()) {
        return errno == ENOENT ? 0 : -errno;
    }
    if (flock(lock.get(), LOCK_SH | LOCK_NB) == 0) {
        return 0;
    }
    return errno == EWOULDBLOCK ? 1 : -errno;
}

std::string WhyNotServe(const std::string& directory, const std::string& name) {
    if (!UsableName(name)) {
        return "name '" + name +
               "': 1 to 64 letters, digits, '.', '_' or '-', not starting with '.' or '-'";
    }
    const int served = IsServed(directory, name);
    if (served < 0) {
        return "registry lock " + LockPath(directory, name) + ": " + strerror(-served);
    }
    return served == 1 ? "name " + name + " is already served: " + EntryPath(directory, name) : "";
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

// Takes the lock, and waits for whoever has it. Returns an invalid descriptor, with errno set, when
// it cannot be had.
static OwnedFd TakeLock(const std::string& path) {
    OwnedFd lock = OpenLock(path, O_RDWR | O_CREAT);
    while (lock.valid() && flock(lock.get(), LOCK_EX) != 0) {
        if (errno != EINTR) {
            const int error = errno;
            lock = OwnedFd();
            errno = error;
        }
    }
    return lock;
}

// Looking and putting are one step among caches that start or end.
static OwnedFd LockDirectory(const std::string& directory) {
    return TakeLock(directory + "/.lock");
}

std::string RegistryEntry::Publish() {
    const std::lock_guard<std::mutex> guard(mutex_);
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
    const std::string lockPath = LockPath(directory_, record_.name);
    OwnedFd lock = TakeLock(lockPath);  // at most a reader has it, for a moment
    if (!lock.valid()) {
        return "registry lock " + lockPath + ": " + strerror(errno);
    }
    const int result = Write(record_);
    if (result != 0) {
        unlink(lockPath.c_str());
        return "registry entry " + EntryPath(directory_, record_.name) + ": " + strerror(-result);
    }
    lock_ = std::move(lock);
    return "";
}

int RegistryEntry::Write(const RegistryRecord& record) {
    const std::string path = EntryPath(directory_, record.name);
    const std::string text = EntryText(record);
    OwnedFd file;
    int result = WriteReplacement(path, text.data(), text.size(), 0644, file);
    if (result == 0) {
        result = PutReplacement(path);
    }
    if (result == 0) {
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
    const std::lock_guard<std::mutex> guard(mutex_);
    if (!lock_.valid()) {
        return;
    }
    const OwnedFd directoryLock = LockDirectory(directory_);
    const std::string path = EntryPath(directory_, record_.name);
    struct stat mine;
    struct stat standing;
    if (fstat(entry_.get(), &mine) == 0 && stat(path.c_str(), &standing) == 0 &&
        mine.st_ino == standing.st_ino && mine.st_dev == standing.st_dev) {
        unlink(path.c_str());
    }
    if (directoryLock.valid()) {  // else somebody may be about to take it
        unlink(LockPath(directory_, record_.name).c_str());
    }
    entry_ = OwnedFd();
    lock_ = OwnedFd();
}

}  // namespace softcache
