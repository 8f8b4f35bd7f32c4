// SPDX-License-Identifier: MIT
#include "daemon/receiver.h"

#include <errno.h>
#include <pthread.h>
#include <string.h>
#include <sys/msg.h>

#include "daemon/request_store.h"
#include "daemon/service.h"
#include "util/log.h"
#include "util/message_queue.h"

int g_msgQueueId = -1;

namespace {

bool IsEmpty(const char* text) {
    return text[0] == '\0';
}

namespace get_requests {

constexpr const char* kLogFunction = "GetRequests";

int OpenQueue() {
    g_msgQueueId = MsgQueueGet(kMsgServerKeyPath);
    if (g_msgQueueId == -1) {
        LogError("Create server messsage queue by file (%s) failed", kMsgServerKeyPath);
        return -1;
    }
    LogVerbose("Get server messsage queue id = %d", g_msgQueueId);
    return 0;
}

// A longer message is not cut but refused: it stays in the queue and the receive fails. A shorter
// one leaves the bytes behind its end as they were.
int Receive(RequestMsg& msg) {
    if (msgrcv(g_msgQueueId, &msg, sizeof(msg.body), kRequestMsgType, 0) == -1) {
        LogError("Receive messaged failed: %s", strerror(errno));
        return -1;
    }
    // Clients may leave out the terminators; nothing here reads past a field.
    msg.body.mountPath[sizeof(msg.body.mountPath) - 1] = '\0';
    msg.body.data[sizeof(msg.body.data) - 1] = '\0';
    return 0;
}

int AddPendingSpace(const char* mountPath) {
    if (ServiceIsSpacePending(mountPath)) {
        LogVerbose("Space (%s) is already in pending list", mountPath);
        return 0;
    }
    if (ServiceAddPendingSpaceAtomic(mountPath) != 0) {
        LogError("Add spend space error");
        return -1;
    }
    return 0;
}

int RemovePendingSpace(const char* mountPath) {
    if (!ServiceIsSpacePending(mountPath)) {
        LogNotice("Space (%s) is not in pending list. Could be a new space", mountPath);
        return 0;
    }
    if (ServiceRemovePendingSpaceAtomic(mountPath) != 0) {
        LogError("Remove pending space error");
        return -1;
    }
    return 0;
}

int StoreRequest(const RequestMsg& msg, const char* configPath) {
    if (CheckNormalMsg(msg) != 0) {
        LogError("Get wrong message format");
        return -1;
    }
    if (ConfigAddRequest(configPath, msg.body) != 0) {
        LogError("Can't add request to config (%s)", configPath);
        return -1;
    }
    // The mutex is free again. The signal is not lost: the worker looks into the file, holding the
    // mutex, before it waits.
    LogVerbose("Signal a new request is added");
    pthread_cond_signal(&g_service.cond);
    return 0;
}

// Returns 0, or -1 when intake has to stop.
int HandleMessage(const RequestMsg& msg, const char* configPath) {
    LogVerbose("Get a new message. Request type = %s", RequestTypeToString(msg.body.type));
    switch (msg.body.type) {
        case kRequestAddPendingSpace:
            return AddPendingSpace(msg.body.mountPath);
        case kRequestRemovePendingSpace:
            return RemovePendingSpace(msg.body.mountPath);
        default:
            return StoreRequest(msg, configPath);
    }
}

}  // namespace get_requests

}  // namespace

void GetRequests(const char* configPath) {
    RequestMsg msg = {};

    LogEnter();
    if (get_requests::OpenQueue() == 0) {
        // The first failure ends intake for good, on purpose; only a restart begins it again.
        while (get_requests::Receive(msg) == 0 &&
               get_requests::HandleMessage(msg, configPath) == 0) {
        }
    }
    LogLeave();
    pthread_exit(nullptr);
}

int CheckNormalMsg(const RequestMsg& msg) {
    if (IsEmpty(msg.body.mountPath)) {
        LogError("Space UUID is not set");
        return -1;
    }
    if (RequestHasFiles(msg.body) && IsEmpty(msg.body.data)) {
        LogError("Should provide file paths");
        return -1;
    }
    return 0;
}
