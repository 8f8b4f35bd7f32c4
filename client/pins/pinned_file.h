// SPDX-License-Identifier: MIT
// A file that the service lists as pinned, and what has become of it.
#pragma once

#include <string>
#include <vector>

#include "client/service/config_state.h"
#include "client/volume/file_ref.h"
#include "client/volume/units.h"

namespace client {

// A file counts as gone only if its own volume was searched for it: repair drops the entry of a
// file that is gone, and clears its units.
enum class Fate {
    kThere,     // lies at its path
    kGone,      // lies nowhere on its volume
    kReplaced,  // another file lies at its path
    kRenamed,   // lies elsewhere on its volume; stays pinned, as the list goes by inodes
    kUnknown,   // cannot be looked at: its volume is not mounted, or a directory cannot be read
};

// Returns the fate in the words that every verb uses: "there", "gone", "replaced", "renamed" or
// "cannot be looked at".
const char* FateName(Fate fate);

struct PinnedFile {
    StoredFile entry;
    std::string mountPath;  // under which it is listed
    Fate fate = Fate::kUnknown;
    FileRef file;     // the listed file itself, where it lies now; filled when there or renamed
    UnitRuns units;   // its units; MapPinned fills them
    std::string why;  // explains the fate, as the rest of a sentence; empty when there
};

// Returns the absolute path that it is listed by; of a file that is listed by a link of plain name,
// the path of the file itself.
std::string ListedPath(const PinnedFile& pinned);

// Whether it is known where the file lies: it is there, or was renamed.
bool IsFound(const PinnedFile& pinned);

// Looks for the files of entries that are listed under the volume's mount path. Searches the whole
// volume, once, when any of them does not lie at its path.
std::vector<PinnedFile> InspectEntries(const std::vector<StoredFile>& entries,
                                       const Volume& volume);

// The same for entries listed under any mount path; their fate is unknown when no volume is mounted
// there.
std::vector<PinnedFile> InspectListed(const std::vector<StoredFile>& entries,
                                      const std::string& mountPath,
                                      const std::vector<Volume>& volumes);

// The same as InspectEntries without the search: here, a file with nothing at its path is kGone
// even when it lies elsewhere.
std::vector<PinnedFile> InspectAtPaths(const std::vector<StoredFile>& entries,
                                       const Volume& volume);

// Fills the extents and units of a file that is there or was renamed. One that cannot be mapped
// becomes kUnknown.
void MapPinned(PinnedFile& pinned, Mapper& mapper);

// Returns the entries of a mount path at which no volume is mounted, as files of unknown fate.
std::vector<PinnedFile> UnmountedEntries(const std::vector<StoredFile>& entries,
                                         const std::string& mountPath);

}  // namespace client
