// SPDX-License-Identifier: MIT
// What can be seen of requests on their way: which of them the service reads for and how far it is,
// how many it does before them, and about how long these take.
#pragma once

#include <stdint.h>

#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "client/request/follow.h"
#include "client/request/pace.h"
#include "client/request/reading.h"
#include "client/service/service_process.h"
#include "client/show/progress.h"

namespace client {

// Remembers what it saw at its last looks.
class UnderWay {
  public:
    // Looks at the service, whose queue is that of `state`, and what it does about the requests,
    // the states of which must be those of the same moment.
    ProgressView Look(const std::vector<Watched>& requests, const ConfigState& state,
                      const ServiceProcess& service);

  private:
    // The first of the requests that waits in the queue, and how many go before it.
    struct First {
        const Watched* request = nullptr;
        size_t ahead = 0;
    };

    std::string DeviceOf(const std::string& mountPath);
    void NoteRunning(const std::vector<Watched>& requests, const ConfigState& state,
                     const ServiceProcess& service);
    First FindFirst(const std::vector<Watched>& requests, const ConfigState& state) const;
    void DescribeState(const First& first, bool queued, ProgressView& view);

    std::map<std::string, std::string> devices_;  // by mount path
    Pace pace_;
    bool reading_ = false;                   // the service has a device open
    std::string number_;                     // of the request that it reads for, or last read for
    std::vector<FileMappingEntry> extents_;  // of that request
    uint64_t mostRead_ = 0;                  // bytes of these
    std::set<std::string> overtaken_;        // requests before that one: their volumes are pending
    std::string firstNumber_;                // of the first at the last look
    double firstSince_ = 0;                  // when it became that
};

}  // namespace client
