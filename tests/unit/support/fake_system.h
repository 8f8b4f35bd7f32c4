// SPDX-License-Identifier: MIT
// The C library's calls with failures to order. Every call goes through to the real one until a
// test says otherwise, except sleep, which takes no time, and the driver's control requests, which
// no device here understands and which are accepted.
//
// Faults and counts start anew with FakeSystemReset, which the UnitTest fixture calls.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <functional>
#include <vector>

#include "tests/unit/support/fault_plan.h"

enum class Call {
    kAccess,
    kCalloc,
    kCondWait,
    kFflush,
    kFopen,
    kFsync,
    kFtok,
    kFwrite,
    kGetline,
    kLseek,
    kMalloc,
    kMsgctl,
    kMsgget,
    kMsgrcv,
    kMutexInit,
    kOpen,
    kPosixMemalign,
    kPread,
    kPwrite,
    kRead,
    kSetvbuf,
    kSignal,
    kSleep,
    kStat,
    kStrdup,
    kThreadCreate,
    kVasprintf,
    kWrite,
    kNumCalls,
};

void FakeSystemReset();

// Makes `times` calls fail with `error`, the first of them the nth from now (1 = the next). A call
// that reports its error by its result returns `error`; kFwrite writes nothing.
void FailCall(Call call, int nth, int error, int times = 1);

// Makes the nth call from now move no more than `bytes`: kRead, kPread, kPwrite, kFwrite, kWrite.
void ShortenCall(Call call, int nth, size_t bytes);

// Runs `hook` before every call of the kind, with the number of calls so far (the first is 1).
void OnCall(Call call, std::function<void(int)> hook);

// Calls since the reset, failed ones too.
int CallCount(Call call);

// What a wrapped call asks at its head.
CallOutcome EnterCall(Call call);

// Seconds asked of sleep, in order.
std::vector<unsigned> SleepsTaken();

// Reads asked for, in order, also those that failed; only those after RecordReads.
struct ReadRecord {
    uint64_t offset = 0;   // of the descriptor, bytes
    size_t size = 0;       // bytes asked for
    uintptr_t buffer = 0;  // where they were to go
};
void RecordReads();
std::vector<ReadRecord> ReadsTried();

// What the threads that were started got for their argument, in order.
std::vector<void*> ThreadArguments();

// Signals asked for, in order; the handlers are installed for real.
struct SignalRecord {
    int number = 0;
    void (*handler)(int) = nullptr;
};
std::vector<SignalRecord> SignalsSet();
