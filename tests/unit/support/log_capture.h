// SPDX-License-Identifier: MIT
// Log lines as they reach the system log and standard output, asserted in full: kind, shape, source
// name, function, text and priority. Only the line number is masked, by '#', and only after it was
// seen to be a number and the same one in both places of a line.
#pragma once

#include <gtest/gtest.h>
#include <stdint.h>

#include <functional>
#include <string>
#include <vector>

#include "tests/unit/support/expected_line.h"

// At the level it has unless another is given, a line's shape tells its kind (at 1 it does not),
// and neither trace nor markers are shown. Takes every line from its construction to its
// destruction and sets g_printLevel, g_logToSyslog and g_processName for as long. With the target
// kStdout, descriptor 1 leads to a file meanwhile: what else is printed then (a failed assertion
// too) shows when the capture ends.
class LogCapture {
  public:
    explicit LogCapture(int32_t level = 0, LogTarget target = LogTarget::kSyslog);
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    // Whether exactly these lines have come since the last question, in this order, those that the
    // level hides left out. Starts afresh.
    testing::AssertionResult Shows(const std::vector<ExpectedLine>& lines);

    // The same for part of them: whether the line is among those not yet asked for, which stay.
    bool Has(const ExpectedLine& line);

    // Lines so far, masked: "<PRIORITY>TEXT" for the system log; standard output cut at its
    // newlines.
    std::vector<std::string> SystemLines();
    std::string StdoutText();

    // Forgets the lines so far.
    void Clear();

    // Masks addresses, too, where a test cannot know them: "0x..." becomes "0x#" on both sides.
    void MaskAddresses() { maskAddresses_ = true; }

    // Leaves line numbers as they are.
    void KeepLineNumbers() { maskNumbers_ = false; }

    int32_t level() const { return level_; }
    LogTarget target() const { return target_; }

  private:
    std::string Mask(std::string text, bool systemLog) const;

    int32_t level_;
    LogTarget target_;
    bool maskAddresses_ = false;
    bool maskNumbers_ = true;
    int32_t oldLevel_;
    int32_t oldToSyslog_;
    const char* oldProcessName_;
    int realStdout_ = -1;  // duplicate of descriptor 1 while it is redirected
    int capturedFd_ = -1;  // the file that stands in for it
};

// Runs `body` at the print levels 0 to 4 with either target, ten times in all.
void AtEveryLogSetting(const std::function<void(LogCapture&)>& body);
