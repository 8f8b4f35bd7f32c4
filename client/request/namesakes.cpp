// SPDX-License-Identifier: MIT
#include "client/request/namesakes.h"

#include <sys/stat.h>

#include <map>
#include <utility>

#include "client/show/output.h"

namespace client {

namespace {

// Whose path stands for a mount path and the low bits of an inode number.
using Names = std::map<std::pair<std::string, uint32_t>, std::string>;

void Add(const std::string& mountPath, const std::vector<StoredFile>& files, Names& names) {
    for (const StoredFile& file : files) {
        names[{mountPath, file.inode}] = PathOnVolume(mountPath, file.relative);
    }
}

// Hard links are one file. What cannot be looked at was renamed or is gone, and no reason to
// refuse.
bool AreTwoFiles(const std::string& one, const std::string& other) {
    struct stat first = {};
    struct stat second = {};
    return one != other && lstat(one.c_str(), &first) == 0 && lstat(other.c_str(), &second) == 0 &&
           first.st_ino != second.st_ino &&
           static_cast<uint32_t>(first.st_ino) == static_cast<uint32_t>(second.st_ino);
}

}  // namespace

void RefuseNamesakes(const ConfigState& state, const std::vector<Volume>& volumes, FileList& list) {
    Names names;
    for (const auto& [mountPath, files] : state.pinned) {
        Add(mountPath, files, names);
    }
    for (const Volume& volume : volumes) {
        Add(volume.mountPath, QueuedToPin(state, volume.mountPath), names);
    }
    std::vector<FileRef> kept;
    for (FileRef& file : list.files) {
        const auto [name, isNew] = names.insert({{file.volume->mountPath, file.inode}, file.path});
        if (isNew || !AreTwoFiles(name->second, file.path)) {
            kept.push_back(std::move(file));
            continue;
        }
        list.refusals.push_back(
            {file.path,
             "has an inode number whose low 32 bits, which are what the service keeps, "
             "are those of " +
                 Printable(name->second)});
    }
    list.files = std::move(kept);
}

}  // namespace client
