// SPDX-License-Identifier: MIT
#include "util/json_file.h"

#include <exception>
#include <fstream>

#include "util/log.h"

namespace {

// Besides its result the library throws: on a stream that cannot be read (a directory) and on
// nesting too deep for it. Both are a file that cannot be parsed.
bool ParseStream(std::istream& stream, Json::Value& value) {
    try {
        Json::Reader reader;
        return reader.parse(stream, value, true);
    } catch (const std::exception&) {
        return false;
    }
}

}  // namespace

int ReadFileToJson(const std::string& path, Json::Value& value) {
    std::ifstream stream(path);

    LogEnter();
    if (!stream.is_open()) {
        LogError("Can't open file %s", path.c_str());
        return -1;
    }
    if (!ParseStream(stream, value)) {
        LogError("Prase file %s error", path.c_str());
        return -1;
    }
    stream.close();
    LogLeave();
    return 0;
}

int WriteJsonToFile(const Json::Value& value, const char* path) {
    LogEnter();
    std::ofstream stream(path, std::ios::out | std::ios::trunc);
    if (!stream.is_open()) {
        LogError("Can't open config file (%s)", path);
        return -1;
    }
    stream << value.toStyledString();
    stream.close();
    LogLeave();
    return 0;
}
