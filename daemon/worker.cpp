// SPDX-License-Identifier: MIT
#include "daemon/worker.h"

#include <errno.h>
#include <pthread.h>
#include <unistd.h>

#include <vector>

#include "daemon/cache_warming.h"
#include "daemon/pin_request.h"
#include "daemon/request_choice.h"
#include "daemon/request_data.h"
#include "daemon/request_result.h"
#include "daemon/request_store.h"
#include "daemon/service.h"
#include "daemon/unpin_request.h"
#include "util/log.h"
#include "util/pin_bitmap.h"
#include "util/scoped.h"
#include "util/space.h"

namespace {

constexpr unsigned kPauseSeconds = 1;

// What one request works on. A destructor would release in another order and keep silent about a
// bitmap that never came to be, so the release is a step of its own.
struct RequestResources {
    CString uuid;
    CString cachePath;
    CString bitmapPath;
    PinBitmap* bitmap = nullptr;
    bool ownsBitmap = true;  // false once a failed load has released the record itself
    std::vector<FileInfo> infos;
};

namespace handle_request {

constexpr const char* kLogFunction = "HandleRequest";

int LoadBitmap(RequestResources& resources) {
    uint8_t sizeChanged = 0;  // reported by the log only

    if (BitmapMemAllocateAndInit(resources.uuid.get(), &resources.bitmap, &sizeChanged) != 0) {
        // With any other errno the loader has released the record, if there was one: the pointer
        // dangles.
        resources.ownsBitmap = errno == ENODEV || resources.bitmap == nullptr;
        LogError("Allocate bitmap failed");
        return -1;
    }
    return 0;
}

int SetUp(const Request& request, RequestResources& resources) {
    resources.uuid.reset(SpaceGetUUID(request.mountPath));
    if (resources.uuid == nullptr) {
        LogError("Can't get space uuid");
        return -1;
    }
    resources.cachePath.reset(SpaceGetCachePath(resources.uuid.get()));
    if (resources.cachePath == nullptr) {
        LogError("Can't get cache path");
        return -1;
    }
    resources.bitmapPath.reset(SpaceGetBitmapPath(resources.uuid.get()));
    if (resources.bitmapPath == nullptr) {
        LogError("Can't get bitmap path");
        return -1;
    }
    return LoadBitmap(resources);
}

void Release(RequestResources& resources) {
    if (resources.ownsBitmap) {
        BitmapFree(resources.bitmap);
    }
    resources.bitmapPath.reset();
    resources.cachePath.reset();
    resources.uuid.reset();
    resources.infos.clear();
}

int CallHandler(const Request& request, RequestResources& resources) {
    if (!RequestHasFiles(request)) {
        return ReloadPinBlocksToCache(resources.bitmap, resources.cachePath.get(),
                                      request.mountPath);
    }
    auto handle = request.type == kRequestPinFiles ? HandlePinRequest : HandleUnpinRequest;
    return handle(resources.infos, resources.bitmap, request.mountPath, resources.cachePath.get(),
                  resources.bitmapPath.get());
}

// Returns what the request's type makes of it. Only a handler's failure has the line for it: data
// that cannot be parsed never reaches one.
int Dispatch(const Request& request, RequestResources& resources) {
    if (RequestHasFiles(request) && RequestDataGetFileInfos(request.data, resources.infos) != 0) {
        LogError("Can't parse file inodes from request's data (%s)", request.data);
        return kRequestFailed;
    }
    int result = CallHandler(request, resources);
    if (result == kRequestFailed) {
        LogError("Handle request failed");
        return kRequestFailed;
    }
    if (result == kRequestInterrupted) {
        LogVerbose("Get Interruped");
        return kRequestInterrupted;
    }
    return kRequestDone;
}

}  // namespace handle_request

namespace do_requests {

constexpr const char* kLogFunction = "DoRequests";

void ReportDone(const Request& request) {
    const char* type = RequestTypeToString(request.type);

    if (RequestHasFiles(request)) {
        LogNotice("Handle request (type=%s files=%s) OK ", type, request.data);
    } else {
        LogNotice("Handle request (type=%s) OK ", type);
    }
}

void RunChosenRequest(const char* configPath, const Request& request, const std::string& number) {
    int result = HandleRequestAndModifyConfig(configPath, request, number);

    if (result == kRequestFailed) {
        return;  // no pause after a dropped request
    }
    if (result == kRequestInterrupted) {
        LogNotice("Handle request (%s). Get interrupted !", number.c_str());
    } else {
        ReportDone(request);
    }
    sleep(kPauseSeconds);
}

}  // namespace do_requests

}  // namespace

void* DoRequests(void* options) {
    const char* configPath = static_cast<ServiceOptions*>(options)->configPath;
    Request request;
    std::string number;

    LogEnter();
    for (;;) {
        request = {};
        int choice = ConfigParseAndGetNextAvailableRequest(configPath, request, number);
        if (choice == kChoiceError) {
            break;
        }
        if (choice == kChoiceRequest) {
            do_requests::RunChosenRequest(configPath, request, number);
        } else {
            sleep(kPauseSeconds);  // what is queued is pending, and a release signals nothing
        }
    }
    LogError("Get request error");
    LogLeave();
    pthread_exit(nullptr);
}

int HandleRequestAndModifyConfig(const char* configPath, const Request& request,
                                 const std::string& number) {
    const char* type = RequestTypeToString(request.type);

    LogEnter();
    LogVerbose("Handle request (num = %s)", number.c_str());
    int result = HandleRequest(request);
    if (result == kRequestFailed) {
        LogError("Handle request error (num = %s, type = %s), drop it.", number.c_str(), type);
        if (ConfigDropErrorRequest(configPath, request, number) != 0) {
            LogError("Can't drop request");
        }
    } else if (result == kRequestInterrupted) {
        // It stays queued and is run from its start when the volume is released.
        LogVerbose("Handle request interruped (num = %s, type = %s)", number.c_str(), type);
        return kRequestInterrupted;
    } else if (result == kRequestDone) {
        if (ConfigUpdatedByFinishedRequest(configPath, request, number) != 0) {
            LogError("Can't remove request (%s) from config file", number.c_str());
        }
    } else {
        result = kRequestDone;
    }
    LogLeave();
    return result;
}

int HandleRequest(const Request& request) {
    RequestResources resources;

    LogEnter();
    if (!RequestHasFiles(request) && request.type != kRequestReloadPinBlocks) {
        LogError("Get unhandle request (%s)", RequestTypeToString(request.type));
        return kRequestFailed;
    }
    int result = kRequestFailed;
    if (handle_request::SetUp(request, resources) == 0) {
        result = handle_request::Dispatch(request, resources);
    }
    handle_request::Release(resources);
    LogLeave();
    return result;
}
