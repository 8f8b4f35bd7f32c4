// SPDX-License-Identifier: MIT
#include "tests/unit/support/log_capture.h"

#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <unistd.h>

#include <mutex>

#include "tests/unit/support/log_mask.h"

namespace {

struct SystemLog {
    std::mutex mutex;
    bool captured = false;
    std::vector<std::string> lines;  // "<PRIORITY>TEXT"
};

SystemLog& Log() {
    static auto* log = new SystemLog;
    return *log;
}

__attribute__((format(printf, 2, 0))) void Record(int priority, const char* format, va_list args) {
    SystemLog& log = Log();

    // The line is put together here and not by the wrapped call: the heap watch must not see it.
    va_list copy;
    va_copy(copy, args);
    int length = vsnprintf(nullptr, 0, format, copy);
    va_end(copy);
    std::string line(static_cast<size_t>(length < 0 ? 0 : length) + 1, '\0');
    vsnprintf(line.data(), line.size(), format, args);
    line.pop_back();

    std::lock_guard<std::mutex> lock(log.mutex);
    if (log.captured) {
        log.lines.push_back("<" + std::to_string(priority) + ">" + line);
    }
}

// A text as a failed assertion shows it.
std::string Abridged(const std::string& text) {
    constexpr size_t kShown = 4000;

    return text.size() <= kShown ? text : text.substr(0, kShown) + "... (cut)\n";
}

std::string ReadAll(int fd) {
    std::string content;
    char piece[4096];

    lseek(fd, 0, SEEK_SET);
    for (ssize_t length = 0; (length = read(fd, piece, sizeof(piece))) > 0;) {
        content.append(piece, static_cast<size_t>(length));
    }
    return content;
}

void WriteAll(int fd, const std::string& text) {
    for (size_t done = 0; done < text.size();) {
        ssize_t written = write(fd, text.data() + done, text.size() - done);
        if (written <= 0) {
            return;
        }
        done += static_cast<size_t>(written);
    }
}

}  // namespace

// NOLINTBEGIN(bugprone-reserved-identifier): the linker's names
extern "C" {

void __wrap_syslog(int priority, const char* format, ...) __attribute__((format(printf, 2, 3)));
void __wrap___syslog_chk(int priority, int flag, const char* format, ...)
    __attribute__((format(printf, 3, 4)));

void __wrap_syslog(int priority, const char* format, ...) {
    va_list args;
    va_start(args, format);
    Record(priority, format, args);
    va_end(args);
}

// What syslog is where the compiler checks formats.
void __wrap___syslog_chk(int priority, int, const char* format, ...) {
    va_list args;
    va_start(args, format);
    Record(priority, format, args);
    va_end(args);
}

}  // extern "C"
// NOLINTEND(bugprone-reserved-identifier)

LogCapture::LogCapture(int32_t level, LogTarget target)
    : level_(level),
      target_(target),
      oldLevel_(g_printLevel),
      oldToSyslog_(g_logToSyslog),
      oldProcessName_(g_processName) {
    SystemLog& log = Log();
    {
        std::lock_guard<std::mutex> lock(log.mutex);
        log.captured = true;
        log.lines.clear();
    }
    g_printLevel = level;
    g_logToSyslog = target == LogTarget::kSyslog ? 1 : 0;
    g_processName = kTestProcessName;
    if (target == LogTarget::kStdout) {
        fflush(stdout);
        realStdout_ = dup(STDOUT_FILENO);
        capturedFd_ = memfd_create("captured standard output", 0);
        if (realStdout_ < 0 || capturedFd_ < 0 || dup2(capturedFd_, STDOUT_FILENO) < 0) {
            abort();
        }
    }
}

LogCapture::~LogCapture() {
    SystemLog& log = Log();
    {
        std::lock_guard<std::mutex> lock(log.mutex);
        log.captured = false;
        log.lines.clear();
    }
    g_printLevel = oldLevel_;
    g_logToSyslog = oldToSyslog_;
    g_processName = oldProcessName_;
    if (target_ == LogTarget::kStdout) {
        fflush(stdout);
        std::string rest = ReadAll(capturedFd_);
        dup2(realStdout_, STDOUT_FILENO);
        close(realStdout_);
        close(capturedFd_);
        // Nobody asked for it: it may be a failed assertion's message.
        WriteAll(STDOUT_FILENO, rest);
    }
}

std::string LogCapture::Mask(std::string text, bool systemLog) const {
    if (!maskNumbers_) {
        return text;
    }
    if (systemLog) {
        MaskSystemLine(text);
    } else {
        MaskStdout(text);
    }
    return maskAddresses_ ? MaskAddressesIn(text) : text;
}

std::vector<std::string> LogCapture::SystemLines() {
    SystemLog& log = Log();
    std::lock_guard<std::mutex> lock(log.mutex);
    std::vector<std::string> lines;

    for (const std::string& line : log.lines) {
        lines.push_back(Mask(line, true));
    }
    return lines;
}

std::string LogCapture::StdoutText() {
    if (target_ != LogTarget::kStdout) {
        return "";
    }
    fflush(stdout);
    return Mask(ReadAll(capturedFd_), false);
}

void LogCapture::Clear() {
    SystemLog& log = Log();
    {
        std::lock_guard<std::mutex> lock(log.mutex);
        log.lines.clear();
    }
    if (target_ == LogTarget::kStdout) {
        fflush(stdout);
        if (ftruncate(capturedFd_, 0) != 0 || lseek(capturedFd_, 0, SEEK_SET) != 0) {
            abort();
        }
    }
}

testing::AssertionResult LogCapture::Shows(const std::vector<ExpectedLine>& lines) {
    std::string expectedSystem;
    std::string expectedStdout;
    std::string system;

    for (const ExpectedLine& line : lines) {
        std::string shown = ShownLine(line, level_, target_);
        if (shown.empty()) {
            continue;
        }
        shown = maskAddresses_ ? MaskAddressesIn(shown) : shown;
        bool toSystem = target_ == LogTarget::kSyslog || line.startUpLine;
        (toSystem ? expectedSystem : expectedStdout) += shown + "\n";
    }
    for (const std::string& line : SystemLines()) {
        system += line + "\n";
    }
    std::string standardOutput = StdoutText();
    Clear();
    if (system == expectedSystem && standardOutput == expectedStdout) {
        return testing::AssertionSuccess();
    }
    return testing::AssertionFailure()
           << "at level " << level_ << (target_ == LogTarget::kSyslog ? ", system log" : ", stdout")
           << "\nexpected:\n"
           << Abridged(expectedSystem + expectedStdout) << "shown:\n"
           << Abridged(system + standardOutput);
}

bool LogCapture::Has(const ExpectedLine& line) {
    std::string shown = ShownLine(line, level_, target_);

    if (target_ == LogTarget::kSyslog || line.startUpLine) {
        for (const std::string& systemLine : SystemLines()) {
            if (systemLine == shown) {
                return true;
            }
        }
        return false;
    }
    return ("\n" + StdoutText()).find("\n" + shown + "\n") != std::string::npos;
}

void AtEveryLogSetting(const std::function<void(LogCapture&)>& body) {
    for (LogTarget target : {LogTarget::kSyslog, LogTarget::kStdout}) {
        for (int32_t level = 0; level <= 4; ++level) {
            SCOPED_TRACE(testing::Message()
                         << "print level " << level << ", target "
                         << (target == LogTarget::kSyslog ? "system log" : "standard output"));
            LogCapture log(level, target);
            body(log);
        }
    }
}
