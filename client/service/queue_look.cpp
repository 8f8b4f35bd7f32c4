// SPDX-License-Identifier: MIT
#include "client/service/queue_look.h"

#include <errno.h>
#include <string.h>
#include <sys/msg.h>
#include <sys/stat.h>

#include <algorithm>
#include <fstream>
#include <sstream>

#include "client/service/queue.h"
#include "client/show/output.h"
#include "client/show/poll.h"
#include "client/show/text.h"
#include "util/request.h"
#include "util/stored_format.h"

#ifndef MSG_COPY
#define MSG_COPY 040000  // the C library names it only with its own extensions
#endif

namespace client {

namespace {

constexpr size_t kDefaultMost = 8192;
constexpr size_t kMostMessages = 100000;
constexpr double kStillPause = 0.05;  // seconds between two looks
constexpr double kStillLimit = 1.2;   // the time of the last receive has whole seconds

// Room for the longest message that the kernel lets through, in words for its alignment.
class MessageBuffer {
  public:
    MessageBuffer() {
        size_t most = 0;
        // A message may be longer than any request: those are the ones looked for.
        std::ifstream("/proc/sys/kernel/msgmax") >> most;
        words_.resize(std::max(most, kDefaultMost) / sizeof(long) + 2);
    }
    void* Data() { return words_.data(); }
    size_t Room() const { return (words_.size() - 1) * sizeof(long); }
    long Type() const { return words_[0]; }
    const char* Body() const { return reinterpret_cast<const char*>(&words_[1]); }
    void Clear() { std::fill(words_.begin(), words_.end(), 0); }

