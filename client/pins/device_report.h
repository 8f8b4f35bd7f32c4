// SPDX-License-Identifier: MIT
// A device's state in words, and as a check's record.
#pragma once

#include <string>

#include "client/pins/device_state.h"
#include "client/show/report.h"

namespace client {

// Returns what is wrong with the listed file, as in "gone: is nowhere on its volume"; empty when
// nothing is.
std::string Remark(const DeviceState& device, const PinnedFile& pinned);

// Describes an entry: path, volume, inode, fate, reason.
Record DescribeEntry(const PinnedFile& pinned);

Record DescribeDevice(const DeviceState& device);

// Describes the files that are listed under a mount path at which no volume is mounted.
Record DescribeUnmounted(const std::string& mountPath, const std::vector<PinnedFile>& entries);

}  // namespace client
