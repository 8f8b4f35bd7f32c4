// SPDX-License-Identifier: MIT
// Choosing the stored request that the worker runs next.
#pragma once

#include <string>

#include "util/request.h"

enum RequestChoice : int {
    kChoiceNothing = 0,  // nothing is runnable now
    kChoiceRequest = 2,  // a request was chosen
    kChoiceError = 3,    // the file cannot be read, is inconsistent, or cannot be written
};

// Blocks while nothing is queued. Then chooses the first queued request whose volume has a cache
// that supports pinning and is not pending, and fills in `request`, which must be zero-filled, and
// its number. The chosen request stays in the file.
//
// A request found before it whose volume has no such cache is dropped from the file, together with
// the volume's list of pinned files. Returns a RequestChoice.
int ConfigParseAndGetNextAvailableRequest(const char* path, Request& request, std::string& number);
