// SPDX-License-Identifier: MIT
// The thread that settles what requests leave behind, a moment after they did.
#pragma once

#include <functional>
#include <thread>

#include "softcache/core/block_cache.h"

namespace softcache {

// Runs from construction to destruction. `before` is called on it ahead of every checkpoint.
class Checkpoints {
  public:
    Checkpoints(BlockCache& cache, std::function<void()> before);
    ~Checkpoints();
    Checkpoints(const Checkpoints&) = delete;
    Checkpoints& operator=(const Checkpoints&) = delete;

  private:
    BlockCache& cache_;
    std::thread thread_;
};

}  // namespace softcache
