// SPDX-License-Identifier: MIT
#include "client/command_line.h"

#include <stdio.h>

#include <CLI/App.hpp>

#include <algorithm>

#include "client/help.h"
#include "client/show/exit_status.h"
#include "client/show/output.h"
#include "client/show/report.h"
#include "client/suggestion.h"
#include "client/verb_options.h"

namespace client {

namespace {

// The library takes "[a,b]" for a list of two; such an argument can only be a path, and is written
// as one.
std::vector<std::string> WithoutLists(int argc, char* argv[]) {
    std::vector<std::string> arguments(argv, argv + argc);
    for (std::string& argument : arguments) {
        if (argument.size() > 1 && argument.front() == '[' && argument.back() == ']') {
            argument.insert(0, "./");
        }
    }
    return arguments;
}

// "help VERB" is another way to say "VERB --help".
void TakeHelpVerb(std::vector<std::string>& arguments) {
    if (arguments.size() > 1 && arguments[1] == kHelpHelp.name &&
        (arguments.size() == 2 || arguments[2][0] != '-')) {
        arguments.erase(arguments.begin() + 1);
        arguments.emplace_back("--help");
    }
}

// Returns why this is no verb; empty when it is one, or an option.
std::string WhyNotVerb(const CLI::App& app, const std::string& name) {
    std::vector<std::string> names;
    for (const CLI::App* const verb : app.get_subcommands({})) {
        names.push_back(verb->get_name());
    }
    if (name[0] == '-' || std::find(names.begin(), names.end(), name) != names.end()) {
        return "";
    }
    const std::string meant = DidYouMean(name, names);
    return "there is no verb " + Printable(name) + (meant.empty() ? "; --help lists them" : meant);
}

// What is wrong, in words of our own where the library speaks of arguments that "were not
// expected".
std::string WhyWrong(const CLI::App& app, const CLI::ParseError& error) {
    const std::vector<CLI::App*> chosen = app.get_subcommands();
    // Of the application itself: what stands before the verb.
    const bool behindVerb = app.remaining().empty() && !chosen.empty();
    const CLI::App& place = behindVerb ? *chosen.front() : app;
    const std::vector<std::string> extras = place.remaining();
    const std::string more =
        "; " + app.get_name() + (behindVerb ? " " + place.get_name() : "") + " --help tells more";
    if (extras.empty()) {
        return Printable(error.what()) + more;
    }
    if (extras[0][0] != '-') {
        return Printable(extras[0]) + " is one argument too many" + more;
    }
    const std::string name = extras[0].substr(0, extras[0].find('='));
    const std::string meant = DidYouMean(name, OptionNames(place));
    return "there is no option " + Printable(name) + (behindVerb ? "" : " before the verb") +
           (meant.empty() ? more : meant);
}

// Says what is wrong; what --json makes of it besides.
int UsageError(const std::vector<std::string>& arguments, const std::string& why) {
    // Looked for by hand, as parsing has failed.
    const bool json = std::find(arguments.begin(), arguments.end(), "--json") != arguments.end();
    const bool named = arguments.size() > 1 && arguments[1][0] != '-';
    Record report;
    Say(why);
    report.Add("error", why);
    return Finish(named ? arguments[1] : "", report, json, kExitUsage);
}

}  // namespace

int RunCommandLine(int argc, char* argv[]) {
    CLI::App app;
    Parsed parsed;
    std::vector<std::string> arguments = WithoutLists(argc, argv);
    TakeHelpVerb(arguments);
    AddVerbs(app, parsed);
    if (arguments.size() < 2) {
        // A script that has lost its arguments has done nothing, so this is no success.
        fputs(app.help().c_str(), stderr);
        return kExitUsage;
    }
    const std::string whyNot = WhyNotVerb(app, arguments[1]);
    if (!whyNot.empty()) {
        return UsageError(arguments, whyNot);
    }
    std::vector<const char*> pointers;
    pointers.reserve(arguments.size());
    for (const std::string& argument : arguments) {
        pointers.push_back(argument.c_str());
    }
    try {
        app.parse(static_cast<int>(pointers.size()), pointers.data());
    } catch (const CLI::Success& asked) {  // --help, --version
        app.exit(asked);
    } catch (const CLI::ParseError& error) {
        parsed.exitStatus = UsageError(arguments, WhyWrong(app, error));
    }
    // A verb that did its work and could not say so is done in part.
    return FinishOutput() || parsed.exitStatus != kExitDone ? parsed.exitStatus : kExitPartly;
}

}  // namespace client
