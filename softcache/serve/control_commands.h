// SPDX-License-Identifier: MIT
// The commands of the `control` file, one a line. The first five are doors for tests, there only
// when the cache was started with them:
//
//   refuse-control N            the N-th control request from now fails with EIO (1 = the next)
//   fail-read OFFSET LENGTH     reads of the device that touch these bytes fail with EIO
//   delay-read MS               every read of the device first waits MS milliseconds (0 = off)
//   delay-backing MS            the same for every read of the backing
//   clear-faults                undoes the four above
//   reset-counters              counters, released ranges and requests start again from nothing
//   support-pin 0|1             the registry entry's supportPin
//   state N                     the registry entry's state
#pragma once

#include <stdint.h>

#include <string>
#include <vector>

#include "softcache/serve/served_cache.h"

namespace softcache {

enum class ControlVerb {
    kRefuseControl,
    kFailRead,
    kDelayRead,
    kDelayBacking,
    kClearFaults,
    kResetCounters,
    kSupportPin,
    kState,
};

struct ControlCommand {
    ControlVerb verb;
    uint64_t numbers[2];  // as many as the verb takes, the rest 0
};

// Parses lines of commands; empty lines count for nothing, the last line may lack its line end.
// Returns false, with `commands` untouched, when any of them is not a command.
bool ParseControlText(const std::string& text, std::vector<ControlCommand>& commands);

// Carries a command out. Returns 0, or -errno when the registry entry cannot be rewritten.
int ApplyControlCommand(const ControlCommand& command, ServedCache& served);

// What a write of `text` to the file answers: 0; -EINVAL, and nothing is done, when a line of it is
// no command, or -EPERM when one is a door that is not there; -errno of the first command that
// fails, and nothing after it is done.
int RunControlText(const std::string& text, ServedCache& served);

}  // namespace softcache
