// SPDX-License-Identifier: MIT
#include "client/volume/mapping.h"

#include <fcntl.h>
#include <unistd.h>

#include "client/show/text.h"
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

MapOutcome Mapper::MapNow(FileRef& file) {
    const std::string& mountPath = file.volume->mountPath;
    FileSystemDevice* const device = DeviceOf(mountPath);
    const std::string directory = DirectoryOf(PathOnVolume(mountPath, file.relative));
    FileMappingTable table;
    if (device == nullptr || device->GetMappingTable(directory, file.inode, 0, table) < 0) {
        return MapOutcome::kFailed;
    }
    file.extents = std::move(table.entries);
    return file.extents.empty() ? MapOutcome::kNothing : MapOutcome::kMapped;
}

MapOutcome Mapper::Map(FileRef& file) {
    const MapOutcome outcome = MapNow(file);
    if (outcome != MapOutcome::kNothing) {
        return outcome;
    }
    const std::string path = PathOnVolume(file.volume->mountPath, file.relative);
    const ScopedFd fd(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (fd.valid()) {
        fsync(fd.get());
    }
    return MapNow(file);
}

}  // namespace client
