// SPDX-License-Identifier: MIT
// apply: what is to be pinned by its configuration, against what is.
#include <string.h>

#include <algorithm>

#include "client/pins/device_report.h"
#include "client/pins/holding.h"
#include "client/pins/listed_paths.h"
#include "client/pins/price.h"
#include "client/request/apply_plan.h"
#include "client/request/file_job.h"
#include "client/request/refusals.h"
#include "client/request/sending.h"
#include "client/request/unneeded_links.h"
#include "client/service/config_state.h"
#include "client/show/exit_status.h"
#include "client/show/output.h"
#include "client/verbs/verbs.h"
#include "client/volume/expected_mounts.h"

namespace client {

namespace {

// One call of apply.
class Apply {
  public:
    explicit Apply(const ApplyOptions& options) : options_(options) {}

    int Run();

  private:
    int Read();
    void Plan();
    void DropUnservable();
    bool MayPrune();
    int Send();
    int Judge();
    void SayFaults() const;
    bool IsWhole() const;
    void Describe(Record& report) const;
    void DescribePlan(Record& report) const;
    void DescribeSent(Record& report) const;

    const ApplyOptions& options_;
    FileJob job_;  // the files to pin; its messages are all that are sent
    ServiceState service_;
    PinConf conf_;
    WantedFiles wanted_;
    std::vector<DeviceState> devices_;
    ApplyPlan plan_;
    bool pruneHeldBack_ = false;
    std::vector<Holding> pinned_;
    std::vector<Holding> unpinned_;
};

Record DescribeFault(const ConfFault& fault) {
    return Record()
        .Add("line", fault.origin)
        .Add("path", IfAny(fault.path))
        .Add("reason", fault.reason);
}

void SayAll(const char* what, const std::vector<ConfFault>& faults) {
    std::vector<Refusal> refusals;
    refusals.reserve(faults.size());
    for (const ConfFault& fault : faults) {
        refusals.push_back(
            {fault.origin + (fault.path.empty() ? "" : ": " + fault.path), fault.reason});
    }
    SayRefused(what, refusals);
}

// Reads the lines, the volumes, the service's list and what the lines come to. Returns kExitDone,
// or another exit status, having said why.
int Apply::Read() {
    const std::string directory =
        options_.directory.empty() ? kPinConfDirectory : options_.directory;
    const int error = ReadPinConf(directory, conf_);
    // A machine on which nothing is configured has nothing to apply.
    if (error != 0 && (error != ENOENT || !options_.directory.empty())) {
        Say(Printable(directory) + ": " + strerror(error) + "; nothing was sent");
        return kExitRefused;
    }
    if (!ListVolumes(job_.volumes)) {
        Say("the volumes cannot be listed");
        return kExitNoService;
    }
    service_ = ReadServiceState(options_.common.configPath);
    if (!service_.known) {
        Say(service_.why + "; nothing was sent");
        return kExitNoService;
    }
    std::vector<std::string> mountPoints = ExpectedMounts();
    for (const std::string& mountPath : UnmountedPaths(service_.state, job_.volumes)) {
        mountPoints.push_back(mountPath);
    }
    wanted_ = FindWanted(conf_, mountPoints, job_.volumes);
    devices_ = ReadDevices(service_.state, job_.volumes);
    return kExitDone;
}

// Whether what no line wants may be unpinned. What cannot be read may well want it.
bool Apply::MayPrune() {
    const bool wantsAny = std::any_of(conf_.lines.begin(), conf_.lines.end(),
                                      [](const ConfLine& line) { return !line.exclusion; });
    pruneHeldBack_ = options_.prune && (!conf_.faults.empty() || !wantsAny);
    if (pruneHeldBack_) {
        Say(std::string("--prune: nothing is unpinned, as ") +
            (wantsAny ? "not every line could be read" : "no line wants anything"));
    }
    return options_.prune && !pruneHeldBack_;
}

// Leaves the files that can be asked for, by links where a line allows them.
void Apply::DropUnservable() {
    job_.list.files = plan_.pins;
    RefuseUnservable(job_);
    if (!options_.dryRun) {
        LinkFiles(true, job_);
    }
    plan_.pins = job_.list.files;
    for (const Refusal& refusal : job_.list.refusals) {
        wanted_.refused.push_back({wanted_.origins[refusal.path], refusal.path, refusal.reason});
    }
}

// Works out the messages: first what is unpinned, so that what shares units with it, and is pinned
// behind it, is whole in the end.
void Apply::Plan() {
    plan_ = PlanApply(conf_, wanted_, devices_, MayPrune());
    DropUnservable();
    job_.repinned = FilesToRepin(devices_, plan_.unpins);
    if (!options_.overcommit) {
        DropUnfitting(service_.state, job_.repinned, plan_);
    }
    job_.messages = PackFiles(kRequestUnpinFiles, plan_.unpins);
    PackRepinned(job_);
    const std::vector<Message> pins = PackFiles(kRequestPinFiles, plan_.pins);
    job_.messages.insert(job_.messages.end(), pins.begin(), pins.end());
}

int Apply::Send() {
    if (job_.messages.empty()) {
        return kExitDone;
    }
    const int status = SendAndWait(job_.messages, service_.configPath, options_.send, job_.sent);
    const bool done = status == kExitDone || status == kExitPartly;
    return done && options_.send.wait ? std::max(status, Judge()) : status;
}

// Finds out what holds after a wait.
int Apply::Judge() {
    ConfigState after;
    std::string why;
    if (!ReadConfigState(service_.configPath, after, why)) {
        Say(why);
        return kExitNoService;
    }
    std::vector<FileRef> pins = plan_.pins;
    pins.insert(pins.end(), job_.repinned.begin(), job_.repinned.end());
    pinned_ = HoldingAfterPin(after, pins);
    unpinned_ = HoldingAfterUnpin(after, plan_.unpins, job_.volumes);
    RemoveLinksOf(plan_.unpins, after);
    return AllHold(pinned_) && AllHold(unpinned_) ? kExitDone : kExitPartly;
}

void Apply::SayFaults() const {
    SayAll("wrong", conf_.faults);
    SayAll("refused", wanted_.refused);
    SayAll("left alone", wanted_.notMounted);
    for (const std::string& why : plan_.unfitting) {
        Say(TonedError(Tone::kBad, "not pinned") + " " + why + kOvercommitRemedy);
    }
    for (const PinnedFile& left : plan_.left) {
        Say(TonedError(Tone::kBad, "not unpinned") + " " + Printable(ListedPath(left)) + ": " +
            (IsFound(left) ? "no request can name it, or its volume has no cache now"
                           : WhyNotUnpinnable(left)));
    }
}

// Whether all that the lines say could be asked for.
bool Apply::IsWhole() const {
    return conf_.faults.empty() && wanted_.refused.empty() && wanted_.notMounted.empty() &&
           plan_.left.empty() && plan_.unfitting.empty() && !pruneHeldBack_;
}

void Apply::DescribePlan(Record& report) const {
    report.Line(Counted(wanted_.files.size(), "file") + " wanted: " + std::to_string(plan_.held) +
                " pinned, " + std::to_string(plan_.queued) + " asked for already, " +
                std::to_string(plan_.pins.size()) + " to be pinned");
    if (options_.dryRun) {
        for (const FileRef& file : plan_.pins) {
            report.Line("to be pinned: " + Printable(file.path));
        }
        for (const FileRef& file : plan_.unpins) {
            report.Line("to be unpinned: " + Printable(file.path));
        }
        for (const std::string& note : wanted_.notes) {
            report.Line(note);
        }
    }
    for (const PinnedFile& old : plan_.replaced) {
        report.Line(Printable(ListedPath(old)) +
                    ": was replaced; check --repair takes its old entry off the list");
    }
    if (plan_.byHand > 0) {
        report.Line(Counted(plan_.byHand, "pinned file") + " that no line wants");
    }
}

// What became of the messages, in words.
void Apply::DescribeSent(Record& report) const {
    const std::string requests = Counted(job_.messages.size(), "request");
    const std::string unpinned = Counted(plan_.unpins.size(), "file") + " to be unpinned";
    if (options_.dryRun) {
        report.Line("nothing was sent: this was a dry run");
    } else if (job_.sent > 0) {
        report.Line(std::to_string(job_.sent) + " of " + requests + " sent" +
                    (plan_.unpins.empty() ? "" : ", " + unpinned));
    }
}

void Apply::Describe(Record& report) const {
    report.Add("wanted", Json::UInt64{wanted_.files.size()})
        .Add("held", Json::UInt64{plan_.held})
        .Add("queued", Json::UInt64{plan_.queued})
        .Add("byHand", Json::UInt64{plan_.byHand})
        .List("pins", RecordsOf(plan_.pins, DescribeFile))
        .List("unpins", RecordsOf(plan_.unpins, DescribeFile))
        .List("repinned", RecordsOf(job_.repinned, DescribeFile))
        .List("replaced", RecordsOf(plan_.replaced, DescribeEntry))
        .List("left", RecordsOf(plan_.left, DescribeEntry))
        .List("wrong", RecordsOf(conf_.faults, DescribeFault))
        .List("refused", RecordsOf(wanted_.refused, DescribeFault))
        .List("notMounted", RecordsOf(wanted_.notMounted, DescribeFault))
        .Add("notFitting", TextsToJson(plan_.unfitting))
        .Add("pruneHeldBack", pruneHeldBack_)
        .Add("requests", Json::UInt64{job_.messages.size()})
        .Add("sent", Json::UInt64{job_.sent});
    const auto held = [](const char* done) {
        return [done](const Holding& holding) { return DescribeHolding(holding, done); };
    };
    if (options_.send.wait) {
        report.List("holds", RecordsOf(pinned_, held("pinned")), Layout::kBlocks)
            .List("unpinHolds", RecordsOf(unpinned_, held("unpinned")), Layout::kBlocks);
    }
}

int Apply::Run() {
    Record report;
    int status = Read();
    report.Add("dryRun", options_.dryRun);
    if (status == kExitDone) {
        Plan();
        SayFaults();
        DescribePlan(report);
        status = options_.dryRun ? kExitDone : Send();
        DescribeSent(report);
        if (status == kExitDone && !IsWhole()) {
            status = kExitPartly;
        }
    }
    Describe(report);
    return Finish("apply", report, options_.common.json, status);
}

}  // namespace

int ApplyVerb(const ApplyOptions& options) {
    return Apply(options).Run();
}

}  // namespace client
