// SPDX-License-Identifier: MIT
#include "client/request/watch.h"

#include <algorithm>
#include <optional>

#include "client/request/reading.h"
#include "client/request/under_way.h"
#include "client/service/queue_look.h"
#include "client/service/service_process.h"
#include "client/show/exit_status.h"
#include "client/show/output.h"
#include "client/show/poll.h"
#include "client/show/progress.h"

namespace client {

namespace {

constexpr double kLookPause = 0.1;  // seconds between two looks

// What is asked anew at every look.
class Observer {
  public:
    Observer(std::vector<Watched>& requests, const WaitOptions& options)
        : requests_(requests), options_(options) {}

    // Looks once. Returns an exit status when there is nothing left to wait for.
    std::optional<int> Look();
    ProgressView View() { return underWay_.Look(requests_, state_, service_); }

  private:
    std::string WhyNotWorking();
    void TakeQueued();

    std::vector<Watched>& requests_;
    const WaitOptions& options_;
    ConfigState state_;
    ServiceProcess service_;
    UnderWay underWay_;
    uint64_t messages_ = 0;     // that wait, as far as they are waited for
    int64_t quietNumber_ = -1;  // the next number at the last look that found the queue empty
};

// Why the service does no more about the requests; empty when it works.
std::string Observer::WhyNotWorking() {
    // Found once: another service that is started meanwhile is not the one that was asked.
    if (service_.pid == 0) {
        const std::vector<ServiceProcess> services = FindServices();
        const auto ours =
            std::find_if(services.begin(), services.end(), [this](const ServiceProcess& service) {
                return IsConfigOf(service, options_.configPath);
            });
        if (ours == services.end()) {
            return "the service does not run here; the requests wait until it is started";
        }
        service_ = *ours;
    }
    if (!RefreshService(service_)) {
        return "the service has ended; what it has not finished waits until it is started again";
    }
    // What is in its file already needs the intake no more.
    const auto unseen = [](const Watched& request) { return request.state == WatchState::kUnseen; };
    if (!service_.intakeAlive && ((options_.queueOf && messages_ > 0) ||
                                  std::any_of(requests_.begin(), requests_.end(), unseen))) {
        return "the service takes no more requests: its intake has stopped; doctor may tell why";
    }
    return service_.workerAlive ? ""
                                : "the service carries out no more requests: its worker has "
                                  "ended; doctor may tell why";
}

// Whoever waits for the whole queue waits for what comes meanwhile too.
void Observer::TakeQueued() {
    const size_t known = requests_.size();
    std::vector<Volume> volumes;
    WatchQueued(state_, *options_.queueOf, requests_);
    if (requests_.size() > known) {
        ListVolumes(volumes);
    }
    for (size_t i = known; i < requests_.size(); ++i) {
        Watched& request = requests_[i];
        request.message.reading =
            ReadingOf({request.number, RequestTypeToString(request.message.type),
                       request.message.mountPath, request.message.stored},
                      volumes);
    }
}

std::optional<int> Observer::Look() {
    std::string why;
    if (!ReadConfigState(options_.configPath, state_, why)) {
        Say(why);
        return kExitNoService;
    }
    // A message that is just being stored is neither in the queue nor in the file, so the file is
    // believed only when it shows the same number as at the look before.
    const bool empty = CountWaiting(options_.queueOf.value_or(""), messages_) && messages_ == 0;
    const bool drained = empty && quietNumber_ == state_.nextNumber;
    quietNumber_ = empty ? state_.nextNumber : -1;
    if (options_.queueOf) {
        TakeQueued();
    }
    Follow(requests_, state_, options_.base, drained);
    // Whether it was carried out or dropped is judged by what holds afterwards.
    const auto left = [](const Watched& request) { return request.state == WatchState::kLeft; };
    if (std::all_of(requests_.begin(), requests_.end(), left) && (drained || !options_.queueOf)) {
        return kExitDone;
    }
    why = WhyNotWorking();
    if (!why.empty()) {
        Say(why);
        return kExitNoService;
    }
    return std::nullopt;
}

}  // namespace

int WaitForRequests(std::vector<Watched>& requests, const WaitOptions& options) {
    if (IsAnothersConfig(options.configPath)) {
        Say(std::string(options.queueOf ? "wait: " : "--wait: ") + Printable(options.configPath) +
            " is not the configuration file of the service that runs, so it will not show what "
            "becomes of the requests");
        return kExitNoService;
    }
    Observer observer(requests, options);
    const SignalNote note;
    const Poll poll(kLookPause, options.timeout > 0 ? options.timeout : kNoLimit, &note);
    Progress progress;
    std::optional<int> status;
    while (!(status = observer.Look())) {
        progress.Show(observer.View());
        // The bar goes before the words: they would stand behind it.
        if (!poll.Again()) {
            progress.Finish();
            Say(std::string(note.Signal() != 0 ? "interrupted" : "the time is over") +
                "; the requests stay queued, status shows them");
            return note.Signal() != 0 ? 128 + note.Signal() : kExitTimedOut;
        }
    }
    progress.Finish();
    return *status;
}

}  // namespace client
