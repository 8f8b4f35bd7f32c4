// SPDX-License-Identifier: MIT
#include "softcache/core/checkpoints.h"

#include <utility>

namespace softcache {

Checkpoints::Checkpoints(BlockCache& cache, std::function<void()> before)
    : cache_(cache), thread_([&cache, before = std::move(before)] {
          while (cache.WaitForUnsettled()) {
              before();
              cache.Checkpoint();  // what fails is told to the next flush, or loses the SSD
          }
      }) {}

Checkpoints::~Checkpoints() {
    cache_.StopWaiting();
    thread_.join();
}

}  // namespace softcache
