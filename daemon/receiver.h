// SPDX-License-Identifier: MIT
// The service's only input: messages from the server queue, on the main thread.
#pragma once

#include "util/request.h"

extern int g_msgQueueId;  // the opened server queue, -1 before

// Receives messages until the first error, then ends the calling thread; never returns. Nothing is
// ever answered, and after an error nothing is received until the service is started again.
[[noreturn]] void GetRequests(const char* configPath);

// Returns 0 when the message may be stored, or -1 with an error.
int CheckNormalMsg(const RequestMsg& msg);
