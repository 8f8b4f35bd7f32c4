// SPDX-License-Identifier: MIT
// Following requests that were sent, by what the configuration file shows. The service answers
// nothing: a request is recognised there by its type, volume and stored data, and is over when its
// number has left the queue.
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
    std::string number;  // once it was seen
};

// Returns the first `count` messages as requests to be waited for.
std::vector<Watched> ToWatch(const std::vector<Message>& messages, size_t count);

// Advances the states by a view of the file. `base` is the next number as it was before the first
// message was sent; `drained` tells that the message queue is empty: what is not in the file then
// has been there and left, provided that as many numbers were given since.
void Follow(std::vector<Watched>& requests, const ConfigState& state, int64_t base, bool drained);

// Returns how many bytes of these extents a reader at `position` on the device has read; 0 when it
// is at none of them. Extents that were never written are not read.
uint64_t BytesRead(const std::vector<FileMappingEntry>& reading, uint64_t position);

}  // namespace client
