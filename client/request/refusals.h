// SPDX-License-Identifier: MIT
// Naming many paths without a line for each.
#pragma once

#include <string>
#include <vector>

#include "client/request/file_check.h"

namespace client {

// Returns the first of `count` paths, printable, and how many more there are: "/a and 19 more".
std::string FirstOf(const std::string& path, size_t count);

// Says on standard error of each path what befell it ("refused") and why, in their order. Of more
// than three for one reason the first is named and the others are counted.
void SayRefused(const char* what, const std::vector<Refusal>& refusals);

}  // namespace client
