// SPDX-License-Identifier: MIT
#include "daemon/request_store.h"

#include <stdint.h>
#include <stdio.h>

#include "daemon/config_document.h"
#include "daemon/pinned_files.h"
#include "daemon/request_data.h"
#include "daemon/service.h"
#include "util/file.h"
#include "util/json_file.h"
#include "util/log.h"
#include "util/stored_format.h"

namespace {

// Returns the number of the next request and advances the counter. A counter edited to the largest
// integer wraps as it does on the target.
int32_t TakeRequestNumber(Json::Value& counter) {
    if (counter.isNull()) {
        counter = 1;
        return 0;
    }
    int32_t number = counter.asInt();
    auto next = static_cast<int32_t>(static_cast<uint32_t>(number) + 1U);
    counter = next % kRequestNumModulus;
    return number;
}

namespace add_to_json {

constexpr const char* kLogFunction = "JsonAddRequest";

int SetRequestData(Json::Value& stored, const Request& request) {
    char fileList[kTextBufferSize] = {};

    if (!RequestHasFiles(request)) {
        stored[kDataKey] = Json::Value();
        return 0;
    }
    if (AbsolutePathsToFileInodeList(request.mountPath, request.data, fileList, sizeof(fileList)) !=
        0) {
        LogError("Get relative paths failed");
        return -1;
    }
    stored[kDataKey] = fileList;
    return 0;
}

}  // namespace add_to_json

namespace add_request {

constexpr const char* kLogFunction = "ConfigAddRequest";

// The part of ConfigAddRequest that the service mutex guards.
int ReadAddAndWrite(const char* path, const Request& request) {
    Json::Value document;
    ServiceLock lock;

    if (FileExists(path) != 0 && ConfigReadDocument(path, document) != 0) {
        LogError("Can't read data from config file (%s)", path);
        return -1;
    }
    if (JsonAddRequest(document, request) != 0) {
        LogError("Can't add request to json");
        return -1;
    }
    if (WriteJsonToFile(document, path) != 0) {
        LogError("Can't write to files");
        return -1;
    }
    return 0;
}

}  // namespace add_request

// A request on its way out of the file: the steps that a finished and a failed one share. Log lines
// name the function by which the request leaves.
struct LeavingRequest {
    const char* kLogFunction;
    const char* path;  // of the file
    Json::Value document;

    int Read();                                     // returns 0, or -1
    int RemoveAndWrite(const std::string& number);  // returns 0, or -1
};

int LeavingRequest::Read() {
    if (FileExists(path) == 0) {
        LogError("Can't find config file (%s)", path);
        return -1;
    }
    if (ConfigReadDocument(path, document) != 0) {
        LogError("Can't read data from config file (%s)", path);
        return -1;
    }
    return 0;
}

int LeavingRequest::RemoveAndWrite(const std::string& number) {
    if (JsonRemoveRequest(document, number) != 0) {
        LogError("Can't remove request");
        return -1;
    }
    if (WriteJsonToFile(document, path) != 0) {
        LogError("Write json data to config (%s) failed", path);
        return -1;
    }
    return 0;
}

namespace finish_request {

constexpr const char* kLogFunction = "ConfigUpdatedByFinishedRequest";

// The part of ConfigUpdatedByFinishedRequest that the service mutex guards.
int ReadFinishAndWrite(const char* path, const Request& request, const std::string& number) {
    LeavingRequest leaving = {kLogFunction, path, {}};
    ServiceLock lock;

    if (leaving.Read() != 0) {
        return -1;
    }
    if (JsonUpdatePinFileInfo(leaving.document, request) != 0) {
        LogError("Can't update pin file list");
        return -1;
    }
    return leaving.RemoveAndWrite(number);
}

}  // namespace finish_request

}  // namespace

int ConfigAddRequest(const char* path, const Request& request) {
    LogEnter();
    int result = add_request::ReadAddAndWrite(path, request);
    LogLeave();
    return result;
}

int ConfigUpdatedByFinishedRequest(const char* path, const Request& request,
                                   const std::string& number) {
    LogEnter();
    int result = finish_request::ReadFinishAndWrite(path, request, number);
    LogLeave();
    return result;
}

