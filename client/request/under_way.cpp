// SPDX-License-Identifier: MIT
#include "client/request/under_way.h"

#include <algorithm>

#include "client/show/output.h"
#include "client/show/poll.h"
#include "util/scoped.h"
#include "util/space.h"

namespace client {

namespace {

constexpr double kSoon = 3;  // seconds in which a request that is first usually begins

const Watched* FindNumber(const std::vector<Watched>& requests, const std::string& number) {
    const auto found =
        std::find_if(requests.begin(), requests.end(), [&number](const Watched& request) {
            return request.state == WatchState::kQueued && request.number == number;
        });
    return found == requests.end() ? nullptr : &*found;
}

// What a request reads. The watched ones know; another's files are looked at.
std::vector<FileMappingEntry> ExtentsOf(const StoredRequest& stored,
                                        const std::vector<Watched>& requests) {
    const Watched* const ours = FindNumber(requests, stored.number);
    std::vector<Volume> volumes;
    if (ours != nullptr) {
        return ours->message.reading;
    }
    ListVolumes(volumes);
    return ReadingOf(stored, volumes);
}

}  // namespace

std::string UnderWay::DeviceOf(const std::string& mountPath) {
    const auto known = devices_.find(mountPath);
    if (known != devices_.end()) {
        return known->second;
    }
    // Asked for once a volume: the platform looks at every mount for it.
    const CString path(SpaceGetCachePathByMountPath(mountPath.c_str()));
    return devices_[mountPath] = path ? path.get() : "";
}

void UnderWay::NoteRunning(const std::vector<Watched>& requests, const ConfigState& state,
                           const ServiceProcess& service) {
    const std::optional<RunningRequest> running = FindRunning(
        state.queue, service, [this](const std::string& mountPath) { return DeviceOf(mountPath); });
    reading_ = running.has_value();
    if (!reading_) {
        return;
    }
    const StoredRequest& stored = state.queue[running->index];
    // Each request reads from its own begin.
    if (stored.number != number_) {
        number_ = stored.number;
        extents_ = ExtentsOf(stored, requests);
        mostRead_ = 0;
    }
    // Between two extents the reader may stand in neither; what was shown must not shrink then.
    mostRead_ = std::max(mostRead_, BytesRead(extents_, running->position));
    overtaken_.clear();
    for (size_t i = 0; i < running->index; ++i) {
        overtaken_.insert(state.queue[i].number);
    }
}

UnderWay::First UnderWay::FindFirst(const std::vector<Watched>& requests,
                                    const ConfigState& state) const {
    First first;
    const Watched* const running = reading_ ? FindNumber(requests, number_) : nullptr;
    if (running != nullptr) {
        return {running, 0};
    }
    for (const StoredRequest& stored : state.queue) {
        first.request = FindNumber(requests, stored.number);
        if (first.request != nullptr) {
            return first;
        }
        // What was overtaken may be so again: nobody can tell when its volume is released.
        first.ahead += overtaken_.count(stored.number) == 0 ? 1 : 0;
    }
    return {};
}

void UnderWay::DescribeState(const First& first, bool queued, ProgressView& view) {
    const std::string number = first.request == nullptr ? "" : first.request->number;
    const bool ours = reading_ && number == number_;
    // How long it has been the first tells a pause from a beginning.
    if (!number.empty() && number != firstNumber_) {
        firstNumber_ = number;
        firstSince_ = MonotonicSeconds();
    }
    // What the service does cannot be seen, only what it does not: it has the device open while it
    // reads, and a pending volume's requests are passed over.
    view.stuck = true;
    if (first.ahead > 0) {
        view.state = "waits for the requests before it";
        firstSince_ = MonotonicSeconds();
    } else if (!ours && !number.empty() && number == number_) {
        view.state = "interrupted, waits (is the volume pending?)";
    } else if (!ours && !number.empty() && MonotonicSeconds() - firstSince_ > kSoon) {
        view.state = "waits (for blocks of a fresh file, or is the volume pending?)";
    } else {
        view.stuck = false;
        view.state = ours ? "reading" : queued ? "about to begin" : "on its way into the queue";
    }
}

ProgressView UnderWay::Look(const std::vector<Watched>& requests, const ConfigState& state,
                            const ServiceProcess& service) {
    ProgressView view;
    bool queued = false;
    pace_.Look(state.queue, MonotonicSeconds());
    NoteRunning(requests, state, service);
    const First first = FindFirst(requests, state);
    for (const Watched& request : requests) {
        // What was never written is not read either, and would keep the bar from its end.
        const uint64_t bytes = BytesOf(WrittenOf(request.message.reading));
        view.bytes += bytes;
        if (request.state == WatchState::kLeft) {
            view.bytesDone += bytes;
            ++view.requestsDone;
        }
        queued = queued || request.state == WatchState::kQueued;
    }
    // Also when the reading is over and its request is about to leave the queue.
    if (first.request != nullptr && first.request->number == number_) {
        view.bytesDone += mostRead_;
    }
    view.requests = requests.size();
    view.ahead = first.ahead;
    view.aheadSeconds = pace_.SecondsFor(first.ahead);
    view.percent = Percent(mostRead_, reading_ ? BytesOf(WrittenOf(extents_)) : 0);
    DescribeState(first, queued, view);
    return view;
}

}  // namespace client
