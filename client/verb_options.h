// SPDX-License-Identifier: MIT
// Verbs and their options, as the command line takes them.
#pragma once

// All three, for whoever makes an App: what its parts are is in the headers alone.
#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>

#include <string>
#include <vector>

#include "client/show/exit_status.h"
#include "client/verbs/verbs.h"

namespace client {

// What the options are parsed into, and the exit status of the verb that ran.
struct Parsed {
    FileVerbOptions file;
    VolumeVerbOptions volume;
    WaitVerbOptions wait;
    ListOptions list;
    StatusOptions status;
    MetricsOptions metrics;
    HealthOptions health;
    CheckOptions check;
    ExplainOptions explain;
    MapOptions map;
    ForgetOptions forget;
    ReadyOptions ready;
    DoctorOptions doctor;
    ApplyOptions apply;
    RestoreOptions restore;
    CommonOptions keepCopy;
    int exitStatus = kExitDone;
};

// Describes the whole command line to the application, which lives no longer than `parsed`. Parsing
// then runs the verb that is named.
void AddVerbs(CLI::App& app, Parsed& parsed);

// Returns the long and short options of a verb, dashes included.
std::vector<std::string> OptionNames(const CLI::App& verb);

// A verb and its options.
struct VerbOptionNames {
    std::string verb;
    std::vector<std::string> options;
};

// Returns what the command line knows, for those that must know it too: completion and manual.
std::vector<VerbOptionNames> AllOptionNames();

}  // namespace client
