// SPDX-License-Identifier: MIT
// The words of --help.
#pragma once

namespace client {

struct VerbHelp {
    const char* name;
    const char* text;
    const char* examples;
};

constexpr char kAppText[] =
    "Pins files into the SSD caches of their volumes, through quorcachepinfiled.";

constexpr char kAppFooter[] =
    "quorcachepinctl VERB --help tells more, with examples.\n"
    "\n"
    "Exit status:\n"
    "  0  done\n"
    "  1  partly: some of what was asked holds, some does not\n"
    "  2  usage\n"
    "  3  the service, its queue or its configuration file is not there\n"
    "  4  timed out\n"
    "  5  refused before anything was sent\n"
    "  6  pinned, not in the cache yet\n"
    "  7  more pinned than the cache holds\n"
    "  8  pinned, not in force: no cache, or it lacks bits";

constexpr VerbHelp kPinHelp = {
    "pin", "Pin files into their volume's cache",
    "Every file is checked first; when one is refused, nothing is sent unless -k is given.\n"
    "Files that do not fit into the cache are refused, unless --overcommit is given.\n"
    "\n"
    "Examples:\n"
    "  quorcachepinctl pin --wait /mnt/pool1/db/index.db\n"
    "  quorcachepinctl pin --dry-run -r /mnt/pool1/photos\n"
    "  quorcachepinctl pin --glob '/mnt/pool1/photos/2024*.jpg'\n"
    "  find /mnt/pool1 -name '*.idx' -size +0 -print0 | quorcachepinctl pin -0 -f -"};

constexpr VerbHelp kUnpinHelp = {
    "unpin", "Unpin files from their volume's cache",
    "The service clears a unit of 64 KiB for all files that share it. Pinned files that share\n"
    "units with those unpinned are therefore pinned again, unless --no-repin is given. A listed\n"
    "file that is gone or was replaced is refused: check --repair sets its entry right.\n"
    "\n"
    "Examples:\n"
    "  quorcachepinctl unpin --wait /mnt/pool1/db/index.db\n"
    "  quorcachepinctl list -0 /mnt/pool1 | quorcachepinctl unpin -0 -f -"};

constexpr VerbHelp kReloadHelp = {"reload", "Read a volume's pinned units into its cache again",
                                  "Examples:\n"
                                  "  quorcachepinctl reload --wait /mnt/pool1\n"
                                  "  quorcachepinctl reload --missing"};

constexpr VerbHelp kPendHelp = {
    "pend", "Make the service leave a volume's requests alone",
    "A request of the volume that runs is interrupted and stays queued. A restart of the service\n"
    "forgets what is pending.\n"
    "\n"
    "Example:\n"
    "  quorcachepinctl pend /mnt/pool1"};

constexpr VerbHelp kReleaseHelp = {"release", "Let the service take up a pending volume's requests",
                                   "Example:\n"
                                   "  quorcachepinctl release /mnt/pool1"};

constexpr VerbHelp kWaitHelp = {
    "wait", "Wait until nothing is queued any more",
    "What comes meanwhile is waited for too. On a terminal a bar shows how far it is.\n"
    "\n"
    "Examples:\n"
    "  quorcachepinctl wait\n"
    "  quorcachepinctl wait --timeout 600 /mnt/pool1"};

constexpr VerbHelp kListHelp = {"list", "List the pinned files",
                                "Examples:\n"
                                "  quorcachepinctl list\n"
                                "  quorcachepinctl list -l --sort missing\n"
                                "  quorcachepinctl list --paths /mnt/pool1"};

constexpr VerbHelp kStatusHelp = {"status", "Show the service, its queue and what is pinned",
                                  "Whether a volume is pending is not visible from outside.\n"
                                  "\n"
                                  "Example:\n"
                                  "  quorcachepinctl status"};

constexpr VerbHelp kMetricsHelp = {
    "metrics", "Print numbers for Prometheus",
    "Examples:\n"
    "  quorcachepinctl metrics\n"
    "  quorcachepinctl metrics -o /var/lib/prometheus/node-exporter/quorcachepin.prom"};

constexpr VerbHelp kHealthHelp = {
    "health", "Tell whether the service takes requests and carries them out",
    "Each of its two threads may end without the other, and the process runs on. What is wrong\n"
    "is said in one line: in the journal when a unit runs this, else on standard error.\n"
    "\n"
    "Examples:\n"
    "  quorcachepinctl health\n"
    "  quorcachepinctl health --restart"};

constexpr VerbHelp kCheckHelp = {
    "check", "Compare the pinned files with the bitmap, the driver and the cache",
    "Finds bits that are missing (a file grew, was rewritten, a shared unit was cleared), bits\n"
    "that no pinned file needs, files that are gone, were replaced or renamed, and units that\n"
    "are not in the cache. With the service running, --repair pins what is missing and names\n"
    "what is left. While no service runs, or with --restart, it sets list, bitmap and driver\n"
    "right altogether.\n"
    "\n"
    "Examples:\n"
    "  quorcachepinctl check\n"
    "  quorcachepinctl check --repair --restart\n"
    "  quorcachepinctl check --repair /mnt/pool1"};

constexpr VerbHelp kExplainHelp = {"explain", "Tell everything about one file",
                                   "Example:\n"
                                   "  quorcachepinctl explain /mnt/pool1/db/index.db"};

constexpr VerbHelp kMapHelp = {"map",
                               "Draw a volume's units: which are pinned, which are in the cache",
                               "Examples:\n"
                               "  quorcachepinctl map /mnt/pool1\n"
                               "  quorcachepinctl map /mnt/pool1 -o pool1.svg\n"
                               "  quorcachepinctl map /mnt/pool1 -o pool1.html"};

constexpr VerbHelp kForgetHelp = {
    "forget", "Take a volume that is gone for good off the service's list and out of its queue",
    "While a listed volume is not there, the packaged service is not started. Only while no "
    "service\n"
    "runs; what is mounted is refused.\n"
    "\n"
    "Example:\n"
    "  quorcachepinctl forget /mnt/pool1"};

constexpr VerbHelp kReadyHelp = {
    "ready", "Tell whether the service may start: all volumes it knows are there with their caches",
    "The service forgets what is pinned on a volume when it meets a request for it and finds no\n"
    "cache. The packaged unit asks this before each start.\n"
    "\n"
    "Example:\n"
    "  quorcachepinctl ready"};

constexpr VerbHelp kDoctorHelp = {"doctor", "Look for what keeps the service from working",
                                  "Examples:\n"
                                  "  quorcachepinctl doctor\n"
                                  "  quorcachepinctl doctor --fix"};

constexpr VerbHelp kApplyHelp = {
    "apply", "Pin what /etc/quorcachepin.d says is to be pinned",
    "The files *.conf there have a path, a directory or a pattern a line. What is missing is "
    "asked\n"
    "for; what was pinned by hand stays, unless --prune is given. A line that is wrong is named,\n"
    "the others are applied.\n"
    "\n"
    "Examples:\n"
    "  quorcachepinctl apply --dry-run\n"
    "  quorcachepinctl apply --prune --wait"};

constexpr VerbHelp kRestoreHelp = {
    "restore", "List the copies of the service's list of pinned files, or put one back",
    "A copy is put back while no service runs, or with --restart. What is queued stays queued.\n"
    "\n"
    "Examples:\n"
    "  quorcachepinctl restore\n"
    "  quorcachepinctl restore 12 --restart"};

constexpr VerbHelp kKeepCopyHelp = {
    "keep-copy", "Keep a copy of the service's list when it has changed",
    "The last five are kept. While no service runs, a configuration file that cannot be read is\n"
    "put aside and the last good copy takes its place. The packaged service does this before it\n"
    "starts.\n"
    "\n"
    "Example:\n"
    "  quorcachepinctl keep-copy"};

constexpr VerbHelp kHelpHelp = {"help", "Print the help of a verb, as its --help does",
                                "Example:\n"
                                "  quorcachepinctl help pin"};

}  // namespace client
