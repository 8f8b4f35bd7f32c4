// SPDX-License-Identifier: MIT
#include "tests/unit/support/fake_files.h"

#include <errno.h>
#include <fcntl.h>
#include <stdarg.h>
#include <stdio.h>
#include <sys/ipc.h>
#include <sys/stat.h>

#include <map>
#include <mutex>

#include "tests/unit/support/fake_system.h"

// NOLINTBEGIN(bugprone-reserved-identifier): the linker's names
extern "C" {
int __real_access(const char* path, int mode);
FILE* __real_fopen64(const char* path, const char* mode);
key_t __real_ftok(const char* path, int project);
int __real_open64(const char* path, int flags, mode_t mode);
int __real_stat64(const char* path, struct stat* status);
}

namespace {

struct FilesState {
    std::mutex mutex;
    std::map<std::string, std::string> redirections;
    std::map<std::string, uint64_t> inodes;
    std::map<std::string, key_t> keys;
    std::vector<OpenRecord> opens;
    bool directAnywhere = false;
};

FilesState& State() {
    static auto* state = new FilesState;
    return *state;
}

std::string TargetOf(const char* path) {
    FilesState& state = State();
    std::lock_guard<std::mutex> lock(state.mutex);
    auto found = state.redirections.find(path);

    return found == state.redirections.end() ? path : found->second;
}

bool Fails(Call call) {
    CallOutcome outcome = EnterCall(call);

    if (outcome.fails) {
        errno = outcome.error;
    }
    return outcome.fails;
}

}  // namespace

void FakeFilesReset() {
    FilesState& state = State();
    std::lock_guard<std::mutex> lock(state.mutex);

    state.redirections.clear();
    state.inodes.clear();
    state.keys.clear();
    state.opens.clear();
    state.directAnywhere = false;
}

void RedirectPath(const std::string& path, const std::string& target) {
    FilesState& state = State();
    std::lock_guard<std::mutex> lock(state.mutex);

    state.redirections[path] = target;
}

void SetInodeNumber(const std::string& path, uint64_t inode) {
    FilesState& state = State();
    std::lock_guard<std::mutex> lock(state.mutex);

    state.inodes[path] = inode;
}

void SetFileKey(const std::string& path, key_t key) {
    FilesState& state = State();
    std::lock_guard<std::mutex> lock(state.mutex);

    state.keys[path] = key;
}

std::vector<OpenRecord> OpensTried() {
    FilesState& state = State();
    std::lock_guard<std::mutex> lock(state.mutex);

    return state.opens;
}

void AllowDirectAnywhere() {
    FilesState& state = State();
    std::lock_guard<std::mutex> lock(state.mutex);

    state.directAnywhere = true;
}

extern "C" {

int __wrap_access(const char* path, int mode) {
    return Fails(Call::kAccess) ? -1 : __real_access(TargetOf(path).c_str(), mode);
}

FILE* __wrap_fopen64(const char* path, const char* mode) {
    return Fails(Call::kFopen) ? nullptr : __real_fopen64(TargetOf(path).c_str(), mode);
}

key_t __wrap_ftok(const char* path, int project) {
    FilesState& state = State();

    if (Fails(Call::kFtok)) {
        return -1;
    }
    {
        std::lock_guard<std::mutex> lock(state.mutex);
        auto key = state.keys.find(path);
        if (key != state.keys.end()) {
            return key->second;
        }
    }
    return __real_ftok(TargetOf(path).c_str(), project);
}

int __wrap_open64(const char* path, int flags, ...) {
    OpenRecord record{path, flags, 0};
    FilesState& state = State();

    if ((flags & O_CREAT) != 0) {
        va_list args;
        va_start(args, flags);
        record.mode = va_arg(args, mode_t);
        va_end(args);
    }
    {
        std::lock_guard<std::mutex> lock(state.mutex);
        state.opens.push_back(record);
        flags = state.directAnywhere ? flags & ~O_DIRECT : flags;
    }
    return Fails(Call::kOpen) ? -1 : __real_open64(TargetOf(path).c_str(), flags, record.mode);
}

int __wrap_stat64(const char* path, struct stat* status) {
    FilesState& state = State();

    if (Fails(Call::kStat) || __real_stat64(TargetOf(path).c_str(), status) != 0) {
        return -1;
    }
    std::lock_guard<std::mutex> lock(state.mutex);
    auto inode = state.inodes.find(path);
    if (inode != state.inodes.end()) {
        status->st_ino = static_cast<ino_t>(inode->second);
    }
    return 0;
}

}  // extern "C"
// NOLINTEND(bugprone-reserved-identifier)
