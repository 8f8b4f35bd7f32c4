// SPDX-License-Identifier: MIT
#include "platform/linux/report.h"

#include <errno.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <syslog.h>

#include <algorithm>

namespace stand_in {

namespace {

[[gnu::format(printf, 1, 0)]] std::string FormatList(const char* format, va_list arguments) {
    char* text = nullptr;
    if (vasprintf(&text, format, arguments) < 0) {
        return format;  // without memory at least what happened, if not to whom
    }
    std::string result = text;
    free(text);
    return result;
}

}  // namespace

void Report(const char* format, ...) {
    const int saved = errno;
    va_list arguments;
    va_start(arguments, format);
    syslog(LOG_ERR, "%s: %s", kLibraryName, FormatList(format, arguments).c_str());
    va_end(arguments);
    errno = saved;
}

std::string Format(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    std::string text = FormatList(format, arguments);
    va_end(arguments);
    return text;
}

void StandingLines::Send(const std::vector<std::string>& lines) {
    const std::lock_guard<std::mutex> lock(mutex_);
    for (const std::string& line : lines) {
        if (std::find(previous_.begin(), previous_.end(), line) == previous_.end()) {
            Report("%s", line.c_str());
        }
    }
    previous_ = lines;
}

}  // namespace stand_in
