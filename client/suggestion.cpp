// SPDX-License-Identifier: MIT
#include "client/suggestion.h"

#include <algorithm>

#include "client/show/text.h"

namespace client {

namespace {

constexpr size_t kFewestLetters = 2;  // of one letter every other is near
constexpr size_t kMostLetters = 32;   // what is longer is no name

size_t Letters(const std::string& name) {
    const size_t dashes = name.find_first_not_of('-');
    return dashes == std::string::npos ? 0 : name.size() - dashes;
}

// The number of letters to put in, leave out, change, or exchange with their neighbours.
size_t Distance(const std::string& left, const std::string& right) {
    std::vector<std::vector<size_t>> rows(left.size() + 1, std::vector<size_t>(right.size() + 1));
    for (size_t i = 0; i <= left.size(); ++i) {
        for (size_t j = 0; j <= right.size(); ++j) {
            if (i == 0 || j == 0) {
                rows[i][j] = i + j;
                continue;
            }
            const size_t changed = left[i - 1] == right[j - 1] ? 0 : 1;
            size_t& least = rows[i][j];
            least =
                std::min({rows[i - 1][j] + 1, rows[i][j - 1] + 1, rows[i - 1][j - 1] + changed});
            if (i > 1 && j > 1 && left[i - 1] == right[j - 2] && left[i - 2] == right[j - 1]) {
                least = std::min(least, rows[i - 2][j - 2] + 1);
            }
        }
    }
    return rows[left.size()][right.size()];
}

}  // namespace

std::string DidYouMean(const std::string& given, const std::vector<std::string>& known) {
    const size_t letters = Letters(given);
    if (letters < kFewestLetters || letters > kMostLetters) {
        return "";
    }
    size_t nearest = letters > 4 ? 2 : 1;  // in a short word two wrong letters make another word
    std::vector<std::string> meant;
    for (const std::string& name : known) {
        if (Letters(name) < kFewestLetters) {
            continue;
        }
        const size_t distance = StartsWith(name, given) ? 1 : Distance(given, name);
        if (distance < nearest) {
            meant.clear();
        }
        if (distance <= nearest) {
            nearest = distance;
            meant.push_back(name);
        }
    }
    std::string text;
    for (size_t i = 0; i < meant.size(); ++i) {
        text += (i == 0 ? "; did you mean " : i + 1 == meant.size() ? " or " : ", ") + meant[i];
    }
    return text.empty() ? "" : text + "?";
}

}  // namespace client
