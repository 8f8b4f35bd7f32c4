// SPDX-License-Identifier: MIT
#include "client/request/file_list.h"
#include "client/service/config_state.h"
#include "tests/faults/readers/readers.h"
#include "util/json_file.h"

namespace readers {

void ReadList(const Bytes& bytes) {
    const MemoryFile file(bytes);
    const std::vector<client::Volume> volumes = {{"/", "uuid"}};

    for (const bool nulSeparated : {false, true}) {
        client::FileListOptions options;
        options.lists = {file.Path()};
        options.nulSeparated = nulSeparated;
        client::FileList list;
        std::string why;
        client::CollectFiles(options, volumes, list, why);
    }
}

void ReadStoredState(const Bytes& bytes) {
    const MemoryFile file(bytes);
    Json::Value document;
    client::ConfigState state;
    std::string why;

    client::ParseStoredFiles(bytes);
    if (ReadFileToJson(file.Path(), document) == 0) {  // else it would be read again for a second
        client::ReadConfigState(file.Path(), state, why);
        client::QueuedToPin(state, "/mnt/vol1");
    }
}

}  // namespace readers
