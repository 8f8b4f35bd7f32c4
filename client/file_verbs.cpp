// SPDX-License-Identifier: MIT
// pin and unpin: requests about files.
#include <algorithm>
#include <map>

#include "client/exit_status.h"
#include "client/file_job.h"
#include "client/holding.h"
#include "client/output.h"
#include "client/price.h"
#include "client/sending.h"
#include "client/service_state.h"
#include "client/sharing.h"
#include "client/verbs.h"
#include "client/watch.h"

namespace {

Json::Value ToJson(const FileJob& job, const char* verb) {
    Json::Value report = NewReport(verb);
    report["files"] = Json::Value(Json::arrayValue);
    for (const FileRef& file : job.list.files) {
        report["files"].append(FileToJson(file));
    }
    report["mended"] = Json::Value(Json::arrayValue);
    for (const FileRef& file : job.mended) {
        report["mended"].append(FileToJson(file));
    }
    report["refused"] = RefusalsToJson(job.list.refusals);
    report["requests"] = static_cast<Json::UInt64>(job.messages.size() + job.mending.size());
    report["sent"] = static_cast<Json::UInt64>(job.sent);
    return report;
}

void PrintSent(const FileJob& job, const char* verb) {
    std::map<std::string, std::pair<size_t, size_t>> perVolume;  // files, requests
    for (size_t i = 0; i < job.sent && i < job.messages.size(); ++i) {
        auto& [files, requests] = perVolume[job.messages[i].mountPath];
        files += job.messages[i].numFiles;
        ++requests;
    }
    for (const auto& [mountPath, counts] : perVolume) {
        Print(Printable(mountPath) + ": " + verb + " of " + Counted(counts.first, "file") +
              " sent in " + Counted(counts.second, "request"));
    }
    if (!job.mended.empty() && job.sent == job.sending.size()) {
        Print(Counted(job.mended.size(), "pinned file shares", "pinned files share") +
              " units with them; pinned again by " + Counted(job.mending.size(), "request"));
    }
    if (job.messages.empty()) {
        Print("no files, nothing sent");
    }
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
    int SendOrPrice();
    int Wait();
    void Finish(int status);

    const char* const name_;
    const FileVerbOptions& options_;
    FileJob job_;
    ServiceState before_;
    std::vector<Price> prices_;
    std::vector<Holding> holdings_;
    std::vector<Holding> mendHoldings_;
};

int FileVerb::SendOrPrice() {
    if (job_.type == kRequestUnpinFiles && options_.mend) {
        if (before_.known) {
            PlanMending(before_.state, job_);
        } else if (!job_.messages.empty()) {
            Say("pinned files that share units with these are not looked for: " + before_.why);
        }
    }
    if (options_.dryRun) {
        prices_ = PriceOf(job_);
        return kExitDone;
    }
    if (options_.send.wait && !before_.known) {
        Say("--wait: " + before_.why + "; nothing was sent");
        return kExitNoService;
    }
    if (options_.send.wait) {
        before_ = ReadServiceState(options_.common);  // the planning may have taken long
    }
    job_.sending = job_.messages;
    job_.sending.insert(job_.sending.end(), job_.mending.begin(), job_.mending.end());
    if (job_.sending.empty()) {
        return kExitDone;
    }
    const int status = SendAll(job_.sending, options_.send.patience, job_.sent);
    const bool went = status == kExitDone || status == kExitPartly;
    return went && options_.send.wait ? std::max(status, Wait()) : status;
}

int FileVerb::Wait() {
    std::vector<Watched> requests = ToWatch(job_.sending, job_.sent);
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
    holdings_ = job_.type == kRequestPinFiles
                    ? HoldingAfterPin(after, job_.list.files, job_.mapper)
                    : HoldingAfterUnpin(after, job_.list.files, job_.volumes, job_.mapper);
    mendHoldings_ = HoldingAfterPin(after, job_.mended, job_.mapper);
    return AllHold(holdings_) && AllHold(mendHoldings_) ? kExitDone : kExitPartly;
}

void FileVerb::Finish(int status) {
    if (options_.common.json) {
        Json::Value report = ToJson(job_, name_);
        report["dryRun"] = options_.dryRun;
        if (options_.dryRun) {
            report["price"] = PriceToJson(prices_);
        }
        if (!holdings_.empty()) {
            report["holds"] = HoldingToJson(holdings_);
            report["mendedHolds"] = HoldingToJson(mendHoldings_);
        }
        PrintReport(report, status);
    } else if (!prices_.empty()) {
        PrintPrice(prices_, job_);
    } else if (!holdings_.empty()) {
        PrintHolding(holdings_, job_.type == kRequestPinFiles);
        PrintMendedHolding(mendHoldings_);
    } else if (job_.sent > 0 || status == kExitDone) {
        PrintSent(job_, name_);
    }
}

int FileVerb::Run() {
    int status = PrepareFiles(options_, job_);
    before_ = ReadServiceState(options_.common);
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
