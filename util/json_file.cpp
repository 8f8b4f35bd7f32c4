// SPDX-License-Identifier: MIT
#include "util/json_file.h"

#include <errno.h>
#include <fcntl.h>
#include <unistd.h>

#include <exception>
#include <fstream>

#include "util/log.h"
#include "util/rewrite_scope.h"
#include "util/scoped.h"

namespace {

constexpr int kFileMode = 0666;  // less the process's mask

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

// Errors of the write are not tested: the next reader finds what is missing.
void WriteText(int fd, const std::string& text) {
    for (size_t offset = 0; offset < text.size();) {
        ssize_t done = write(fd, text.data() + offset, text.size() - offset);
        if (done > 0) {
            offset += static_cast<size_t>(done);
        } else if (done == 0 || errno != EINTR) {
            return;
        }
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
    // From the opening to the end of the write the file is empty. The text is therefore there
    // before, and an end by a signal waits; one by force may still fall into it.
    std::string text = JsonToStyledText(value);
    RewriteScope scope;
    ScopedFd fd(open(path, O_WRONLY | O_CREAT | O_TRUNC, kFileMode));
    if (!fd.valid()) {
        LogError("Can't open config file (%s)", path);
        return -1;
    }
    WriteText(fd.get(), text);
    LogLeave();
    return 0;
}

std::string JsonToStyledText(const Json::Value& value) {
    Json::StreamWriterBuilder builder;  // its defaults are those of the styled form

    builder["emitUTF8"] = true;
    return (value.hasComment(Json::commentBefore) ? "\n" : "") + Json::writeString(builder, value) +
           "\n";
}
