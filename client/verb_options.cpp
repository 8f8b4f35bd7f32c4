// SPDX-License-Identifier: MIT
#include "client/verb_options.h"

#include "client/help.h"
#include "client/help_format.h"
#include "client/show/text.h"

namespace client {

namespace {

// A verb's own part of the command line, with what every verb has.
CLI::App& AddVerb(CLI::App& app, const VerbHelp& help, CommonOptions& common) {
    CLI::App& verb = *app.add_subcommand(help.name, help.text);
    verb.add_flag("--json", common.json, "Print the result as JSON");
    verb.add_option("--config-path", common.configPath,
                    "The service's configuration file (default: that of the running service)")
        ->type_name("FILE");
    verb.group("Verbs");
    verb.footer(help.examples);
    return verb;
}

void AddSending(CLI::App& verb, SendOptions& options) {
    verb.add_option("--send-timeout", options.patience,
                    "How long a full queue is given (default 30)")
        ->type_name("SECONDS");
}

void AddTimeout(CLI::App& verb, SendOptions& options) {
    verb.add_option("--timeout", options.timeout, "End a wait after so long (default: never)")
        ->type_name("SECONDS");
}

void AddOvercommit(CLI::App& verb, bool& overcommit) {
    verb.add_flag("--overcommit", overcommit, "Pin more than the volume's cache holds");
}

void AddWaiting(CLI::App& verb, SendOptions& options) {
    verb.add_flag("-w,--wait", options.wait, "Wait until it is done, then say what really holds");
    AddTimeout(verb, options);
}

CLI::App& AddFileVerb(CLI::App& app, const VerbHelp& help, int (*run)(const FileVerbOptions&),
                      Parsed& parsed) {
    FileVerbOptions& options = parsed.file;
    CLI::App& verb = AddVerb(app, help, options.common);
    verb.add_option("PATH", options.list.paths, "Files; with -r directories too")->type_name("");
    verb.add_flag("-r,--recursive", options.list.recursive, "Take all files below directories");
    verb.add_flag("--glob", options.list.patterns, "Each PATH is a pattern, expanded here");
    verb.add_option("-f,--files-from", options.list.lists,
                    "Take paths from a file, one a line; - is standard input")
        ->type_name("FILE")
        // One list for each --files-from: else the library would take the paths behind it for more
        // lists.
        ->expected(1)
        ->take_all();
    verb.add_flag("-0,--null", options.list.nulSeparated, "Paths in lists end with NUL");
    verb.add_flag("-k,--keep-going", options.keepGoing, "Send the others when some are refused");
    verb.add_flag("-n,--dry-run", options.dryRun, "Show what it would cost, send nothing");
    AddWaiting(verb, options.send);
    AddSending(verb, options.send);
    verb.callback([&parsed, run] {
        if (parsed.file.list.paths.empty() && parsed.file.list.lists.empty()) {
            throw CLI::RequiredError("PATH or --files-from");
        }
        parsed.exitStatus = run(parsed.file);
    });
    return verb;
}

CLI::App& AddVolumeVerb(CLI::App& app, const VerbHelp& help, int (*run)(const VolumeVerbOptions&),
                        Parsed& parsed) {
    CLI::App& verb = AddVerb(app, help, parsed.volume.common);
    verb.add_option("VOLUME", parsed.volume.volume, "Mount path of the volume, or any path in it")
        ->type_name("")
        ->required();
    AddSending(verb, parsed.volume.send);
    verb.callback([&verb, &parsed, run] {
        if (verb.count("VOLUME") == 0 && !parsed.volume.missing) {
            throw CLI::RequiredError("VOLUME");
        }
        parsed.exitStatus = run(parsed.volume);
    });
    return verb;
}

void AddRequestVerbs(CLI::App& app, Parsed& parsed) {
    CLI::App& pin = AddFileVerb(app, kPinHelp, PinVerb, parsed);
    pin.add_flag("--link", parsed.file.list.link,
                 "Pin files that no request can name by hard links with plain names");
    AddOvercommit(pin, parsed.file.overcommit);
    AddFileVerb(app, kUnpinHelp, UnpinVerb, parsed)
        // A flag that says no cannot be bound to what it turns off.
        .add_flag_callback(
            "--no-repin", [&parsed] { parsed.file.repin = false; },
            "Do not pin again the files that share units with those unpinned");
    CLI::App& reload = AddVolumeVerb(app, kReloadHelp, ReloadVerb, parsed);
    AddWaiting(reload, parsed.volume.send);
    CLI::Option* const volume = reload.get_option("VOLUME")->required(false);
    reload
        .add_flag("--missing", parsed.volume.missing,
                  "Those volumes of which pinned units are not in the cache")
        ->excludes(volume);
    AddVolumeVerb(app, kPendHelp, PendVerb, parsed);
    AddVolumeVerb(app, kReleaseHelp, ReleaseVerb, parsed);
    CLI::App& wait = AddVerb(app, kWaitHelp, parsed.wait.common);
    wait.add_option("VOLUME", parsed.wait.volume, "Only this volume's requests")->type_name("");
    AddTimeout(wait, parsed.wait.send);
    wait.callback([&parsed] { parsed.exitStatus = WaitVerb(parsed.wait); });
}

void AddListAndStatus(CLI::App& app, Parsed& parsed) {
    CLI::App& list = AddVerb(app, kListHelp, parsed.list.common);
    CLI::Option* const volume =
        list.add_option("VOLUME", parsed.list.volume, "Only this volume")->type_name("");
    list.add_flag("-p,--paths", parsed.list.paths, "Print absolute paths, one a line");
    list.add_flag("--volumes", parsed.list.volumes,
                  "Print mount paths instead: volumes with a cache or with pinned files")
        ->excludes(volume);
    list.add_flag("-0,--null", parsed.list.nulSeparated, "As --paths, each ended with NUL");
    list.add_flag("-l,--long", parsed.list.details,
                  "Tell what of each file is in the cache, and when it was last read");
    list.add_option("--sort", parsed.list.sort, "Sort by path, size or missing (not in the cache)")
        ->type_name("KEY")
        ->check(CLI::IsMember({kSortByPath, kSortBySize, kSortByMissing}));
    list.callback([&parsed] { parsed.exitStatus = ListVerb(parsed.list); });
    CLI::App& status = AddVerb(app, kStatusHelp, parsed.status.common);
    status.add_flag("--watch", parsed.status.watch, "Show it anew every second, until Ctrl-C");
    status.callback([&parsed] { parsed.exitStatus = StatusVerb(parsed.status); });
}

void AddMetricsAndHealth(CLI::App& app, Parsed& parsed) {
    CLI::App& metrics = AddVerb(app, kMetricsHelp, parsed.metrics.common);
    metrics
        .add_option("-o,--output", parsed.metrics.output, "Replace this file in one step instead")
        ->type_name("FILE");
    metrics.callback([&parsed] { parsed.exitStatus = MetricsVerb(parsed.metrics); });
    CLI::App& health = AddVerb(app, kHealthHelp, parsed.health.common);
    health.add_flag("--restart", parsed.health.restart,
                    "Start the service again when one of its two threads has ended");
    health.callback([&parsed] { parsed.exitStatus = HealthVerb(parsed.health); });
}

void AddCheckAndExplain(CLI::App& app, Parsed& parsed) {
    CLI::App& check = AddVerb(app, kCheckHelp, parsed.check.common);
    check.add_option("VOLUME", parsed.check.volume, "Only this volume")->type_name("");
    CLI::Option* const repair = check.add_flag("--repair", parsed.check.repair,
                                               "Set right what is found, then check again");
    check
        .add_flag("--restart", parsed.check.restart,
                  "Stop the service for the repair and start it again")
        ->needs(repair);
    AddOvercommit(check, parsed.check.overcommit);
    AddTimeout(check, parsed.check.send);
    AddSending(check, parsed.check.send);
    check.callback([&parsed] { parsed.exitStatus = CheckVerb(parsed.check); });
    CLI::App& explain = AddVerb(app, kExplainHelp, parsed.explain.common);
    explain.add_option("PATH", parsed.explain.path, "The file")->type_name("")->required();
    explain.callback([&parsed] { parsed.exitStatus = ExplainVerb(parsed.explain); });
}

std::string WhyNotPictureName(const std::string& path) {
    // The name decides about the form.
    return EndsWith(path, ".svg") || EndsWith(path, ".html") ? ""
                                                             : "the name must end in .svg or .html";
}

void AddReadyAndForget(CLI::App& app, Parsed& parsed) {
    CLI::App& forget = AddVerb(app, kForgetHelp, parsed.forget.common);
    forget.add_option("VOLUME", parsed.forget.mountPath, "Mount path of the volume")
        ->type_name("")
        ->required();
    forget.callback([&parsed] { parsed.exitStatus = ForgetVerb(parsed.forget); });
    CLI::App& ready = AddVerb(app, kReadyHelp, parsed.ready.common);
    ready.callback([&parsed] { parsed.exitStatus = ReadyVerb(parsed.ready); });
}

void AddMapAndDoctor(CLI::App& app, Parsed& parsed) {
    CLI::App& map = AddVerb(app, kMapHelp, parsed.map.common);
    map.add_option("VOLUME", parsed.map.volume, "Mount path of the volume, or any path in it")
        ->type_name("")
        ->required();
    map.add_option("-o,--output", parsed.map.output, "Write a picture, .svg, or a page, .html")
        ->type_name("FILE")
        ->check(CLI::Validator(WhyNotPictureName, ""));
    map.add_flag("--force", parsed.map.force, "Replace the file that is there")->needs("-o");
    map.add_option("--width", parsed.map.width, "Columns to draw in (default: the terminal's)")
        ->type_name("COLUMNS");
    map.callback([&parsed] { parsed.exitStatus = MapVerb(parsed.map); });
    CLI::App& doctor = AddVerb(app, kDoctorHelp, parsed.doctor.common);
    doctor.add_flag("--fix", parsed.doctor.fix,
                    "Do what is safe: take away messages that block the queue, size the queue");
    doctor.callback([&parsed] { parsed.exitStatus = DoctorVerb(parsed.doctor); });
}

void AddApply(CLI::App& app, Parsed& parsed) {
    CLI::App& apply = AddVerb(app, kApplyHelp, parsed.apply.common);
    apply.add_option("--from", parsed.apply.directory, "Read this directory instead")
        ->type_name("DIRECTORY");
    apply.add_flag("-n,--dry-run", parsed.apply.dryRun, "Show what is missing, send nothing");
    apply.add_flag("--prune", parsed.apply.prune, "Unpin what no line wants");
    AddOvercommit(apply, parsed.apply.overcommit);
    AddWaiting(apply, parsed.apply.send);
    AddSending(apply, parsed.apply.send);
    apply.callback([&parsed] { parsed.exitStatus = ApplyVerb(parsed.apply); });
}

void AddCopies(CLI::App& app, Parsed& parsed) {
    CLI::App& restore = AddVerb(app, kRestoreHelp, parsed.restore.common);
    CLI::Option* const copy =
        restore.add_option("COPY", parsed.restore.copy, "Its number; without it they are listed")
            ->type_name("")
            ->check(CLI::PositiveNumber);
    restore
        .add_flag("--restart", parsed.restore.restart,
                  "Stop the service meanwhile and start it again")
        ->needs(copy);
    restore.callback([&parsed] { parsed.exitStatus = RestoreVerb(parsed.restore); });
    AddVerb(app, kKeepCopyHelp, parsed.keepCopy).callback([&parsed] {
        parsed.exitStatus = KeepCopyVerb(parsed.keepCopy);
    });
}

// For lists of verbs: the reader of the command line turns what stands behind it into --help.
void AddHelp(CLI::App& app) {
    CLI::App& help = *app.add_subcommand(kHelpHelp.name, kHelpHelp.text);
    help.add_option_function<std::string>(
            "VERB", [](const std::string&) {}, "One of the verbs")
        ->type_name("");
    help.group("Verbs");
    help.footer(kHelpHelp.examples);
}

}  // namespace

void AddVerbs(CLI::App& app, Parsed& parsed) {
    app.description(kAppText);
    app.name("quorcachepinctl");
    app.footer(kAppFooter);
    app.formatter(HelpFormat());
    app.set_version_flag("--version", "quorcachepinctl " QUOR_VERSION, "Print the version");
    app.set_help_flag("-h,--help", "Print this help");
    app.require_subcommand(1);
    AddRequestVerbs(app, parsed);
    AddListAndStatus(app, parsed);
    AddMetricsAndHealth(app, parsed);
    AddCheckAndExplain(app, parsed);
    AddMapAndDoctor(app, parsed);
    AddApply(app, parsed);
    AddCopies(app, parsed);
    AddReadyAndForget(app, parsed);
    AddHelp(app);
}

std::vector<std::string> OptionNames(const CLI::App& verb) {
    std::vector<std::string> names;
    for (const CLI::Option* const option : verb.get_options()) {
        for (const std::string& name : option->get_snames()) {
            names.push_back("-" + name);
        }
        for (const std::string& name : option->get_lnames()) {
            names.push_back("--" + name);
        }
    }
    return names;
}

std::vector<VerbOptionNames> AllOptionNames() {
    CLI::App app;
    Parsed parsed;
    std::vector<VerbOptionNames> all;
    AddVerbs(app, parsed);
    for (const CLI::App* const verb : app.get_subcommands({})) {
        all.push_back({verb->get_name(), OptionNames(*verb)});
    }
    return all;
}

}  // namespace client
