// SPDX-License-Identifier: MIT
// A record of the system's journal, with fields for programs beside its line for people.
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace client {

// Writes one record of these fields, MESSAGE among them, when standard error goes to the journal,
// as a unit's does. A value must be printable. Returns false when it goes elsewhere, or the record
// could not be written; then nothing has been said.
bool WriteToJournal(const std::vector<std::pair<const char*, std::string>>& fields);

}  // namespace client
