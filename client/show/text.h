// SPDX-License-Identifier: MIT
// Small questions about texts, and reading them.
#pragma once

#include <json/json.h>
#include <stddef.h>
#include <stdint.h>
#include <time.h>

#include <string>

namespace client {

// Stores the character that begins at byte `at`, which must be below the size, and returns its
// length in bytes; 0 when the bytes there are no UTF-8 (overlong forms, surrogates and numbers
// beyond Unicode are none).
size_t DecodeUtf8(const std::string& text, size_t at, uint32_t& character);

bool IsUtf8(const std::string& text);

// Whether the text holds one of the characters that end a scanned word: blank, tab, newline,
// vertical tab, form feed, carriage return.
bool HasWhiteSpace(const std::string& text);

bool StartsWith(const std::string& text, const std::string& start);
bool EndsWith(const std::string& text, const std::string& end);

// The two parts of a path: its directory without a trailing "/", "." when the path names none, and
// its last component.
std::string DirectoryOf(const std::string& path);
std::string NameOf(const std::string& path);

// Returns the local date and time, as in 2026-01-31 12:34:56.
std::string TimeText(time_t time);

// Returns the text with what HTML and XML take for their own written as entities, in element and
// attribute alike.
std::string EscapeMarkup(const std::string& text);

// Reads a whole file. Returns 0, or the errno that it could not be read with.
int ReadText(const std::string& path, std::string& text);

// Parses a JSON document. Returns false, with `document` in no known state, when it is none.
bool ParseJson(const std::string& text, Json::Value& document);

}  // namespace client
