// SPDX-License-Identifier: MIT
// The server message queue, from the sender's side.
#pragma once

#include <stddef.h>
#include <sys/types.h>

#include <string>
#include <vector>

#include "client/packing.h"

// Reads the key that the service published. Returns false, with the reason in `why`.
bool ReadKeyFile(const char* path, key_t& key, std::string& why);

// Opens the service's queue. Returns its id, or -1 with the reason in `why`.
int OpenServerQueue(std::string& why);

enum class SendOutcome { kSent, kFull, kFailed };

// Sends the messages in order. Never blocks for ever: a queue that takes nothing for `patience`
// seconds ends it with kFull. Stores how many were sent, and the reason in `why` unless all were.
SendOutcome SendMessages(int queue, const std::vector<Message>& messages, unsigned patience,
                         size_t& sent, std::string& why);
