// SPDX-License-Identifier: MIT
// What of a captured log line differs from run to run, replaced by '#'.
#pragma once

#include <string>

// The number of a system log line, "<3>FILE:12 ..." or "<3>FILE:12 FUNCTION() [12] ...". The one in
// brackets only when it is the same.
void MaskSystemLine(std::string& text);

// The number in brackets at the head of every line, "PROCESS: FUNCTION() [12]...".
void MaskStdout(std::string& text);

// Addresses, as "0x#".
std::string MaskAddressesIn(const std::string& text);
