// SPDX-License-Identifier: MIT
// Following requests that were sent. The service answers nothing, so the configuration file has to
// show it: a request is recognised there by its type, volume and stored data, and has ended when
// its number has left the queue.
#pragma once

#include <stdint.h>

#include <string>
#include <vector>

#include "client/request/packing.h"
#include "client/service/config_state.h"

namespace client {

enum class WatchState {
    kUnseen,  // still in the message queue, or on the way into the file
    kQueued,
    kLeft,  // done or dropped
};

struct Watched {
    Message message;
    WatchState state = WatchState::kUnseen;
    std::string number;  // once it has been seen
};

// Returns the first `count` messages as requests to wait for.
std::vector<Watched> ToWatch(const std::vector<Message>& messages, size_t count);

// Adds what is queued, of the volume or, when `mountPath` is empty, of any, and not among the
// requests yet. What it reads stays unknown.
void WatchQueued(const ConfigState& state, const std::string& mountPath,
                 std::vector<Watched>& requests);

// Advances the states by one reading of the file. `base` is the next number as it was before the
// first message was sent. `drained` means that the message queue is empty: a request that is not in
// the file has then been there and left, provided that enough numbers were given out since `base`.
void Follow(std::vector<Watched>& requests, const ConfigState& state, int64_t base, bool drained);

}  // namespace client
