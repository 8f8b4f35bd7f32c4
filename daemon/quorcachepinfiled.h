// SPDX-License-Identifier: MIT
// The process entry: options, signals, and the start of the two threads.
#pragma once

#include <signal.h>

#include "daemon/service.h"

using SignalFunction = void (*)(int);

// Fills the options from the command line; --stdout takes effect at once, --help prints the usage
// and ends the process with status 0. Returns 0, or -1 when no configuration path was given.
int GetOptions(int argc, char* argv[], ServiceOptions& options);

// Prints the usage to standard output, wherever the log goes.
void PrintUsage();

// Starts the worker thread and turns the calling thread into the receiver. Comes back only to say
// -1.
int StartService(ServiceOptions& options);

// Installs SignalHandler for SIGINT, SIGTERM and SIGQUIT. Returns null, or the error value of the
// first installation that failed; those after it are not tried.
SignalFunction SetSignalHandler();

// Ends the process with status 0.
[[noreturn]] void SignalHandler(int sig);
