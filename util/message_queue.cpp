// SPDX-License-Identifier: MIT
#include "util/message_queue.h"

#include <errno.h>
#include <stdio.h>
#include <string.h>
#include <sys/ipc.h>
#include <sys/msg.h>

#include <string>

#include "util/file.h"
#include "util/log.h"
#include "util/request.h"

namespace {

constexpr int kKeyProjectId = 'x';
constexpr int kQueueMode = 0644;
constexpr int kKeyReadAttempts = 3;

// Reads the key file until it holds a key. Returns 0, or -1.
int ReadKey(int* key, const char* path) {
    for (int attempt = 0; attempt < kKeyReadAttempts; ++attempt) {
        if (GetMsgKey(key, path) == 0) {
            return 0;
        }
    }
    return -1;
}

}  // namespace

int GetMsgKey(int* key, const char* path) {
    std::string text;

    if (FileReadString(path, text) != 0) {
        LogError("Can't get message key from file (%s)", path);
        return -1;
    }
    *key = std::stoi(text);
    LogVerbose("Get Key = %d", *key);
    return 0;
}

int MsgCreateExclusive(const char* path) {
    char keyText[1024] = {};
    struct msqid_ds queue = {};

    LogEnter();
    // The key is made from the file, so it must be there first.
    if (FileExists(path) == 0 && FileWriteString(path, "") != 0) {
        LogError("Create file (%s) failed", path);
        return -1;
    }
    key_t key = ftok(path, kKeyProjectId);
    if (key == -1) {
        LogError("Can't get message queue key by file (%s)", path);
        return -1;
    }
    snprintf(keyText, sizeof(keyText), "%d", key);
    LogVerbose("Generate message queue key = %d (0x%x)", key, static_cast<unsigned>(key));

    int id = msgget(key, IPC_CREAT | IPC_EXCL | kQueueMode);
    if (id == -1) {
        // The normal way of a restart, so no error.
        LogVerbose("Message queue (key = %d) already exists (error = %s)", key, strerror(errno));
        return -1;
    }
    if (msgctl(id, IPC_STAT, &queue) == -1) {
        LogError("Can't get message queue data structure");
        return -1;
    }
    queue.msg_qbytes = kMsgQueueNumRequests * sizeof(Request);
    if (msgctl(id, IPC_SET, &queue) == -1) {
        LogError("Can't set message queue size");
        return -1;
    }
    LogVerbose("Set size = %ld (num of request = %d, request size = %zu)",
               static_cast<long>(queue.msg_qbytes), kMsgQueueNumRequests, sizeof(Request));
    if (FileWriteString(path, keyText) != 0) {
        LogError("Can't write to file (%s)", path);
        return id;
    }
    LogLeave();
    return id;
}

int MsgQueueGet(const char* path) {
    int key = 0;

    LogEnter();
    int id = MsgCreateExclusive(path);
    if (id != -1) {
        LogVerbose("Create message queue by file (%s) successfully", path);
        LogLeave();
        return id;
    }
    LogVerbose("Message queue exist, try to get key");
    if (ReadKey(&key, path) != 0) {
        LogError("Can't find the message queue's key from file (%s)", path);
    } else if ((id = msgget(key, 0)) == -1) {
        LogError("Can't open message queue: %s", strerror(errno));
    } else {
        LogVerbose("Get message queue by id (%d) successfully", id);
    }
    LogLeave();
    return id;
}
