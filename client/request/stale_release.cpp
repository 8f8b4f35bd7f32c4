// SPDX-License-Identifier: MIT
#include "client/request/stale_release.h"

#include <time.h>

#include <algorithm>
#include <map>

#include "client/show/exit_status.h"
#include "client/request/interruption.h"
#include "client/show/output.h"
#include "client/show/progress.h"
#include "client/service/queue.h"
#include "client/service/service_process.h"

namespace client {

namespace {

constexpr long kPollNanoseconds = 50L * 1000 * 1000;

}  // namespace

StaleRelease::~StaleRelease() {
    while (!links_.empty()) {  // the last first: each restores what SIGHUP did before it
        links_.pop_back();
    }
}

bool StaleRelease::Prepare(const std::vector<StaleEntry>& entries, std::string& why) {
    std::map<const Volume*, std::vector<uint32_t>> inodes;
    for (const StaleEntry& entry : entries) {
        inodes[entry.volume].push_back(entry.stored.inode);
    }
    for (const auto& [volume, numbers] : inodes) {
        links_.push_back(std::make_unique<StaleEntryLinks>(*volume));
        if (!links_.back()->Make(numbers, why)) {
            return false;
        }
        // Requests of their own: the service drops each with all that it names.
        const std::vector<Message> more = PackFiles(kRequestUnpinFiles, links_.back()->Files());
        messages_.insert(messages_.end(), more.begin(), more.end());
    }
    return true;
}

bool StaleRelease::Waits(const StaleEntryLinks& links, const std::vector<Watched>& requests) const {
    return std::any_of(requests.begin(), requests.end(), [&links](const Watched& request) {
        return !WasStored(request) &&
               request.message.data.find(links.Directory() + "/") != std::string::npos;
    });
}

bool StaleRelease::AnyWaits(const std::vector<Watched>& requests) const {
    return std::any_of(links_.begin(), links_.end(),
                       [&](const auto& links) { return Waits(*links, requests); });
}

int StaleRelease::WaitUntilStored(std::vector<Watched>& requests, const std::string& configPath,
                                  int64_t base, unsigned seconds) const {
    const InterruptNote note;
    const double deadline = MonotonicSeconds() + seconds;
    int64_t quietNumber = -1;  // the next number at the last look that found the queue empty
    for (;;) {
        ConfigState state;
        QueueFacts facts;
        std::string why;
        if (!ReadConfigState(configPath, state, why)) {
            Say(why);
            return kExitNoService;
        }
        const bool empty = ReadQueueFacts(facts, why) && facts.messages == 0;
        Follow(requests, state, base, empty && quietNumber == state.nextNumber);
        quietNumber = empty ? state.nextNumber : -1;
        if (!AnyWaits(requests)) {
            return kExitDone;
        }
        if (InterruptNote::Signal() != 0) {
            return 128 + InterruptNote::Signal();
        }
        if (MonotonicSeconds() >= deadline) {
            return kExitTimedOut;
        }
        const struct timespec pause = {0, kPollNanoseconds};
        nanosleep(&pause, nullptr);
    }
}

void StaleRelease::Settle(const std::vector<Watched>& requests) {
    for (const auto& links : links_) {
        if (Waits(*links, requests)) {
            links->Keep();
            Say("requests that name files in " + Printable(links->Directory()) +
                " were not read yet; the directory must stay until they are");
        }
    }
}

bool IntakeWorks() {
    const std::vector<ServiceProcess> services = FindServices();
    return std::any_of(services.begin(), services.end(),
                       [](const ServiceProcess& service) { return service.intakeAlive; });
}

std::vector<StaleEntry> StillListed(const ConfigState& state,
                                    const std::vector<StaleEntry>& entries) {
    std::vector<StaleEntry> still;
    for (const StaleEntry& entry : entries) {
        const auto pinned = state.pinned.find(entry.volume->mountPath);
        const bool listed = pinned != state.pinned.end() &&
                            std::any_of(pinned->second.begin(), pinned->second.end(),
                                        [&entry](const StoredFile& stored) {
                                            return stored.inode == entry.stored.inode;
                                        });
        if (listed) {
            still.push_back(entry);
        }
    }
    return still;
}

}  // namespace client
