// SPDX-License-Identifier: MIT
// Sending requests and saying how that went.
#pragma once

#include <stddef.h>

#include <vector>

#include "client/request/packing.h"

namespace client {

// Sends all messages in order, or says on standard error why not and how many went. Files that have
// vanished since they were checked are taken out first and named; a message that they leave empty
// is removed. Stores how many messages, from the first, were sent. A signal ends it between two
// messages, so that the caller can say what is missing. Returns kExitDone, kExitPartly when files
// had vanished, or the exit status of the failure.
int SendAll(std::vector<Message>& messages, unsigned patience, size_t& sent);

}  // namespace client
