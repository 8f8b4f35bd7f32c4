// SPDX-License-Identifier: MIT
// Sending requests and waiting for them, with a report on standard error.
//
// SIGINT, SIGTERM and SIGHUP stop the sending between two messages, and end a wait; the exit status
// is then 128 plus the signal's number. The requests sent so far stay in the queue.
#pragma once

#include <stddef.h>

#include <string>
#include <vector>

#include "client/request/packing.h"

namespace client {

struct SendOptions {
    unsigned patience = 30;  // seconds to keep trying while the queue is full
    bool wait = false;       // until the requests are done
    unsigned timeout = 0;    // seconds that the wait may take; 0 = as long as it takes
};

// Returns how long many requests take at the least, in words, as the service rests a second after
// each; empty for a few.
std::string DescribeManyRequests(size_t requests);

// Sends all messages in order, or says why it could not and how many were sent; stores that number.
// Files that have vanished since they were checked are named and taken out first; a message left
// without files is dropped. Returns kExitDone, kExitPartly when files had vanished, kExitNoService
// when nobody takes the requests or carries them out, which then wait in the queue, or the exit
// status of the failure.
int SendAll(std::vector<Message>& messages, unsigned patience, size_t& sent);

// The same, having said how long many requests take; then waits, if the options say so, until the
// configuration file at `configPath` shows that the requests sent are done. Returns the worse exit
// status of the two.
int SendAndWait(std::vector<Message>& messages, const std::string& configPath,
                const SendOptions& options, size_t& sent);

}  // namespace client
