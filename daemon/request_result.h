// SPDX-License-Identifier: MIT
#pragma once

// What handling a request comes to.
enum RequestResult : int {
    kRequestDone = 0,
    kRequestFailed = 1,       // the request is dropped
    kRequestInterrupted = 2,  // the request stays queued and runs again later
};
