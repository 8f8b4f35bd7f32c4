// SPDX-License-Identifier: MIT
#include "client/request/apply_plan.h"

#include <algorithm>
#include <set>

#include "client/pins/price.h"
#include "client/request/file_check.h"

namespace client {

namespace {

// The file's own device among those that have anything pinned; null when it is not among them.
const DeviceState* DeviceOf(const FileRef& file, const std::vector<DeviceState>& devices) {
    const auto found = std::find_if(
        devices.begin(), devices.end(),
        [&file](const DeviceState& device) { return IsMountOf(device, file.volume->mountPath); });
    return found == devices.end() ? nullptr : &*found;
}

bool IsQueued(const DeviceState& device, const FileRef& file) {
    return std::any_of(device.queued.begin(), device.queued.end(), [&file](const PinnedFile& one) {
        return one.mountPath == file.volume->mountPath && one.entry.inode == file.inode;
    });
}

void PlanWanted(const FileRef& file, const std::vector<DeviceState>& devices, ApplyPlan& plan) {
    const DeviceState* const device = DeviceOf(file, devices);
    const PinnedFile* const listed =
        device == nullptr ? nullptr : FindListed(*device, file.volume->mountPath, file.inode);
    if (device != nullptr && IsQueued(*device, file)) {
        ++plan.queued;
    } else if (listed != nullptr && IsFound(*listed) &&
               device->missing.CountIn(listed->units) == 0) {
        ++plan.held;
    } else {
        plan.pins.push_back(file);
    }
}

// Whether a request can unpin the listed file: it must lie where the request can name it, on the
// volume that it is listed under.
bool CanBeUnpinned(const DeviceState& device, const PinnedFile& listed) {
    return IsFound(listed) && IsMountOf(device, listed.mountPath) &&
           !device.view.cachePath.empty() && !device.fileTooLong &&
           WhyNotStorable(listed.file.volume->mountPath, listed.file.relative).empty();
}

void PlanListed(const DeviceState& device, const PinnedFile& listed, const PinConf& conf,
                const std::set<std::string>& wantedPaths, bool prune, ApplyPlan& plan) {
    const std::string path = IsFound(listed) ? listed.file.path : ListedPath(listed);
    if (wantedPaths.count(path) > 0 || IsWanted(conf, path)) {
        if (listed.fate == Fate::kReplaced) {
            plan.replaced.push_back(listed);
        }
    } else if (!prune) {
        ++plan.byHand;
    } else if (CanBeUnpinned(device, listed)) {
        plan.unpins.push_back(listed.file);
    } else {
        plan.left.push_back(listed);
    }
}

}  // namespace

ApplyPlan PlanApply(const PinConf& conf, const WantedFiles& wanted,
                    const std::vector<DeviceState>& devices, bool prune) {
    ApplyPlan plan;
    std::set<std::string> paths;
    for (const FileRef& file : wanted.files) {
        PlanWanted(file, devices, plan);
        paths.insert(file.path);
    }
    for (const DeviceState& device : devices) {
        for (const PinnedFile& listed : device.listed) {
            PlanListed(device, listed, conf, paths, prune, plan);
        }
    }
    return plan;
}

void DropUnfitting(const ConfigState& state, const std::vector<FileRef>& repinned,
                   ApplyPlan& plan) {
    std::vector<FileRef> files = plan.pins;
    files.insert(files.end(), repinned.begin(), repinned.end());
    for (const Overcommit& found : FindOvercommits(state, files, plan.unpins)) {
        const auto there = [&found](const FileRef& file) { return file.volume == found.volume; };
        plan.pins.erase(std::remove_if(plan.pins.begin(), plan.pins.end(), there), plan.pins.end());
        plan.unfitting.push_back(found.why);
    }
}

}  // namespace client
