// SPDX-License-Identifier: MIT
#include "client/service/queue.h"

#include <errno.h>
#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/msg.h>

#include <memory>

#include "client/show/output.h"
#include "util/message_queue.h"
#include "util/scoped.h"

namespace client {

namespace {

struct FileCloser {
    void operator()(FILE* file) const { fclose(file); }
};

// Converts as the service does: leading white space is skipped, the first other character that is
// no digit ends the number. What it would not survive gives false.
bool ParseKey(const char* text, key_t& key) {
    char* end = nullptr;
    errno = 0;
    const long value = strtol(text, &end, 10);
    // The service's own conversion throws at these, and ends it.
    if (end == text || errno != 0 || value < INT_MIN || value > INT_MAX) {
        return false;
    }
    key = static_cast<key_t>(value);
    return true;
}

}  // namespace

bool ReadKeyFile(const char* path, key_t& key, std::string& why) {
    const std::unique_ptr<FILE, FileCloser> file(fopen(path, "re"));
    if (!file) {
        why = errno == ENOENT ? std::string("there is no key file ") + path +
                                    "; the service writes it at its start"
                              : std::string("key file ") + path + ": " + strerror(errno);
        return false;
    }
    // The service reads the first line alone, whatever follows it.
    char line[64] = {};
    if (fgets(line, sizeof(line), file.get()) == nullptr) {
        why = std::string("key file ") + path + " is empty";
        return false;
    }
    if (!ParseKey(line, key)) {
        why = std::string("key file ") + path + " holds no key but \"" +
              Printable(std::string(line, strcspn(line, "\n"))) + "\"";
        return false;
    }
    return true;
}

int OpenServerQueue(std::string& why) {
    key_t key = 0;
    if (!ReadKeyFile(kMsgServerKeyPath, key, why)) {
        return -1;
    }
    // Never created here: the service would meet a queue of another owner and mode.
    const int queue = msgget(key, 0);
    if (queue == -1) {
        why = errno == ENOENT
                  ? "there is no message queue of the published key " + std::to_string(key) +
                        "; the service makes it at its start"
                  : "message queue of key " + std::to_string(key) + ": " + strerror(errno);
    }
    return queue;
}

bool ReadQueueFacts(QueueFacts& facts, std::string& why) {
    struct msqid_ds record = {};
    facts.id = OpenServerQueue(why);
    if (facts.id == -1) {
        return false;
    }
    if (msgctl(facts.id, IPC_STAT, &record) != 0) {
        why = std::string("the queue cannot be examined: ") + strerror(errno);
        return false;
    }
    facts.key = record.msg_perm.__key;
    facts.messages = record.msg_qnum;
    facts.bytes = record.__msg_cbytes;
    facts.limit = record.msg_qbytes;
    facts.mode = record.msg_perm.mode & 0777U;
    facts.owner = record.msg_perm.uid;
    return true;
}

SendOutcome SendNow(int queue, const RequestMsg& msg, std::string& why) {
    if (msgsnd(queue, &msg, sizeof(msg.body), IPC_NOWAIT) == 0) {
        return SendOutcome::kSent;
    }
    if (errno == EAGAIN || errno == EINTR) {  // nothing went; who sends decides about another try
        return SendOutcome::kFull;
    }
    why = std::string("sending failed: ") + strerror(errno);
    return SendOutcome::kFailed;
}

}  // namespace client
