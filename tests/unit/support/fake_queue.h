// SPDX-License-Identifier: MIT
// The calls of message queues, with failures to order (fake_system.h) and how queues were asked
// for.
#pragma once

#include <vector>

void FakeQueueReset();

// Flags of every msgget, in order, failed ones too.
std::vector<int> QueueFlagsAsked();
