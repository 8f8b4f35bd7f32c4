// SPDX-License-Identifier: MIT
// What a log line should look like, worked out from its kind, the print level and where it goes.
#pragma once

#include <stdint.h>
#include <syslog.h>

#include <string>

#include "util/log.h"

enum class LogTarget { kSyslog, kStdout };

constexpr char kTestProcessName[] = "pinTestProcess";

// A line that is expected wherever its kind is visible.
struct ExpectedLine {
    LogKind kind;
    std::string file;
    std::string function;
    std::string text;
    int priority = LOG_ERR;
    bool startUpLine = false;  // in the system log always, in the plain shape always
};

// The lines of one of the two sources.
struct LogSource {
    const char* file;

    ExpectedLine Error(const char* function, const std::string& text) const;
    ExpectedLine Notice(const char* function, const std::string& text) const;
    ExpectedLine Verbose(const char* function, const std::string& text) const;
    ExpectedLine Debug(const char* function, const std::string& text) const;
    ExpectedLine Enter(const char* function) const;  // "+++++"
    ExpectedLine Leave(const char* function) const;  // "-----"
    ExpectedLine StartUp(const std::string& text) const;
};

constexpr LogSource kUtilLog{"quorcachepinfileutil.cpp"};
constexpr LogSource kDaemonLog{"quorcachepinfiled.cpp"};

// A line of either source as the target shows it, the line number masked; empty when the level
// hides it. Standard output's newline is not part of it.
std::string ShownLine(const ExpectedLine& line, int32_t level, LogTarget target);
