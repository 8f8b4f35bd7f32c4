// SPDX-License-Identifier: MIT
#include "client/command_line.h"

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>

#include "client/exit_status.h"
#include "client/output.h"
#include "client/verbs.h"

namespace {

// What the options are parsed into, and the exit status of the verb that ran.
struct Parsed {
    FileVerbOptions file;
    VolumeVerbOptions volume;
    int status = kExitDone;
};

constexpr char kExitStatuses[] =
    "Exit status: 0 done, 1 partly, 2 usage, 3 service or queue not there, 4 timed out, "
    "5 refused before anything was sent.";

void AddCommon(CLI::App& verb, CommonOptions& common) {
    verb.add_flag("--json", common.json, "Print the result as JSON");
}

void AddSending(CLI::App& verb, unsigned& patience) {
    verb.add_option("--send-timeout", patience,
                    "Seconds to wait while the queue is full (default 30)");
}

void AddFileVerb(CLI::App& app, const char* name, const char* text, const char* examples,
                 FileVerbOptions& options, int (*run)(const FileVerbOptions&), int& status) {
    CLI::App& verb = *app.add_subcommand(name, text);
    verb.add_option("PATH", options.list.paths, "Files; with -r directories too");
    verb.add_option("-f,--files-from", options.list.lists,
                    "Take paths from a file, one a line; - is standard input")
        ->expected(1)
        ->take_all();
    verb.add_flag("-0,--null", options.list.nulSeparated, "Paths in lists end with NUL");
    verb.add_flag("-r,--recursive", options.list.recursive, "Take all files below directories");
    verb.add_flag("--glob", options.list.patterns, "Each PATH is a pattern, expanded here");
    verb.add_flag("-k,--keep-going", options.keepGoing, "Send the others when some are refused");
    AddSending(verb, options.sendPatience);
    AddCommon(verb, options.common);
    verb.footer(examples);
    verb.callback([&options, run, &status] {
        if (options.list.paths.empty() && options.list.lists.empty()) {
            throw CLI::RequiredError("PATH or --files-from");
        }
        status = run(options);
    });
}

void AddVolumeVerb(CLI::App& app, const char* name, const char* text, const char* examples,
                   VolumeVerbOptions& options, int (*run)(const VolumeVerbOptions&), int& status) {
    CLI::App& verb = *app.add_subcommand(name, text);
    verb.add_option("VOLUME", options.volume, "Mount path of the volume, or any path in it")
        ->required();
    AddSending(verb, options.sendPatience);
    AddCommon(verb, options.common);
    verb.footer(examples);
    verb.callback([&options, run, &status] { status = run(options); });
}

void AddVerbs(CLI::App& app, Parsed& parsed) {
    AddFileVerb(app, "pin", "Pin files into their volume's cache",
                "Examples:\n"
                "  quorcachepinctl pin /mnt/pool1/db/index.db\n"
                "  quorcachepinctl pin -r /mnt/pool1/photos\n"
                "  find /mnt/pool1 -name '*.idx' -print0 | quorcachepinctl pin -0 -f -",
                parsed.file, PinVerb, parsed.status);
    AddFileVerb(app, "unpin", "Release files from their volume's cache",
                "Examples:\n"
                "  quorcachepinctl unpin /mnt/pool1/db/index.db\n"
                "  quorcachepinctl unpin --glob '/mnt/pool1/photos/2019*'",
                parsed.file, UnpinVerb, parsed.status);
    AddVolumeVerb(app, "reload", "Read a volume's pinned units into its cache again",
                  "Example:\n  quorcachepinctl reload /mnt/pool1", parsed.volume, ReloadVerb,
                  parsed.status);
    AddVolumeVerb(app, "pend", "Make the service leave a volume's requests alone",
                  "Example:\n  quorcachepinctl pend /mnt/pool1", parsed.volume, PendVerb,
                  parsed.status);
    AddVolumeVerb(app, "release", "Let the service take up a pending volume's requests",
                  "Example:\n  quorcachepinctl release /mnt/pool1", parsed.volume, ReleaseVerb,
                  parsed.status);
}

}  // namespace

int RunCommandLine(int argc, char* argv[]) {
    CLI::App app("Pins files into the SSD caches of their volumes, through quorcachepinfiled.",
                 "quorcachepinctl");
    Parsed parsed;
    app.require_subcommand(1);
    app.footer(kExitStatuses);
    AddVerbs(app, parsed);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? kExitDone : kExitUsage;
    }
    return parsed.status;
}
