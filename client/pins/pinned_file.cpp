// SPDX-License-Identifier: MIT
#include "client/pins/pinned_file.h"

#include <errno.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "client/show/output.h"
#include "client/show/text.h"
#include "client/volume/directory_walk.h"
#include "client/volume/plain_links.h"
#include "client/volume/volume_view.h"

namespace client {

namespace {

void Settle(PinnedFile& pinned, Fate fate, const std::string& why) {
    pinned.fate = fate;
    pinned.why = why;
}

bool HasInode(const struct stat& status, uint32_t inode) {
    return S_ISREG(status.st_mode) && static_cast<uint32_t>(status.st_ino) == inode;
}

// Whether it is listed by a link of plain name, and is there.
bool LiesByLink(const PinnedFile& pinned) {
    return pinned.fate == Fate::kThere && IsLinkName(pinned.entry.relative);
}

// Takes the place at which the listed file was found.
void FoundAt(const std::string& path, const struct stat& status, const Volume& volume,
             PinnedFile& pinned) {
    pinned.file = {&volume,
                   path,
                   PathBelow(volume.mountPath, path),
                   pinned.entry.inode,
                   static_cast<uint64_t>(status.st_size),
                   {}};
}

// Why what lies at or above a path says nothing about the volume: empty when the nearest directory
// that exists lies on the volume.
std::string WhyHidden(std::string path, const std::string& mountPath, dev_t device) {
    struct stat status = {};
    do {
        path = DirectoryOf(path);
        if (stat(path.c_str(), &status) == 0) {
            return status.st_dev == device
                       ? ""
                       : "another file system is mounted over " + Printable(path);
        }
        // A loop of links, or a directory that may not be passed: nobody knows what lies behind.
        if (errno != ENOENT && errno != ENOTDIR) {
            return Printable(path) + ": " + strerror(errno);
        }
    } while (path.size() > mountPath.size());
    return Printable(mountPath) + " is not there";
}

// The service cuts a name at white space: the file may lie beside its listed name, under one that
// begins with it.
bool FindBehindCut(const std::string& path, const Volume& volume, PinnedFile& pinned) {
    std::vector<std::string> names;
    const std::string cut = NameOf(path);
    ListNames(DirectoryOf(path), names);
    // Among the names of the directory alone: the cut is at the end of the path.
    for (const std::string& name : names) {
        const std::string found = DirectoryOf(path) + "/" + name;
        struct stat status = {};
        if (StartsWith(name, cut) && HasWhiteSpace(name.substr(cut.size(), 1)) &&
            lstat(found.c_str(), &status) == 0 && HasInode(status, pinned.entry.inode)) {
            FoundAt(found, status, volume, pinned);
            Settle(pinned, Fate::kRenamed, "lies at " + Printable(found));
            return true;
        }
    }
    return false;
}

// Looks at the listed path.
void InspectPath(const Volume& volume, dev_t device, PinnedFile& pinned) {
    const std::string path = PathOnVolume(volume.mountPath, pinned.entry.relative);
    struct stat status = {};
    if (lstat(path.c_str(), &status) != 0) {
        // Any other error says nothing of the file.
        const bool absent = errno == ENOENT || errno == ENOTDIR;
        const std::string why =
            absent ? WhyHidden(path, volume.mountPath, device) : strerror(errno);
        Settle(pinned, why.empty() ? Fate::kGone : Fate::kUnknown,
               why.empty() ? "is not at its path" : why);
    } else if (status.st_dev != device) {
        // What is mounted there hides the volume's own file, with a number of its own.
        Settle(pinned, Fate::kUnknown, "another file system is mounted over it");
    } else if (HasInode(status, pinned.entry.inode)) {
        FoundAt(path, status, volume, pinned);
        const bool last = IsLinkName(pinned.entry.relative) && status.st_nlink == 1;
        Settle(pinned, last ? Fate::kGone : Fate::kThere,
               last ? "was removed; its link alone is left" : "");
    } else if (!FindBehindCut(path, volume, pinned)) {
        // The old file may still lie somewhere; who pins a path means what lies at it.
        Settle(pinned, Fate::kReplaced,
               "inode " + std::to_string(pinned.entry.inode) + " was pinned, inode " +
                   std::to_string(static_cast<uint32_t>(status.st_ino)) + " is there now");
    }
}

// Searches the volume for the files that do not lie at their paths, or lie there by a link.
void SearchFor(const std::vector<PinnedFile*>& missing, const Volume& volume) {
    std::set<uint32_t> inodes;
    for (const PinnedFile* const pinned : missing) {
        inodes.insert(pinned->entry.inode);
    }
    const InodeSearch search = SearchVolume(volume.mountPath, inodes, BitmapPathOf(volume));
    for (PinnedFile* const pinned : missing) {
        const auto found = search.paths.find(pinned->entry.inode);
        struct stat status = {};
        // What was found may have gone again since.
        const bool exists =
            found != search.paths.end() && lstat(found->second.c_str(), &status) == 0;
        if (LiesByLink(*pinned)) {
            // Requests go on naming the link, people are shown the file.
            pinned->file.path = exists ? found->second : pinned->file.path;
        } else if (exists) {
            FoundAt(found->second, status, volume, *pinned);
            Settle(*pinned, Fate::kRenamed, "lies at " + Printable(found->second));
        } else if (!search.unreadable.empty()) {
            // Somewhere could not be searched, and it may lie just there.
            Settle(*pinned, Fate::kUnknown,
                   "is not at its path, and may lie elsewhere: " + search.unreadable);
        } else {
            Settle(*pinned, Fate::kGone, "is nowhere on its volume");
        }
    }
}

}  // namespace

const char* FateName(Fate fate) {
    switch (fate) {
        case Fate::kThere:
            return "there";
        case Fate::kGone:
            return "gone";
        case Fate::kReplaced:
            return "replaced";
        case Fate::kRenamed:
            return "renamed";
        case Fate::kUnknown:
            return "cannot be looked at";
    }
    return "";
}

std::string ListedPath(const PinnedFile& pinned) {
    return LiesByLink(pinned) ? pinned.file.path
                              : PathOnVolume(pinned.mountPath, pinned.entry.relative);
}

bool IsFound(const PinnedFile& pinned) {
    return pinned.fate == Fate::kThere || pinned.fate == Fate::kRenamed;
}

std::vector<PinnedFile> InspectAtPaths(const std::vector<StoredFile>& entries,
                                       const Volume& volume) {
    std::vector<PinnedFile> all = UnmountedEntries(entries, volume.mountPath);
    struct stat mount = {};
    // Without the mount point all stay unknown, as of a volume that is not mounted.
    if (stat(volume.mountPath.c_str(), &mount) == 0) {
        for (PinnedFile& pinned : all) {
            InspectPath(volume, mount.st_dev, pinned);
        }
    }
    return all;
}

std::vector<PinnedFile> InspectEntries(const std::vector<StoredFile>& entries,
                                       const Volume& volume) {
    std::vector<PinnedFile> all = InspectAtPaths(entries, volume);
    std::vector<PinnedFile*> missing;
    for (PinnedFile& pinned : all) {
        if (pinned.fate == Fate::kGone || LiesByLink(pinned)) {
            missing.push_back(&pinned);
        }
    }
    // One walk for all of them: a large volume takes minutes.
    if (!missing.empty()) {
        SearchFor(missing, volume);
    }
    return all;
}

std::vector<PinnedFile> InspectListed(const std::vector<StoredFile>& entries,
                                      const std::string& mountPath,
                                      const std::vector<Volume>& volumes) {
    const Volume* const volume = FindMounted(mountPath, volumes);
    return volume == nullptr ? UnmountedEntries(entries, mountPath)
                             : InspectEntries(entries, *volume);
}

std::vector<PinnedFile> UnmountedEntries(const std::vector<StoredFile>& entries,
                                         const std::string& mountPath) {
    PinnedFile pinned;
    pinned.mountPath = mountPath;
    // Until somebody has looked.
    pinned.why = "its volume " + WhyNotThere(mountPath);
    std::vector<PinnedFile> all(entries.size(), pinned);
    for (size_t i = 0; i < entries.size(); ++i) {
        all[i].entry = entries[i];
    }
    return all;
}

void MapPinned(PinnedFile& pinned, Mapper& mapper) {
    if (!IsFound(pinned)) {
        return;
    }
    // Not "there, and needs nothing": its units would be cleared as nobody's.
    if (mapper.Map(pinned.file) == MapOutcome::kFailed) {
        Settle(pinned, Fate::kUnknown,
               access(pinned.file.path.c_str(), R_OK) == 0 || geteuid() == 0
                   ? "its extents cannot be read"
                   : "its extents cannot be read: that needs root");
        return;
    }
    pinned.units = RunsOf(pinned.file.extents);
}

}  // namespace client
