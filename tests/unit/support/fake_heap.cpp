// SPDX-License-Identifier: MIT
#include "tests/unit/support/fake_heap.h"

#include <errno.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>

#include <atomic>
#include <map>
#include <mutex>

#include "tests/unit/support/fake_system.h"

// NOLINTBEGIN(bugprone-reserved-identifier): the linker's names
extern "C" {
void* __real_calloc(size_t count, size_t size);
void __real_free(void* block);
ssize_t __real_getline(char** line, size_t* capacity, FILE* file);
void* __real_malloc(size_t size);
int __real_posix_memalign(void** block, size_t alignment, size_t size);
char* __real_strdup(const char* text);
int __real_vasprintf(char** text, const char* format, va_list args);
}

namespace {

// Blocks are followed only while the watch is on, so that nothing here runs before main.
std::atomic<bool> g_watching{false};

struct HeapState {
    std::mutex mutex;
    std::map<void*, std::string> held;
};

HeapState& State() {
    static auto* state = new HeapState;
    return *state;
}

// Forgets a block. To be called before it is freed: another thread may be given the same address.
void Forget(void* block) {
    if (!g_watching) {
        return;
    }
    HeapState& state = State();
    std::lock_guard<std::mutex> lock(state.mutex);
    state.held.erase(block);
}

template <typename Block>
Block* Follow(Block* block, const char* label) {
    HeapWatchAdd(block, label);
    return block;
}

bool Fails(Call call) {
    if (!g_watching) {
        return false;
    }
    CallOutcome outcome = EnterCall(call);
    if (outcome.fails) {
        errno = outcome.error;
    }
    return outcome.fails;
}

ssize_t GetLine(char** line, size_t* capacity, FILE* file) {
    if (Fails(Call::kGetline)) {
        return -1;
    }
    Forget(*line);
    ssize_t length = __real_getline(line, capacity, file);
    Follow(*line, "getline");
    return length;
}

}  // namespace

void HeapWatchStart() {
    HeapState& state = State();
    std::lock_guard<std::mutex> lock(state.mutex);

    state.held.clear();
    g_watching = true;
}

void HeapWatchStop() {
    g_watching = false;
}

void HeapWatchAdd(void* block, const char* label) {
    if (!g_watching || block == nullptr) {
        return;
    }
    HeapState& state = State();
    std::lock_guard<std::mutex> lock(state.mutex);
    state.held[block] = label;
}

std::vector<std::string> HeapBlocksHeld() {
    HeapState& state = State();
    std::lock_guard<std::mutex> lock(state.mutex);
    std::vector<std::string> labels;

    for (const auto& block : state.held) {
        labels.push_back(block.second);
    }
    return labels;
}

extern "C" {

void* __wrap_calloc(size_t count, size_t size) {
    return Fails(Call::kCalloc) ? nullptr : Follow(__real_calloc(count, size), "calloc");
}

void* __wrap_malloc(size_t size) {
    return Fails(Call::kMalloc) ? nullptr : Follow(__real_malloc(size), "malloc");
}

char* __wrap_strdup(const char* text) {
    return Fails(Call::kStrdup) ? nullptr : Follow(__real_strdup(text), "strdup");
}

int __wrap_posix_memalign(void** block, size_t alignment, size_t size) {
    CallOutcome outcome = EnterCall(Call::kPosixMemalign);

    if (outcome.fails) {
        return outcome.error;
    }
    int result = __real_posix_memalign(block, alignment, size);
    if (result == 0) {
        HeapWatchAdd(*block, "posix_memalign");
    }
    return result;
}

int __wrap_vasprintf(char** text, const char* format, va_list args) {
    if (Fails(Call::kVasprintf)) {
        return -1;
    }
    int length = __real_vasprintf(text, format, args);
    if (length >= 0) {
        HeapWatchAdd(*text, "vasprintf");
    }
    return length;
}

ssize_t __wrap_getline(char** line, size_t* capacity, FILE* file) {
    return GetLine(line, capacity, file);
}

// What getline is where the compiler inlines it.
ssize_t __wrap___getdelim(char** line, size_t* capacity, int, FILE* file) {
    return GetLine(line, capacity, file);
}

void __wrap_free(void* block) {
    Forget(block);
    __real_free(block);
    if (g_watching) {
        errno = EDOM;  // an older C library's free may change it: nobody may count on it behind one
    }
}

}  // extern "C"
// NOLINTEND(bugprone-reserved-identifier)
