// SPDX-License-Identifier: MIT
// The command's exit statuses, the same for every verb.
#pragma once

namespace client {

enum ExitStatus : int {
    kExitDone = 0,
    kExitPartly = 1,     // some of what was asked holds, some does not
    kExitUsage = 2,      // the command line is wrong
    kExitNoService = 3,  // the service, its queue or its configuration file is not there
    kExitTimedOut = 4,   // the queue stayed full, or the wait was over before the requests were
    kExitRefused = 5,    // refused before anything was sent
    // Of what is pinned, when nothing above is wrong:
    kExitNotCached = 6,   // units are not in the cache yet
    kExitOverfull = 7,    // it is more than the cache holds
    kExitNotInForce = 8,  // no cache keeps it, or the cache has other bits
};

}  // namespace client
