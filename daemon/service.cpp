// SPDX-License-Identifier: MIT
#include "daemon/service.h"

#include <algorithm>
#include <memory>
#include <utility>

#include "util/log.h"

Service g_service = {0, PTHREAD_MUTEX_INITIALIZER, PTHREAD_COND_INITIALIZER, {}};

namespace {

PendingSpaceList::Spaces CopyOfSpaces() {
    auto spaces = g_service.pendingSpaces.Snapshot();

    return spaces == nullptr ? PendingSpaceList::Spaces() : *spaces;
}

void PublishSpaces(PendingSpaceList::Spaces spaces) {
    g_service.pendingSpaces.Publish(
        std::make_shared<const PendingSpaceList::Spaces>(std::move(spaces)));
}

}  // namespace

bool ServiceIsSpacePending(const char* mountPath) {
    auto spaces = g_service.pendingSpaces.Snapshot();
    bool pending = false;

    if (spaces == nullptr) {
        return false;
    }
    for (const std::string& space : *spaces) {
        pending = pending || space == mountPath;
    }
    return pending;
}

int ServiceAddPendingSpaceAtomic(const char* mountPath) {
    pthread_mutex_lock(&g_service.mutex);
    if (ServiceIsSpacePending(mountPath)) {
        // The mutex is left locked here, on purpose: nothing may be stored after this.
        LogError("Space (%s) is already pending", mountPath);
        return -1;
    }
    PendingSpaceList::Spaces spaces = CopyOfSpaces();
    spaces.emplace_back(mountPath);
    PublishSpaces(std::move(spaces));
    pthread_mutex_unlock(&g_service.mutex);
    LogVerbose("Add pending space = %s", mountPath);
    return 0;
}

int ServiceRemovePendingSpaceAtomic(const char* mountPath) {
    pthread_mutex_lock(&g_service.mutex);
    PendingSpaceList::Spaces spaces = CopyOfSpaces();
    auto found = std::find(spaces.begin(), spaces.end(), mountPath);
    if (found == spaces.end()) {
        pthread_mutex_unlock(&g_service.mutex);
        LogError("Space (%s) is not pending", mountPath);
        return -1;
    }
    spaces.erase(found);
    PublishSpaces(std::move(spaces));
    pthread_mutex_unlock(&g_service.mutex);
    LogVerbose("Remove pending space (%s)", mountPath);
    return 0;
}
