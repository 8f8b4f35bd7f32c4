// SPDX-License-Identifier: MIT
// Five calls of the C library that the platform libraries make come to the test program first: a
// definition in the program goes before that of the C library.
#pragma once

#include <functional>
#include <string>
#include <vector>

// The lines that the libraries have sent to the system log since the last ClearLog. One of another
// priority than LOG_ERR is marked.
std::vector<std::string> LogLines();
void ClearLog();

// Called in the place of every ioctl while set; calls what it does not answer itself through
// RealIoctl.
using IoctlHook = std::function<int(int fd, unsigned long request, void* argument)>;
void SetIoctlHook(IoctlHook hook);
int RealIoctl(int fd, unsigned long request, void* argument);

// Called before every flock while set; may lock files itself. Returns 0, or an errno with which the
// call then fails.
void SetFlockHook(std::function<int()> hook);

// Called before every open while set. Returns 0, or an errno with which the call then fails.
using OpenHook = std::function<int(const std::string& path)>;
void SetOpenHook(OpenHook hook);

// Called in the place of every nanosleep while set.
void SetSleepHook(std::function<void()> hook);
