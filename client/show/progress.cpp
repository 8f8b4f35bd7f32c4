// SPDX-License-Identifier: MIT
#include "client/show/progress.h"

#include <math.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>

#include "client/show/output.h"
#include "client/show/poll.h"

namespace client {

namespace {

constexpr double kBarPause = 0.2;    // seconds between two pictures of the bar
constexpr double kStuckPause = 1.0;  // seconds before a line that says what holds things up
constexpr double kLinePause = 5.0;   // seconds between two lines of the same state
constexpr size_t kMostBar = 30;      // columns
constexpr size_t kDefaultColumns = 80;

std::string Ahead(const ProgressView& view) {
    std::string text = ": " + std::to_string(view.ahead);
    if (view.percent) {
        text += ", the first at " + std::to_string(*view.percent) + "%";
    }
    return text + (view.aheadSeconds > 0 ? ", about " + Minutes(view.aheadSeconds) : "");
}

std::string Facts(const ProgressView& view, double rate) {
    std::string text;
    if (view.bytes > 0) {
        text = std::to_string(*Percent(view.bytesDone, view.bytes)) + "% " +
               HumanBytes(view.bytesDone) + " of " + HumanBytes(view.bytes) + ", ";
    }
    if (rate > 0 && view.bytesDone < view.bytes) {
        text += HumanBytes(static_cast<uint64_t>(rate)) + "/s, " +
                Minutes(static_cast<double>(view.bytes - view.bytesDone) / rate) + " left, ";
    }
    if (view.requests > 1) {
        text += "request " + std::to_string(std::min(view.requestsDone + 1, view.requests)) +
                " of " + std::to_string(view.requests) + " ";
        // With one request the share of all says the same.
        text +=
            view.percent && view.ahead == 0 ? "at " + std::to_string(*view.percent) + "%, " : "";
    }
    return text + view.state + (view.ahead > 0 ? Ahead(view) : "");
}

}  // namespace

std::string Minutes(double seconds) {
    char text[48];
    const auto whole = static_cast<unsigned long>(lround(seconds));
    snprintf(text, sizeof(text), "%lu:%02lu", whole / 60, whole % 60);
    return text;
}

size_t TerminalColumns(int fd) {
    struct winsize size = {};
    if (ioctl(fd, TIOCGWINSZ, &size) == 0 && size.ws_col > 0) {
        return size.ws_col;
    }
    const char* const given = getenv("COLUMNS");
    const long columns = given == nullptr ? 0 : strtol(given, nullptr, 10);
    return columns > 0 && columns < 10000 ? static_cast<size_t>(columns) : kDefaultColumns;
}

std::string ProgressLine(const ProgressView& view, double rate, size_t columns) {
    const std::string facts = Facts(view, rate);
    const size_t room = columns > facts.size() + 4 ? columns - facts.size() - 4 : 0;
    const size_t width = std::min(room, kMostBar);
    std::string line;
    if (width >= 8 && view.bytes > 0) {
        const auto full =
            static_cast<size_t>(static_cast<double>(width) * static_cast<double>(view.bytesDone) /
                                static_cast<double>(view.bytes));
        line = "[" + std::string(std::min(full, width), '#') +
               std::string(width - std::min(full, width), '.') + "] ";
    }
    line += facts;
    return line.size() >= columns ? line.substr(0, columns - 1) : line;
}

// The pauses count from here: what is over soon needs no lines.
Progress::Progress() : terminal_(isatty(STDERR_FILENO) == 1), lastShown_(MonotonicSeconds()) {}

void Progress::Show(const ProgressView& view) {
    const double now = MonotonicSeconds();
    // The rate is that of reading: waiting in the queue would spoil it.
    if (readingSince_ == 0 && view.bytesDone > 0) {
        readingSince_ = now;
        readingFrom_ = view.bytesDone;
    }
    if (view.state != state_) {
        state_ = view.state;
        stateSince_ = now;
    }
    const bool changed = view.state != shownState_;
    // What lasts a moment is not worth a line in somebody's log.
    const bool stuck = changed && view.stuck && now - stateSince_ >= kStuckPause;
    if (terminal_ && (changed || now - lastShown_ >= kBarPause)) {
        ShowBar(view);
    } else if (!terminal_ && (stuck || now - lastShown_ >= kLinePause)) {
        ShowLine(view);
    } else {
        return;
    }
    lastShown_ = now;
    shownState_ = view.state;
}

void Progress::ShowBar(const ProgressView& view) {
    const double seconds = MonotonicSeconds() - readingSince_;
    // In the first half second a rate is chance.
    const double rate = readingSince_ > 0 && seconds > 0.5 && view.bytesDone >= readingFrom_
                            ? static_cast<double>(view.bytesDone - readingFrom_) / seconds
                            : 0;
    const std::string line = ProgressLine(view, rate, TerminalColumns(STDERR_FILENO));
    // Over the old bar, and the rest of the line away.
    fprintf(stderr, "\r%s\033[K", line.c_str());
    fflush(stderr);
    barShown_ = true;
}

void Progress::ShowLine(const ProgressView& view) {
    std::string text =
        std::to_string(view.requestsDone) + " of " + Counted(view.requests, "request") + " done";
    if (view.bytes > 0) {
        text += ", " + HumanBytes(view.bytesDone) + " of " + HumanBytes(view.bytes) + " read";
    }
    Say(text + "; " + view.state + (view.ahead > 0 ? Ahead(view) : ""));
}

void Progress::Finish() {
    if (barShown_) {
        fputs("\r\033[K", stderr);
        fflush(stderr);
        barShown_ = false;
    }
}

}  // namespace client
