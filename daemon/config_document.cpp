// SPDX-License-Identifier: MIT
#include "daemon/config_document.h"

#include "util/json_file.h"
#include "util/log.h"
#include "util/stored_format.h"

namespace {

namespace check_kind {

constexpr const char* kLogFunction = "ConfigCheckKind";

int Report(bool isRight, const char* member) {
    if (!isRight) {
        LogError("Config has a member of a wrong kind (%s)", member);
        return -1;
    }
    return 0;
}

}  // namespace check_kind

}  // namespace

int ConfigCheckObject(const Json::Value& value, const char* member) {
    return check_kind::Report(value.isObject() || value.isNull(), member);
}

int ConfigCheckArray(const Json::Value& value, const char* member) {
    return check_kind::Report(value.isArray() || value.isNull(), member);
}

int ConfigCheckText(const Json::Value& value, const char* member) {
    return check_kind::Report(value.isConvertibleTo(Json::stringValue), member);
}

int ConfigCheckNumber(const Json::Value& value, const char* member) {
    return check_kind::Report(value.isConvertibleTo(Json::intValue), member);
}

int ConfigReadDocument(const char* path, Json::Value& document) {
    return ReadFileToJson(path, document) == 0 && ConfigCheckObject(document, "top level") == 0
               ? 0
               : -1;
}

int ConfigGetJsonAndNumRequest(const char* path, Json::Value& document, uint32_t& numRequests) {
    LogEnter();
    if (ConfigReadDocument(path, document) != 0) {
        LogError("Can't read data from config file (%s)", path);
        return -1;
    }
    const Json::Value* queue = &document[kRequestQueueKey];
    if (queue == nullptr) {  // never: operator[] creates what it does not find
        LogError("Got NULL pointer");
        return -1;
    }
    if (ConfigCheckArray(*queue, kRequestQueueKey) != 0) {
        LogError("Can't read data from config file (%s)", path);
        return -1;
    }
    numRequests = queue->size();
    LogLeave();
    return 0;
}
