// SPDX-License-Identifier: MIT
// Whether the service works.
#pragma once

#include <string>
#include <vector>

#include "client/verbs/status.h"

namespace client {

// Returns what keeps the service from taking requests and carrying them out, in words, one for each
// thing; empty when it works.
std::vector<std::string> FindProblems(const Status& status);

}  // namespace client
