// SPDX-License-Identifier: MIT
// Changing the service's lists of pinned files while no service runs. One that runs would not see
// the change, and would undo it with its next request.
#pragma once

#include <json/json.h>

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "client/service/config_state.h"
#include "util/scoped.h"

namespace client {

// By mount path; an empty list takes the mount path away.
using StoredLists = std::map<std::string, std::vector<StoredFile>>;

// Reads a configuration file that holds lists in their form, or none at all. Returns false, with
// the reason in `why`.
bool ReadStore(const std::string& path, Json::Value& document, std::string& why);

// Writes the document to `target` in one step, with the mode and owner that `model` has, and sees
// that it can be read again. Returns false, with the reason in `why`; `target` is then unchanged.
// Callers hold the lock: the work is done in "TARGET.new".
bool WriteStore(const Json::Value& document, const std::string& model, const std::string& target,
                std::string& why);

// A configuration file, locked against a second repair for as long as this lives. The lock is a
// file of its own beside it, which only its owner can open: the configuration file itself can be
// read, and so be locked, by anybody.
class StoredList {
  public:
    // Locks the file, which must be there and hold lists in their form: what does not would read as
    // nothing being pinned. Returns false, with the reason in `why`.
    bool Lock(const std::string& path, std::string& why);

    // The same for a file that need not be readable, nor be there.
    bool LockAsItIs(const std::string& path, std::string& why);

    // The locked file, without links.
    const std::string& Path() const { return path_; }

    // Replaces the lists of the mount paths given and leaves all else as it is. The new file takes
    // the old one's place in one step, with its mode and owner. Returns false, with the reason in
    // `why`; the old file is then still there.
    bool Replace(const StoredLists& lists, std::string& why);

    // Takes the mount path's list away, and the requests that name it, in the same way.
    bool Forget(const std::string& mountPath, std::string& why);

  private:
    std::string path_;  // no symbolic link
    std::unique_ptr<ScopedFd> lock_;
};

}  // namespace client
