// SPDX-License-Identifier: MIT
// The completions and the manual know every verb and every option, and no others.
#include <gtest/gtest.h>
#include <stdio.h>

#include <algorithm>
#include <memory>
#include <regex>
#include <set>
#include <sstream>

#include "client/verb_options.h"
#include "tests/unit/support/unit_test.h"

namespace client {

namespace {

const std::string kBash = COMPLETION_DIRECTORY "/quorcachepinctl.bash";
const std::string kZsh = COMPLETION_DIRECTORY "/_quorcachepinctl";

std::string Output(const std::string& command) {
    std::string text;
    const std::unique_ptr<FILE, int (*)(FILE*)> pipe(popen(command.c_str(), "re"), pclose);
    for (int c = 0; (c = fgetc(pipe.get())) != EOF;) {
        text += static_cast<char>(c);
    }
    return text;
}

// What bash offers for a word that begins so, behind these words.
std::set<std::string> Offered(const std::vector<std::string>& words, const std::string& word) {
    std::string line = "source " + kBash + "; COMP_WORDS=(quorcachepinctl";
    for (const std::string& before : words) {
        line += " " + before;
    }
    line += " '" + word + "'); COMP_CWORD=" + std::to_string(words.size() + 1) +
            "; _quorcachepinctl; printf '%s\\n' \"${COMPREPLY[@]}\"";
    std::istringstream stream(Output("bash --norc --noprofile -c \"" +
                                     std::regex_replace(line, std::regex("([\"$])"), "\\$1") +
                                     "\""));
    std::set<std::string> offered;
    for (std::string item; std::getline(stream, item);) {
        if (!item.empty()) {
            offered.insert(item);
        }
    }
    return offered;
}

TEST(KnownOptions, BashOffersEveryVerbAndOptionAndNoOther) {
    std::set<std::string> verbs;
    for (const VerbOptionNames& verb : AllOptionNames()) {
        verbs.insert(verb.verb);
        EXPECT_EQ(Offered({verb.verb}, "-"),
                  std::set<std::string>(verb.options.begin(), verb.options.end()))
            << verb.verb;
    }
    EXPECT_EQ(verbs.size(), 20U);
    EXPECT_EQ(Offered({}, ""), verbs);
    EXPECT_EQ(Offered({}, "rel"), (std::set<std::string>{"release", "reload"}));
    EXPECT_EQ(Offered({"pin"}, "--wa"), (std::set<std::string>{"--wait"}));
}

// The part of a text between two lines, the first found by its begin.
std::string Section(const std::string& text, const std::string& begin, const std::string& end) {
    const size_t from = text.find(begin);
    if (from == std::string::npos) {
        return "";
    }
    const size_t to = text.find(end, from + begin.size());
    return text.substr(from, to == std::string::npos ? to : to - from);
}

bool HasWord(const std::string& text, const std::string& word) {
    return std::regex_search(text, std::regex("(^|[^-\\w])" + word + "($|[^-\\w])"));
}

TEST(KnownOptions, ZshKnowsThem) {
    const std::string text = ReadFile(kZsh);
    for (const VerbOptionNames& verb : AllOptionNames()) {
        const std::string section = Section(text, "\n    " + verb.verb + ")", ";;");
        EXPECT_NE(text.find("'" + verb.verb + ":"), std::string::npos)
            << verb.verb << " is not among the verbs";
        EXPECT_NE(section, "") << verb.verb;
        for (const std::string& option : verb.options) {
            EXPECT_TRUE(HasWord(section + Section(text, "\n  common=(", ")\n") +
                                    (section.find("$sending") != std::string::npos
                                         ? Section(text, "\n  sending=(", ")\n")
                                         : "") +
                                    (section.find("$files") != std::string::npos
                                         ? Section(text, "\n  files=(", ")\n")
                                         : ""),
                                option))
                << verb.verb << " " << option;
        }
    }
}

TEST(KnownOptions, TheManualDescribesThem) {
    const std::string text = ReadFile(MANUAL);
    for (const VerbOptionNames& verb : AllOptionNames()) {
        EXPECT_TRUE(HasWord(text, verb.verb)) << verb.verb;
        for (const std::string& option : verb.options) {
            EXPECT_TRUE(HasWord(text, option)) << verb.verb << " " << option;
        }
    }
}

}  // namespace

}  // namespace client
