// SPDX-License-Identifier: MIT
#include "client/volume/file_ref.h"

#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>

#include "client/show/text.h"
#include "util/scoped.h"

namespace client {

namespace {

// The results of GetDevicePath that name no device; every other one does.
constexpr int kLookupFailed = -1;
constexpr int kNoDevice = 1;

}  // namespace

std::string LinkName(uint32_t inode) {
    return std::string(kLinkDirectory) + "/" + std::to_string(inode);
}

bool IsLinkName(const std::string& relative) {
    const std::string start = std::string(kLinkDirectory) + "/";
    return StartsWith(relative, start) &&
           relative == LinkName(static_cast<uint32_t>(
                           strtoull(relative.c_str() + start.size(), nullptr, 10)));
}

std::vector<VolumeFiles> GroupByVolume(const std::vector<FileRef>& files) {
    std::vector<VolumeFiles> groups;
    for (const FileRef& file : files) {
        // Few volumes: a search is quicker than a map that keeps their order.
        auto group = std::find_if(groups.begin(), groups.end(), [&file](const VolumeFiles& known) {
            return known.volume == file.volume;
        });
        if (group == groups.end()) {
            group = groups.insert(groups.end(), {file.volume, {}});
        }
        group->files.push_back(file);
    }
    return groups;
}

std::vector<FileMappingEntry> ExtentsOf(const std::vector<FileRef>& files) {
    std::vector<FileMappingEntry> extents;
    for (const FileRef& file : files) {
        extents.insert(extents.end(), file.extents.begin(), file.extents.end());
    }
    return extents;
}

FileSystemDevice* Mapper::DeviceOf(const std::string& mountPath) {
    const auto known = devices_.find(mountPath);
    if (known != devices_.end()) {
        return known->second.get();
    }
    // A volume without a device is remembered too, so that its files do not ask one by one.
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
    // Blocks of a fresh file have no place before it is written out. What lies at the path by now
    // may be a pipe, at which nobody waits.
    const ScopedFd fd(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (fd.valid()) {
        fsync(fd.get());
    }
    return MapNow(file);
}

}  // namespace client
