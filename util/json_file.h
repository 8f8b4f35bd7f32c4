// SPDX-License-Identifier: MIT
// Whole JSON documents from and to files. No locks: callers hold the service mutex.
#pragma once

#include <json/json.h>

#include <string>

// Parses the whole file into `value`. Returns 0, or -1 when the file cannot be opened, read or
// parsed; `value` may then hold a part of it.
int ReadFileToJson(const std::string& path, Json::Value& value);

// Returns the document in the library's styled form, for files and for the log alike. Unlike the
// library's own `toStyledString` it leaves every byte above 0x7f as it is: names of files need not
// be UTF-8. What the library escapes below that stays escaped.
std::string JsonToStyledText(const Json::Value& value);

// Rewrites the file in place with the document in styled form, made beforehand and handed over in
// one write. Returns 0, or -1 when the file cannot be opened; errors of the write itself are not
// tested.
int WriteJsonToFile(const Json::Value& value, const char* path);
