// SPDX-License-Identifier: MIT
#include <stdio.h>
#include <stdlib.h>

#include "bench/bench.h"

const char* BenchMountPath() {
    return getenv("QUOR_BENCH_MOUNT");
}

const char* BenchDevice() {
    return getenv("QUOR_BENCH_DEVICE");
}

int main(int argc, char** argv) {
    if (BenchMountPath() == nullptr || BenchDevice() == nullptr) {
        fputs("quor_bench: is started by ./run bench, which makes the volume it measures on\n",
              stderr);
        return 2;
    }
    RegisterBitmaps();
    RegisterQueue();
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
