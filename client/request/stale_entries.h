// SPDX-License-Identifier: MIT
// Taking entries off the service's list whose file is gone, was replaced or is empty (see
// repair.h).
#pragma once

#include <signal.h>
#include <stdint.h>

#include <string>
#include <vector>

#include "client/service/config_state.h"
#include "client/request/file_check.h"

namespace client {

// An entry of the service's list that no plain request can name.
struct StaleEntry {
    const Volume* volume;  // alive as long as the list of volumes
    StoredFile stored;
    std::string state;  // in words: "gone", "replaced", "empty", "out of reach"...
};

// A directory of hard links whose names, in the stored form, mean other inodes. While it lives, a
// hang-up does what SIGTERM does: it ends a wait, and the links are taken away or kept as they
// must.
class StaleEntryLinks {
  public:
    explicit StaleEntryLinks(const Volume& volume);
    // Removes the links and the directory, unless they must stay.
    ~StaleEntryLinks();
    StaleEntryLinks(const StaleEntryLinks&) = delete;
    StaleEntryLinks& operator=(const StaleEntryLinks&) = delete;

    // Removes what earlier ones have left behind, then makes a link for each inode. Returns false,
    // with the reason in `why`.
    bool Make(const std::vector<uint32_t>& inodes, std::string& why);
    // The links as files of an unpin request.
    const std::vector<FileRef>& Files() const { return files_; }
    // Leaves the links where they are: a message that names them may still be in the queue, and one
    // that names what is not there would end the service's intake.
    void Keep() { keep_ = true; }
    const std::string& Directory() const { return directory_; }

  private:
    bool Link(const std::string& target, uint32_t inode, std::string& why);

    const Volume& volume_;
    std::string directory_;
    std::vector<std::string> paths_;
    std::vector<FileRef> files_;
    int lock_ = -1;  // the directory, open and locked
    bool keep_ = false;
    bool hangUpSaved_ = false;
    struct sigaction hangUp_ = {};  // what SIGHUP did before
};

}  // namespace client
