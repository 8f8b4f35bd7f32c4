// SPDX-License-Identifier: MIT
// pin and unpin: requests about files.
#include <algorithm>

#include "client/show/exit_status.h"
#include "client/request/file_job.h"
#include "client/verbs/file_report.h"
#include "client/pins/holding.h"
#include "client/request/list_match.h"
#include "client/show/output.h"
#include "client/pins/price.h"
#include "client/request/sending.h"
#include "client/service/service_state.h"
#include "client/pins/sharing.h"
#include "client/request/stale_release.h"
#include "client/verbs/verbs.h"
#include "client/request/watch.h"

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
    int SendOrPrice();
    int Plan();
    int Send();
    int Wait(std::vector<Watched>& requests);
    void Finish(int status);
    void PrintDone();

    const char* const name_;
    const FileVerbOptions& options_;
    FileJob job_;
    ServiceState before_;
    ListMatch match_;
    StaleRelease release_;
    std::vector<Price> prices_;
    std::vector<Holding> holdings_;
    std::vector<Holding> mendHoldings_;
    std::vector<StaleEntry> still_;  // stale entries that are on the list after a wait
    bool waited_ = false;
};

// Looks for what else an unpin touches. Returns kExitDone, or the exit status.
int FileVerb::Plan() {
    if (job_.type != kRequestUnpinFiles) {
        return kExitDone;
    }
    SayMatch(match_);
    if (options_.mend && before_.known) {
        PlanMending(before_.state, job_);
    } else if (options_.mend && !job_.messages.empty()) {
        Say("pinned files that share units with these cannot be looked for: " + before_.why);
        if (!options_.dryRun) {
            Say("nothing was sent; --config-path tells where the list is, --no-mend sends without");
            return kExitNoService;
        }
    }
    return kExitDone;
}

int FileVerb::SendOrPrice() {
    std::string why;
    const int status = Plan();
    if (status != kExitDone) {
        return status;
    }
    if (options_.dryRun) {
        prices_ = PriceOf(job_);
        return kExitDone;
    }
    if (options_.send.wait && !before_.known) {
        Say("--wait: " + before_.why + "; nothing was sent");
        return kExitNoService;
    }
    if (!match_.stale.empty() && !IntakeWorks()) {
        Say("entries whose file is gone, replaced or empty can be taken off only while the service "
            "takes requests; nothing was sent");
        return kExitNoService;
    }
    if (!release_.Prepare(match_.stale, why)) {
        Say(Printable(why) + "; nothing was sent");
        return kExitRefused;
    }
    return Send();
}

int FileVerb::Send() {
    const auto add = [this](const std::vector<Message>& messages) {
        job_.sending.insert(job_.sending.end(), messages.begin(), messages.end());
    };
    add(job_.messages);
    add(release_.Messages());
    add(job_.mending);
    if (job_.sending.empty()) {
        return kExitDone;
    }
    if (options_.send.wait || !match_.stale.empty()) {
        before_ = ReadServiceState(options_.common.configPath);  // the planning may have taken long
    }
    int status = SendAll(job_.sending, options_.send.patience, job_.sent);
    const bool went = status == kExitDone || status == kExitPartly;
    if (!job_.mending.empty() && job_.sent > 0 && job_.sent < job_.sending.size()) {
        Say("pinned files that share units with those released were not all pinned again; run "
            "check --repair");
    }
    std::vector<Watched> requests = ToWatch(job_.sending, job_.sent);
    if (went && options_.send.wait) {
        status = std::max(status, Wait(requests));
    } else if (!match_.stale.empty()) {
        const int stored = release_.WaitUntilStored(
            requests, before_.configPath, before_.state.nextNumber, options_.send.patience);
        status = std::max(status, stored);
    }
    release_.Settle(requests);
    return status;
}

int FileVerb::Wait(std::vector<Watched>& requests) {
    ConfigState after;
    std::string why;
    const int status = WaitForRequests(
        requests, {before_.configPath, before_.state.nextNumber, options_.send.timeout});
    if (status != kExitDone) {
        return status;
    }
    if (!ReadConfigState(before_.configPath, after, why)) {
        Say(why);
        return kExitNoService;
    }
    waited_ = true;
    holdings_ = job_.type == kRequestPinFiles
                    ? HoldingAfterPin(after, job_.list.files, job_.mapper)
                    : HoldingAfterUnpin(after, job_.list.files, job_.volumes, job_.mapper);
    mendHoldings_ = HoldingAfterPin(after, job_.mended, job_.mapper);
    still_ = StillListed(after, match_.stale);
    return AllHold(holdings_) && AllHold(mendHoldings_) && still_.empty() ? kExitDone : kExitPartly;
}

void FileVerb::PrintDone() {
    PrintHolding(holdings_, job_.type == kRequestPinFiles);
    PrintMendedHolding(mendHoldings_);
    if (!match_.notPinned.empty()) {
        Print("  " + std::to_string(match_.notPinned.size()) + " of them " +
              (match_.notPinned.size() == 1 ? "was" : "were") + " not pinned before");
    }
    if (!match_.stale.empty()) {
        PrintStale(match_.stale, still_);
    }
}

void FileVerb::Finish(int status) {
    if (options_.common.json) {
        Json::Value report = JobToJson(job_, match_, name_);
        report["dryRun"] = options_.dryRun;
        if (options_.dryRun) {
            report["price"] = PriceToJson(prices_);
        }
        if (waited_) {
            report["holds"] = HoldingToJson(holdings_);
            report["mendedHolds"] = HoldingToJson(mendHoldings_);
            report["stillListed"] = StaleToJson(still_);
        }
        PrintReport(report, status);
    } else if (!prices_.empty()) {
        PrintPrice(prices_, job_);
    } else if (waited_) {
        PrintDone();
    } else if (options_.dryRun && !match_.stale.empty()) {
        Print("nothing was sent: this was a dry run");
    } else if (job_.sent > 0 || status == kExitDone) {
        PrintSent(job_, name_);
        if (job_.sent >= job_.messages.size() + release_.Messages().size() &&
            !match_.stale.empty()) {
            PrintStaleSent(match_.stale);
        }
    }
}

int FileVerb::Run() {
    int status = CollectJob(options_.list, job_);
    before_ = ReadServiceState(options_.common.configPath);
    if (status == kExitDone) {
        if (job_.type == kRequestUnpinFiles && before_.known) {
            match_ = MatchList(before_.state, job_);
        }
        status = PackJob(options_.keepGoing, !match_.stale.empty(), job_);
    }
    if (status == kExitDone) {
        status = SendOrPrice();
        if (status == kExitDone && !job_.list.refusals.empty()) {
            status = kExitPartly;
        }
    }
    Finish(status);
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
