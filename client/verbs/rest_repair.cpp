// SPDX-License-Identifier: MIT
// The repair at rest, while no service runs.
#include <unistd.h>

#include "client/pins/rest_plan.h"
#include "client/request/file_check.h"
#include "client/service/service_process.h"
#include "client/service/stored_list.h"
#include "client/show/exit_status.h"
#include "client/show/output.h"
#include "client/verbs/repair.h"
#include "client/volume/replace_file.h"
#include "util/driver.h"

namespace client {

namespace {

void Append(const std::vector<std::string>& more, std::vector<std::string>& all) {
    all.insert(all.end(), more.begin(), more.end());
}

// Whether still no service runs; it would read what is half changed. Reading volumes takes long.
bool IsAtRest(RepairReport& report) {
    if (FindServices().empty()) {
        return true;
    }
    report.left.push_back("a service was started meanwhile; what is left needs another repair");
    return false;
}

// What a repair works on. The devices are read by the lists as they are at the time.
struct Work {
    std::string mountPath;  // empty = all
    StoredList stored;
    ConfigState state;
    std::vector<Volume> volumes;
    std::vector<DeviceState> devices;
};

// Changes the lists and reads the devices by what they have become. Returns false when nothing more
// may be done.
bool RepairLists(Work& work, RepairReport& report) {
    const ListPlan plan = PlanLists(work.devices, FindFollowers(work.devices, work.volumes));
    std::string why;
    Append(plan.left, report.left);
    // A file that need not change is not written.
    if (plan.lists.empty()) {
        return true;
    }
    if (!IsAtRest(report)) {
        return false;
    }
    // The list before the bitmaps: a crash between them leaves bits too many, which the next repair
    // clears, and never a listed file without its bits.
    if (!work.stored.Replace(plan.lists, why)) {
        report.left.push_back(why);
        return false;
    }
    Append(plan.actions, report.actions);
    // Read again by the new lists: a file that took another's place needs other units.
    for (const auto& [mountPath, files] : plan.lists) {
        work.state.pinned[mountPath] = files;
    }
    work.devices = ReadDevices(work.state, work.volumes, work.mountPath);
    return true;
}

void HandToDriver(const DeviceState& device, const BitmapPlan& plan, RepairReport& report) {
    const std::string name = Printable(device.view.mountPath) + ": ";
    std::vector<uint8_t> bytes = plan.bits.Bytes();
    // The driver's record has no const; it reads the bytes and keeps nothing.
    PinBitmap bitmap = {bytes.data(), static_cast<uint32_t>(bytes.size())};
    if (BitmapDriverUpdate(&bitmap, device.view.cachePath.c_str()) != 0) {
        report.left.push_back(name + "the driver did not take the bitmap");
        return;
    }
    report.actions.push_back(name + "the driver has the bitmap now");
    // Setting a bit reads nothing: only the service fills the cache.
    const Residency& cache = device.view.residency;
    const uint64_t absent = plan.bits.CountWithout(cache.resident);
    if (cache.known && plan.set > 0 && absent > 0) {
        report.left.push_back(name + Counted(absent, "pinned unit") +
                              " not in the cache; reload reads them");
    }
}

void RepairBitmap(const DeviceState& device, bool overcommit, RepairReport& report) {
    const std::string name = Printable(device.view.mountPath) + ": ";
    const BitmapPlan plan = PlanBitmap(device, overcommit);
    std::string why;
    Append(plan.left, report.left);
    const std::vector<uint8_t>& bytes = plan.bits.Bytes();
    if (plan.write && !ReplaceFile(device.view.bitmapPath, {bytes.begin(), bytes.end()}, "", why)) {
        report.left.push_back(why);
        return;  // the driver keeps the bitmap that the file has
    }
    report.unitsSet += plan.set;
    report.unitsCleared += plan.cleared;
    if (plan.set > 0) {
        report.actions.push_back(name + Counted(plan.set, "missing unit") + " set");
    }
    if (plan.cleared > 0) {
        report.actions.push_back(name + Counted(plan.cleared, "unit") +
                                 " that no file needs cleared");
    }
    if (plan.write && plan.set == 0 && plan.cleared == 0) {
        report.actions.push_back(name + "the bitmap file has its right length now");
    }
    if (plan.hand) {
        HandToDriver(device, plan, report);
    }
}

void NameUnmounted(const ConfigState& state, const std::vector<Volume>& volumes,
                   RepairReport& report) {
    for (const std::string& path : UnmountedPaths(state, volumes)) {
        report.left.push_back(Printable(path) + ": not mounted, left as it is with its " +
                              Counted(state.pinned.at(path).size(), "file"));
    }
}

}  // namespace

int RepairAtRest(const std::string& configPath, const std::string& mountPath, bool overcommit,
                 RepairReport& report) {
    Work work;
    std::string why;
    work.mountPath = mountPath;
    // Others do not see the processes of root, and would repair beside a running service.
    if (geteuid() != 0) {
        Say("--repair: only root sees whether the service runs; nothing was changed");
        return kExitRefused;
    }
    // Read under the lock: a repair that has just ended may have changed it.
    if (!work.stored.Lock(configPath, why) || !ReadConfigState(configPath, work.state, why)) {
        Say("--repair: " + why + "; nothing was changed");
        return kExitRefused;
    }
    if (!ListVolumes(work.volumes)) {
        Say("the volumes cannot be listed");
        return kExitNoService;
    }
    // Of a volume that was not asked for nothing is said.
    if (mountPath.empty()) {
        NameUnmounted(work.state, work.volumes, report);
    }
    work.devices = ReadDevices(work.state, work.volumes, mountPath);
    if (!RepairLists(work, report)) {
        return kExitDone;
    }
    for (const DeviceState& device : work.devices) {
        // Asked anew before each: somebody may start the service meanwhile.
        if (WhyLeftAlone(device).empty() && IsAtRest(report)) {
            RepairBitmap(device, overcommit, report);
        }
    }
    return kExitDone;
}

}  // namespace client
