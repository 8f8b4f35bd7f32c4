// SPDX-License-Identifier: MIT
// Looking for what keeps the service from working, and what helps.
#pragma once

#include <string>
#include <vector>

#include "client/pins/pin_health.h"
#include "client/service/config_state.h"
#include "client/service/queue.h"
#include "client/service/service_process.h"
#include "client/verbs/options.h"

namespace client {

enum class Health { kGood, kDoubtful, kBad };

struct Finding {
    std::string subject;  // "key file"
    Health health;
    std::string text;
    std::string remedy;  // empty when nothing needs to be done
    // Of a finding about what is pinned on a device: in which state that is.
    PinHealth pins = PinHealth::kNothing;
};

// What the fix may do something about.
struct Diagnosis {
    std::vector<Finding> findings;
    int queue = -1;            // id, -1 when there is none
    bool badMessages = false;  // that can be taken away
    bool smallQueue = false;
    bool serviceMissing =
        false;  // the service or its queue is not there, or it has stopped working
};

Diagnosis Examine(const CommonOptions& options);

// The volumes' part of it. `state` is what the configuration file says, empty when it could not be
// read.
void ExamineVolumes(const ConfigState& state, std::vector<Finding>& findings);

// Whether the debug settings file at `path` names a file, so that the service makes a file's
// mapping fail.
void ExamineDebugSettings(const std::string& path, std::vector<Finding>& findings);

// Whether a copy of the list has files that the list has lost: a service that meets a volume
// without its cache drops the request and forgets what is pinned there.
void ExamineCopies(const std::string& configPath, const ConfigState& state,
                   std::vector<Finding>& findings);

}  // namespace client
