// SPDX-License-Identifier: MIT
// The server message queue, from the sender's side.
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <sys/types.h>

#include <string>
#include <vector>

#include "util/request.h"

namespace client {

// Reads the key that the service published. Returns false, with the reason in `why`.
bool ReadKeyFile(const char* path, key_t& key, std::string& why);

// Opens the service's queue. Returns its id, or -1 with the reason in `why`.
int OpenServerQueue(std::string& why);

// The queue's own record.
struct QueueFacts {
    int id = -1;
    key_t key = 0;
    uint64_t messages = 0;  // waiting
    uint64_t bytes = 0;     // of their bodies
    uint64_t limit = 0;     // bytes that it may hold
    unsigned mode = 0;      // permission bits
    uid_t owner = 0;
};

// Opens the service's queue and stores its record. Returns false, with the reason in `why`.
bool ReadQueueFacts(QueueFacts& facts, std::string& why);

enum class SendOutcome { kSent, kFull, kFailed };

// Sends one message if the queue has room now. Stores the reason of a failure in `why`.
SendOutcome SendNow(int queue, const RequestMsg& msg, std::string& why);

}  // namespace client
