// SPDX-License-Identifier: MIT
// Benchmarks are named ROW/SIDE/SIZE; SIDE is "ours" or "peer". bench/functions.py pairs them.
#pragma once

#include <benchmark/benchmark.h>

#include <string>

// The volume to measure on, and its cached device; lab/ has made them.
const char* BenchMountPath();  // QUOR_BENCH_MOUNT
const char* BenchDevice();     // QUOR_BENCH_DEVICE; QUOR_BENCH_CACHE is its process

// Registers a benchmark. `run` is called with the state and the size.
template <typename Run>
benchmark::internal::Benchmark* Register(const std::string& row, const std::string& side,
                                         int64_t size, Run run) {
    const std::string name = row + "/" + side + "/" + std::to_string(size);
    return benchmark::RegisterBenchmark(name.c_str(),
                                        [run, size](benchmark::State& state) { run(state, size); });
}

// Processor time in seconds, as other programs keep the machine busy: of the calling thread; and of
// this process, the programs that it ran and the cache.
double ThreadTime();
double TimeOfAll();

// Calls `action` and counts the time that it takes by `now`, for a benchmark of manual time.
template <typename Action>
void Time(benchmark::State& state, double (*now)(), Action action) {
    const double start = now();
    action();
    state.SetIterationTime(now() - start);
}

void RegisterBitmaps();
void RegisterExtents();
void RegisterQueue();
