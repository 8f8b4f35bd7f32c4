// SPDX-License-Identifier: MIT
#include "client/verbs/repair_report.h"

#include "client/show/output.h"

namespace client {

Record DescribeRepair(const RepairReport& repair, bool done) {
    Record record;
    record.Add("requests", Json::UInt64{repair.requests})
        .Add("unitsCleared", Json::UInt64{repair.unitsCleared})
        .Add("unitsSet", Json::UInt64{repair.unitsSet})
        .Add("actions", TextsToJson(repair.actions))
        .Add("left", TextsToJson(repair.left));
    for (const std::string& action : repair.actions) {
        record.Line("  repair: " + action);
    }
    for (const std::string& left : repair.left) {
        record.Line("  " + Toned(Tone::kBad, "not repaired") + ": " + left);
    }
    if (repair.requests > 0) {
        record.Line("  " + Counted(repair.requests, "request") + " sent" +
                    (done ? " and done" : ", not waited for to the end"));
    }
    return done ? record.Line("checked again:") : record;
}

}  // namespace client
