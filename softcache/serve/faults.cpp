// SPDX-License-Identifier: MIT
#include "softcache/serve/faults.h"

#include <errno.h>

#include <algorithm>
#include <chrono>

namespace softcache {

void Faults::RefuseControl(uint64_t nth) {
    const std::lock_guard<std::mutex> lock(mutex_);
    refused_.insert(controls_ + nth);
}

void Faults::FailRead(uint64_t offset, uint64_t length) {
    const std::lock_guard<std::mutex> lock(mutex_);
    failing_.push_back({offset, length});
}

void Faults::DelayReads(uint32_t milliseconds) {
    const std::lock_guard<std::mutex> lock(mutex_);
    delayMilliseconds_ = milliseconds;
}

void Faults::DelayBacking(uint32_t milliseconds) {
    const std::lock_guard<std::mutex> lock(mutex_);
    backingMilliseconds_ = milliseconds;
}

void Faults::Clear() {
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        refused_.clear();
        failing_.clear();
        delayMilliseconds_ = 0;
        backingMilliseconds_ = 0;
        ++waitGeneration_;
    }
    changed_.notify_all();
}

void Faults::Stop() {
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        stopped_ = true;
    }
    changed_.notify_all();
}

bool Faults::TakeControl() {
    const std::lock_guard<std::mutex> lock(mutex_);
    return refused_.erase(++controls_) != 0;
}

void Faults::Wait(std::unique_lock<std::mutex>& lock, uint32_t milliseconds) {
    if (milliseconds != 0) {
        const uint64_t generation = waitGeneration_;
        changed_.wait_for(lock, std::chrono::milliseconds(milliseconds),
                          [&] { return stopped_ || waitGeneration_ != generation; });
    }
}

void Faults::BeforeBackingRead() {
    std::unique_lock<std::mutex> lock(mutex_);
    Wait(lock, backingMilliseconds_);
}

int Faults::BeforeRead(uint64_t offset, size_t size) {
    std::unique_lock<std::mutex> lock(mutex_);
    Wait(lock, delayMilliseconds_);
    // Differences, not sums: a range may reach to the end of 64 bits.
    const bool fails = std::any_of(failing_.begin(), failing_.end(), [&](const Range& range) {
        return offset >= range.offset ? offset - range.offset < range.length
                                      : range.offset - offset < size;
    });
    return fails ? -EIO : 0;
}

}  // namespace softcache
