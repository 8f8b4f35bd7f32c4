// SPDX-License-Identifier: MIT
#include "tests/unit/support/fake_system.h"

#include <errno.h>
#include <pthread.h>
#include <signal.h>
#include <stdio.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <mutex>

// NOLINTBEGIN(bugprone-reserved-identifier): the linker's names
extern "C" {
int __real_fflush(FILE* file);
int __real_fsync(int fd);
size_t __real_fwrite(const void* data, size_t size, size_t count, FILE* file);
off64_t __real_lseek64(int fd, off64_t offset, int whence);
ssize_t __real_pread64(int fd, void* data, size_t size, off64_t offset);
ssize_t __real_pwrite64(int fd, const void* data, size_t size, off64_t offset);
ssize_t __real_read(int fd, void* data, size_t size);
int __real_pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                          void* (*start)(void*), void* argument);
int __real_setvbuf(FILE* file, char* buffer, int mode, size_t size);
sighandler_t __real_signal(int number, sighandler_t handler);
ssize_t __real_write(int fd, const void* data, size_t size);
}

namespace {

struct CallState {
    FaultPlan plan;
    std::function<void(int)> hook;
};

struct SystemState {
    std::mutex mutex;
    std::array<CallState, static_cast<size_t>(Call::kNumCalls)> calls;
    std::vector<unsigned> sleeps;
    std::vector<SignalRecord> signals;
    std::vector<void*> threadArguments;
    std::vector<ReadRecord> reads;
    bool recordsReads = false;
};

// Never destroyed: calls still come when the program ends.
SystemState& State() {
    static auto* state = new SystemState;
    return *state;
}

// To be used with the lock held.
CallState& StateOf(Call call) {
    return State().calls[static_cast<size_t>(call)];
}

// The head of a call whose failure is a result of -1 and errno.
bool FailsWithErrno(Call call) {
    CallOutcome outcome = EnterCall(call);

    if (outcome.fails) {
        errno = outcome.error;
    }
    return outcome.fails;
}

void NoteRead(int fd, const void* buffer, size_t size) {
    SystemState& state = State();
    std::lock_guard<std::mutex> lock(state.mutex);

    if (state.recordsReads) {
        state.reads.push_back({static_cast<uint64_t>(__real_lseek64(fd, 0, SEEK_CUR)), size,
                               reinterpret_cast<uintptr_t>(buffer)});
    }
}

}  // namespace

void FakeSystemReset() {
    SystemState& state = State();
    std::lock_guard<std::mutex> lock(state.mutex);

    state.calls = {};
    state.sleeps.clear();
    state.signals.clear();
    state.threadArguments.clear();
    state.reads.clear();
    state.recordsReads = false;
}

void FailCall(Call call, int nth, int error, int times) {
    SystemState& state = State();
    std::lock_guard<std::mutex> lock(state.mutex);
    CallOutcome outcome;

    outcome.fails = true;
    outcome.error = error;
    StateOf(call).plan.Add(nth, times, outcome);
}

void ShortenCall(Call call, int nth, size_t bytes) {
    SystemState& state = State();
    std::lock_guard<std::mutex> lock(state.mutex);
    CallOutcome outcome;

    outcome.limit = bytes;
    StateOf(call).plan.Add(nth, 1, outcome);
}

void OnCall(Call call, std::function<void(int)> hook) {
    SystemState& state = State();
    std::lock_guard<std::mutex> lock(state.mutex);

    StateOf(call).hook = std::move(hook);
}

int CallCount(Call call) {
    SystemState& state = State();
    std::lock_guard<std::mutex> lock(state.mutex);

    return StateOf(call).plan.count();
}

CallOutcome EnterCall(Call call) {
    SystemState& state = State();
    CallState& callState = StateOf(call);
    std::unique_lock<std::mutex> lock(state.mutex);
    CallOutcome outcome = callState.plan.Next();
    std::function<void(int)> hook = callState.hook;
    int count = callState.plan.count();

    lock.unlock();
    if (hook) {
        hook(count);
    }
    return outcome;
}

std::vector<unsigned> SleepsTaken() {
    SystemState& state = State();
    std::lock_guard<std::mutex> lock(state.mutex);

    return state.sleeps;
}

