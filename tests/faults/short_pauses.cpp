// SPDX-License-Identifier: MIT
// Loaded before the C library: a pause of a second takes ten milliseconds.
#include <time.h>
#include <unistd.h>

extern "C" unsigned sleep(unsigned seconds) {
    const unsigned hundredths = seconds % 100;
    const timespec pause = {static_cast<time_t>(seconds / 100),
                            static_cast<long>(hundredths) * 10'000'000L};
    nanosleep(&pause, nullptr);
    return 0;
}
