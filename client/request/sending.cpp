// SPDX-License-Identifier: MIT
#include "client/request/sending.h"

#include <unistd.h>

#include <algorithm>

#include "client/request/watch.h"
#include "client/service/queue.h"
#include "client/service/service_process.h"
#include "client/show/exit_status.h"
#include "client/show/output.h"
#include "client/show/poll.h"

namespace client {

namespace {

constexpr size_t kManyRequests = 10;
constexpr size_t kMinute = 60;        // seconds, of which each request takes one at least
constexpr double kRetryPause = 0.02;  // seconds between two tries at a full queue

// A request can be sent while nobody takes it, and waits in the queue then. Returns why it does, in
// words; empty when the service works.
std::string WhyNobodyListens() {
    const std::vector<ServiceProcess> services = FindServices();
    std::string why;
    for (const ServiceProcess& service : services) {
        if (service.intakeAlive && service.workerAlive && !service.stopped) {
            return "";
        }
        why = service.stopped ? "the service was stopped by a signal; the requests wait until it "
                                "is continued (kill -CONT)"
              : service.intakeAlive
                  ? "the service's worker has ended; the requests wait until it is started again "
                    "(doctor may tell why)"
                  : "the service's intake has stopped; the requests wait until it is started again "
                    "(doctor may tell why)";
    }
    return services.empty() ? "the service does not run here; the requests wait until it is started"
                            : why;
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

// Sends one message, trying for `patience` seconds while the queue is full. Returns kExitDone, or
// the exit status with the reason in `why`.
int SendOne(int queue, const Message& message, unsigned patience, const SignalNote& note,
            std::string& why) {
    const Poll poll(kRetryPause, patience, &note);
    SendOutcome outcome = SendOutcome::kFull;
    do {
        if (note.Signal() != 0) {
            break;  // between two messages; one that went is not taken back
        }
        outcome = SendNow(queue, ToRequestMsg(message), why);
    } while (outcome == SendOutcome::kFull && poll.Again());
    if (outcome == SendOutcome::kFull && note.Signal() != 0) {
        why = "interrupted";
        return 128 + note.Signal();
    }
    if (outcome == SendOutcome::kFull) {
        // The service rests a second after each request: a full queue is normal, for a while.
        why = "the queue stayed full for " + Counted(patience, "second") +
              "; the service does not take requests";
        return kExitTimedOut;
    }
    return outcome == SendOutcome::kSent ? kExitDone : kExitNoService;
}

}  // namespace

std::string DescribeManyRequests(size_t requests) {
    if (requests < kManyRequests) {
        return "";
    }
    const size_t minutes = (requests + kMinute / 2) / kMinute;
    const std::string time = minutes == 0   ? Counted(requests, "second")
                             : minutes == 1 ? "a minute"
                                            : Counted(minutes, "minute");
    return std::to_string(requests) + " requests take about " + time +
           " or longer: the service rests a second after each";
}

int SendAll(std::vector<Message>& messages, unsigned patience, size_t& sent) {
    const SignalNote note;
    std::string why;
    bool partly = false;
    sent = 0;
    const int queue = OpenServerQueue(why);
    if (queue == -1) {
        Say(why);
        return kExitNoService;
    }
    // Sent all the same: a queue is there to be waited in.
    const std::string nobody = WhyNobodyListens();
    // Only root sees every process; for others the one that they do not see may well be at work.
    const bool unseen = !nobody.empty() && geteuid() != 0 && FindServices().empty();
    while (sent < messages.size()) {
        // Just before it goes: a full queue may have kept it waiting for minutes.
        if (CheckAgain(messages[sent])) {
            partly = true;
            if (messages[sent].numFiles == 0) {
                // A request without files would end the intake.
                messages.erase(messages.begin() + static_cast<ptrdiff_t>(sent));
                continue;
            }
        }
        const int status = SendOne(queue, messages[sent], patience, note, why);
        if (status != kExitDone) {
            Say(why + "; " + std::to_string(sent) + " of " + Counted(messages.size(), "request") +
                " sent");
            return status;
        }
        ++sent;
    }
    if (!nobody.empty()) {
        Say(unseen ? std::string("warning: the service ") + NoServiceText() : nobody);
    }
    return !nobody.empty() && !unseen ? kExitNoService : partly ? kExitPartly : kExitDone;
}

int SendAndWait(std::vector<Message>& messages, const std::string& configPath,
                const SendOptions& options, size_t& sent) {
    const SignalNote note;  // one that comes between sending and waiting is not lost
    ConfigState before;
    std::string why;
    sent = 0;
    // The next number, read before the first message goes, separates our requests from older ones
    // with the same content.
    if (options.wait && !ReadConfigState(configPath, before, why)) {
        Say(why + "; nothing was sent");
        return kExitNoService;
    }
    const std::string time = DescribeManyRequests(messages.size());
    if (!time.empty()) {
        Say(time);
    }
    const int status = SendAll(messages, options.patience, sent);
    if (!options.wait || (status != kExitDone && status != kExitPartly)) {
        return status;
    }
    // Files that vanished make the call partly done, however well the rest goes.
    std::vector<Watched> requests = ToWatch(messages, sent);
    return std::max(status,
                    WaitForRequests(requests, {configPath, before.nextNumber, options.timeout}));
}

}  // namespace client
