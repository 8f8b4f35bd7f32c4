// SPDX-License-Identifier: MIT
#include "platform/linux/patience.h"

#include <errno.h>
#include <time.h>

namespace stand_in {

namespace {

constexpr timespec kWait = {0, 50L * 1000 * 1000};  // 50 ms

}  // namespace

bool MayPass(int error) {
    switch (error) {
        case EINTR:
        case EAGAIN:
        case EMFILE:
        case ENFILE:
        case ENOMEM:
        case ENOBUFS:
            return true;
        default:
            return false;
    }
}

bool Patience::WaitAfterFailure() {
    const int error = errno;
    if (!MayPass(error) || waitsLeft_ == 0) {
        return false;
    }
    --waitsLeft_;
    nanosleep(&kWait, nullptr);  // cut short by a signal it is still a wait
    errno = error;
    return true;
}

}  // namespace stand_in
