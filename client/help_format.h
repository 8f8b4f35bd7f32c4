// SPDX-License-Identifier: MIT
// The form of --help.
#pragma once

#include <memory>
#include <string>

namespace CLI {
class FormatterBase;
}

namespace client {

// Returns the text with its paragraphs filled, no line longer than `columns` unless one word is. A
// line that begins with a blank stays as it is.
std::string Filled(const std::string& text, size_t columns);

// Returns the form that an application and its verbs print their help in: 80 columns.
std::shared_ptr<CLI::FormatterBase> HelpFormat();

}  // namespace client
