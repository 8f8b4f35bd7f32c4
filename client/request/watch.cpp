// SPDX-License-Identifier: MIT
#include "client/request/watch.h"

#include <algorithm>
#include <map>
#include <optional>
#include <set>

#include "client/service/queue.h"
#include "client/service/service_process.h"
#include "client/show/exit_status.h"
#include "client/show/output.h"
#include "client/show/poll.h"
#include "client/show/progress.h"
#include "client/volume/units.h"
#include "client/volume/volume_view.h"
#include "util/scoped.h"
#include "util/space.h"

namespace client {

namespace {

constexpr double kSoon = 3;         // seconds in which a request that is first usually begins
constexpr double kLookPause = 0.1;  // seconds between two looks

// What is asked anew at every look.
class Observer {
  public:
    Observer(std::vector<Watched>& requests, const WaitOptions& options)
        : requests_(requests), options_(options) {}

    // Looks once. Returns an exit status when there is nothing left to wait for.
    std::optional<int> Look();
    ProgressView View();

  private:
    std::string WhyNotWorking();
    std::string DevicePath(const std::string& mountPath);
    const Watched* FirstQueued() const;
    void DescribeState(const Watched* first, bool reading, ProgressView& view) const;

    std::vector<Watched>& requests_;
    const WaitOptions& options_;
    ConfigState state_;
    ServiceProcess service_;
    std::map<std::string, std::string> devices_;
    int64_t quietNumber_ = -1;  // the next number at the last look that found the queue empty
    uint64_t mostRead_ = 0;
    std::string readingNumber_;
    std::string firstNumber_;  // the request that was first at the last look, and since when
    double firstSince_ = 0;
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
    if (!service_.intakeAlive && std::any_of(requests_.begin(), requests_.end(), unseen)) {
        return "the service takes no more requests: its intake has stopped; doctor may tell why";
    }
    return service_.workerAlive ? ""
                                : "the service carries out no more requests: its worker has "
                                  "ended; doctor may tell why";
}

std::optional<int> Observer::Look() {
    std::string why;
    if (!ReadConfigState(options_.configPath, state_, why)) {
        Say(why);
        return kExitNoService;
    }
    // A message that is just being stored is neither in the queue nor in the file, so the file is
    // believed only when it shows the same number as at the look before.
    QueueFacts facts;
    std::string queueWhy;
    const bool empty = ReadQueueFacts(facts, queueWhy) && facts.messages == 0;
    Follow(requests_, state_, options_.base, empty && quietNumber_ == state_.nextNumber);
    quietNumber_ = empty ? state_.nextNumber : -1;
    // Whether it was carried out or dropped is judged by what holds afterwards.
    const auto left = [](const Watched& request) { return request.state == WatchState::kLeft; };
    if (std::all_of(requests_.begin(), requests_.end(), left)) {
        return kExitDone;
    }
    why = WhyNotWorking();
    if (!why.empty()) {
        Say(why);
        return kExitNoService;
    }
    return std::nullopt;
}

std::string Observer::DevicePath(const std::string& mountPath) {
    const auto known = devices_.find(mountPath);
    if (known != devices_.end()) {
        return known->second;
    }
    // Asked for once a volume: the platform looks at every mount for it.
    const CString path(SpaceGetCachePathByMountPath(mountPath.c_str()));
    return devices_[mountPath] = path ? path.get() : "";
}

// The request of ours that the service may be at: the first of its volume's queue.
const Watched* Observer::FirstQueued() const {
    std::set<std::string> volumes;
    for (const StoredRequest& stored : state_.queue) {
        if (!volumes.insert(stored.mountPath).second) {
            continue;  // it waits for the one before it
        }
        for (const Watched& request : requests_) {
            if (request.state == WatchState::kQueued && request.number == stored.number) {
                return &request;
            }
        }
    }
    return nullptr;
}

void Observer::DescribeState(const Watched* first, bool reading, ProgressView& view) const {
    const bool queued = std::any_of(requests_.begin(), requests_.end(), [](const Watched& request) {
        return request.state == WatchState::kQueued;
    });
    // What the service does cannot be seen, only what it does not: it has the device open while it
    // reads, and a pending volume's requests are passed over.
    view.stuck = true;
    if (first == nullptr && queued) {
        view.state = "waits for the requests before it";
    } else if (!reading && first != nullptr && first->number == readingNumber_) {
        view.state = "interrupted, waits (is the volume pending?)";
    } else if (!reading && first != nullptr && MonotonicSeconds() - firstSince_ > kSoon) {
        view.state = "waits (for blocks of a fresh file, or is the volume pending?)";
    } else {
        view.stuck = false;
        view.state = reading            ? "reading"
                     : first == nullptr ? "on its way into the queue"
                                        : "about to begin";
    }
}

ProgressView Observer::View() {
    ProgressView view;
    const Watched* const first = FirstQueued();
    uint64_t position = 0;
    const bool reading =
        first != nullptr && ReadPosition(service_, DevicePath(first->message.mountPath), position);
    // Each request reads from its own begin.
    if (reading && first->number != readingNumber_) {
        readingNumber_ = first->number;
        mostRead_ = 0;
    }
    for (const Watched& request : requests_) {
        // What was never written is not read either, and would keep the bar from its end.
        const uint64_t bytes = BytesOf(WrittenOf(request.message.reading));
        view.bytes += bytes;
        if (request.state == WatchState::kLeft) {
            view.bytesDone += bytes;
            ++view.requestsDone;
        }
    }
    if (reading) {
        // Between two extents the reader stands in neither; what was shown must not shrink then.
        mostRead_ = std::max(mostRead_, BytesRead(first->message.reading, position));
    }
    // Nor when the reading is over and its request is about to leave the queue.
    if (first != nullptr && first->number == readingNumber_) {
        view.bytesDone += mostRead_;
    }
    // How long it has been the first tells a pause from a beginning.
    if (first != nullptr && first->number != firstNumber_) {
        firstNumber_ = first->number;
        firstSince_ = MonotonicSeconds();
    }
    view.requests = requests_.size();
    DescribeState(first, reading, view);
    return view;
}

}  // namespace

int WaitForRequests(std::vector<Watched>& requests, const WaitOptions& options) {
    if (IsAnothersConfig(options.configPath)) {
        Say("--wait: " + Printable(options.configPath) +
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
