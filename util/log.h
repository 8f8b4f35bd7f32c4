// SPDX-License-Identifier: MIT
// Log lines of four kinds, to the system log or to standard output, and the settings read at start.
//
// Everything here is set before the second thread exists and only read afterwards.
#pragma once

#include <stdint.h>

extern int32_t g_printLevel;   // 1 = normal, 2 = verbose, 3 = debug
extern int32_t g_logToSyslog;  // 1 = system log, 0 = standard output
extern const char*
    g_processName;            // prefix of every line on standard output; null until main sets it
extern int32_t g_debugFlags;  // value of cache_pin_debug_flags; reported, used by nobody

// File whose key print_level sets the print level; its whole content may also name a file whose
// mapping is made to fail.
constexpr char kDebugSettingsPath[] = "/tmp/quorcachepinfiletool.debug";

// Sets `*level` from the debug settings file: "debug" gives 3, "verbose" 2, anything else leaves
// it. Logs the resulting level when the file names one; silent when it does not.
void UpdatePrintLevelByFile(int32_t* level);

// Reads and reports g_debugFlags; leaves it 0 when the setting is absent.
void InitDebugFlags();

// Returns the current time as text, in a static buffer that the next call overwrites.
const char* TimeStampString();

enum class LogKind {
    kError,    // always logged
    kNotice,   // always logged
    kVerbose,  // print level above 1
    kDebug,    // print level above 2
    kMarker,   // entry and exit markers: a verbose trace in the shape of a notice
};

// Writes one line. Use the statements below, which fill in the place and skip hidden kinds unread.
// `file` and `line` are printed as they are.
void LogWrite(LogKind kind, const char* file, int line, const char* function, const char* format,
              ...) __attribute__((format(printf, 5, 6)));

// The function that a line names is the one it stands in. The steps of a longer function stand in a
// scope that declares its name under this one, so that their lines are found by the function that
// they are known by.
constexpr const char* kLogFunction = nullptr;

// All files of a component print its name, LOG_SOURCE, and each adds a thousand of its own,
// LOG_BASE, to its lines: the two together name one statement. Both are set by the build
// (cmake/log_source.cmake). Statements stand in bodies only; in a header they would have as many
// lines as there are includers.
template <int base, int line>
constexpr int LogLine() {
    static_assert(line < 1000, "the lines of a file that logs are numbered up to 999");
    return base + line;
}

#define LogWriteHere(kind, ...)                               \
    LogWrite(kind, LOG_SOURCE, LogLine<LOG_BASE, __LINE__>(), \
             kLogFunction != nullptr ? kLogFunction : __func__, __VA_ARGS__)
#define LogWriteAbove(level, kind, ...)      \
    do {                                     \
        if (g_printLevel > (level)) {        \
            LogWriteHere(kind, __VA_ARGS__); \
        }                                    \
    } while (0)

#define LogError(...) LogWriteHere(LogKind::kError, __VA_ARGS__)
#define LogNotice(...) LogWriteHere(LogKind::kNotice, __VA_ARGS__)
#define LogVerbose(...) LogWriteAbove(1, LogKind::kVerbose, __VA_ARGS__)
#define LogDebug(...) LogWriteAbove(2, LogKind::kDebug, __VA_ARGS__)
#define LogEnter() LogWriteAbove(1, LogKind::kMarker, "+++++")
#define LogLeave() LogWriteAbove(1, LogKind::kMarker, "-----")
