// SPDX-License-Identifier: MIT
// A file that the service lists as pinned, and what has become of it.
#pragma once

#include <string>
#include <vector>

#include "client/service/config_state.h"
#include "client/volume/file_ref.h"
#include "client/volume/mapping.h"
#include "client/volume/units.h"

namespace client {

// A file counts as gone only if its own volume was searched for it: repair drops the entry of a
// file that is gone, and clears its units.
enum class Fate {
    kThere,     // lies at its path
    kGone,      // lies neither at its path nor, under any other name, on its volume
    kReplaced,  // another file lies at its path
    kRenamed,   // lies on its volume under another name; stays pinned, as an entry is an inode
    kUnknown,   // cannot be looked at: its volume is not mounted, a directory cannot be read
};

// Returns the fate in the words of every verb: "there", "gone", "replaced", "renamed", "cannot be
// looked at".
const char* FateName(Fate fate);

struct PinnedFile {
    StoredFile entry;
    std::string mountPath;  // that it is listed by
    Fate fate = Fate::kUnknown;
    FileRef file;     // the listed file itself, where it lies now: filled when there or renamed
    UnitRuns units;   // its units, filled by MapPinned
    std::string why;  // a sentence's rest that explains the fate; empty when the file is there
};

// Returns the absolute path that it is listed by.
std::string ListedPath(const PinnedFile& pinned);

// Whether it is known where the file lies: it is there, or was renamed.
bool IsFound(const PinnedFile& pinned);

// Looks for the entries' files, all listed by the volume's mount path. Searches the volume once
// when any of them does not lie at its path.
std::vector<PinnedFile> InspectEntries(const std::vector<StoredFile>& entries,
                                       const Volume& volume);

// The same by the mount path that lists them; unknown when no volume is mounted there.
std::vector<PinnedFile> InspectListed(const std::vector<StoredFile>& entries,
                                      const std::string& mountPath,
                                      const std::vector<Volume>& volumes);

// The same as InspectEntries without the search: a file that is not at its path is kGone here,
// wherever it may be.
std::vector<PinnedFile> InspectAtPaths(const std::vector<StoredFile>& entries,
                                       const Volume& volume);

// Fills the extents and units of a file that is there or was renamed. One that cannot be mapped
// becomes kUnknown.
void MapPinned(PinnedFile& pinned, Mapper& mapper);

// Returns the entries as files that cannot be looked at, because no volume is mounted there.
std::vector<PinnedFile> UnmountedEntries(const std::vector<StoredFile>& entries,
                                         const std::string& mountPath);

}  // namespace client
