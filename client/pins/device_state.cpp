// SPDX-License-Identifier: MIT
#include "client/pins/device_state.h"

#include <algorithm>
#include <set>

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

void CompareBitmaps(DeviceState& device) {
    const VolumeView& view = device.view;
    device.surplus = view.bits.Without(device.needed);
    device.driverLacks = UnitSet(view.bits.Bytes().size());
    device.driverSurplus = UnitSet(view.bits.Bytes().size());
    if (view.residency.known) {
        device.driverLacks = view.bits.Without(view.residency.pinned);
        device.driverSurplus = view.residency.pinned.Without(view.bits);
    }
    device.fileTooLong = view.deviceSize > 0 && view.fileBytes > view.bits.Bytes().size();
}

bool Concerns(const DeviceState& device) {
    return !device.listed.empty() || !device.queued.empty() || device.view.bits.Count() > 0;
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

}  // namespace client