int ConfigDropErrorRequest(const char* path, const Request& request, const std::string& number) {
    LeavingRequest leaving = {__func__, path, {}};
    ServiceLock lock;

    if (leaving.Read() != 0) {
        return -1;
    }
    if (request.type == kRequestUnpinFiles) {
        LogError("Remove pinned files from the config file if possible");
        // Its failure is ignored: a request that stayed because of it would be run for ever.
        JsonUpdatePinFileInfo(leaving.document, request);
    }
    return leaving.RemoveAndWrite(number);
}

int JsonAddRequest(Json::Value& document, const Request& request) {
    char number[kTextBufferSize] = {};
    // References into an object stay valid while members are added to it.
    Json::Value& counter = document[kNextRequestNumKey];
    Json::Value& queue = document[kRequestQueueKey];

    LogEnter();
    if (ConfigCheckNumber(counter, kNextRequestNumKey) != 0 ||
        ConfigCheckArray(queue, kRequestQueueKey) != 0) {
        return -1;
    }
    snprintf(number, sizeof(number), "%d", TakeRequestNumber(counter));

    // Required quirk: this searches the boolean "has a queue" and not the queue, so it never finds
    // anything, and a number that is queued already is issued again.
    Json::Value hasQueue(document.isMember(kRequestQueueKey));
    if (JsonArrayHasString(hasQueue, number) != 0) {
        LogError("Should not find the element");
        return -1;
    }
    queue.append(number);

    const char* type = RequestTypeToString(request.type);
    if (type == nullptr) {
        return -1;  // there is no name to store it under
    }
    Json::Value& requests = document[kRequestsKey];
    if (ConfigCheckObject(requests, kRequestsKey) != 0) {
        return -1;
    }
    Json::Value& stored = requests[number];
    if (!stored.isObject()) {
        stored = Json::Value();  // what stands there is no request: overwrite all of it
    }
    stored[kTypeKey] = type;
    stored[kMountPathKey] = request.mountPath;
    if (add_to_json::SetRequestData(stored, request) != 0) {
        return -1;
    }
    LogVerbose("After request is added: jsConf:%s", JsonToStyledText(document).c_str());
    return 0;
}

int JsonRemoveRequest(Json::Value& document, const std::string& number) {
    Json::Value removed;

    LogEnter();
    LogVerbose("Remove request num = %s", number.c_str());
    Json::Value& queue = document[kRequestQueueKey];
    if (queue.isNull()) {
        LogError("Can't read request queue");
        return -1;
    }
    if (ConfigCheckArray(queue, kRequestQueueKey) != 0) {
        return -1;
    }
    if (JsonArrayRemoveString(queue, number) != 0) {
        LogError("Can't remove request num (%s) from request queue", number.c_str());
        return -1;
    }
    Json::Value& requests = document[kRequestsKey];
    if (ConfigCheckObject(requests, kRequestsKey) != 0) {
        return -1;
    }
    if (!requests.isMember(number)) {
        LogError("Can't find request number (%s) in config", number.c_str());
        return -1;
    }
    requests.removeMember(number, &removed);
    if (removed.isNull()) {
        LogError("Remove request (%s) from requests failed", number.c_str());
        return -1;
    }
    LogLeave();
    return 0;
}

int JsonArrayRemoveString(Json::Value& array, const std::string& text) {
    Json::Value kept;
    int count = 0;

    for (const Json::Value& element : array) {
        if (!element.isConvertibleTo(Json::stringValue)) {
            kept.append(element);  // not a number of any request: it stays
        } else if (element.asString() == text) {
            ++count;
        } else {
            kept.append(element.asString());
        }
    }
    if (count != 1) {
        LogError("Remove string error, count =%d", count);
        return -1;
    }
    array = kept;
    return 0;
}

int JsonArrayHasString(const Json::Value& array, const char* text) {
    if (!array.isArray()) {
        return 0;
    }
    for (const Json::Value& element : array) {
        if (element.isConvertibleTo(Json::stringValue) && element.asString() == text) {
            return 1;
        }
    }
    return 0;
}