  private:
    std::vector<long> words_;
};

std::string FieldText(const char* field, size_t size) {
    return std::string(field, strnlen(field, size));
}

std::string Shortened(const std::string& text) {
    constexpr size_t kMost = 60;
    return text.size() <= kMost ? text : text.substr(0, kMost) + "...";
}

// Why the service could not store a pin or unpin request with these fields; empty when it can.
std::string WhyNotStored(const std::string& mountPath, const std::string& data) {
    if (data.empty()) {
        return "names no files";
    }
    std::istringstream stream(data);
    for (std::string path; std::getline(stream, path, kListSeparator);) {
        struct stat status = {};
        // Empty entries are skipped, as by the service.
        if (!path.empty() && !StartsWith(path, mountPath + "/")) {
            return "names " + Shortened(Printable(path)) + ", which is not below the mount path";
        }
        if (!path.empty() && stat(path.c_str(), &status) != 0) {
            return "names " + Shortened(Printable(path)) + ": " + strerror(errno);
        }
    }
    return "";
}

// Returns the message in the buffer, judged by its body, which has that many bytes.
WaitingMessage Judge(const MessageBuffer& buffer, ssize_t bytes) {
    WaitingMessage message;
    Request request = {};
    message.mtype = buffer.Type();
    message.bytes = static_cast<size_t>(bytes);
    memcpy(&request, buffer.Body(), std::min(message.bytes, sizeof(request)));
    const std::string mountPath = FieldText(request.mountPath, sizeof(request.mountPath));
    message.mountPath = mountPath;
    const std::string data = FieldText(request.data, sizeof(request.data));
    // Of these the service checks nothing: they name a volume, and any name will do.
    const bool pending =
        request.type == kRequestAddPendingSpace || request.type == kRequestRemovePendingSpace;
    const char* const verb = VerbOf(request.type);
    message.what = std::string(verb != nullptr ? verb : "no known request,") + " " +
                   Shortened(Printable(mountPath));
    // The worst first: what ends the intake makes no difference where it is never read.
    if (message.mtype != kRequestMsgType) {
        message.ignored = true;
        message.problem = "is of message type " + std::to_string(message.mtype) +
                          ", which the service never reads: it takes room for ever";
    } else if (message.bytes > sizeof(Request)) {
        message.endsIntake = true;
        message.problem = "has " + std::to_string(message.bytes) +
                          " bytes, more than a request: it ends the intake at every start";
    } else if (!pending) {
        const std::string why = mountPath.empty()          ? "names no volume"
                                : RequestHasFiles(request) ? WhyNotStored(mountPath, data)
                                                           : "";
        message.endsIntake = !why.empty();
        message.problem = why.empty() ? "" : why + ": it ends the intake when it is read";
    }
    if (message.problem.empty() && message.bytes < sizeof(Request)) {
        message.problem = "has " + std::to_string(message.bytes) +
                          " bytes, less than a request: the service reads the message before it "
                          "behind its end";
    }
    return message;
}

// The first message that the service would receive.
std::vector<WaitingMessage>::iterator FirstForService(std::vector<WaitingMessage>& messages) {
    return std::find_if(messages.begin(), messages.end(), [](const WaitingMessage& message) {
        return message.mtype == kRequestMsgType;
    });
}

}  // namespace

const char* VerbOf(int32_t type) {
    switch (type) {
        case kRequestPinFiles:
            return "pin";
        case kRequestUnpinFiles:
            return "unpin";
        case kRequestAddPendingSpace:
            return "pend";
        case kRequestRemovePendingSpace:
            return "release";
        case kRequestReloadPinBlocks:
            return "reload";
        default:
            return nullptr;
    }
}

bool LookAtMessages(int queue, std::vector<WaitingMessage>& messages, std::string& why) {
    MessageBuffer buffer;
    for (size_t index = 0; index < kMostMessages; ++index) {
        buffer.Clear();  // a short message must not show the end of the one before
        const ssize_t bytes = msgrcv(queue, buffer.Data(), buffer.Room(), static_cast<long>(index),
                                     MSG_COPY | IPC_NOWAIT | MSG_NOERROR);
        // Behind the last one.
        if (bytes < 0 && errno == ENOMSG) {
            break;
        }
        if (bytes < 0) {
            why = std::string("messages cannot be looked at: ") + strerror(errno);
            return false;
        }
        messages.push_back(Judge(buffer, bytes));
        messages.back().removable = messages.back().ignored;
    }
    // Of those that the service reads only the first can be taken without another one.
    const auto first = FirstForService(messages);
    if (first != messages.end()) {
        first->removable = first->endsIntake;
    }
    return true;
}

bool CountWaiting(const std::string& mountPath, uint64_t& count) {
    QueueFacts facts;
    std::vector<WaitingMessage> messages;
    std::string why;
    const bool known = ReadQueueFacts(facts, why);
    count = facts.messages;
    if (count > 0 && LookAtMessages(facts.id, messages, why)) {
        count = static_cast<uint64_t>(std::count_if(
            messages.begin(), messages.end(), [&mountPath](const WaitingMessage& message) {
                return !message.ignored && (mountPath.empty() || message.mountPath == mountPath);
            }));
    }
    return known;
}

bool MessagesStandStill(int queue) {
    std::vector<WaitingMessage> messages;
    std::string why;
    struct msqid_ds before = {};
    if (!LookAtMessages(queue, messages, why) || FirstForService(messages) == messages.end() ||
        msgctl(queue, IPC_STAT, &before) != 0) {
        return false;
    }
    // A new message is no sign of life, one that is gone or was received is.
    const Poll poll(kStillPause, kStillLimit);
    while (poll.Again()) {
        struct msqid_ds now = {};
        if (msgctl(queue, IPC_STAT, &now) != 0 || now.msg_rtime != before.msg_rtime ||
            now.msg_qnum < before.msg_qnum) {
            return false;
        }
    }
    return true;
}

bool TakeAwayBad(int queue, std::vector<std::string>& taken, std::string& why) {
    MessageBuffer buffer;
    for (;;) {
        std::vector<WaitingMessage> messages;
        if (!LookAtMessages(queue, messages, why)) {
            return false;
        }
        const auto bad =
            std::find_if(messages.begin(), messages.end(),
                         [](const WaitingMessage& message) { return message.removable; });
        if (bad == messages.end()) {
            return true;
        }
        // By its type: the kernel takes messages by type and order alone.
        const ssize_t bytes =
            msgrcv(queue, buffer.Data(), buffer.Room(), bad->mtype, IPC_NOWAIT | MSG_NOERROR);
        if (bytes < 0) {
            why = std::string("a message cannot be taken away: ") + strerror(errno);
            return false;
        }
        const WaitingMessage gone = Judge(buffer, bytes);
        if (!gone.ignored && !gone.endsIntake) {
            // A service that was just started took the bad one first: this one is good.
            msgsnd(queue, buffer.Data(), gone.bytes, IPC_NOWAIT);
            return true;
        }
        taken.push_back("a message (" + gone.what + ") that " + gone.problem);
    }
}

}  // namespace client
