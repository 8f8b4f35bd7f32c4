// SPDX-License-Identifier: MIT
#include "tests/unit/support/fake_queue.h"

#include <errno.h>
#include <sys/msg.h>

#include <mutex>

#include "tests/unit/support/fake_system.h"

// NOLINTBEGIN(bugprone-reserved-identifier): the linker's names
extern "C" {
int __real_msgctl(int id, int command, struct msqid_ds* queue);
int __real_msgget(key_t key, int flags);
ssize_t __real_msgrcv(int id, void* message, size_t size, long type, int flags);
}

namespace {

std::mutex g_mutex;
std::vector<int> g_flags;

// The head of a call whose failure is a result of -1 and errno.
bool FailsWithErrno(Call call) {
    CallOutcome outcome = EnterCall(call);

    if (outcome.fails) {
        errno = outcome.error;
    }
    return outcome.fails;
}

}  // namespace

void FakeQueueReset() {
    std::lock_guard<std::mutex> lock(g_mutex);

    g_flags.clear();
}

std::vector<int> QueueFlagsAsked() {
    std::lock_guard<std::mutex> lock(g_mutex);

    return g_flags;
}

extern "C" {

int __wrap_msgget(key_t key, int flags) {
    {
        std::lock_guard<std::mutex> lock(g_mutex);
        g_flags.push_back(flags);
    }
    return FailsWithErrno(Call::kMsgget) ? -1 : __real_msgget(key, flags);
}

int __wrap_msgctl(int id, int command, struct msqid_ds* queue) {
    return FailsWithErrno(Call::kMsgctl) ? -1 : __real_msgctl(id, command, queue);
}

ssize_t __wrap_msgrcv(int id, void* message, size_t size, long type, int flags) {
    return FailsWithErrno(Call::kMsgrcv) ? -1 : __real_msgrcv(id, message, size, type, flags);
}

}  // extern "C"
// NOLINTEND(bugprone-reserved-identifier)
