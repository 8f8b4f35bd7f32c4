// SPDX-License-Identifier: MIT
// Benchmarks are named ROW/SIDE/SIZE; SIDE is "ours" or "peer". bench/functions.py pairs them.
#pragma once

#include <benchmark/benchmark.h>
#include <time.h>

#include <string>

// The volume to measure on, and its cached device; lab/ has made them.
const char* BenchMountPath();  // QUOR_BENCH_MOUNT
const char* BenchDevice();     // QUOR_BENCH_DEVICE

// Registers a benchmark. `run` is called with the state and the size.
template <typename Run>
benchmark::internal::Benchmark* Register(const std::string& row, const std::string& side,
                                         int64_t size, Run run) {
    const std::string name = row + "/" + side + "/" + std::to_string(size);
    return benchmark::RegisterBenchmark(name.c_str(),
                                        [run, size](benchmark::State& state) { run(state, size); });
}

// Calls `action` and counts its time alone, for a benchmark of manual time: by CLOCK_MONOTONIC
// where other processes take part, else by CLOCK_THREAD_CPUTIME_ID, as other programs keep the
// machine busy.
template <typename Action>
void Time(benchmark::State& state, clockid_t clock, Action action) {
    const auto now = [clock] {
        timespec time = {};
        clock_gettime(clock, &time);
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
    };
    const double start = now();
    action();
    state.SetIterationTime(now() - start);
}

void RegisterBitmaps();
void RegisterQueue();
