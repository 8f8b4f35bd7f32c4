// SPDX-License-Identifier: MIT
// The command line: verbs, options, help.
#pragma once

#include <string>
#include <vector>

namespace client {

// Parses the command line and runs its verb. Returns the exit status.
int RunCommandLine(int argc, char* argv[]);

// A verb's long and short options, dashes included.
struct VerbOptionNames {
    std::string verb;
    std::vector<std::string> options;
};

// Returns what the command line knows, for those that must know it too: completion and manual.
std::vector<VerbOptionNames> AllOptionNames();

}  // namespace client
