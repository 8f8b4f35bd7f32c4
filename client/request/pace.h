// SPDX-License-Identifier: MIT
// How long requests take, measured from those that leave the queue while one looks.
#pragma once

#include <stddef.h>

#include <set>
#include <string>
#include <vector>

#include "client/service/config_state.h"

namespace client {

class Pace {
  public:
    // Notes the queue as it is `now`, in seconds that pass.
    void Look(const std::vector<StoredRequest>& queue, double now);

    // Returns about how many seconds it takes until so many requests, from the first, have left the
    // queue; 0 when none has left yet, so that it is not known.
    double SecondsFor(size_t requests) const;

  private:
    std::set<std::string> numbers_;  // queued at the last look
    size_t left_ = 0;                // that have left since the first look that found any
    double since_ = 0;               // that look; a time without requests does not count
    double lastLeft_ = 0;
    double now_ = 0;
};

}  // namespace client
