// SPDX-License-Identifier: MIT
#include "util/log.h"

#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/time.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>

#include "platform/quorcore.h"

int32_t g_printLevel = 1;
int32_t g_logToSyslog = 1;
const char* g_processName = nullptr;
int32_t g_debugFlags = 0;

namespace {

constexpr char kPrintLevelKey[] = "print_level";
constexpr char kSystemSettingsPath[] = "/etc/quorinfo.conf";
constexpr char kDebugFlagsKey[] = "cache_pin_debug_flags";

// What stands between the place and the text on standard output, apart from the plain shape.
const char* SeparatorOf(LogKind kind) {
    switch (kind) {
        case LogKind::kError:
            return " : ***** ";
        case LogKind::kVerbose:
        case LogKind::kDebug:
            return ": ";
        default:
            return " : ";
    }
}

bool HasPlainShape(LogKind kind) {
    // Any level but 1 gives the long shape, one below 1 too.
    return (kind == LogKind::kError || kind == LogKind::kNotice) && g_printLevel == 1;
}

void WriteToSyslog(LogKind kind, const char* file, int line, const char* function,
                   const char* text) {
    if (HasPlainShape(kind)) {
        syslog(LOG_ERR, "%s:%d %s", file, line, text);
        return;
    }
    const char* separator = kind == LogKind::kError ? " : ***** " : " : ";
    syslog(LOG_ERR, "%s:%d %s() [%d]%s%s", file, line, function, line, separator, text);
}

void WriteToStdout(LogKind kind, int line, const char* function, const char* text) {
    // One call a line, so that lines of the two threads do not mix.
    if (HasPlainShape(kind)) {
        printf("%s: %s\n", g_processName, text);
        return;
    }
    printf("%s: %s() [%d]%s%s\n", g_processName, function, line, SeparatorOf(kind), text);
}

}  // namespace

void LogWrite(LogKind kind, const char* file, int line, const char* function, const char* format,
              ...) {
    char shortText[1024];
    char* longText = nullptr;
    va_list args;

    va_start(args, format);
    int length = vsnprintf(shortText, sizeof(shortText), format, args);
    va_end(args);
    if (length >= static_cast<int>(sizeof(shortText))) {
        va_start(args, format);
        if (vasprintf(&longText, format, args) < 0) {
            longText = nullptr;  // out of memory: the cut text must do
        }
        va_end(args);
    }

    const char* text = longText != nullptr ? longText : shortText;
    if (g_logToSyslog != 0) {
        WriteToSyslog(kind, file, line, function, text);
    } else {
        WriteToStdout(kind, line, function, text);
    }
    free(longText);
}

void UpdatePrintLevelByFile(int32_t* level) {
    char value[128] = {};

    if (access(kDebugSettingsPath, F_OK) != 0) {
        return;
    }
    if (QLIBCFileGetKeyValue(kDebugSettingsPath, kPrintLevelKey, value, sizeof(value), 0) <= 0) {
        return;
    }
    if (strcmp(value, "debug") == 0) {
        *level = 3;
    } else if (strcmp(value, "verbose") == 0) {
        *level = 2;
    }
    LogNotice("Detect %s, update print level to %d", kDebugSettingsPath, *level);
}

void InitDebugFlags() {
    char value[128] = {};

    if (QLIBCFileGetKeyValue(kSystemSettingsPath, kDebugFlagsKey, value, sizeof(value), 0) <= 0) {
        return;
    }
    long flags = strtol(value, nullptr, 10);
    // In the bounds of the target's long, which has 32 bits.
    g_debugFlags = static_cast<int32_t>(std::clamp<long>(flags, INT32_MIN, INT32_MAX));
    LogNotice("Detect %s key in %s, debug flag = %d", kDebugFlagsKey, kSystemSettingsPath,
              g_debugFlags);
}

const char* TimeStampString() {
    static char text[512];
    struct timeval now = {};

    gettimeofday(&now, nullptr);
    snprintf(text, sizeof(text), "sec=%ld msec=%ld usec=%ld", static_cast<long>(now.tv_sec),
             static_cast<long>(now.tv_usec / 1000), static_cast<long>(now.tv_usec));
    return text;
}
