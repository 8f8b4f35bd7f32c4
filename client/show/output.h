// SPDX-License-Identifier: MIT
// What the command shows: results on standard output, talk on standard error.
#pragma once

#include <stdint.h>

#include <optional>
#include <string>

namespace client {

// Returns the text with control characters, direction marks and bytes that are no UTF-8 written as
// \xNN, so that a file name cannot write to the terminal.
std::string Printable(const std::string& text);

// Returns the number of terminal columns that a printable text takes; an East Asian wide character
// takes two, a combining one none.
size_t Columns(const std::string& text);

// Returns a count of bytes in the largest binary unit that fits, as in "1.5 MiB".
std::string HumanBytes(uint64_t bytes);

// Returns the share of the whole in percent, rounded down; nothing when there is no whole.
std::optional<unsigned> Percent(uint64_t part, uint64_t whole);

// Returns "1 file", "2 files".
std::string Counted(uint64_t count, const char* one, const char* many = nullptr);

// Prints one line "quorcachepinctl: TEXT" on standard error. The text must be printable.
void Say(const std::string& text);

// Returns what was last said, "" when nothing was since the last call.
std::string TakeLastSaid();

// Writes out what is buffered of standard output. Returns false, having said why, when some of what
// was printed could not be written.
bool FinishOutput();

// Prints one line of result on standard output. The text must be printable.
void Print(const std::string& text);

// Colours, where the stream is a terminal that has them and NO_COLOR is not set; else the text
// itself.
enum class Tone { kGood, kBad, kWarn, kDim, kStrong };
std::string Toned(Tone tone, const std::string& text);       // for standard output
std::string TonedError(Tone tone, const std::string& text);  // for standard error

// Returns a printable text without its colours.
std::string Untoned(const std::string& text);

}  // namespace client
