// SPDX-License-Identifier: MIT
#include "tests/unit/support/fake_ioctl.h"

#include <errno.h>
#include <fcntl.h>
#include <linux/fs.h>
#include <stdarg.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <map>
#include <mutex>

#include "platform/quorflashcache.h"
#include "tests/unit/support/fault_plan.h"
#include "util/pin_bitmap.h"

// NOLINTBEGIN(bugprone-reserved-identifier): the linker's names
extern "C" {
int __real_ioctl(int fd, unsigned long request, void* argument);
}

namespace {

struct IoctlState {
    std::mutex mutex;
    std::vector<IoctlRecord> ioctls;
    std::map<unsigned long, FaultPlan> plans;  // by request
    std::map<unsigned long, int> results;      // by request
    std::map<std::string, uint64_t> deviceSizes;
};

// Never destroyed: calls still come when the program ends.
IoctlState& State() {
    static auto* state = new IoctlState;
    return *state;
}

// The file behind a descriptor.
std::string PathOf(int fd) {
    char path[4096];
    std::string link = "/proc/self/fd/" + std::to_string(fd);
    ssize_t length = readlink(link.c_str(), path, sizeof(path));

    return length < 0 ? "" : std::string(path, static_cast<size_t>(length));
}

IoctlRecord RecordOf(int fd, unsigned long request, const void* argument) {
    IoctlRecord record;

    record.path = PathOf(fd);
    record.openFlags = fcntl(fd, F_GETFL);
    record.request = request;
    record.argument = argument;
    auto* bytes = static_cast<const uint8_t*>(argument);
    if (request == FLASH_CACHE_UNPIN_RANGES) {
        record.bytes.assign(bytes, bytes + kUnpinBatchBytes);
    } else if (request == FLASH_CACHE_SET_PIN_BITMAP) {
        auto* bitmap = static_cast<const PinBitmap*>(argument);
        record.bytes.assign(bytes, bytes + sizeof(PinBitmap));
        record.bitmap.assign(bitmap->data, bitmap->data + bitmap->size);
    }
    return record;
}

// Records an ioctl. Returns its result when it is answered here, with `*answered` set.
int AnswerIoctl(int fd, unsigned long request, void* argument, bool* answered) {
    IoctlState& state = State();
    IoctlRecord record = RecordOf(fd, request, argument);
    std::lock_guard<std::mutex> lock(state.mutex);

    *answered = true;
    state.ioctls.push_back(record);
    CallOutcome outcome = state.plans[request].Next();
    if (outcome.fails) {
        errno = outcome.error;
        return -1;
    }
    auto result = state.results.find(request);
    if (result != state.results.end()) {
        return result->second;
    }
    if (request == FLASH_CACHE_SET_PIN_BITMAP || request == FLASH_CACHE_UNPIN_RANGES) {
        return 0;
    }
    auto size = state.deviceSizes.find(record.path);
    if (request == BLKGETSIZE64 && size != state.deviceSizes.end()) {
        *static_cast<uint64_t*>(argument) = size->second;
        return 0;
    }
    *answered = false;
    return 0;
}

}  // namespace

void FakeIoctlReset() {
    IoctlState& state = State();
    std::lock_guard<std::mutex> lock(state.mutex);

    state.ioctls.clear();
    state.plans.clear();
    state.results.clear();
    state.deviceSizes.clear();
}

std::vector<IoctlRecord> IoctlsSent() {
    IoctlState& state = State();
    std::lock_guard<std::mutex> lock(state.mutex);

    return state.ioctls;
}

void FailIoctl(unsigned long request, int nth, int error) {
    IoctlState& state = State();
    std::lock_guard<std::mutex> lock(state.mutex);
    CallOutcome outcome;

    outcome.fails = true;
    outcome.error = error;
    state.plans[request].Add(nth, 1, outcome);
}

void SetIoctlResult(unsigned long request, int result) {
    IoctlState& state = State();
    std::lock_guard<std::mutex> lock(state.mutex);

    state.results[request] = result;
}

void SetDeviceSize(const std::string& path, uint64_t bytes) {
    IoctlState& state = State();
    std::lock_guard<std::mutex> lock(state.mutex);

    state.deviceSizes[path] = bytes;
}

extern "C" {

int __wrap_ioctl(int fd, unsigned long request, ...) {
    va_list args;
    bool answered = false;

    va_start(args, request);
    void* argument = va_arg(args, void*);
    va_end(args);
    int result = AnswerIoctl(fd, request, argument, &answered);
    return answered ? result : __real_ioctl(fd, request, argument);
}

}  // extern "C"
// NOLINTEND(bugprone-reserved-identifier)
