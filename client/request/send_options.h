// SPDX-License-Identifier: MIT
// How requests are sent and waited for.
#pragma once

namespace client {

struct SendOptions {
    unsigned patience = 30;  // seconds that a full queue is given
    bool wait = false;       // until the requests are done
    unsigned timeout = 0;    // seconds that the wait may take; 0 = as long as it takes
};

}  // namespace client
