// SPDX-License-Identifier: MIT
#include "tests/unit/support/log_mask.h"

#include <algorithm>
#include <regex>

#include "tests/unit/support/expected_line.h"

namespace {

// Length of the line number at `at`, 0 when there is none.
size_t NumberLength(const std::string& text, size_t at) {
    size_t end = std::min(text.find_first_not_of("0123456789", at), text.size());

    return at < text.size() && text[at] != '0' ? end - at : 0;
}

// Masks `[NUMBER]` behind `FUNCTION() ` at `at`; any number when `number` is empty.
void MaskBracket(std::string& text, size_t at, const std::string& number) {
    size_t mark = text.find("() [", at);
    size_t blank = text.find_first_of(" \n", at);

    if (mark == std::string::npos || blank != mark + 2) {
        return;
    }
    size_t length = NumberLength(text, mark + 4);
    if (length == 0 || text[mark + 4 + length] != ']' ||
        (!number.empty() && text.compare(mark + 4, length, number) != 0)) {
        return;
    }
    text.replace(mark + 4, length, "#");
}

}  // namespace

void MaskSystemLine(std::string& text) {
    size_t colon = text.find(':');
    size_t length = colon == std::string::npos ? 0 : NumberLength(text, colon + 1);

    if (length == 0 || text[colon + 1 + length] != ' ') {
        return;
    }
    MaskBracket(text, colon + length + 2, text.substr(colon + 1, length));
    text.replace(colon + 1, length, "#");
}

void MaskStdout(std::string& text) {
    const std::string head = std::string(kTestProcessName) + ": ";

    for (size_t line = 0; line < text.size();) {
        if (text.compare(line, head.size(), head) == 0) {
            MaskBracket(text, line + head.size(), "");
        }
        size_t end = text.find('\n', line);
        line = end == std::string::npos ? text.size() : end + 1;
    }
}

std::string MaskAddressesIn(const std::string& text) {
    static const auto* address = new std::regex("0x[0-9a-f]+");
    return std::regex_replace(text, *address, "0x#");
}
