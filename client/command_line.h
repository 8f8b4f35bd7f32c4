// SPDX-License-Identifier: MIT
// The command line: verbs, options, help.
#pragma once

// Parses the command line and runs its verb. Returns the exit status.
int RunCommandLine(int argc, char* argv[]);
