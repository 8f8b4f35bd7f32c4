// SPDX-License-Identifier: MIT
#include "client/pins/device_state.h"

#include <algorithm>
#include <iterator>
#include <set>
#include <utility>

#include "client/show/output.h"

namespace client {

namespace {

void Append(std::vector<PinnedFile>&& more, std::vector<PinnedFile>& all) {
    std::move(more.begin(), more.end(), std::back_inserter(all));
}

// The list may still name a mount path that the device had before. Only what lies at its path is
// taken for its own: numbers and names of another volume's files mean nothing here. Where some of
// them do, the others may be its own as well, renamed since, and nothing more can be known.
void TakeFormerMounts(const ConfigState& state, const std::vector<Volume>& volumes,
                      DeviceState& device) {
    for (const std::string& former : UnmountedPaths(state, volumes)) {
        const std::vector<StoredFile>& entries = state.pinned.at(former);
        size_t here = 0;
        for (PinnedFile& pinned : InspectAtPaths(entries, *device.mounts.front())) {
            if (pinned.fate == Fate::kThere) {
                pinned.mountPath = former;
                device.listed.push_back(std::move(pinned));
                ++here;
            }
        }
        if (here > 0 && here < entries.size()) {
            device.uncertain = "files listed under " + Printable(former) + " lie here, and " +
                               Counted(entries.size() - here, "other") +
                               " listed there may have been renamed, so no unit can be said to be "
                               "unneeded";
        }
    }
}

void TakeEntries(const ConfigState& state, const std::vector<Volume>& volumes,
                 DeviceState& device) {
    for (const Volume* const mount : device.mounts) {
        const auto pinned = state.pinned.find(mount->mountPath);
        if (pinned != state.pinned.end()) {
            Append(InspectEntries(pinned->second, *mount), device.listed);
        }
        // A request names a path: what is renamed while it waits is not pinned by it.
        Append(InspectAtPaths(QueuedToPin(state, mount->mountPath), *mount), device.queued);
        device.requests += static_cast<size_t>(std::count_if(
            state.queue.begin(), state.queue.end(),
            [mount](const auto& request) { return request.mountPath == mount->mountPath; }));
    }
    TakeFormerMounts(state, volumes, device);
}

// Maps the listed and queued files and adds up what they need.
void AddUpNeeds(DeviceState& device) {
    Mapper mapper;
    UnitSet own(device.view.bits.Bytes().size());
    device.needed = own;
    for (PinnedFile& pinned : device.listed) {
        MapPinned(pinned, mapper);
        device.needed.Put(pinned.units);
        // A former mount path may mean another volume, made like this one: its entries keep bits,
        // and ask for none.
        if (IsMountOf(device, pinned.mountPath)) {
            own.Put(pinned.units);
        }
        // The last 512 KiB or less of a device have no bits.
        device.withoutBit += CountUnits(pinned.units) - device.needed.RoomFor(pinned.units);
        if (pinned.fate == Fate::kUnknown && device.uncertain.empty()) {
            device.uncertain = Printable(ListedPath(pinned)) + " cannot be looked at (" +
                               pinned.why + "), so no unit can be said to be unneeded";
        }
    }
    device.missing = own.Without(device.view.bits);
    // What is queued is not set yet, unless its request was interrupted, and then it is not
    // surplus.
    for (PinnedFile& pinned : device.queued) {
        MapPinned(pinned, mapper);
        device.needed.Put(pinned.units);
    }
}

// Preallocated blocks get bits, and there is nothing in them to read.
UnitSet AbsentOf(const VolumeView& view, const std::vector<PinnedFile>& listed) {
    UnitSet written(view.bits.Bytes().size());
    UnitSet own = written;
    if (!view.residency.known) {
        return written;
    }
    for (const PinnedFile& pinned : listed) {
        own.Put(pinned.units);
        written.Put(RunsOf(WrittenOf(pinned.file.extents)));
    }
    return view.bits.Without(view.residency.resident).Without(own.Without(written));
}

void CompareBitmaps(DeviceState& device) {
    const VolumeView& view = device.view;
    device.surplus = view.bits.Without(device.needed);
    // A cache that reports nothing has the bitmap that it was sent, as far as anybody knows.
    device.driverLacks = UnitSet(view.bits.Bytes().size());
    device.driverSurplus = UnitSet(view.bits.Bytes().size());
    if (view.residency.known) {
        device.driverLacks = view.bits.Without(view.residency.pinned);
        device.driverSurplus = view.residency.pinned.Without(view.bits);
    }
    device.absent = AbsentOf(view, device.listed);
    // The service refuses to load more than the device has; a shorter file grows when it is
    // written.
    device.fileTooLong = view.deviceSize > 0 && view.fileBytes > view.bits.Bytes().size();
}

bool Concerns(const DeviceState& device) {
    return !device.listed.empty() || !device.queued.empty() || device.view.bits.Count() > 0;
}

using PinId = std::pair<std::string, uint32_t>;  // mount path, inode

// Takes those of the files that stay and lie in the units released.
void TakeSharing(const std::vector<PinnedFile>& pinned, const UnitRuns& released,
                 std::set<PinId>& seen, std::vector<FileRef>& files) {
    for (const PinnedFile& file : pinned) {
        // A request can only name a file by the path that it has now.
        if (file.fate == Fate::kThere && !CommonRuns(file.units, released).empty() &&
            seen.insert({file.mountPath, file.entry.inode}).second) {
            files.push_back(file.file);
        }
    }
}

}  // namespace

std::vector<DeviceState> ReadDevices(const ConfigState& state, const std::vector<Volume>& volumes,
                                     const std::string& mountPath) {
    std::vector<DeviceState> devices;
    std::set<std::string> done;
    for (const Volume& volume : volumes) {
        if (done.count(volume.mountPath) > 0 ||
            (!mountPath.empty() && volume.mountPath != mountPath)) {
            continue;
        }
        // Its other mount paths come later in the list, and are part of it.
        DeviceState device = ReadDevice(state, volume, volumes);
        for (const Volume* const mount : device.mounts) {
            done.insert(mount->mountPath);
        }
        if (!mountPath.empty() || Concerns(device)) {
            devices.push_back(std::move(device));
        }
    }
    return devices;
}

std::vector<DeviceState> ReadDevicesOf(const ConfigState& state, const std::vector<Volume>& volumes,
                                       const std::vector<FileRef>& files) {
    std::vector<DeviceState> devices;
    for (const VolumeFiles& group : GroupByVolume(files)) {
        const std::string& mountPath = group.volume->mountPath;
        // Two mount paths of one device are two volumes, and are read together.
        if (std::none_of(devices.begin(), devices.end(),
                         [&](const DeviceState& device) { return IsMountOf(device, mountPath); })) {
            devices.push_back(ReadDevice(state, *group.volume, volumes));
        }
    }
    return devices;
}

DeviceState ReadDevice(const ConfigState& state, const Volume& volume,
                       const std::vector<Volume>& volumes) {
    DeviceState device;
    device.mounts = MountsOf(volume, volumes);
    device.view = LookAt(*device.mounts.front());
    TakeEntries(state, volumes, device);
    AddUpNeeds(device);
    CompareBitmaps(device);
    return device;
}

bool IsMountOf(const DeviceState& device, const std::string& mountPath) {
    return std::any_of(device.mounts.begin(), device.mounts.end(),
                       [&mountPath](const Volume* mount) { return mount->mountPath == mountPath; });
}

std::vector<std::string> UnmountedPaths(const ConfigState& state,
                                        const std::vector<Volume>& volumes) {
    std::vector<std::string> paths;
    for (const auto& [mountPath, files] : state.pinned) {
        if (FindMounted(mountPath, volumes) == nullptr) {
            paths.push_back(mountPath);
        }
    }
    return paths;
}

UnitSet FindAbsent(const ConfigState& state, const Volume& volume, const VolumeView& view) {
    Mapper mapper;
    std::vector<PinnedFile> listed;
    const auto pinned = state.pinned.find(volume.mountPath);
    UnitSet absent = AbsentOf(view, listed);
    if (pinned == state.pinned.end() || absent.Count() == 0) {
        return absent;
    }
    listed = InspectAtPaths(pinned->second, volume);
    for (PinnedFile& file : listed) {
        MapPinned(file, mapper);
    }
    return AbsentOf(view, listed);
}

bool Agrees(const DeviceState& device) {
    const bool allThere =
        std::all_of(device.listed.begin(), device.listed.end(),
                    [](const PinnedFile& pinned) { return pinned.fate == Fate::kThere; });
    return allThere && device.missing.Count() == 0 && device.surplus.Count() == 0 &&
           device.driverLacks.Count() == 0 && device.driverSurplus.Count() == 0 &&
           !device.fileTooLong;
}

const PinnedFile* FindListed(const DeviceState& device, const std::string& mountPath,
                             uint32_t inode) {
    for (const PinnedFile& pinned : device.listed) {
        if (pinned.entry.inode == inode && pinned.mountPath == mountPath) {
            return &pinned;
        }
    }
    return nullptr;
}

std::vector<FileRef> FilesToRepin(const std::vector<DeviceState>& devices,
                                  const std::vector<FileRef>& leaving) {
    std::vector<FileRef> files;
    for (const DeviceState& device : devices) {
        std::vector<FileMappingEntry> extents;
        // Only the mount path that a request names loses the entry; the device's others keep
        // theirs.
        std::set<PinId> seen;
        for (const FileRef& file : leaving) {
            if (IsMountOf(device, file.volume->mountPath)) {
                extents.insert(extents.end(), file.extents.begin(), file.extents.end());
                seen.insert({file.volume->mountPath, file.inode});
            }
        }
        const UnitRuns released = RunsOf(extents);
        TakeSharing(device.listed, released, seen, files);
        TakeSharing(device.queued, released, seen, files);
    }
    return files;
}

}  // namespace client
