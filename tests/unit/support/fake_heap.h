// SPDX-License-Identifier: MIT
// What the code under test takes from the C heap and has not given back. C++ objects are not
// counted: their library allocates for itself.
#pragma once

#include <string>
#include <vector>

// Counts from now on, from nothing.
void HeapWatchStart();
void HeapWatchStop();

// Adds a block that the caller allocated and the code under test has to free.
void HeapWatchAdd(void* block, const char* label);

// Labels of the blocks held, by the call that made them.
std::vector<std::string> HeapBlocksHeld();
