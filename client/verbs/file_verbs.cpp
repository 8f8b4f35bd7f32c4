// SPDX-License-Identifier: MIT
// pin and unpin: requests about files.
#include <unistd.h>

#include <algorithm>
#include <map>

#include "client/pins/device_state.h"
#include "client/pins/holding.h"
#include "client/pins/price.h"
#include "client/request/file_job.h"
#include "client/request/namesakes.h"
#include "client/request/sending.h"
#include "client/request/unneeded_links.h"
#include "client/service/service_process.h"
#include "client/service/stored_list.h"
#include "client/show/exit_status.h"
#include "client/show/output.h"
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
    bool Fits() const;
    int PlanWhatIsShared();
    int Send();
    int TakeOffEmptied();
    int Judge();
    std::vector<Record> DescribeCost() const;
    void AddHeld(Record& report) const;

    const char* const name_;
    const FileVerbOptions& options_;
    FileJob job_;
    ServiceState service_;
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
        // Only root sees whether a service runs that would undo a change of its list.
        MatchWithList(service_.state, geteuid() == 0 && FindServices().empty(), job_);
    }
    if (job_.type == kRequestPinFiles) {
        RefuseNamesakes(service_.state, job_.volumes, job_.list);
        NotePinned(service_.state, job_);
    }
    const bool fits = Fits();
    if (options_.list.link && !options_.dryRun && fits) {
        LinkFiles(options_.keepGoing, job_);
    }
    status = PackJob(options_.keepGoing, job_);
    // The price of what does not fit is what a dry run is for.
    if (status == kExitDone && !fits && !options_.dryRun) {
        return kExitRefused;
    }
    SayMatch(job_);
    if (job_.type == kRequestPinFiles && job_.list.linkable > 0) {
        Say("--link pins " + Counted(job_.list.linkable, "of these files", "of these files") +
            " by a hard link with a plain name");
    }
    return status == kExitDone && job_.type == kRequestUnpinFiles ? PlanWhatIsShared() : status;
}

// Says what the caches do not hold. Units beyond that are pinned in vain, and take the place of
// others.
bool FileVerb::Fits() const {
    if (job_.type != kRequestPinFiles || options_.overcommit) {
        return true;
    }
    const std::vector<Overcommit> found = FindOvercommits(service_.state, job_.list.files);
    for (const Overcommit& overcommit : found) {
        Say(overcommit.why);
    }
    if (!found.empty()) {
        Say(options_.dryRun ? "pin refuses that without --overcommit"
                            : "nothing was sent; --overcommit pins it all the same");
    }
    return found.empty();
}

// Looks for what else an unpin touches.
int FileVerb::PlanWhatIsShared() {
    if (!options_.repin || job_.messages.empty()) {
        return kExitDone;
    }
    if (service_.known) {
        job_.repinned = FilesToRepin(ReadDevicesOf(service_.state, job_.volumes, job_.list.files),
                                     job_.list.files);
        PackRepinned(job_);
        return kExitDone;
    }
    Say("pinned files that share units with these cannot be looked for: " + service_.why);
    // A price without the shared units is better than none.
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
    // The unpin went and the repin did not: bits are clear that pinned files need.
    if (!job_.repinned.empty() && job_.sent > 0 && job_.sent < job_.messages.size()) {
        Say("pinned files that share units with those unpinned were not all pinned again; run "
            "check --repair");
    }
    // Files that vanished meanwhile do not keep the others from being judged.
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
    if (job_.type == kRequestUnpinFiles) {
        RemoveLinksOf(job_.list.files, after);
    }
    return AllHold(holdings_) && AllHold(repinnedHoldings_) ? kExitDone : kExitPartly;
}

// Takes empty files off the list, which no request can. Their units are left over then; check
// --repair clears them.
int FileVerb::TakeOffEmptied() {
    StoredList stored;
    StoredLists lists;
    ConfigState now;
    std::string why;
    if (job_.emptied.empty()) {
        return kExitDone;
    }
    // Read under the lock: a repair that has just ended may have changed it.
    if (stored.Lock(service_.configPath, why) && ReadConfigState(service_.configPath, now, why)) {
        for (const PinnedFile& file : job_.emptied) {
            std::vector<StoredFile>& list = now.pinned[file.mountPath];
            list.erase(std::remove_if(list.begin(), list.end(),
                                      [&file](const StoredFile& entry) {
                                          return entry.inode == file.entry.inode;
                                      }),
                       list.end());
            lists[file.mountPath] = list;
        }
        if (stored.Replace(lists, why)) {
            return kExitDone;
        }
    }
    Say(why + "; empty files stay on the list");
    job_.emptied.clear();
    return kExitPartly;
}

std::vector<Record> FileVerb::DescribeCost() const {
    std::map<std::string, size_t> requests;
    for (const Message& message : job_.messages) {
        ++requests[message.mountPath];
    }
    return DescribePrices(job_.type == kRequestPinFiles, job_.list.files, job_.repinned, requests);
}

void FileVerb::AddHeld(Record& report) const {
    std::vector<Record> held;
    std::vector<Record> repinned;
    for (const Holding& holding : holdings_) {
        held.push_back(
            DescribeHolding(holding, job_.type == kRequestPinFiles ? "pinned" : "unpinned"));
    }
    for (const Holding& holding : repinnedHoldings_) {
        repinned.push_back(DescribeHolding(holding, "pinned again"));
    }
    report.List("holds", held, Layout::kBlocks);
    report.List("repinnedHolds", repinned, Layout::kBlocks);
    if (!job_.notPinned.empty()) {
        report.Line(std::to_string(job_.notPinned.size()) + " of them " +
                    (job_.notPinned.size() == 1 ? "was" : "were") + " not pinned before");
    }
}

int FileVerb::Run() {
    Record report;
    int status = Prepare();
    const bool ready = status == kExitDone;
    report.Add("dryRun", options_.dryRun);
    if (ready && options_.dryRun) {
        report.List("price", DescribeCost(), Layout::kBlocks);
        report.Line(job_.messages.empty() ? "no files" : "nothing was sent: this was a dry run");
        const std::string time = DescribeManyRequests(job_.messages.size());
        if (!time.empty()) {
            report.Line(time);
        }
    } else if (ready) {
        status = std::max(TakeOffEmptied(), Send());
    }
    for (size_t i = 0; ready && i < job_.emptied.size(); ++i) {
        report.Line(Printable(ListedPath(job_.emptied[i])) + ": empty, " +
                    (options_.dryRun ? "would be taken off the list" : "taken off the list"));
    }
    const bool all = job_.list.refusals.empty() && job_.passedOver.empty();
    // With --keep-going the others were done, and these were not.
    if (status == kExitDone && !all) {
        status = kExitPartly;
    }
    AddJob(job_, report);
    // After a wait it is known what holds, which is worth more than what was sent.
    if (waited_) {
        AddHeld(report);
    } else if (!options_.dryRun && (job_.sent > 0 || status == kExitDone)) {
        AddSent(job_, name_, report);
    }
    return Finish(name_, report, options_.common.json, status);
}

}  // namespace

int PinVerb(const FileVerbOptions& options) {
    return FileVerb("pin", kRequestPinFiles, options).Run();
}

int UnpinVerb(const FileVerbOptions& options) {
    return FileVerb("unpin", kRequestUnpinFiles, options).Run();
}

}  // namespace client
