// SPDX-License-Identifier: MIT
#include "tests/unit/support/expected_line.h"

namespace {

bool IsVisible(const ExpectedLine& line, int32_t level) {
    switch (line.kind) {
        case LogKind::kVerbose:
        case LogKind::kMarker:
            return level > 1;
        case LogKind::kDebug:
            return level > 2;
        default:
            return true;
    }
}

// What is shown between place and text in the long shapes.
const char* Separator(LogKind kind, LogTarget target) {
    if (kind == LogKind::kError) {
        return " : ***** ";
    }
    bool trace = kind == LogKind::kVerbose || kind == LogKind::kDebug;
    return trace && target == LogTarget::kStdout ? ": " : " : ";
}

}  // namespace

ExpectedLine LogSource::Error(const char* function, const std::string& text) const {
    return {LogKind::kError, file, function, text};
}

ExpectedLine LogSource::Notice(const char* function, const std::string& text) const {
    return {LogKind::kNotice, file, function, text};
}

ExpectedLine LogSource::Verbose(const char* function, const std::string& text) const {
    return {LogKind::kVerbose, file, function, text};
}

ExpectedLine LogSource::Debug(const char* function, const std::string& text) const {
    return {LogKind::kDebug, file, function, text};
}

ExpectedLine LogSource::Enter(const char* function) const {
    return {LogKind::kMarker, file, function, "+++++"};
}

ExpectedLine LogSource::Leave(const char* function) const {
    return {LogKind::kMarker, file, function, "-----"};
}

ExpectedLine LogSource::StartUp(const std::string& text) const {
    return {LogKind::kNotice, file, "", text, LOG_WARNING, true};
}

std::string ShownLine(const ExpectedLine& line, int32_t level, LogTarget target) {
    if (!IsVisible(line, level)) {
        return "";
    }
    bool plain = (line.kind == LogKind::kError || line.kind == LogKind::kNotice) && level == 1;
    if (target == LogTarget::kSyslog || line.startUpLine) {
        std::string head = "<" + std::to_string(line.priority) + ">" + line.file + ":# ";
        if (plain || line.startUpLine) {
            return head + line.text;
        }
        return head + line.function + "() [#]" + Separator(line.kind, LogTarget::kSyslog) +
               line.text;
    }
    std::string head = std::string(kTestProcessName) + ": ";
    if (plain) {
        return head + line.text;
    }
    return head + line.function + "() [#]" + Separator(line.kind, target) + line.text;
}
