// SPDX-License-Identifier: MIT
#include "client/request/reading.h"

#include <set>

#include "client/pins/pinned_file.h"
#include "client/volume/volume_view.h"
#include "util/pin_bitmap.h"
#include "util/request.h"

namespace client {

namespace {

std::vector<FileMappingEntry> ReadingOfFiles(const StoredRequest& request, const Volume& volume) {
    Mapper mapper;
    std::vector<FileMappingEntry> reading;
    for (PinnedFile& file : InspectAtPaths(ParseStoredFiles(request.data), volume)) {
        MapPinned(file, mapper);
        reading.insert(reading.end(), file.file.extents.begin(), file.file.extents.end());
    }
    return reading;
}

}  // namespace

std::vector<FileMappingEntry> ReadingOf(const UnitSet& bits) {
    std::vector<FileMappingEntry> reading;
    for (const UnitRun& run : bits.Runs()) {
        reading.push_back({0, (run.last - run.first + 1) << kPinUnitSectorShift,
                           run.first << kPinUnitSectorShift, 0});
    }
    return reading;
}

std::vector<FileMappingEntry> ReadingOf(const StoredRequest& request,
                                        const std::vector<Volume>& volumes) {
    const Volume* const volume = FindMounted(request.mountPath, volumes);
    const int32_t type = StringToRequestType(request.type);
    if (volume == nullptr) {
        return {};
    }
    return type == kRequestPinFiles          ? ReadingOfFiles(request, *volume)
           : type == kRequestReloadPinBlocks ? ReadingOf(LookAt(*volume).bits)
                                             : std::vector<FileMappingEntry>();
}

uint64_t BytesRead(const std::vector<FileMappingEntry>& reading, uint64_t position) {
    uint64_t before = 0;
    uint64_t atBegin = 0;
    for (const FileMappingEntry& extent : reading) {
        const uint64_t start = extent.deviceStartSector * kSectorBytes;
        const uint64_t length = extent.numSectors * kSectorBytes;
        if (extent.uninitialized == 1) {
            continue;  // the service reads only what was ever written
        }
        if (position > start && position <= start + length) {
            return before + position - start;
        }
        // At its begin nothing of it is read yet, and another one may end just there.
        if (position == start) {
            atBegin = before;
        }
        before += length;
    }
    return atBegin;
}

std::optional<RunningRequest> FindRunning(const std::vector<StoredRequest>& queue,
                                          const ServiceProcess& service, const DeviceOf& deviceOf) {
    std::set<std::string> begun;
    for (size_t i = 0; i < queue.size(); ++i) {
        // Only the first request of a volume can be the one; the others wait for it.
        if (!begun.insert(queue[i].mountPath).second) {
            continue;
        }
        const std::string device = deviceOf(queue[i].mountPath);
        uint64_t position = 0;
        if (!device.empty() && ReadPosition(service, device, position)) {
            return RunningRequest{i, position};
        }
    }
    return std::nullopt;
}

}  // namespace client