void RecordReads() {
    SystemState& state = State();
    std::lock_guard<std::mutex> lock(state.mutex);

    state.recordsReads = true;
}

std::vector<ReadRecord> ReadsTried() {
    SystemState& state = State();
    std::lock_guard<std::mutex> lock(state.mutex);

    return state.reads;
}

std::vector<void*> ThreadArguments() {
    SystemState& state = State();
    std::lock_guard<std::mutex> lock(state.mutex);

    return state.threadArguments;
}

std::vector<SignalRecord> SignalsSet() {
    SystemState& state = State();
    std::lock_guard<std::mutex> lock(state.mutex);

    return state.signals;
}

extern "C" {

unsigned __wrap_sleep(unsigned seconds) {
    EnterCall(Call::kSleep);
    SystemState& state = State();
    std::lock_guard<std::mutex> lock(state.mutex);

    state.sleeps.push_back(seconds);
    return 0;
}

ssize_t __wrap_read(int fd, void* data, size_t size) {
    NoteRead(fd, data, size);
    CallOutcome outcome = EnterCall(Call::kRead);

    errno = outcome.fails ? outcome.error : errno;
    return outcome.fails ? -1 : __real_read(fd, data, std::min(size, outcome.limit));
}

ssize_t __wrap_pread64(int fd, void* data, size_t size, off64_t offset) {
    CallOutcome outcome = EnterCall(Call::kPread);

    errno = outcome.fails ? outcome.error : errno;
    return outcome.fails ? -1 : __real_pread64(fd, data, std::min(size, outcome.limit), offset);
}

ssize_t __wrap_pwrite64(int fd, const void* data, size_t size, off64_t offset) {
    CallOutcome outcome = EnterCall(Call::kPwrite);

    errno = outcome.fails ? outcome.error : errno;
    return outcome.fails ? -1 : __real_pwrite64(fd, data, std::min(size, outcome.limit), offset);
}

ssize_t __wrap_write(int fd, const void* data, size_t size) {
    CallOutcome outcome = EnterCall(Call::kWrite);

    errno = outcome.fails ? outcome.error : errno;
    return outcome.fails ? -1 : __real_write(fd, data, std::min(size, outcome.limit));
}

// Limits count for single-byte items only, as the service writes them.
size_t __wrap_fwrite(const void* data, size_t size, size_t count, FILE* file) {
    CallOutcome outcome = EnterCall(Call::kFwrite);

    errno = outcome.fails ? outcome.error : errno;
    return outcome.fails ? 0 : __real_fwrite(data, size, std::min(count, outcome.limit), file);
}

off64_t __wrap_lseek64(int fd, off64_t offset, int whence) {
    return FailsWithErrno(Call::kLseek) ? -1 : __real_lseek64(fd, offset, whence);
}

int __wrap_fflush(FILE* file) {
    return FailsWithErrno(Call::kFflush) ? EOF : __real_fflush(file);
}

int __wrap_setvbuf(FILE* file, char* buffer, int mode, size_t size) {
    EnterCall(Call::kSetvbuf);
    return __real_setvbuf(file, buffer, mode, size);
}

int __wrap_fsync(int fd) {
    return FailsWithErrno(Call::kFsync) ? -1 : __real_fsync(fd);
}

int __wrap_pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                          void* (*start)(void*), void* argument) {
    CallOutcome outcome = EnterCall(Call::kThreadCreate);

    if (outcome.fails) {
        return outcome.error;
    }
    {
        SystemState& state = State();
        std::lock_guard<std::mutex> lock(state.mutex);
        state.threadArguments.push_back(argument);
    }
    return __real_pthread_create(thread, attributes, start, argument);
}

sighandler_t __wrap_signal(int number, sighandler_t handler) {
    if (FailsWithErrno(Call::kSignal)) {
        return SIG_ERR;
    }
    SystemState& state = State();
    std::lock_guard<std::mutex> lock(state.mutex);

    state.signals.push_back({number, handler});
    return __real_signal(number, handler);
}

}  // extern "C"
// NOLINTEND(bugprone-reserved-identifier)
