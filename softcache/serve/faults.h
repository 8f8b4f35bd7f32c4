// SPDX-License-Identifier: MIT
// Faults on demand, so that whoever stands on the cache can be tested for what it does then.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <condition_variable>
#include <mutex>
#include <set>
#include <vector>

namespace softcache {

// Safe to use from any number of threads.
class Faults {
  public:
    // The n-th control request from now is refused (1 = the next). Several may be asked for.
    void RefuseControl(uint64_t nth);

    // Reads of the device that touch these bytes fail. Ranges add up.
    void FailRead(uint64_t offset, uint64_t length);

    // Every read of the device first waits that long; 0 = off.
    void DelayReads(uint32_t milliseconds);

    // Every read of the backing first waits that long, side by side with others; 0 = off. So it
    // answers like a disk, and the SSD goes on answering at once.
    void DelayBacking(uint32_t milliseconds);

    // No fault is left, and reads that wait go on at once.
    void Clear();

    // Called once for every control request; true when this one is to be refused.
    bool TakeControl();

    // Called before every read of the device: waits if asked to, then returns 0, or -EIO when the
    // read is to fail.
    int BeforeRead(uint64_t offset, size_t size);

    // Called before every read of the backing: waits if asked to.
    void BeforeBackingRead();

    // Shutdown: waiting reads go on, and none waits again.
    void Stop();

  private:
    struct Range {
        uint64_t offset;
        uint64_t length;
    };

    void Wait(std::unique_lock<std::mutex>& lock, uint32_t milliseconds);

    std::mutex mutex_;
    std::condition_variable changed_;
    uint64_t controls_ = 0;       // control requests seen
    std::set<uint64_t> refused_;  // numbers of those to refuse
    std::vector<Range> failing_;  // bytes of the device
    uint32_t delayMilliseconds_ = 0;
    uint32_t backingMilliseconds_ = 0;
    uint64_t waitGeneration_ = 0;  // moves on when waiting reads are to go on
    bool stopped_ = false;
};

}  // namespace softcache
