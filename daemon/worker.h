// SPDX-License-Identifier: MIT
// The worker thread: one request after another.
#pragma once

#include <string>

#include "util/request.h"

// Start routine of the worker thread; `options` points at the ServiceOptions. Runs requests until
// choosing the next one fails, then ends the thread; never returns.
[[noreturn]] void* DoRequests(void* options);

// Runs one request and takes it out of the configuration file, unless it was interrupted. Returns a
// RequestResult.
int HandleRequestAndModifyConfig(const char* configPath, const Request& request,
                                 const std::string& number);

// Sets up what a request needs, runs it by its type and releases everything. Returns a
// RequestResult.
int HandleRequest(const Request& request);
