// SPDX-License-Identifier: MIT
// Sending requests and saying how that went.
#pragma once

#include <stddef.h>

#include <vector>

#include "client/packing.h"

// Sends all messages, or says on standard error why not and how many went. Stores how many were
// sent. Returns an exit status.
int SendAll(const std::vector<Message>& messages, unsigned patience, size_t& sent);
