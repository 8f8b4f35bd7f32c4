// SPDX-License-Identifier: MIT
// Sending requests and waiting for them, saying on standard error how that went.
//
// SIGINT, SIGTERM and SIGHUP end it between two messages, or end the wait; the exit status is then
// 128 and the signal's number. They leave the requests that were sent in the queue.
#pragma once

#include <stddef.h>

#include <string>
#include <vector>

#include "client/request/packing.h"

namespace client {

struct SendOptions {
    unsigned patience = 30;  // seconds that a full queue is given
    bool wait = false;       // until the requests are done
    unsigned timeout = 0;    // seconds that the wait may take; 0 = as long as it takes
};

// Sends all messages in order, or says why not and how many went. Files that have vanished since
// they were checked are taken out first and named; a message that they leave empty is removed.
// Stores how many messages, from the first, were sent. Returns kExitDone, kExitPartly when files
// had vanished, or the exit status of the failure.
int SendAll(std::vector<Message>& messages, unsigned patience, size_t& sent);

// The same; when the options say so, waits then until what was sent is done, as far as the
// configuration file at `configPath` shows that. Returns the worse exit status of the two.
int SendAndWait(std::vector<Message>& messages, const std::string& configPath,
                const SendOptions& options, size_t& sent);

}  // namespace client
