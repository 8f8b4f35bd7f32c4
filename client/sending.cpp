// SPDX-License-Identifier: MIT
#include "client/sending.h"

#include "client/exit_status.h"
#include "client/output.h"
#include "client/queue.h"

int SendAll(const std::vector<Message>& messages, unsigned patience, size_t& sent) {
    std::string why;
    sent = 0;
    const int queue = OpenServerQueue(why);
    if (queue == -1) {
        Say(why);
        return kExitNoService;
    }
    const SendOutcome outcome = SendMessages(queue, messages, patience, sent, why);
    if (outcome == SendOutcome::kSent) {
        return kExitDone;
    }
    Say(why + "; " + std::to_string(sent) + " of " + Counted(messages.size(), "request") + " sent");
    return outcome == SendOutcome::kFull ? kExitTimedOut : kExitNoService;
}
