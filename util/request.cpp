// SPDX-License-Identifier: MIT
#include "util/request.h"

#include "util/log.h"

namespace {

// Indexed by type. These are the stored names: the misspelling of type 5 is part of the format.
constexpr const char* kTypeNames[] = {
    "unknown",         "pinFiles",          "unpinFiles",      "ack",
    "addPendingSpace", "removePendigSpace", "reloadPinBlocks",
};
constexpr int kNumTypes = sizeof(kTypeNames) / sizeof(kTypeNames[0]);

}  // namespace

bool RequestHasFiles(const Request& request) {
    return request.type == kRequestPinFiles || request.type == kRequestUnpinFiles;
}

const char* RequestTypeToString(int type) {
    // A message may carry any number: below the table there is nothing to read either.
    if (type >= kNumTypes || type < 0) {
        LogError("Convert request type to string errror");
        return nullptr;
    }
    return kTypeNames[type];
}

int StringToRequestType(const std::string& text) {
    int type = kRequestUnknown;

    LogEnter();
    for (int i = 0; i < kNumTypes; ++i) {
        if (text == kTypeNames[i]) {
            type = i;
            break;
        }
    }
    LogLeave();
    return type;
}
