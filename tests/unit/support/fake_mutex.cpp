// SPDX-License-Identifier: MIT
#include "tests/unit/support/fake_mutex.h"

#include <atomic>
#include <utility>

#include "tests/unit/support/fake_system.h"

// NOLINTBEGIN(bugprone-reserved-identifier): the linker's names
extern "C" {
int __real_pthread_cond_signal(pthread_cond_t* cond);
int __real_pthread_cond_wait(pthread_cond_t* cond, pthread_mutex_t* mutex);
int __real_pthread_mutex_init(pthread_mutex_t* mutex, const pthread_mutexattr_t* attributes);
int __real_pthread_mutex_lock(pthread_mutex_t* mutex);
int __real_pthread_mutex_unlock(pthread_mutex_t* mutex);
}

namespace {

// The hook is set before, and cleared after, the threads that it watches run.
std::atomic<const pthread_mutex_t*> g_watched{nullptr};
std::function<void(const std::string&)>& Hook() {
    static auto* hook = new std::function<void(const std::string&)>;  // asked for until the end
    return *hook;
}

void Tell(const pthread_mutex_t* mutex, const char* step) {
    if (mutex == g_watched.load()) {
        Hook()(step);
    }
}

}  // namespace

void WatchMutex(const pthread_mutex_t* mutex, std::function<void(const std::string& step)> hook) {
    Hook() = std::move(hook);
    g_watched = mutex;
}

void UnwatchMutex() {
    g_watched = nullptr;
}

extern "C" {

int __wrap_pthread_mutex_lock(pthread_mutex_t* mutex) {
    Tell(mutex, "lock");
    int result = __real_pthread_mutex_lock(mutex);
    Tell(mutex, "locked");
    return result;
}

int __wrap_pthread_mutex_unlock(pthread_mutex_t* mutex) {
    Tell(mutex, "unlock");
    return __real_pthread_mutex_unlock(mutex);
}

int __wrap_pthread_mutex_init(pthread_mutex_t* mutex, const pthread_mutexattr_t* attributes) {
    CallOutcome outcome = EnterCall(Call::kMutexInit);

    return outcome.fails ? outcome.error : __real_pthread_mutex_init(mutex, attributes);
}

int __wrap_pthread_cond_wait(pthread_cond_t* cond, pthread_mutex_t* mutex) {
    CallOutcome outcome = EnterCall(Call::kCondWait);

    return outcome.fails ? outcome.error : __real_pthread_cond_wait(cond, mutex);
}

int __wrap_pthread_cond_signal(pthread_cond_t* cond) {
    if (const pthread_mutex_t* watched = g_watched.load()) {
        Tell(watched, "signal");
    }
    return __real_pthread_cond_signal(cond);
}

}  // extern "C"
// NOLINTEND(bugprone-reserved-identifier)
