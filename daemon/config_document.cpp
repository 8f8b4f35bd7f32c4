// SPDX-License-Identifier: MIT
#include "daemon/config_document.h"

#include "util/json_file.h"
#include "util/log.h"

namespace {

bool IsObjectOrNull(const Json::Value& value) {
    return value.isObject() || value.isNull();
}

bool IsText(const Json::Value& value) {
    return value.isConvertibleTo(Json::stringValue);
}

bool IsQueue(const Json::Value& queue) {
    if (!queue.isArray()) {
        return queue.isNull();
    }
    for (const Json::Value& number : queue) {
        if (!IsText(number)) {
            return false;
        }
    }
    return true;
}

bool AreRequests(const Json::Value& requests) {
    if (!IsObjectOrNull(requests)) {
        return false;
    }
    for (const Json::Value& request : requests) {
        if (!IsObjectOrNull(request) || !IsText(request[kTypeKey]) ||
            !IsText(request[kMountPathKey]) || !IsText(request[kDataKey])) {
            return false;
        }
    }
    return true;
}

bool AreVolumes(const Json::Value& volumes) {
    if (!IsObjectOrNull(volumes)) {
        return false;
    }
    for (const Json::Value& volume : volumes) {
        if (!IsObjectOrNull(volume) || !IsObjectOrNull(volume[kFilesKey])) {
            return false;
        }
    }
    return true;
}

// Returns the first member that has not the kind it must have, or null.
const char* FindWrongMember(const Json::Value& document) {
    if (!IsObjectOrNull(document)) {
        return "top level";
    }
    if (!document[kNextRequestNumKey].isConvertibleTo(Json::intValue)) {
        return kNextRequestNumKey;
    }
    if (!IsQueue(document[kRequestQueueKey])) {
        return kRequestQueueKey;
    }
    if (!AreRequests(document[kRequestsKey])) {
        return kRequestsKey;
    }
    if (!AreVolumes(document[kVolumesKey])) {
        return kVolumesKey;
    }
    return nullptr;
}

}  // namespace

int ConfigReadDocument(const char* path, Json::Value& document) {
    if (ReadFileToJson(path, document) != 0) {
        return -1;
    }
    const char* member = FindWrongMember(document);
    if (member != nullptr) {
        LogError("Config file (%s) has a member of a wrong kind (%s)", path, member);
        return -1;
    }
    return 0;
}

int ConfigGetJsonAndNumRequest(const char* path, Json::Value& document, uint32_t& numRequests) {
    LogEnter();
    if (ConfigReadDocument(path, document) != 0) {
        LogError("Can't read data from config file (%s)", path);
        return -1;
    }
    const Json::Value* queue = &document[kRequestQueueKey];
    if (queue == nullptr) {
        LogError("Got NULL pointer");
        return -1;
    }
    numRequests = queue->size();
    LogLeave();
    return 0;
}
