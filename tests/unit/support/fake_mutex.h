// SPDX-License-Identifier: MIT
// The calls of mutexes and conditions: failures to order (fake_system.h), and the steps of one
// mutex as they come.
#pragma once

#include <pthread.h>

#include <functional>
#include <string>

// Tells `hook` what becomes of the mutex, in the thread that does it: "lock" before it is asked
// for, "locked" once it is had, "unlock" before it is given back. A wait for a condition gives it
// back and takes it again without a word (Call::kCondWait). "signal" is told of every condition.
// One at a time; until UnwatchMutex, which UnitTest calls.
void WatchMutex(const pthread_mutex_t* mutex, std::function<void(const std::string& step)> hook);
void UnwatchMutex();
