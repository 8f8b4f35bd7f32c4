// SPDX-License-Identifier: MIT
#include "tests/unit/platform/libc_hooks.h"

// Not fcntl.h: its struct flock would be hidden by the function of that name, and it may give open
// the other one's name.
#include <dlfcn.h>
#include <errno.h>
#include <stdarg.h>
#include <stdio.h>
#include <syslog.h>
#include <time.h>

#include <mutex>
#include <utility>

namespace {

std::mutex g_logMutex;
std::vector<std::string> g_log;
IoctlHook g_ioctlHook;
std::function<int()> g_flockHook;
std::function<void()> g_sleepHook;
OpenHook g_openHook;

}  // namespace

extern "C" void syslog(int priority, const char* format, ...) {
    char line[16384];
    va_list arguments;
    va_start(arguments, format);
    // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): the checker misses the va_start above
    vsnprintf(line, sizeof line, format, arguments);
    va_end(arguments);
    const std::lock_guard<std::mutex> lock(g_logMutex);
    g_log.push_back((priority == LOG_ERR ? "" : "[not LOG_ERR] ") + std::string(line));
}

extern "C" int ioctl(int fd, unsigned long request, ...) noexcept {
    va_list arguments;
    va_start(arguments, request);
    void* const argument = va_arg(arguments, void*);
    va_end(arguments);
    return g_ioctlHook ? g_ioctlHook(fd, request, argument) : RealIoctl(fd, request, argument);
}

extern "C" int flock(int fd, int operation) noexcept {
    if (const std::function<int()> hook = std::exchange(g_flockHook, nullptr)) {
        const int error = hook();  // its own locks come here, too, and find no hook
        g_flockHook = hook;
        if (error != 0) {
            errno = error;
            return -1;
        }
    }
    using Flock = int (*)(int, int);
    static const Flock next = reinterpret_cast<Flock>(dlsym(RTLD_NEXT, "flock"));
    return next(fd, operation);
}

extern "C" int nanosleep(const timespec* wanted, timespec* left) {
    if (g_sleepHook) {
        g_sleepHook();
        return 0;
    }
    using Sleep = int (*)(const timespec*, timespec*);
    static const Sleep next = reinterpret_cast<Sleep>(dlsym(RTLD_NEXT, "nanosleep"));
    return next(wanted, left);
}

// Both names of open: which one a library calls depends on how it was built.
#define DEFINE_OPEN(NAME)                                                         \
    extern "C" int NAME(const char* path, int flags, ...) {                       \
        va_list arguments;                                                        \
        va_start(arguments, flags);                                               \
        const unsigned mode = va_arg(arguments, unsigned);                        \
        va_end(arguments);                                                        \
        if (const int error = g_openHook ? g_openHook(path) : 0) {                \
            errno = error;                                                        \
            return -1;                                                            \
        }                                                                         \
        using Open = int (*)(const char*, int, ...);                              \
        static const Open next = reinterpret_cast<Open>(dlsym(RTLD_NEXT, #NAME)); \
        return next(path, flags, mode);                                           \
    }
DEFINE_OPEN(open)
DEFINE_OPEN(open64)

int RealIoctl(int fd, unsigned long request, void* argument) {
    using Ioctl = int (*)(int, unsigned long, ...);
    static const Ioctl next = reinterpret_cast<Ioctl>(dlsym(RTLD_NEXT, "ioctl"));
    return next(fd, request, argument);
}

void SetIoctlHook(IoctlHook hook) {
    g_ioctlHook = std::move(hook);
}

void SetFlockHook(std::function<int()> hook) {
    g_flockHook = std::move(hook);
}

void SetOpenHook(OpenHook hook) {
    g_openHook = std::move(hook);
}

void SetSleepHook(std::function<void()> hook) {
    g_sleepHook = std::move(hook);
}

std::vector<std::string> LogLines() {
    const std::lock_guard<std::mutex> lock(g_logMutex);
    return g_log;
}

void ClearLog() {
    const std::lock_guard<std::mutex> lock(g_logMutex);
    g_log.clear();
}
