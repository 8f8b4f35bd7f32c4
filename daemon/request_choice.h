// SPDX-License-Identifier: MIT
// Which stored request the worker runs next.
#pragma once

#include <string>

#include "util/request.h"

enum RequestChoice : int {
    kChoiceNothing = 0,  // nothing is runnable now
    kChoiceRequest = 2,  // a request was chosen
    kChoiceError = 3,    // the file cannot be read, is inconsistent, or cannot be written
};

// Blocks while nothing is queued, then fills in the first queued request whose volume has a cache
// that supports pinning and is not pending, and its number. Requests met on the way whose volume
// has no such cache any more are dropped from the file, with the volume's pinned-file list. The
// chosen request stays in the file. `request` comes in zero-filled. Returns a RequestChoice.
int ConfigParseAndGetNextAvailableRequest(const char* path, Request& request, std::string& number);
