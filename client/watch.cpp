// SPDX-License-Identifier: MIT
#include "client/watch.h"

#include <signal.h>
#include <sys/msg.h>
#include <time.h>

#include <algorithm>
#include <map>
#include <set>

#include "client/exit_status.h"
#include "client/output.h"
#include "client/progress.h"
#include "client/queue.h"
#include "client/units.h"
#include "client/volume_view.h"
#include "util/scoped.h"
#include "util/space.h"

namespace {

constexpr long kPollNanoseconds = 100 * 1000 * 1000;

volatile sig_atomic_t g_interrupted = 0;

void NoteInterrupt(int sig) {
    g_interrupted = sig;
}

// Notes SIGINT and SIGTERM for the time of a wait, so that the bar is taken away before the end.
class InterruptGuard {
  public:
    InterruptGuard() {
        struct sigaction note = {};
        note.sa_handler = NoteInterrupt;
        sigaction(SIGINT, &note, &interrupt_);
        sigaction(SIGTERM, &note, &terminate_);
    }
    ~InterruptGuard() {
        sigaction(SIGINT, &interrupt_, nullptr);
        sigaction(SIGTERM, &terminate_, nullptr);
    }
    InterruptGuard(const InterruptGuard&) = delete;
    InterruptGuard& operator=(const InterruptGuard&) = delete;

  private:
    struct sigaction interrupt_ = {};
    struct sigaction terminate_ = {};
};

bool IsSameRequest(const Watched& request, const StoredRequest& stored) {
    return RequestTypeToString(request.message.type) == stored.type &&
           request.message.mountPath == stored.mountPath && request.message.stored == stored.data;
}

bool CameAfter(int64_t base, const std::string& number) {
    const int64_t value = strtoll(number.c_str(), nullptr, 10);
    return NumberDistance(base, value) < kRequestNumbers / 2;
}

// What is asked anew at every look.
class Observer {
  public:
    Observer(std::vector<Watched>& requests, const WaitOptions& options)
        : requests_(requests), options_(options) {}

    // Looks once. Returns false, with an exit status, when there is nothing to wait for any more.
    bool Look(int& status);
    ProgressView View();

  private:
    bool ServiceWorks();
    std::string DevicePath(const std::string& mountPath);
    const Watched* FirstQueued() const;
    std::string StateText(const Watched* first, bool reading) const;

    std::vector<Watched>& requests_;
    const WaitOptions& options_;
    ConfigState state_;
    ServiceProcess service_;
    std::map<std::string, std::string> devices_;
    int64_t quietNumber_ = -1;  // the next number at the last look that found the queue empty
    uint64_t mostRead_ = 0;
    std::string readingNumber_;
};

bool Observer::ServiceWorks() {
    if (service_.pid == 0) {
        const std::vector<ServiceProcess> services = FindServices();
        if (services.empty()) {
            Say("the service does not run here; the requests wait until it is started");
            return false;
        }
        service_ = services.front();
    }
    if (!RefreshService(service_)) {
        Say("the service has ended; what it has not finished waits until it is started again");
        return false;
    }
    const auto unseen = [](const Watched& request) { return request.state == WatchState::kUnseen; };
    if (!service_.intakeAlive && std::any_of(requests_.begin(), requests_.end(), unseen)) {
        Say("the service takes no more requests: its intake has stopped; doctor may tell why");
        return false;
    }
    if (!service_.workerAlive) {
        Say("the service carries out no more requests: its worker has ended; doctor may tell why");
        return false;
    }
    return true;
}

bool Observer::Look(int& status) {
    std::string why;
    if (!ReadConfigState(options_.configPath, state_, why)) {
        Say(why);
        status = kExitNoService;
        return false;
    }
    // A message that is just being stored is neither in the queue nor in the file, so the file is
    // believed only when it shows the same number as at the look before.
    QueueFacts facts;
    std::string queueWhy;
    const bool empty = ReadQueueFacts(facts, queueWhy) && facts.messages == 0;
    Follow(requests_, state_, options_.base, empty && quietNumber_ == state_.nextNumber);
    quietNumber_ = empty ? state_.nextNumber : -1;
    const auto left = [](const Watched& request) { return request.state == WatchState::kLeft; };
    if (std::all_of(requests_.begin(), requests_.end(), left)) {
        status = kExitDone;
        return false;
    }
    if (!ServiceWorks()) {
        status = kExitNoService;
        return false;
    }
    return true;
}

std::string Observer::DevicePath(const std::string& mountPath) {
    const auto known = devices_.find(mountPath);
    if (known != devices_.end()) {
        return known->second;
    }
    const CString path(SpaceGetCachePathByMountPath(mountPath.c_str()));
    return devices_[mountPath] = path ? path.get() : "";
}

// The request of ours that the service may be at: the first of its volume's queue.
const Watched* Observer::FirstQueued() const {
    std::set<std::string> volumes;
    for (const StoredRequest& stored : state_.queue) {
        if (!volumes.insert(stored.mountPath).second) {
            continue;
        }
        for (const Watched& request : requests_) {
            if (request.state == WatchState::kQueued && request.number == stored.number) {
                return &request;
            }
        }
    }
    return nullptr;
}

std::string Observer::StateText(const Watched* first, bool reading) const {
    if (first == nullptr) {
        const bool queued = std::any_of(
            requests_.begin(), requests_.end(),
            [](const Watched& request) { return request.state == WatchState::kQueued; });
        return queued ? "waits for the requests before it" : "on its way into the queue";
    }
    if (reading) {
        return "reading";
    }
    return first->number == readingNumber_ ? "interrupted, waits (is the volume pending?)"
                                           : "next or just begun";
}

ProgressView Observer::View() {
    ProgressView view;
    const Watched* const first = FirstQueued();
    uint64_t position = 0;
    const bool reading =
        first != nullptr && ReadPosition(service_, DevicePath(first->message.mountPath), position);
    if (reading && first->number != readingNumber_) {
        readingNumber_ = first->number;
        mostRead_ = 0;
    }
    for (const Watched& request : requests_) {
        const uint64_t bytes = BytesOf(request.message.reading, true);
        view.bytes += bytes;
        if (request.state == WatchState::kLeft) {
            view.bytesDone += bytes;
            ++view.requestsDone;
        }
    }
    if (reading) {
        mostRead_ = std::max(mostRead_, BytesRead(first->message.reading, position));
        view.bytesDone += mostRead_;
    }
    view.requests = requests_.size();
    view.state = StateText(first, reading);
    return view;
}

}  // namespace

