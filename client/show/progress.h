// SPDX-License-Identifier: MIT
// The progress of waiting, on standard error: a bar on a terminal, lines elsewhere.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <optional>
#include <string>

namespace client {

struct ProgressView {
    size_t requests = 0;  // all that are waited for
    size_t requestsDone = 0;
    uint64_t bytes = 0;  // to be read for all of them
    uint64_t bytesDone = 0;
    std::string state;   // what is going on, in a few words
    bool stuck = false;  // nothing goes on, and the state says why
    // The request that the service reads for, one of these or one before them.
    std::optional<unsigned> percent;
    size_t ahead = 0;         // requests that the service does before these
    double aheadSeconds = 0;  // about how long these take; 0 when it is not known
};

class Progress {
  public:
    Progress();
    ~Progress() { Finish(); }
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    void Show(const ProgressView& view);
    // Takes the bar away.
    void Finish();

  private:
    void ShowBar(const ProgressView& view);
    void ShowLine(const ProgressView& view);

    bool terminal_;
    bool barShown_ = false;
    double lastShown_;
    double readingSince_ = 0;   // when the first byte was seen read; 0 before
    uint64_t readingFrom_ = 0;  // bytes done then
    std::string state_;
    double stateSince_ = 0;
    std::string shownState_;
};

// Returns the bar's line, fitted to `columns`. `rate` is in bytes a second, 0 when not known.
std::string ProgressLine(const ProgressView& view, double rate, size_t columns);

// Returns a time in minutes and seconds, as in "1:07".
std::string Minutes(double seconds);

// Returns the width of the terminal behind a descriptor, 80 when it is not known.
size_t TerminalColumns(int fd);

}  // namespace client
