// SPDX-License-Identifier: MIT
#include "softcache/serve/fuse_device.h"

#include <errno.h>
#include <pthread.h>
#include <signal.h>
#include <string.h>

#include <chrono>

#include "softcache/serve/fuse_operations.h"

namespace softcache {

// A thread is held by a request for as long as the backing takes, or a delay that was asked for;
// the others must not wait behind a handful of those.
constexpr unsigned kMostThreads = 32;
constexpr unsigned kMostIdleThreads = 8;

// Wakes the serving thread out of its waiting; it has nothing to do but that.
constexpr int kWakeSignal = SIGUSR1;
constexpr std::chrono::milliseconds kWakeEvery(20);

FuseDevice::FuseDevice(ServedCache& served) : served_(served) {}

FuseDevice::~FuseDevice() {
    Stop();
    Unmount();
    if (session_ != nullptr) {
        fuse_session_destroy(session_);
    }
}

std::string FuseDevice::Mount(const std::string& name, const std::string& mountPoint) {
    // Everybody may look at the counters; the modes say who may do more.
    const std::string options =
        "allow_other,default_permissions,subtype=quorsoftcache,fsname=" + name;
    std::string words[] = {"quorsoftcache", "-o", options};
    char* argv[] = {words[0].data(), words[1].data(), words[2].data(), nullptr};
    fuse_args args = FUSE_ARGS_INIT(3, argv);
    context_ = std::make_unique<FuseContext>(served_);
    session_ =
        fuse_session_new(&args, &FuseOperations(), sizeof(fuse_lowlevel_ops), context_.get());
    fuse_opt_free_args(&args);
    if (session_ == nullptr) {
        return "mount point " + mountPoint + ": no session";
    }
    errno = 0;
    if (fuse_session_mount(session_, mountPoint.c_str()) != 0) {
        return "mount point " + mountPoint + ": cannot mount" +
               (errno != 0 ? std::string(": ") + strerror(errno) : "");
    }
    mounted_ = true;
    return "";
}

static void Serve(fuse_session* session) {
    fuse_loop_config* config = fuse_loop_cfg_create();
    fuse_loop_cfg_set_max_threads(config, kMostThreads);
    fuse_loop_cfg_set_idle_threads(config, kMostIdleThreads);
    fuse_session_loop_mt(session, config);
    fuse_loop_cfg_destroy(config);
}

bool FuseDevice::Start(std::function<void()> onEnd) {
    struct sigaction wake {};
    wake.sa_handler = [](int) {};  // without SA_RESTART: the wait returns
    sigaction(kWakeSignal, &wake, nullptr);

    const auto note = [this](bool& fact) {
        const std::lock_guard<std::mutex> lock(mutex_);
        fact = true;
        changed_.notify_all();
    };
    context_->onServing = [this, note] { note(serving_); };
    thread_ = std::thread([this, note, onEnd = std::move(onEnd)] {
        Serve(session_);
        note(ended_);
        onEnd();
    });
    std::unique_lock<std::mutex> lock(mutex_);
    changed_.wait(lock, [this] { return serving_ || ended_; });
    return serving_;
}

void FuseDevice::Stop() {
    if (!thread_.joinable()) {
        return;
    }
    served_.faults.Stop();
    fuse_session_exit(session_);
    // A signal that comes just before the thread begins to wait is lost on it, so it is sent again
    // until the thread has ended.
    std::unique_lock<std::mutex> lock(mutex_);
    do {
        pthread_kill(thread_.native_handle(), kWakeSignal);
    } while (!changed_.wait_for(lock, kWakeEvery, [this] { return ended_; }));
    lock.unlock();
    thread_.join();
}

void FuseDevice::Unmount() {
    if (mounted_) {
        fuse_session_unmount(session_);
        mounted_ = false;
    }
}

}  // namespace softcache
