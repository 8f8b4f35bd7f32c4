// SPDX-License-Identifier: MIT
// Looking for what keeps the service from working, and what helps.
#pragma once

#include <string>
#include <vector>

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

// The volumes' part of it.
void ExamineVolumes(const std::string& configPath, std::vector<Finding>& findings);

}  // namespace client
