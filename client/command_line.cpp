// SPDX-License-Identifier: MIT
#include "client/command_line.h"

#include <CLI/App.hpp>

#include <algorithm>

#include "client/show/exit_status.h"
#include "client/show/output.h"
#include "client/show/report.h"
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

bool HasVerb(const CLI::App& app, const std::string& name) {
    const std::vector<const CLI::App*> verbs = app.get_subcommands({});
    return std::any_of(verbs.begin(), verbs.end(),
                       [&name](const CLI::App* verb) { return verb->get_name() == name; });
}

// What --json makes of a wrong command line, besides the words on standard error.
int UsageError(const std::vector<std::string>& arguments, const std::string& why) {
    // Looked for by hand, as parsing has failed.
    const bool json = std::find(arguments.begin(), arguments.end(), "--json") != arguments.end();
    const bool named = arguments.size() > 1 && arguments[1][0] != '-';
    Record report;
    report.Add("error", why);
    return Finish(named ? arguments[1] : "", report, json, kExitUsage);
}

}  // namespace

int RunCommandLine(int argc, char* argv[]) {
    CLI::App app;
    Parsed parsed;
    const std::vector<std::string> arguments = WithoutLists(argc, argv);
    AddVerbs(app, parsed);
    if (argc > 1 && argv[1][0] != '-' && !HasVerb(app, argv[1])) {
        // The library's own words speak of "subcommands" and "arguments that were not expected".
        const std::string why = "there is no verb " + Printable(argv[1]) + "; --help lists them";
        Say(why);
        return UsageError(arguments, why);
    }
    std::vector<const char*> pointers;
    pointers.reserve(arguments.size());
    for (const std::string& argument : arguments) {
        pointers.push_back(argument.c_str());
    }
    try {
        app.parse(argc, pointers.data());
    } catch (const CLI::ParseError& error) {
        parsed.exitStatus = app.exit(error) == 0 ? kExitDone : UsageError(arguments, error.what());
    }
    // A verb that did its work and could not say so is done in part.
    return FinishOutput() || parsed.exitStatus != kExitDone ? parsed.exitStatus : kExitPartly;
}

}  // namespace client
