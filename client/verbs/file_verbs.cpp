// SPDX-License-Identifier: MIT
// pin and unpin: requests about files.
#include <algorithm>

#include "client/pins/holding.h"
#include "client/pins/price.h"
#include "client/pins/sharing.h"
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
    void Report(int status);
    void PrintHeld();

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
        PlanRepinning(service_.state, job_);
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
                    ? HoldingAfterPin(after, job_.list.files, job_.mapper)
                    : HoldingAfterUnpin(after, job_.list.files, job_.volumes, job_.mapper);
    repinnedHoldings_ = HoldingAfterPin(after, job_.repinned, job_.mapper);
    return AllHold(holdings_) && AllHold(repinnedHoldings_) ? kExitDone : kExitPartly;
}

void FileVerb::PrintHeld() {
    PrintHolding(holdings_, job_.type == kRequestPinFiles);
    PrintRepinnedHolding(repinnedHoldings_);
    if (!job_.notPinned.empty()) {
        Print("  " + std::to_string(job_.notPinned.size()) + " of them " +
              (job_.notPinned.size() == 1 ? "was" : "were") + " not pinned before");
    }
}

void FileVerb::Report(int status) {
    if (options_.common.json) {
        Json::Value report = JobToJson(job_, name_);
        report["dryRun"] = options_.dryRun;
        if (options_.dryRun) {
            report["price"] = PriceToJson(prices_);
        }
        if (waited_) {
            report["holds"] = HoldingToJson(holdings_);
            report["repinnedHolds"] = HoldingToJson(repinnedHoldings_);
        }
        PrintReport(report, status);
    } else if (!prices_.empty()) {
        PrintPrice(prices_, job_);
    } else if (waited_) {
        PrintHeld();
    } else if (job_.sent > 0 || status == kExitDone) {
        PrintSent(job_, name_);
    }
}

int FileVerb::Run() {
    int status = Prepare();
    if (status == kExitDone && options_.dryRun) {
        prices_ = PriceOf(job_);
    } else if (status == kExitDone) {
        status = Send();
    }
    const bool all = job_.list.refusals.empty() && job_.passedOver.empty();
    if (status == kExitDone && !all) {
        status = kExitPartly;
    }
    Report(status);
    return status;
}

}  // namespace

int PinVerb(const FileVerbOptions& options) {
    return FileVerb("pin", kRequestPinFiles, options).Run();
}

int UnpinVerb(const FileVerbOptions& options) {
    return FileVerb("unpin", kRequestUnpinFiles, options).Run();
}

}  // namespace client
