// SPDX-License-Identifier: MIT
// The messages that wait in the queue, looked at without taking them, and taking away those that
// the service cannot take itself.
#pragma once

#include <stddef.h>

#include <string>
#include <vector>

namespace client {

struct WaitingMessage {
    long mtype = 0;
    size_t bytes = 0;         // of its body
    std::string what;         // "pin /mnt/pool1", as far as its body shows it
    bool blocks = false;      // the receive fails and leaves it there: at every start again
    bool ignored = false;     // of a type that the service never reads
    bool endsIntake = false;  // is taken, and cannot be stored
    std::string problem;      // in words; empty when the service can take and store it
};

// Stores the waiting messages in order. Returns false, with the reason in `why`, when the kernel
// does not let them be looked at.
bool LookAtMessages(int queue, std::vector<WaitingMessage>& messages, std::string& why);

// Returns the index of the first message that the service would receive, or the number of messages.
size_t FirstForService(const std::vector<WaitingMessage>& messages);

// Watches for a second or so whether the service takes what waits for it. Returns true when
// messages that it would receive wait and none was taken: it hangs, or was stopped.
bool MessagesStandStill(int queue);

// Takes away all messages of types that the service never reads, and those that the service would
// meet first and that block it or end its intake. Describes each in `taken`. Returns false, with
// the reason in `why`, when one could not be taken.
bool TakeAwayBad(int queue, std::vector<std::string>& taken, std::string& why);

}  // namespace client
