// SPDX-License-Identifier: MIT
#include "client/show/output.h"

#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>
#include <wchar.h>

#include <algorithm>
#include <iterator>

#include "client/show/text.h"

namespace client {

namespace {

constexpr char kReset[] = "\033[0m";

// What switches the tones on, in their order.
constexpr const char* kToneSequences[] = {"\033[32m", "\033[31m", "\033[33m", "\033[2m", "\033[1m"};

// NO_COLOR is a convention of many programs; "dumb" is what a terminal without colours is called.
bool HasColours(int fd) {
    const char* const noColor = getenv("NO_COLOR");
    const char* const term = getenv("TERM");
    return (noColor == nullptr || *noColor == '\0') && isatty(fd) == 1 && term != nullptr &&
           strcmp(term, "dumb") != 0;
}

std::string TonedOn(int fd, Tone tone, const std::string& text) {
    return HasColours(fd) && !text.empty()
               ? kToneSequences[static_cast<size_t>(tone)] + text + kReset
               : text;
}

// Direction marks and controls reorder what stands around them.
bool IsDirectionMark(uint32_t character) {
    return character == 0x200e || character == 0x200f || character == 0x61c ||
           (character >= 0x202a && character <= 0x202e) ||
           (character >= 0x2066 && character <= 0x2069);
}

bool IsLineBreak(uint32_t character) {
    return character == 0x2028 || character == 0x2029;
}

bool IsControl(uint32_t character) {
    return character < 0x20 || (character >= 0x7f && character < 0xa0);
}

void AppendEscaped(const std::string& bytes, std::string& out) {
    for (const char byte : bytes) {
        char escape[8];
        snprintf(escape, sizeof(escape), "\\x%02x", static_cast<unsigned char>(byte));
        out += escape;
    }
}

// The length of the colour sequence at `position`, 0 when there is none.
size_t SequenceLength(const std::string& text, size_t position) {
    if (text[position] != '\033') {
        return 0;
    }
    const size_t end = text.find('m', position);
    return end == std::string::npos ? 0 : end - position + 1;
}

std::string g_lastSaid;  // for the JSON form of a failure

}  // namespace

std::string Printable(const std::string& text) {
    std::string out;
    for (size_t at = 0; at < text.size();) {
        uint32_t character = 0;
        const size_t length = DecodeUtf8(text, at, character);
        // What is no UTF-8 is escaped byte by byte, so that the next character is found again.
        const std::string bytes = text.substr(at, std::max<size_t>(length, 1));
        if (length == 0 || IsControl(character) || IsDirectionMark(character) ||
            IsLineBreak(character)) {
            AppendEscaped(bytes, out);
        } else {
            out += bytes;
        }
        at += bytes.size();
    }
    return out;
}

size_t Columns(const std::string& text) {
    size_t columns = 0;
    for (size_t at = 0; at < text.size();) {
        if (const size_t sequence = SequenceLength(text, at)) {
            at += sequence;
            continue;
        }
        uint32_t character = 0;
        const size_t length = DecodeUtf8(text, at, character);
        // Without a locale that knows the character, wcwidth gives -1: one column then.
        const int width = wcwidth(static_cast<wchar_t>(character));
        columns += width < 0 ? 1U : static_cast<size_t>(width);
        at += std::max<size_t>(length, 1);
    }
    return columns;
}

std::string HumanBytes(uint64_t bytes) {
    constexpr const char* kUnits[] = {"KiB", "MiB", "GiB", "TiB", "PiB", "EiB"};
    auto value = static_cast<double>(bytes) / 1024;
    size_t unit = 0;
    if (bytes < 1024) {
        return Counted(bytes, "byte");
    }
    // What would be rounded up to 1024.0 is one of the next unit.
    while (value >= 1023.95 && unit + 1 < std::size(kUnits)) {
        value /= 1024;
        ++unit;
    }
    char text[32];
    snprintf(text, sizeof(text), "%.1f %s", value, kUnits[unit]);
    return text;
}

std::optional<unsigned> Percent(uint64_t part, uint64_t whole) {
    if (whole == 0) {
        return std::nullopt;
    }
    // Of numbers that large the last bits do not count.
    for (; whole > UINT64_MAX / 100; whole /= 2) {
        part /= 2;
    }
    return static_cast<unsigned>(part * 100 / whole);
}

std::string Counted(uint64_t count, const char* one, const char* many) {
    std::string text = std::to_string(count) + " ";
    if (count == 1) {
        return text + one;
    }
    return many != nullptr ? text + many : text + one + "s";
}

void Say(const std::string& text) {
    g_lastSaid = text;
    // Results and talk go to one terminal: what was printed before stands before.
    fflush(stdout);
    fprintf(stderr, "quorcachepinctl: %s\n", text.c_str());
}

std::string TakeLastSaid() {
    std::string said;
    said.swap(g_lastSaid);
    return said;
}

void Print(const std::string& text) {
    fputs(text.c_str(), stdout);
    fputc('\n', stdout);
}

std::string Toned(Tone tone, const std::string& text) {
    return TonedOn(STDOUT_FILENO, tone, text);
}

std::string TonedError(Tone tone, const std::string& text) {
    return TonedOn(STDERR_FILENO, tone, text);
}

std::string Untoned(const std::string& text) {
    std::string plain;
    for (size_t at = 0; at < text.size();) {
        const size_t sequence = SequenceLength(text, at);
        plain += sequence > 0 ? "" : text.substr(at, 1);
        at += std::max<size_t>(sequence, 1);
    }
    return plain;
}

bool FinishOutput() {
    // A full disk shows only when the last bytes go.
    errno = 0;
    if (fflush(stdout) == 0 && ferror(stdout) == 0) {
        return true;
    }
    Say(std::string("standard output cannot be written") +
        (errno != 0 ? std::string(": ") + strerror(errno) : ""));
    return false;
}

}  // namespace client
