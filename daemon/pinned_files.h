// SPDX-License-Identifier: MIT
// The list of pinned files that the configuration file keeps for each volume.
#pragma once

#include <json/json.h>

#include "util/request.h"

// Adds a pin request's files to its volume's list, or takes an unpin request's files off it; a
// volume left without files is removed. A file listed already keeps its recorded path. Other
// requests change nothing. Returns 0; or -1 when the request's data is malformed (created members
// stay).
int JsonUpdatePinFileInfo(Json::Value& document, const Request& request);
