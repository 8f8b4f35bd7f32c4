// SPDX-License-Identifier: MIT
// doctor: what keeps the service from working, what helps, and the safe part of that.
#include <errno.h>
#include <string.h>
#include <sys/msg.h>

#include <algorithm>

#include "client/service/queue_look.h"
#include "client/show/exit_status.h"
#include "client/show/output.h"
#include "client/show/report.h"
#include "client/verbs/doctor.h"
#include "client/verbs/verbs.h"
#include "util/message_queue.h"
#include "util/request.h"

namespace client {

namespace {

// How the kinds of health are shown, in their order.
constexpr struct {
    const char* name;
    Tone tone;
} kHealths[] = {{"ok", Tone::kGood}, {"doubtful", Tone::kWarn}, {"bad", Tone::kBad}};

Record Describe(const Finding& finding) {
    const auto& health = kHealths[static_cast<size_t>(finding.health)];
    Record record;
    record.Shown("health", health.name, "", Toned(health.tone, health.name))
        .Add("subject", finding.subject, "")
        .Add("text", finding.text, "")
        .Add("remedy", IfAny(finding.remedy));
    return finding.remedy.empty() ? record : record.Line("remedy: " + finding.remedy);
}

bool SizeQueue(int queue, std::string& why) {
    struct msqid_ds record = {};
    if (msgctl(queue, IPC_STAT, &record) == 0) {
        record.msg_qbytes = kMsgQueueNumRequests * sizeof(Request);
        if (msgctl(queue, IPC_SET, &record) == 0) {
            return true;
        }
    }
    why = std::string("the queue cannot be sized: ") + strerror(errno);
    return false;
}

// Does what is safe, having said so. Returns what was done, a line each.
std::vector<std::string> Fix(const Diagnosis& diagnosis) {
    std::vector<std::string> done;
    std::string why;
    if (diagnosis.badMessages) {
        Say("taking away messages that the service cannot take");
        if (!TakeAwayBad(diagnosis.queue, done, why)) {
            Say(why);
        }
        for (std::string& line : done) {
            line.insert(0, "took away ");
        }
    }
    if (diagnosis.smallQueue) {
        Say("giving the queue room for " + std::to_string(kMsgQueueNumRequests) + " requests");
        if (SizeQueue(diagnosis.queue, why)) {
            done.push_back("the queue has room for " + std::to_string(kMsgQueueNumRequests) +
                           " requests now");
        } else {
            Say(why);
        }
    }
    return done;
}

int ExitStatusOf(const Diagnosis& diagnosis) {
    // Whatever else is bad, without it nothing is carried out.
    if (diagnosis.serviceMissing) {
        return kExitNoService;
    }
    // Doubtful findings are for reading: they do not fail a script. What is pinned has a status for
    // each state that it can be in.
    PinHealth pins = PinHealth::kNothing;
    for (const Finding& finding : diagnosis.findings) {
        if (finding.health == Health::kBad && finding.pins == PinHealth::kNothing) {
            return kExitPartly;
        }
        pins = std::max(pins, finding.pins);
    }
    return client::ExitStatusOf(pins);
}

}  // namespace

int DoctorVerb(const DoctorOptions& options) {
    Record report;
    Diagnosis diagnosis = Examine(options.common);
    std::vector<std::string> done;
    if (options.fix && (diagnosis.badMessages || diagnosis.smallQueue)) {
        done = Fix(diagnosis);
        diagnosis = Examine(options.common);
    }
    for (const std::string& line : done) {
        report.Line("fixed: " + line);
    }
    report.Add("done", TextsToJson(done))
        .List("findings", RecordsOf(diagnosis.findings, Describe), Layout::kRows);
    return Finish("doctor", report, options.common.json, ExitStatusOf(diagnosis));
}

}  // namespace client
