// SPDX-License-Identifier: MIT
// What was probably meant by a name that is none.
#pragma once

#include <string>
#include <vector>

namespace client {

// Returns "; did you mean NAME?" with the known names that are nearest to the given one, when any
// is near enough to have been meant: it begins so, or a letter or two are wrong; else an empty
// text.
std::string DidYouMean(const std::string& given, const std::vector<std::string>& known);

}  // namespace client
