// SPDX-License-Identifier: MIT
// The command line: its verb is run, what is wrong with it is said.
#pragma once

namespace client {

// Parses the command line and runs its verb. Returns the exit status.
int RunCommandLine(int argc, char* argv[]);

}  // namespace client
