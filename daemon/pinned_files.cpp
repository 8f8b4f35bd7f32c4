// SPDX-License-Identifier: MIT
#include "daemon/pinned_files.h"

#include <stdio.h>

#include <vector>

#include "daemon/config_document.h"
#include "daemon/request_data.h"
#include "util/log.h"
#include "util/stored_format.h"

namespace {

namespace update_pin_files {

constexpr const char* kLogFunction = "JsonUpdatePinFileInfo";

void AddFile(Json::Value& files, const char* key, const FileInfo& info) {
    if (files.isMember(key)) {
        LogVerbose("No need to add file (%s) to pin file list", info.szRelativePath);
        return;
    }
    LogVerbose("Add file (%s) to pin file list", info.szRelativePath);
    files[key] = info.szRelativePath;
}

void RemoveFile(Json::Value& files, const char* key, const FileInfo& info) {
    if (!files.isMember(key)) {
        LogVerbose("No need to remove file (%s) from pin file list", info.szRelativePath);
        return;
    }
    files.removeMember(key);
    LogVerbose("Remove file (%s) from pin file list", info.szRelativePath);
}

}  // namespace update_pin_files

}  // namespace

int JsonUpdatePinFileInfo(Json::Value& document, const Request& request) {
    char key[kTextBufferSize] = {};
    std::vector<FileInfo> infos;

    LogEnter();
    LogVerbose("mount path = %s request = %s", request.mountPath, RequestToString(request).c_str());
    if (!RequestHasFiles(request)) {
        LogVerbose("No need to update pin file list");
        return 0;
    }
    Json::Value& volumes = document[kVolumesKey];
    if (ConfigCheckObject(volumes, kVolumesKey) != 0 ||
        ConfigCheckObject(volumes[request.mountPath], request.mountPath) != 0) {
        return -1;
    }
    Json::Value& files = volumes[request.mountPath][kFilesKey];
    if (ConfigCheckObject(files, kFilesKey) != 0) {
        return -1;
    }
    if (RequestDataGetFileInfos(request.data, infos) != 0) {
        LogError("Can't get file infos");
        return -1;
    }
    for (const FileInfo& info : infos) {
        // The inode is the key: a renamed file stays pinned, under the path that it was listed by.
        snprintf(key, sizeof(key), "%lu", info.inodeNum);
        if (request.type == kRequestPinFiles) {
            update_pin_files::AddFile(files, key, info);
        } else {
            update_pin_files::RemoveFile(files, key, info);
        }
    }
    if (files.empty()) {
        LogVerbose("Remove volume (%s)", request.mountPath);
        volumes.removeMember(request.mountPath);
    }
    LogLeave();
    return 0;
}
