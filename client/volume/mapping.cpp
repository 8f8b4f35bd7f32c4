// SPDX-License-Identifier: MIT
#include "client/volume/mapping.h"

#include <fcntl.h>
#include <unistd.h>

#include "client/volume/volumes.h"
#include "util/scoped.h"

namespace client {

namespace {

constexpr int kLookupFailed = -1;
constexpr int kNoDevice = 1;

}  // namespace

FileSystemDevice* Mapper::DeviceOf(const std::string& mountPath) {
    const auto known = devices_.find(mountPath);
    if (known != devices_.end()) {
        return known->second.get();
    }
    std::unique_ptr<FileSystemDevice>& device = devices_[mountPath];
    std::string devicePath;
    const int result = FileSystemDevice::GetDevicePath(mountPath, devicePath, false);
    if (result != kLookupFailed && result != kNoDevice) {
        device.reset(FileSystemDeviceCreater::Create(devicePath));
    }
    return device.get();
}

MapOutcome Mapper::Map(const std::string& mountPath, const std::string& relative, uint32_t inode,
                       std::vector<FileMappingEntry>& extents) {
    FileSystemDevice* const device = DeviceOf(mountPath);
    const std::string path = PathOnVolume(mountPath, relative);
    FileMappingTable table;
    if (device == nullptr ||
        device->GetMappingTable(path.substr(0, path.find_last_of('/')), inode, 0, table) < 0) {
        return MapOutcome::kFailed;
    }
    extents = std::move(table.entries);
    return extents.empty() ? MapOutcome::kNothing : MapOutcome::kMapped;
}

MapOutcome Mapper::MapFresh(const std::string& mountPath, const std::string& relative,
                            uint32_t inode, std::vector<FileMappingEntry>& extents) {
    const MapOutcome outcome = Map(mountPath, relative, inode, extents);
    if (outcome != MapOutcome::kNothing) {
        return outcome;
    }
    const ScopedFd fd(
        open(PathOnVolume(mountPath, relative).c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (fd.valid()) {
        fsync(fd.get());
    }
    return Map(mountPath, relative, inode, extents);
}

}  // namespace client
