// SPDX-License-Identifier: MIT
#include <stdio.h>

#include <stdexcept>

#include "daemon/config_document.h"
#include "daemon/request_choice.h"
#include "daemon/request_data.h"
#include "daemon/request_store.h"
#include "tests/faults/readers/readers.h"
#include "util/json_file.h"
#include "util/message_queue.h"

namespace readers {

namespace {

Request MakeRequest(int32_t type, const char* data) {
    Request request = {};
    request.type = type;
    snprintf(request.mountPath, sizeof(request.mountPath), "/mnt/vol1");
    snprintf(request.data, sizeof(request.data), "%s", data);
    return request;
}

}  // namespace

// A request is stored, one is chosen, it leaves as a finished one, and another as a failed one.
void ReadConfiguration(const Bytes& bytes) {
    const MemoryFile file(bytes);
    const std::string path = file.Path();
    Json::Value document;
    uint32_t numRequests = 0;
    const bool sound = ConfigGetJsonAndNumRequest(path.c_str(), document, numRequests) == 0;

    ConfigUpdatedByFinishedRequest(path.c_str(), MakeRequest(kRequestUnpinFiles, "a#1"), "1");
    ConfigDropErrorRequest(path.c_str(), MakeRequest(kRequestUnpinFiles, "b.jpg#2"), "2");
    ConfigAddRequest(path.c_str(), MakeRequest(kRequestReloadPinBlocks, ""));
    if (sound && ConfigGetJsonAndNumRequest(path.c_str(), document, numRequests) == 0 &&
        numRequests != 0) {  // else the choice would wait
        Request request = {};
        std::string number;
        ConfigParseAndGetNextAvailableRequest(path.c_str(), request, number);
    }
}

// The first line is a mount path, the second a list of absolute paths, the rest stored data.
void ReadRequestData(const Bytes& bytes) {
    const size_t first = bytes.find('\n');
    const size_t second = first == Bytes::npos ? first : bytes.find('\n', first + 1);
    const std::string mountPath = bytes.substr(0, first).c_str();
    const std::string paths =
        first == Bytes::npos ? "" : bytes.substr(first + 1, second - first - 1);
    const std::string stored = second == Bytes::npos ? bytes : bytes.substr(second + 1);
    std::vector<FileInfo> infos;
    char list[kTextBufferSize] = {};

    RequestDataGetFileInfos(stored.c_str(), infos);
    free(FileGetRelativePathByMountPath(mountPath.c_str(), paths.c_str()));
    AbsolutePathsToFileInodeList(mountPath.c_str(), paths.c_str(), list, sizeof(list));
    RequestToString(MakeRequest(kRequestPinFiles, stored.c_str()));
}

void ReadKey(const Bytes& bytes) {
    const MemoryFile file(bytes);
    int key = 0;

    try {
        GetMsgKey(&key, file.Path().c_str());
    } catch (const std::logic_error&) {  // no number: the service ends, on purpose
    }
}

}  // namespace readers
