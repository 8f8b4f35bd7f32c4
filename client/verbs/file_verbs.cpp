// SPDX-License-Identifier: MIT
// pin and unpin: requests about files.
#include <algorithm>
#include <set>

#include "client/pins/holding.h"
#include "client/pins/price.h"
#include "client/pins/repin.h"
#include "client/request/file_job.h"
#include "client/request/sending.h"
#include "client/request/unpin_match.h"
#include "client/service/service_state.h"
#include "client/show/exit_status.h"
#include "client/show/output.h"
#include "client/verbs/file_report.h"
#include "client/verbs/verbs.h"

namespace client {

namespace {

// Reads the devices that the job's files lie on.
std::vector<DeviceState> DevicesOf(const FileJob& job, const ConfigState& state) {
    std::vector<DeviceState> devices;
    std::set<std::string> read;  // mount paths
    for (const FileRef& file : job.list.files) {
        if (read.count(file.volume->mountPath) == 0) {
            devices.push_back(ReadDevice(state, *file.volume, job.volumes));
            for (const Volume* const mount : devices.back().mounts) {
                read.insert(mount->mountPath);
            }
        }
    }
    return devices;
}

std::vector<Price> PricesOf(const FileJob& job) {
    std::vector<Price> prices = PriceOf(job.type == kRequestPinFiles, job.list.files, job.repinned);
    for (Price& price : prices) {
        price.requests = static_cast<size_t>(std::count_if(
            job.messages.begin(), job.messages.end(),
            [&price](const Message& message) { return message.mountPath == price.volume; }));
    }
    return prices;
}

// One call of pin or unpin.
class FileVerb {
  public:
    FileVerb(const char* name, RequestType type, const FileVerbOptions& options)
        : name_(name), options_(options) {
        job_.type = type;
    }

    int Run();

  private:
    int Prepare();
    int PlanWhatIsShared();
    int Send();
    int Judge();
    void AddHeld(Record& report) const;
    int Report(int status) const;

    const char* const name_;
    const FileVerbOptions& options_;
    FileJob job_;
    ServiceState service_;
    std::vector<Price> prices_;
    std::vector<Holding> holdings_;
    std::vector<Holding> repinnedHoldings_;
    bool waited_ = false;
};

// Decides what would be sent.
int FileVerb::Prepare() {
    int status = CollectJob(options_.list, job_);
    service_ = ReadServiceState(options_.common.configPath);
    if (status != kExitDone) {
        return status;
    }
    if (job_.type == kRequestUnpinFiles && service_.known) {
        MatchWithList(service_.state, job_);
    }
    status = PackJob(options_.keepGoing, job_);
    SayMatch(job_);
    return status == kExitDone && job_.type == kRequestUnpinFiles ? PlanWhatIsShared() : status;
}

// Looks for what else an unpin touches.
int FileVerb::PlanWhatIsShared() {
    if (!options_.repin || job_.messages.empty()) {
        return kExitDone;
    }
    if (service_.known) {
        job_.repinned = FilesToRepin(DevicesOf(job_, service_.state), job_.list.files);
        PackRepinned(job_);
        return kExitDone;
    }
    Say("pinned files that share units with these cannot be looked for: " + service_.why);
    if (options_.dryRun) {
        return kExitDone;
    }
    Say("nothing was sent; --config-path names the list, --no-repin sends without it");
    return kExitNoService;
}

int FileVerb::Send() {
    if (options_.send.wait && !service_.known) {
        Say("--wait: " + service_.why + "; nothing was sent");
        return kExitNoService;
    }
    if (job_.messages.empty()) {
        return kExitDone;
    }
    const int status = SendAndWait(job_.messages, service_.configPath, options_.send, job_.sent);
    if (!job_.repinned.empty() && job_.sent > 0 && job_.sent < job_.messages.size()) {
        Say("pinned files that share units with those unpinned were not all pinned again; run "
            "check --repair");
    }
    const bool done = status == kExitDone || status == kExitPartly;
    return done && options_.send.wait ? std::max(status, Judge()) : status;
}

// Finds out what holds after a wait.
int FileVerb::Judge() {
    ConfigState after;
    std::string why;
    if (!ReadConfigState(service_.configPath, after, why)) {
        Say(why);
        return kExitNoService;
    }
    waited_ = true;
    holdings_ = job_.type == kRequestPinFiles
                    ? HoldingAfterPin(after, job_.list.files)
                    : HoldingAfterUnpin(after, job_.list.files, job_.volumes);
    repinnedHoldings_ = HoldingAfterPin(after, job_.repinned);
    return AllHold(holdings_) && AllHold(repinnedHoldings_) ? kExitDone : kExitPartly;
}

void FileVerb::AddHeld(Record& report) const {
    std::vector<Record> holds;
    std::vector<Record> repinned;
    for (const Holding& holding : holdings_) {
        holds.push_back(
            DescribeHolding(holding, job_.type == kRequestPinFiles ? "pinned" : "unpinned"));
    }
    for (const Holding& holding : repinnedHoldings_) {
        repinned.push_back(DescribeHolding(holding, "whole again"));
    }
    report.List("holds", holds, Layout::kBlocks).List("repinnedHolds", repinned, Layout::kBlocks);
    if (!job_.notPinned.empty()) {
        report.Line(std::to_string(job_.notPinned.size()) + " of them " +
                    (job_.notPinned.size() == 1 ? "was" : "were") + " not pinned before");
    }
}

int FileVerb::Report(int status) const {
    std::vector<Record> prices;
    Record report;
    DescribeJob(job_, report);
    report.Add("dryRun", options_.dryRun);
    for (const Price& price : prices_) {
        prices.push_back(DescribePrice(price));
    }
    if (options_.dryRun) {
        report.List("price", prices, Layout::kBlocks);
    }
    if (!prices.empty()) {
        report.Line("nothing was sent: this was a dry run");
    } else if (waited_) {
        AddHeld(report);
    } else if (job_.sent > 0 || status == kExitDone) {
        AddSent(job_, name_, report);
    }
    return Finish(name_, report, options_.common.json, status);
}

int FileVerb::Run() {
    int status = Prepare();
    if (status == kExitDone && options_.dryRun) {
        prices_ = PricesOf(job_);
    } else if (status == kExitDone) {
        status = Send();
    }
    const bool all = job_.list.refusals.empty() && job_.passedOver.empty();
    if (status == kExitDone && !all) {
        status = kExitPartly;
    }
    return Report(status);
}

}  // namespace

int PinVerb(const FileVerbOptions& options) {
    return FileVerb("pin", kRequestPinFiles, options).Run();
}

int UnpinVerb(const FileVerbOptions& options) {
    return FileVerb("unpin", kRequestUnpinFiles, options).Run();
}

}  // namespace client
