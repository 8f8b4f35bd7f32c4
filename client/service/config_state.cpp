// SPDX-License-Identifier: MIT
#include "client/service/config_state.h"

#include <errno.h>
#include <json/json.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <set>
#include <sstream>

#include "client/service/service_process.h"
#include "client/show/output.h"
#include "client/show/poll.h"
#include "client/show/text.h"
#include "util/request.h"
#include "util/stored_format.h"

namespace client {

namespace {

constexpr double kReadPause = 0.02;  // seconds between two attempts
constexpr double kReadLimit = 1;

// Members may be null or of another kind, which the library would throw at.
std::string TextOf(const Json::Value& value) {
    return value.isString() ? value.asString() : "";
}

void TakeRequest(const std::string& number, const Json::Value& requests, ConfigState& state) {
    // Named as the defect that it is: nothing else shows why the worker stops.
    if (!requests.isObject() || !requests[number].isObject()) {
        state.defects.push_back("request " + Printable(number) +
                                " is queued and not stored: it ends the worker");
        return;
    }
    const Json::Value& stored = requests[number];
    const StoredRequest request = {number, TextOf(stored[kTypeKey]), TextOf(stored[kMountPathKey]),
                                   TextOf(stored[kDataKey])};
    if (StringToRequestType(request.type) == kRequestUnknown) {
        state.defects.push_back("request " + Printable(number) +
                                " is of no known type: it ends the worker");
    }
    state.queue.push_back(request);
}

void TakeQueue(const Json::Value& document, ConfigState& state) {
    const Json::Value& queue = document[kRequestQueueKey];
    std::set<std::string> numbers;
    if (!queue.isArray() && !queue.isNull()) {
        state.defects.push_back("\"requestQueue\" is no list: it ends the worker");
        return;
    }
    for (const Json::Value& number : queue) {
        // The service takes a number out once: the second stays for ever, without a request.
        if (!numbers.insert(TextOf(number)).second) {
            state.defects.push_back("request " + Printable(TextOf(number)) +
                                    " is queued twice: it can never be taken away");
        }
        TakeRequest(TextOf(number), document[kRequestsKey], state);
    }
}

void TakePinned(const Json::Value& document, ConfigState& state) {
    const Json::Value& volumes = document[kVolumesKey];
    if (!volumes.isObject()) {
        return;
    }
    for (const std::string& mountPath : volumes.getMemberNames()) {
        const Json::Value& volume = volumes[mountPath];
        if (!volume.isObject() || !volume[kFilesKey].isObject()) {
            continue;  // the service reads no list there either
        }
        std::vector<StoredFile>& files = state.pinned[mountPath];
        const Json::Value& stored = volume[kFilesKey];
        for (auto file = stored.begin(); file != stored.end(); ++file) {
            const std::string inode = file.name();
            files.push_back(
                {TextOf(*file), static_cast<uint32_t>(strtoull(inode.c_str(), nullptr, 10))});
        }
        std::sort(files.begin(), files.end(), [](const StoredFile& left, const StoredFile& right) {
            return left.relative < right.relative;
        });
    }
}

}  // namespace

bool ReadConfigState(const std::string& path, ConfigState& state, std::string& why) {
    Json::Value document;
    const Poll poll(kReadPause, kReadLimit);
    for (;;) {
        std::string text;
        const int error = ReadText(path, text);
        if (error == ENOENT) {  // a service that was never asked for anything
            state = ConfigState();
            return true;
        }
        if (error != 0) {
            why = "configuration file " + Printable(path) + ": " + strerror(error);
            return false;
        }
        if (ParseJson(text, document) && (document.isObject() || document.isNull())) {
            break;
        }
        // Between truncation and writing it is empty, for as long as a rewrite takes.
        if (!poll.Again()) {
            why = "configuration file " + Printable(path) + " is damaged";
            return false;
        }
    }
    state = ConfigState();
    if (document.isObject()) {  // "null" is what the service makes of an empty document
        const Json::Value& next = document[kNextRequestNumKey];
        state.nextNumber = next.isInt() ? next.asInt() : 0;
        TakeQueue(document, state);
        TakePinned(document, state);
    }
    return true;
}

ServiceState ReadServiceState(const std::string& configPath) {
    ServiceState read;
    read.known = FindConfigPath(configPath, read.configPath, read.why) &&
                 ReadConfigState(read.configPath, read.state, read.why);
    return read;
}

std::vector<StoredFile> ParseStoredFiles(const std::string& data) {
    std::vector<StoredFile> files;
    std::istringstream stream(data);
    std::string entry;
    while (std::getline(stream, entry, kListSeparator)) {
        const size_t mark = entry.find(kInodeMark);
        // The service leaves such entries out as well.
        if (mark != std::string::npos && mark > 0) {
            files.push_back({entry.substr(0, mark), static_cast<uint32_t>(strtoull(
                                                        entry.c_str() + mark + 1, nullptr, 10))});
        }
    }
    return files;
}

std::vector<StoredFile> QueuedToPin(const ConfigState& state, const std::string& mountPath) {
    std::vector<StoredFile> files;
    for (const StoredRequest& request : state.queue) {
        if (request.mountPath != mountPath) {
            continue;
        }
        for (const StoredFile& file : ParseStoredFiles(request.data)) {
            // A file counts by its inode: the last request that names it decides.
            const auto same = [&file](const StoredFile& other) {
                return other.inode == file.inode;
            };
            files.erase(std::remove_if(files.begin(), files.end(), same), files.end());
            if (request.type == "pinFiles") {
                files.push_back(file);
            }
        }
    }
    return files;
}

int64_t NumberDistance(int64_t base, int64_t number) {
    return ((number - base) % kRequestNumModulus + kRequestNumModulus) % kRequestNumModulus;
}

}  // namespace client
