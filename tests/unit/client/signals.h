// SPDX-License-Identifier: MIT
// What happens to a function under test once it waits.
#pragma once

#include <functional>
#include <thread>

namespace client {

// Calls `act` once a function under test notes signals: what it waits with has begun then.
std::thread OnceSignalsAreNoted(const std::function<void()>& act);

}  // namespace client
