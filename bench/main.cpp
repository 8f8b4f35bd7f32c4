// SPDX-License-Identifier: MIT
#include <stdio.h>
#include <stdlib.h>
#include <sys/resource.h>
#include <time.h>

#include "bench/bench.h"

const char* BenchMountPath() {
    return getenv("QUOR_BENCH_MOUNT");
}

const char* BenchDevice() {
    return getenv("QUOR_BENCH_DEVICE");
}

namespace {

double TimeOf(clockid_t clock) {
    timespec time = {};
    clock_gettime(clock, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

double Seconds(const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
}

}  // namespace

double ThreadTime() {
    return TimeOf(CLOCK_THREAD_CPUTIME_ID);
}

double TimeOfAll() {
    const char* const cache = getenv("QUOR_BENCH_CACHE");
    clockid_t clock = CLOCK_PROCESS_CPUTIME_ID;
    rusage programs = {};
    clock_getcpuclockid(cache == nullptr ? 0 : atoi(cache), &clock);
    getrusage(RUSAGE_CHILDREN, &programs);
    return TimeOf(CLOCK_PROCESS_CPUTIME_ID) + TimeOf(clock) + Seconds(programs.ru_utime) +
           Seconds(programs.ru_stime);
}

int main(int argc, char** argv) {
    if (BenchMountPath() == nullptr || BenchDevice() == nullptr) {
        fputs("quor_bench: is started by ./run bench, which makes the volume it measures on\n",
              stderr);
        return 2;
    }
    RegisterBitmaps();
    RegisterExtents();
    RegisterQueue();
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