std::vector<Watched> ToWatch(const std::vector<Message>& messages, size_t count) {
    std::vector<Watched> requests;
    for (size_t i = 0; i < count; ++i) {
        requests.push_back({messages[i], WatchState::kUnseen, ""});
    }
    return requests;
}

bool WasStored(const Watched& request) {
    return request.state != WatchState::kUnseen;
}

void Follow(std::vector<Watched>& requests, const ConfigState& state, int64_t base, bool drained) {
    std::set<std::string> present;
    std::set<std::string> taken;
    for (const StoredRequest& stored : state.queue) {
        present.insert(stored.number);
    }
    for (const Watched& request : requests) {
        taken.insert(request.number);
    }
    for (Watched& request : requests) {
        if (request.state == WatchState::kQueued && present.count(request.number) == 0) {
            request.state = WatchState::kLeft;
        }
        for (const StoredRequest& stored : state.queue) {
            if (request.state == WatchState::kUnseen && IsSameRequest(request, stored) &&
                CameAfter(base, stored.number) && taken.insert(stored.number).second) {
                request.state = WatchState::kQueued;
                request.number = stored.number;
            }
        }
    }
    // Messages are stored in the order in which they were sent: one that is missing before one that
    // was seen has come and gone between two looks.
    const int64_t given = NumberDistance(base, state.nextNumber);
    bool laterSeen =
        drained && given < kRequestNumbers / 2 && given >= static_cast<int64_t>(requests.size());
    for (auto request = requests.rbegin(); request != requests.rend(); ++request) {
        if (request->state == WatchState::kUnseen && laterSeen) {
            request->state = WatchState::kLeft;
        }
        laterSeen = laterSeen || request->state != WatchState::kUnseen;
    }
}

uint64_t BytesRead(const std::vector<FileMappingEntry>& reading, uint64_t position) {
    uint64_t before = 0;
    for (const FileMappingEntry& extent : reading) {
        const uint64_t start = extent.deviceStartSector * kSectorBytes;
        const uint64_t length = extent.numSectors * kSectorBytes;
        if (extent.uninitialized == 1) {
            continue;
        }
        if (position > start && position <= start + length) {
            return before + position - start;
        }
        before += length;
    }
    return 0;
}

int WaitForRequests(std::vector<Watched>& requests, const WaitOptions& options) {
    Observer observer(requests, options);
    const InterruptGuard guard;
    Progress progress;
    const double deadline = MonotonicSeconds() + options.timeout;
    int status = kExitDone;
    g_interrupted = 0;
    while (observer.Look(status)) {
        progress.Show(observer.View());
        const struct timespec pause = {0, kPollNanoseconds};
        nanosleep(&pause, nullptr);
        if (g_interrupted != 0 || (options.timeout > 0 && MonotonicSeconds() >= deadline)) {
            progress.Finish();
            Say(std::string(g_interrupted != 0 ? "interrupted" : "the time is over") +
                "; the requests stay queued, status shows them");
            return g_interrupted != 0 ? 128 + g_interrupted : kExitTimedOut;
        }
    }
    progress.Finish();
    return status;
}
