// SPDX-License-Identifier: MIT
// The messages that wait in the queue, looked at without taking them, and taking away those that
// the service cannot take itself.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <string>
#include <vector>

namespace client {

struct WaitingMessage {
    long mtype = 0;
    size_t bytes = 0;         // of its body
    std::string what;         // "pin /mnt/pool1", as far as its body shows it
    std::string mountPath;    // as its body has it
    bool ignored = false;     // of a type that the service never reads
    bool endsIntake = false;  // cannot be received, at every start again, or cannot be stored
    bool removable = false;   // can be taken away without taking another one first
    std::string problem;      // in words; empty when the service can take and store it
};

// Returns the verb that sends requests of this type, null when there is none.
const char* VerbOf(int32_t type);

// Stores the waiting messages in order. Returns false, with the reason in `why`, when the kernel
// does not let them be looked at.
bool LookAtMessages(int queue, std::vector<WaitingMessage>& messages, std::string& why);

// Stores how many messages wait that the service will take, of this volume or, when `mountPath` is
// empty, of any. Where they cannot be looked at, all count. Returns false, with none, when there is
// no queue.
bool CountWaiting(const std::string& mountPath, uint64_t& count);

// Watches for a second or so whether the service takes what waits for it. Returns true when
// messages that it would receive wait and none was taken: it hangs, or was stopped.
bool MessagesStandStill(int queue);

// Takes away all messages of types that the service never reads, and those that the service would
// meet first and that end its intake. Describes each in `taken`. Returns false, with the reason in
// `why`, when one could not be taken.
bool TakeAwayBad(int queue, std::vector<std::string>& taken, std::string& why);

}  // namespace client
