// SPDX-License-Identifier: MIT
#include "client/request/follow.h"

#include <stdlib.h>

#include <set>

#include "util/stored_format.h"

namespace client {

namespace {

bool IsSameRequest(const Watched& request, const StoredRequest& stored) {
    return RequestTypeToString(request.message.type) == stored.type &&
           request.message.mountPath == stored.mountPath && request.message.stored == stored.data;
}

// Numbers run in a circle: what lies less than half of it ahead of `base` was given out after it.
bool CameAfter(int64_t base, const std::string& number) {
    const int64_t value = strtoll(number.c_str(), nullptr, 10);
    return NumberDistance(base, value) < kRequestNumModulus / 2;
}

}  // namespace

std::vector<Watched> ToWatch(const std::vector<Message>& messages, size_t count) {
    std::vector<Watched> requests;
    for (size_t i = 0; i < count; ++i) {
        requests.push_back({messages[i], WatchState::kUnseen, ""});
    }
    return requests;
}

void WatchQueued(const ConfigState& state, const std::string& mountPath,
                 std::vector<Watched>& requests) {
    std::set<std::string> known;
    for (const Watched& request : requests) {
        known.insert(request.number);
    }
    for (const StoredRequest& stored : state.queue) {
        if ((mountPath.empty() || stored.mountPath == mountPath) &&
            known.count(stored.number) == 0) {
            const Message message = {static_cast<RequestType>(StringToRequestType(stored.type)),
                                     stored.mountPath,
                                     "",
                                     stored.data,
                                     ParseStoredFiles(stored.data).size(),
                                     {}};
            requests.push_back({message, WatchState::kQueued, stored.number});
        }
    }
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
        // Two equal requests are two: each takes a number that no other of ours has.
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
        drained && given < kRequestNumModulus / 2 && given >= static_cast<int64_t>(requests.size());
    for (auto request = requests.rbegin(); request != requests.rend(); ++request) {
        // From the last to the first, so that one that was seen stands for all before it.
        if (request->state == WatchState::kUnseen && laterSeen) {
            request->state = WatchState::kLeft;
        }
        laterSeen = laterSeen || request->state != WatchState::kUnseen;
    }
}

}  // namespace client
