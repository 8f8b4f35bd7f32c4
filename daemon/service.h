// SPDX-License-Identifier: MIT
// What the two threads of the service share.
//
// The mutex is held around every read-change-write of the configuration file and every change of
// the pending-space list; the receiver signals the condition after each stored request, the worker
// waits on it for work.
#pragma once

#include <pthread.h>
#include <stdint.h>

#include "daemon/pending_spaces.h"

// Filled from the command line, alive as long as the process.
struct ServiceOptions {
    const char* configPath;  // points into the argument vector; the worker expects it first
    int32_t debug;           // 1 = --debug was given
    int32_t verbose;         // 1 = --verbose was given
};

struct Service {
    int32_t state;          // set to 2 at start; nothing reads it
    pthread_mutex_t mutex;  // default attributes, hence not recursive
    pthread_cond_t cond;
    PendingSpaceList pendingSpaces;
};

extern Service g_service;

// The service mutex for the time of a scope.
class ServiceLock {
  public:
    ServiceLock() { pthread_mutex_lock(&g_service.mutex); }
    ~ServiceLock() { pthread_mutex_unlock(&g_service.mutex); }
    ServiceLock(const ServiceLock&) = delete;
    ServiceLock& operator=(const ServiceLock&) = delete;
};

// Whether the space is pending. Takes no lock; the answer is advisory.
bool ServiceIsSpacePending(const char* mountPath);

// The same about one space, for who asks again and again: while the list is the same, so is the
// answer. Used by one thread.
class PendingQuestion {
  public:
    explicit PendingQuestion(const char* mountPath) : mountPath_(mountPath) {}

    bool Ask() {
        uint32_t version = g_service.pendingSpaces.Version();
        if (version != version_) {
            version_ = version;
            pending_ = ServiceIsSpacePending(mountPath_);
        }
        return pending_;
    }

  private:
    const char* mountPath_;
    uint32_t version_ = g_service.pendingSpaces.Version() - 1;  // the first question is asked
    bool pending_ = false;
};

// Adds a space. Takes the service mutex. Returns 0; or -1 when it is pending already, and then the
// mutex stays locked: callers test first.
int ServiceAddPendingSpaceAtomic(const char* mountPath);

// Removes a space. Takes the service mutex. Returns 0, or -1 when it is not pending.
int ServiceRemovePendingSpaceAtomic(const char* mountPath);
