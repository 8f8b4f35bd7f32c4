// SPDX-License-Identifier: MIT
// health: whether the service takes requests and carries them out, in one line for the journal, and
// starting it again.
#include <algorithm>

#include "client/show/exit_status.h"
#include "client/show/journal.h"
#include "client/show/output.h"
#include "client/show/poll.h"
#include "client/show/report.h"
#include "client/verbs/around_unit.h"
#include "client/verbs/health.h"
#include "client/verbs/service_unit.h"
#include "client/verbs/verbs.h"

namespace client {

namespace {

// By which programs know the record; journalctl MESSAGE_ID=... finds all of them.
constexpr char kNotWorkingId[] = "93ec5438564f48d6a4dce2e60f290056";
constexpr char kErrorPriority[] = "3";

constexpr double kPause = 0.5;  // seconds
constexpr double kLimit = 2;

bool HasEndedThread(const ServiceProcess& service) {
    return !service.intakeAlive || !service.workerAlive;
}

std::string YesOrNo(bool yes) {
    return yes ? "yes" : "no";
}

// Says it once: a unit's standard error goes to the journal as well.
void Tell(const Status& status, const std::string& text) {
    std::vector<std::pair<const char*, std::string>> fields = {
        {"MESSAGE", "quorcachepinctl: " + text},
        {"MESSAGE_ID", kNotWorkingId},
        {"PRIORITY", kErrorPriority},
        {"SYSLOG_IDENTIFIER", "quorcachepinctl"},
        {"QUORCACHEPIN_RUNS", YesOrNo(!status.services.empty())}};
    if (!status.services.empty()) {
        const ServiceProcess& service = status.services.front();
        // With it the record is among those of the service's unit.
        fields.emplace_back("OBJECT_PID", std::to_string(service.pid));
        fields.emplace_back("QUORCACHEPIN_INTAKE_ALIVE", YesOrNo(service.intakeAlive));
        fields.emplace_back("QUORCACHEPIN_WORKER_ALIVE", YesOrNo(service.workerAlive));
        fields.emplace_back("QUORCACHEPIN_STANDS_STILL", YesOrNo(status.standsStill));
    }
    if (!WriteToJournal(fields)) {
        Say(text);
    }
}

std::string Joined(const std::vector<std::string>& texts) {
    std::string joined;
    for (const std::string& text : texts) {
        joined += (joined.empty() ? "" : "; ") + text;
    }
    return joined;
}

// Says what is wrong, and starts the service again where that is asked for and helps. Returns
// whether it did.
bool TellAndRestart(const Status& status, const std::string& wrong, bool restart) {
    // What hangs may have been stopped on purpose, and what does not run too. An ended thread comes
    // back in no other way.
    if (!restart || std::none_of(status.services.begin(), status.services.end(), HasEndedThread)) {
        Tell(status, wrong);
        return false;
    }
    if (!IsUnitAlone(status.services)) {
        Tell(status, wrong + "; it is not " + kServiceUnit + ", and is not started again");
        return false;
    }
    // Before it is done, which may take minutes.
    Tell(status, wrong + "; it is started again");
    const bool restarted = RestartUnit();
    if (!restarted) {
        Say(std::string(kServiceUnit) + " cannot be started again; systemctl status shows why");
    }
    return restarted;
}

}  // namespace

std::vector<std::string> FindProblems(const Status& status) {
    std::vector<std::string> problems;
    if (status.services.empty()) {
        // Without it neither queue nor store is expected.
        return {std::string("the service ") + NoServiceText()};
    }
    for (const ServiceProcess& service : status.services) {
        const std::string name = "the service (process " + std::to_string(service.pid) + ") ";
        if (!service.intakeAlive) {
            problems.push_back(name + "takes no more requests: its intake has ended");
        }
        if (!service.workerAlive) {
            problems.push_back(name + "carries out no more requests: its worker has ended");
        }
    }
    if (status.standsStill) {
        problems.emplace_back(
            "the service takes none of the messages that wait: it hangs, or was "
            "stopped");
    }
    if (!status.queueKnown) {
        problems.push_back(status.queueWhy);
    }
    if (!status.stored.known) {
        problems.push_back(status.stored.why);
    }
    return problems;
}

int HealthVerb(const HealthOptions& options) {
    Record report;
    Status status;
    std::vector<std::string> problems;
    // A service that has just been started has its queue and its worker in a moment.
    const Poll poll(kPause, kLimit);
    do {
        status = ReadServiceStatus(options.common.configPath);
        problems = FindProblems(status);
    } while (!problems.empty() && !status.services.empty() && poll.Again());
    const std::string wrong = Joined(problems);
    const bool restarted = !problems.empty() && TellAndRestart(status, wrong, options.restart);
    report.Add("problems", TextsToJson(problems)).Add("restarted", restarted);
    if (problems.empty()) {
        report.Line("the service takes requests and carries them out");
    } else {
        report.Add("error", wrong);
    }
    return Finish("health", report, options.common.json,
                  problems.empty() ? kExitDone
                  : restarted      ? kExitPartly
                                   : kExitNoService);
}

}  // namespace client
