// SPDX-License-Identifier: MIT
#include "client/help_format.h"

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>

#include <sstream>

#include "client/show/output.h"

namespace client {

namespace {

constexpr size_t kColumns = 80;
constexpr size_t kNameColumns = 26;  // names of options and verbs, two blanks before each

class Format : public CLI::Formatter {
  public:
    Format() {
        column_width(kNameColumns);
        label("SUBCOMMAND", "VERB");
        label("OPTIONS", "OPTION...");
    }

    std::string make_description(const CLI::App* app) const override {
        return Filled(app->get_description(), kColumns) + "\n";
    }

    std::string make_option_desc(const CLI::Option* option) const override {
        return Filled(option->get_description(), kColumns - kNameColumns);
    }

    std::string make_subcommand(const CLI::App* verb) const override {
        std::stringstream out;
        CLI::detail::format_help(out, verb->get_name(),
                                 Filled(verb->get_description(), kColumns - kNameColumns),
                                 kNameColumns);
        return out.str();
    }

    std::string make_footer(const CLI::App* app) const override {
        return Filled(app->get_footer(), kColumns) + "\n";
    }
};

}  // namespace

std::string Filled(const std::string& text, size_t columns) {
    std::istringstream lines(text);
    std::string filled;
    size_t used = 0;  // columns of the line that is being filled
    for (std::string line; std::getline(lines, line);) {
        if (line.empty() || line[0] == ' ') {
            filled += (used > 0 ? "\n" : "") + line + "\n";
            used = 0;
            continue;
        }
        std::istringstream words(line);
        for (std::string word; words >> word;) {
            const size_t width = Columns(word);
            const bool fits = used + 1 + width <= columns;
            filled += used == 0 ? "" : fits ? " " : "\n";
            used = (used == 0 || !fits ? 0 : used + 1) + width;
            filled += word;
        }
    }
    if (used == 0 && !filled.empty()) {
        filled.pop_back();
    }
    return filled;
}

std::shared_ptr<CLI::FormatterBase> HelpFormat() {
    return std::make_shared<Format>();
}

}  // namespace client
