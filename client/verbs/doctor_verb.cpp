// SPDX-License-Identifier: MIT
// doctor: what keeps the service from working, what helps, and the safe part of that.
#include <errno.h>
#include <string.h>
#include <sys/msg.h>

#include <algorithm>

#include "client/service/queue_look.h"
#include "client/show/exit_status.h"
#include "client/show/output.h"
#include "client/verbs/doctor.h"
#include "client/verbs/verbs.h"
#include "util/message_queue.h"
#include "util/request.h"

namespace client {

namespace {

const char* HealthName(Health health) {
    switch (health) {
        case Health::kGood:
            return "ok";
        case Health::kDoubtful:
            return "doubtful";
        case Health::kBad:
            return "bad";
    }
    return "";
}

Tone ToneOf(Health health) {
    return health == Health::kGood  ? Tone::kGood
           : health == Health::kBad ? Tone::kBad
                                    : Tone::kWarn;
}

void PrintFindings(const std::vector<Finding>& findings) {
    Table table("lll");
    for (const Finding& finding : findings) {
        table.Add({Toned(ToneOf(finding.health), HealthName(finding.health)), finding.subject,
                   finding.text});
        if (!finding.remedy.empty()) {
            table.Add({"", "", "remedy: " + finding.remedy});
        }
    }
    table.Show();
}

Json::Value ToJson(const std::vector<Finding>& findings) {
    Json::Value list(Json::arrayValue);
    for (const Finding& finding : findings) {
        Json::Value item;
        item["subject"] = finding.subject;
        item["health"] = HealthName(finding.health);
        item["text"] = finding.text;
        item["remedy"] = finding.remedy.empty() ? Json::Value() : Json::Value(finding.remedy);
        list.append(item);
    }
    return list;
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
            line = "took away " + line;
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
    if (diagnosis.serviceMissing) {
        return kExitNoService;
    }
    const bool bad =
        std::any_of(diagnosis.findings.begin(), diagnosis.findings.end(),
                    [](const Finding& finding) { return finding.health == Health::kBad; });
    return bad ? kExitPartly : kExitDone;
}

}  // namespace

int DoctorVerb(const DoctorOptions& options) {
    Json::Value report = NewReport("doctor");
    Diagnosis diagnosis = Examine(options.common);
    std::vector<std::string> done;
    if (options.fix && (diagnosis.badMessages || diagnosis.smallQueue)) {
        done = Fix(diagnosis);
        diagnosis = Examine(options.common);
    }
    const int status = ExitStatusOf(diagnosis);
    report["findings"] = ToJson(diagnosis.findings);
    report["done"] = Json::Value(Json::arrayValue);
    for (const std::string& line : done) {
        report["done"].append(line);
        if (!options.common.json) {
            Print("fixed: " + line);
        }
    }
    if (options.common.json) {
        PrintReport(report, status);
    } else {
        PrintFindings(diagnosis.findings);
    }
    return status;
}

}  // namespace client
