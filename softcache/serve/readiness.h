// SPDX-License-Identifier: MIT
// What the service manager is told, when there is one; else these do nothing.
#pragma once

#include <string>

namespace softcache {

// Whoever waited for the cache may go on: what `status` says can be used.
void TellReady(const std::string& status);

// The cache is being taken down, and how far that is.
void TellStopping(const std::string& status);

}  // namespace softcache
