// SPDX-License-Identifier: MIT
// Log lines, to the system log or to standard output, and the settings that are read at the start.
//
// All variables here are set before the second thread exists and are only read afterwards.
#pragma once

#include <stdint.h>

extern int32_t g_printLevel;   // 1 = normal, 2 = verbose, 3 = debug
extern int32_t g_logToSyslog;  // 1 = system log, 0 = standard output
// The prefix of every line on standard output; null until main sets it.
extern const char* g_processName;
extern int32_t g_debugFlags;  // value of cache_pin_debug_flags; logged at the start, used nowhere

// The file whose key print_level sets the print level. Its whole content may instead be the path of
// a file whose mapping is to fail.
constexpr char kDebugSettingsPath[] = "/tmp/quorcachepinfiletool.debug";

// Sets `*level` from the debug settings file: 3 for "debug", 2 for "verbose", unchanged for
// anything else. Logs the resulting level when the file has the key, and nothing when it has not.
void UpdatePrintLevelByFile(int32_t* level);

// Reads and logs g_debugFlags, which stays 0 when the setting is absent.
void InitDebugFlags();

// Returns the current time as text, in a static buffer that the next call overwrites.
const char* TimeStampString();

enum class LogKind {
    kError,    // always logged
    kNotice,   // always logged
    kVerbose,  // print level above 1
    kDebug,    // print level above 2
    kMarker,   // entry and exit of a function: shown like kVerbose, in the shape of a notice
};

// Writes one line. Use the statements below instead: they fill in the place, and do not evaluate
// the arguments of a line that the print level hides. `file` and `line` are printed as they are.
void LogWrite(LogKind kind, const char* file, int line, const char* function, const char* format,
              ...) __attribute__((format(printf, 5, 6)));

// A line names the function that it stands in, unless its scope declares a kLogFunction of its own.
// The steps of a longer function do: their lines carry that function's name, which is the one that
// people search the log for. See CONTRIBUTING.md.
constexpr const char* kLogFunction = nullptr;

// All files of a component print the component's name, LOG_SOURCE, and each adds a thousand of its
// own, LOG_BASE, to its line numbers: the two together identify one statement. The build sets both
// (cmake/log_source.cmake). Keep log statements out of headers, where the same statement would get
// another number in each file that includes it.
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
