// SPDX-License-Identifier: MIT
// The mount of one cache: put up, served by a pool of threads, taken down.
#pragma once

#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "softcache/serve/served_cache.h"

struct fuse_session;

namespace softcache {

struct FuseContext;

class FuseDevice {
  public:
    explicit FuseDevice(ServedCache& served);
    ~FuseDevice();  // stopped and unmounted, if it is not yet

    // Mounts on the directory `mountPoint`. Returns an empty text, or why not.
    std::string Mount(const std::string& name, const std::string& mountPoint);

    // Starts serving and returns when the first request of others can be answered. `onEnd` is
    // called from another thread when serving ends, by Stop or because somebody took the
    // mount away. Returns false when it ended before it began.
    bool Start(std::function<void()> onEnd);

    // Finishes the requests that are being answered, then serves no others. Whoever still has the
    // device open meets errors from then on.
    void Stop();

    void Unmount();

  private:
    ServedCache& served_;
    std::unique_ptr<FuseContext> context_;
    fuse_session* session_ = nullptr;
    bool mounted_ = false;
    std::thread thread_;

    std::mutex mutex_;  // guards the two below
    std::condition_variable changed_;
    bool serving_ = false;
    bool ended_ = false;
};

}  // namespace softcache
