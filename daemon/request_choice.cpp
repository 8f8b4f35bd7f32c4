// SPDX-License-Identifier: MIT
#include "daemon/request_choice.h"

#include <stdint.h>
#include <stdio.h>

#include <vector>

#include "daemon/config_document.h"
#include "daemon/request_store.h"
#include "daemon/service.h"
#include "util/file.h"
#include "util/json_file.h"
#include "util/log.h"
#include "util/space.h"
#include "util/stored_format.h"

namespace {

// What one call works on.
struct Choice {
    Json::Value document;
    std::vector<std::string> dropped;  // request numbers, in queue order
    bool chosen = false;
};

// Copies as much of the text as fits and terminates it.
template <size_t kSize>
void CopyText(char (&target)[kSize], const std::string& text) {
    snprintf(target, kSize, "%s", text.c_str());
}

namespace choose_request {

constexpr const char* kLogFunction = "ConfigParseAndGetNextAvailableRequest";

// Returns 0 with a document whose queue is not empty, or -1. Called and left with the mutex held.
int WaitForRequests(const char* path, Json::Value& document) {
    uint32_t numRequests = 0;

    for (;;) {
        if (FileExists(path) == 0) {
            LogVerbose("Config doesn't exist");
        } else if (ConfigGetJsonAndNumRequest(path, document, numRequests) != 0) {
            LogError("Get request from config file (%s) error", path);
            return -1;
        } else if (numRequests != 0) {
            return 0;
        }
        LogVerbose("Go to block mode");
        pthread_cond_wait(&g_service.cond, &g_service.mutex);
        LogVerbose("Wake up");
    }
}

// Forgets everything about the volume of a request that cannot be served now. Returns 0, or -1.
int ForgetVolume(Choice& choice, const char* mountPath, const Request& output) {
    // Required quirk: this tests the output record's field, which is empty, and not `mountPath`.
    // Only an empty entry can match, and then the removal blocks for good on the mutex held here.
    if (ServiceIsSpacePending(output.mountPath)) {
        if (ServiceRemovePendingSpaceAtomic(output.mountPath) != 0) {
            LogError("Can't remove space from pending list");
            return -1;
        }
        LogVerbose("Remove space (%s) from pending list", mountPath);
    }
    // operator[] creates what it does not find: a missing "volumes" reaches the file as null.
    Json::Value& volumes = choice.document[kVolumesKey];
    if (ConfigCheckObject(volumes, kVolumesKey) != 0) {
        return -1;
    }
    if (volumes.isMember(mountPath)) {
        LogVerbose("Delete the volume (%s) from config", mountPath);
        volumes.removeMember(mountPath);
    }
    return 0;
}

// Returns 0, or -1 when the stored type is none, or type or data are no texts.
int FillRequest(Json::Value& stored, const std::string& number, Request& request) {
    if (ConfigCheckText(stored[kTypeKey], kTypeKey) != 0 ||
        ConfigCheckText(stored[kDataKey], kDataKey) != 0) {
        return -1;
    }
    request.type = StringToRequestType(stored[kTypeKey].asString());
    if (request.type == kRequestUnknown) {
        LogError("Can't get correct request type");
        return -1;
    }
    CopyText(request.mountPath, stored[kMountPathKey].asString());
    CopyText(request.data, stored[kDataKey].asString());
    LogVerbose("Get request (request num = %s type = %s data = %s", number.c_str(),
               RequestTypeToString(request.type), request.data);
    return 0;
}

// Decides about one queued request. Returns 0, or -1.
int Consider(Choice& choice, const std::string& number, Request& request) {
    char mountPath[kTextBufferSize] = {};
    Json::Value& requests = choice.document[kRequestsKey];

    if (ConfigCheckObject(requests, kRequestsKey) != 0) {
        return -1;
    }
    if (!requests.isMember(number)) {
        LogError("Can't find request number (%s) in config", number.c_str());
        return -1;
    }
    Json::Value& stored = requests[number];
    if (ConfigCheckObject(stored, number.c_str()) != 0 ||
        ConfigCheckText(stored[kMountPathKey], kMountPathKey) != 0) {
        return -1;
    }
    CopyText(mountPath, stored[kMountPathKey].asString());
    if (SpaceHasCacheAndSupportPin(mountPath) == 0) {
        choice.dropped.push_back(number);
        return ForgetVolume(choice, mountPath, request);
    }
    if (ServiceIsSpacePending(mountPath)) {
        // It stays queued, and the requests of other volumes overtake it.
        LogVerbose("Request num (%s) volume (%s) is pending", number.c_str(), mountPath);
        return 0;
    }
    if (FillRequest(stored, number, request) != 0) {
        return -1;
    }
    choice.chosen = true;
    return 0;
}

int ScanQueue(Choice& choice, Request& request, std::string& number) {
    Json::Value& queue = choice.document[kRequestQueueKey];

    for (Json::ArrayIndex i = 0; i < queue.size() && !choice.chosen; ++i) {
        if (ConfigCheckText(queue[i], kRequestQueueKey) != 0) {
            return -1;
        }
        std::string current = queue[i].asString();
        if (Consider(choice, current, request) != 0) {
            return -1;
        }
        if (choice.chosen) {
            number = current;
        }
    }
    return 0;
}

int WriteWithoutDropped(const char* path, Choice& choice) {
    for (const std::string& number : choice.dropped) {
        if (JsonRemoveRequest(choice.document, number) != 0) {
            LogError("Can't remove request (%s)", number.c_str());
            return -1;
        }
        LogVerbose("Remove request (%s)", number.c_str());
    }
    if (WriteJsonToFile(choice.document, path) != 0) {
        LogError("Can't write to files");
        return -1;
    }
    LogNotice("Drop requests finish");
    return 0;
}

// The part that the service mutex guards, from the first read to the last write.
int ChooseRequest(const char* path, Request& request, std::string& number) {
    Choice choice;
    ServiceLock lock;

    if (WaitForRequests(path, choice.document) != 0 || ScanQueue(choice, request, number) != 0) {
        return kChoiceError;
    }
    if (!choice.dropped.empty() && WriteWithoutDropped(path, choice) != 0) {
        return kChoiceError;
    }
    return choice.chosen ? kChoiceRequest : kChoiceNothing;
}

}  // namespace choose_request

}  // namespace

int ConfigParseAndGetNextAvailableRequest(const char* path, Request& request, std::string& number) {
    LogEnter();
    int result = choose_request::ChooseRequest(path, request, number);
    LogLeave();
    return result;
}
