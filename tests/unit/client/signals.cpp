// SPDX-License-Identifier: MIT
#include "tests/unit/client/signals.h"

#include <signal.h>
#include <time.h>

namespace client {

std::thread OnceSignalsAreNoted(const std::function<void()>& act) {
    return std::thread([act] {
        struct sigaction now = {};
        const struct timespec pause = {0, 1000000};
        while (sigaction(SIGTERM, nullptr, &now) == 0 && now.sa_handler == SIG_DFL) {
            nanosleep(&pause, nullptr);
        }
        act();
    });
}

}  // namespace client
