// SPDX-License-Identifier: MIT
#include "client/request/sending.h"

#include <time.h>

#include "client/show/exit_status.h"
#include "client/request/interruption.h"
#include "client/show/output.h"
#include "client/show/progress.h"
#include "client/service/queue.h"
#include "client/service/service_process.h"

namespace client {

namespace {

constexpr long kRetryNanoseconds = 20L * 1000 * 1000;

// A request can be sent while nobody takes it: it waits in the queue. That should not surprise.
void WarnWhenNobodyListens() {
    const std::vector<ServiceProcess> services = FindServices();
    for (const ServiceProcess& service : services) {
        if (service.intakeAlive) {
            return;
        }
    }
    Say(services.empty()
            ? "warning: the service does not run here; requests wait in the queue for its start"
            : "warning: the service's intake has stopped; requests wait in the queue until it is "
              "started again (doctor may tell why)");
}

// Takes vanished files out of the message. Returns whether there were any.
bool CheckAgain(Message& message) {
    const std::vector<std::string> vanished = TakeOutVanished(message);
    for (const std::string& path : vanished) {
        Say(TonedError(Tone::kBad, "passed over") + " " + Printable(path) +
            ": it has vanished since it was checked");
    }
    return !vanished.empty();
}

// Sends one message, trying for `patience` seconds while the queue is full or until a signal comes.
SendOutcome SendOne(int queue, const Message& message, unsigned patience, std::string& why) {
    const double deadline = MonotonicSeconds() + patience;
    for (;;) {
        if (InterruptNote::Signal() != 0) {
            why = "interrupted";
            return SendOutcome::kFailed;
        }
        const SendOutcome outcome = SendMessage(queue, message, 0, why);
        if (outcome != SendOutcome::kFull) {
            return outcome;
        }
        if (MonotonicSeconds() >= deadline) {
            why = "the queue stayed full for " + Counted(patience, "second") +
                  "; the service does not take requests";
            return outcome;
        }
        const struct timespec pause = {0, kRetryNanoseconds};
        nanosleep(&pause, nullptr);
    }
}

int StatusOf(SendOutcome outcome) {
    if (InterruptNote::Signal() != 0) {
        return 128 + InterruptNote::Signal();
    }
    return outcome == SendOutcome::kFull ? kExitTimedOut : kExitNoService;
}

}  // namespace

int SendAll(std::vector<Message>& messages, unsigned patience, size_t& sent) {
    const InterruptNote note;
    std::string why;
    bool partly = false;
    sent = 0;
    const int queue = OpenServerQueue(why);
    if (queue == -1) {
        Say(why);
        return kExitNoService;
    }
    WarnWhenNobodyListens();
    while (sent < messages.size()) {
        if (CheckAgain(messages[sent])) {
            partly = true;
            if (messages[sent].numFiles == 0) {
                messages.erase(messages.begin() + static_cast<ptrdiff_t>(sent));
                continue;
            }
        }
        const SendOutcome outcome = SendOne(queue, messages[sent], patience, why);
        if (outcome != SendOutcome::kSent) {
            Say(why + "; " + std::to_string(sent) + " of " + Counted(messages.size(), "request") +
                " sent");
            return StatusOf(outcome);
        }
        ++sent;
    }
    return partly ? kExitPartly : kExitDone;
}

}  // namespace client
