// SPDX-License-Identifier: MIT
#include "platform/linux/change_watch.h"

#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <sys/inotify.h>
#include <time.h>

#include <atomic>

namespace stand_in {

namespace {

constexpr uint32_t kNameEvents =
    IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO | IN_DELETE_SELF | IN_MOVE_SELF;
constexpr uint32_t kContentEvents = IN_MODIFY | IN_ATTRIB;

std::atomic<unsigned> g_forks{0};

// A number that is another one in a forked child: parent and child share the descriptors of a
// watch, and a change is told only once.
unsigned ForkNumber() {
    static const int registered = pthread_atfork(nullptr, nullptr, [] { ++g_forks; });
    return registered == 0 ? g_forks.load() : ++g_forks;
}

int64_t MillisecondsNow() {
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
    return int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1000000;
}

// Whether the descriptor has something to tell; one that cannot be asked may have.
bool HasNews(int fd, int16_t events) {
    pollfd asked = {fd, events, 0};
    return poll(&asked, 1, 0) != 0;
}

}  // namespace

void Lifetime::Start() {
    start_ = MillisecondsNow();
}

bool Lifetime::Over() const {
    return MillisecondsNow() - start_ >= milliseconds_;
}

bool MountWatch::Start() {
    fork_ = ForkNumber();
    // The thread's: the process's shows nothing once the main thread has ended.
    mounts_.Reset(open("/proc/thread-self/mountinfo", O_RDONLY | O_CLOEXEC));
    return mounts_.Valid();
}

bool MountWatch::Changed() const {
    return !mounts_.Valid() || fork_ != ForkNumber() || HasNews(mounts_.Get(), POLLPRI);
}

bool DirectoryWatch::Start(const std::string& path, What what) {
    Stop();
    const uint32_t events = what == kNames ? kNameEvents : kNameEvents | kContentEvents;
    if (events_.Valid()) {
        watch_ = inotify_add_watch(events_.Get(), path.c_str(), events | IN_ONLYDIR);
    }
    return watch_ >= 0;
}

// Ends the watch, and leaves `events_` without news if it can be had at all.
void DirectoryWatch::Stop() {
    if (fork_ != ForkNumber()) {
        fork_ = ForkNumber();
        events_.Reset(-1);  // the parent's goes on
        watch_ = -1;
    }
    if (!events_.Valid()) {
        events_.Reset(inotify_init1(IN_NONBLOCK | IN_CLOEXEC));
    }
    if (watch_ >= 0) {
        inotify_rm_watch(events_.Get(), watch_);
        watch_ = -1;
    }
    alignas(inotify_event) char told[4096];
    while (events_.Valid() && read(events_.Get(), told, sizeof told) > 0) {
    }
}

bool DirectoryWatch::Changed() const {
    return watch_ < 0 || fork_ != ForkNumber() || HasNews(events_.Get(), POLLIN);
}

Changes::Changes(const MountWatch& mountWatch, const DirectoryWatch& directoryWatch)
    : mounts(true), directory(true) {
    const unsigned fork = ForkNumber();
    pollfd asked[] = {{mountWatch.mounts_.Get(), POLLPRI, 0},
                      {directoryWatch.events_.Get(), POLLIN, 0}};
    if (mountWatch.mounts_.Valid() && mountWatch.fork_ == fork && directoryWatch.watch_ >= 0 &&
        directoryWatch.fork_ == fork && poll(asked, 2, 0) >= 0) {
        mounts = asked[0].revents != 0;
        directory = asked[1].revents != 0;
    }
}

}  // namespace stand_in
