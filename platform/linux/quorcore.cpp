// SPDX-License-Identifier: MIT
// libquorcore for plain Linux: a reader of key=value lines.
#include "platform/quorcore.h"

#include <errno.h>
#include <limits.h>
#include <string.h>

#include <algorithm>
#include <string>

#include "platform/linux/report.h"
#include "platform/linux/small_file.h"
#include "platform/linux/unique_fd.h"

using namespace stand_in;

namespace stand_in {
const char* const kLibraryName = "libquorcore";
}

namespace {

// The text without the blanks around it; the carriage return of a CRLF line is one of them.
std::string Trim(const std::string& text) {
    const char* const blanks = " \t\r\v\f";
    const size_t first = text.find_first_not_of(blanks);
    if (first == std::string::npos) {
        return "";
    }
    return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

// The text without the pair of double quotes around it, if it has one.
std::string Unquote(const std::string& text) {
    if (text.size() >= 2 && text.front() == '"' && text.back() == '"') {
        return text.substr(1, text.size() - 2);
    }
    return text;
}

// Stores the value when `line` is "key = value". A line that begins with # is a comment; a #
// further on belongs to the value.
bool ParseLine(const std::string& line, const std::string& key, std::string& value) {
    const size_t equals = line.find('=');
    const std::string name = Trim(line.substr(0, equals));
    if (equals == std::string::npos || name.empty() || name.front() == '#' || name != key) {
        return false;
    }
    value = Unquote(Trim(line.substr(equals + 1)));
    return true;
}

// Stores the value of the key's first line in `content`.
bool FindKey(const std::string& content, const std::string& key, std::string& value) {
    for (size_t start = 0; start < content.size();) {
        const size_t end = std::min(content.find('\n', start), content.size());
        if (ParseLine(content.substr(start, end - start), key, value)) {
            return true;
        }
        start = end + 1;
    }
    return false;
}

}  // namespace

int QLIBCFileGetKeyValue(const char* file, const char* key, char* value, size_t size,
                         int /*flags*/) {
    if (file == nullptr || key == nullptr || value == nullptr || size == 0 || size > INT_MAX) {
        return -1;
    }
    std::string content;
    const UniqueFd settings(OpenSmallFile(file, 0));
    if (!settings.Valid() || !ReadSmallFile(settings.Get(), content)) {
        if (errno != ENOENT) {  // settings that nobody made are no failure worth a line
            Report("settings file %s cannot be read: %s", file, strerror(errno));
        }
        return -1;
    }
    std::string found;
    if (!FindKey(content, key, found)) {
        return 0;
    }
    const size_t length = std::min(found.size(), size - 1);
    memcpy(value, found.data(), length);
    value[length] = '\0';
    return static_cast<int>(length + 1);  // with the NUL, so that an empty value counts as found
}
