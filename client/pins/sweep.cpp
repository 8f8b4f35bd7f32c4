// SPDX-License-Identifier: MIT
#include "client/pins/sweep.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>

#include "client/service/queue.h"
#include "client/show/exit_status.h"
#include "client/show/output.h"
#include "client/show/progress.h"
#include "client/verbs/repair.h"
#include "util/scoped.h"

namespace client {

namespace {

constexpr long kQuietPoll = 100L * 1000 * 1000;  // nanoseconds
constexpr unsigned kQuietPatience = 60;          // seconds

// Whether the device has no request anywhere, under whichever mount path, so that the service does
// not use its bitmap file.
bool IsQuiet(const std::string& configPath, const VolumeCheck& found, ConfigState& state) {
    QueueFacts facts;
    std::string why;
    if (!ReadQueueFacts(facts, why) || facts.messages > 0 ||
        !ReadConfigState(configPath, state, why)) {
        return false;
    }
    const std::vector<std::string>& paths = found.mountPaths;
    return std::none_of(state.queue.begin(), state.queue.end(), [&](const StoredRequest& request) {
        return std::count(paths.begin(), paths.end(), request.mountPath) > 0;
    });
}

bool WaitUntilQuiet(const std::string& configPath, const VolumeCheck& found, unsigned patience,
                    ConfigState& state) {
    const double deadline = MonotonicSeconds() + patience;
    while (!IsQuiet(configPath, found, state)) {
        if (MonotonicSeconds() >= deadline) {
            return false;
        }
        const struct timespec pause = {0, kQuietPoll};
        nanosleep(&pause, nullptr);
    }
    return true;
}

// Clears units in the bitmap file. Returns false, with the reason in `why`.
bool ClearInFile(const std::string& path, const UnitSet& units, std::string& why) {
    const ScopedFd fd(open(path.c_str(), O_RDWR | O_CLOEXEC | O_NOFOLLOW));
    bool good = fd.valid();
    for (size_t i = 0; good && i < units.Bytes().size(); ++i) {
        const auto at = static_cast<off_t>(i);
        uint8_t byte = 0;
        if (units.Bytes()[i] == 0 || pread(fd.get(), &byte, 1, at) != 1) {
            continue;  // behind the end there is nothing set
        }
        byte &= static_cast<uint8_t>(~units.Bytes()[i]);
        good = pwrite(fd.get(), &byte, 1, at) == 1;
    }
    if (!good) {
        why = Printable(path) + ": " + strerror(errno);
    }
    return good;
}

// Clears the surplus of a quiet volume as it is now.
void ClearSurplus(const VolumeCheck& now, RepairReport& report) {
    const uint64_t surplus = now.surplus.Count();
    std::string why = now.uncertain;
    if (surplus == 0) {
        return;
    }
    if (!why.empty() || !ClearInFile(now.view.bitmapPath, now.surplus, why)) {
        report.obstacles.push_back(why);
        return;
    }
    report.unitsCleared += surplus;
    report.actions.push_back(Counted(surplus, "unit") + " that no file needs cleared in " +
                             Printable(now.view.bitmapPath));
}

}  // namespace

int SweepVolume(const VolumeCheck& found, const std::string& configPath, unsigned patience,
                RepairReport& report) {
    const std::string name = Printable(found.mountPath);
    ConfigState before;
    ConfigState after;
    std::vector<Volume> volumes;
    if (found.surplus.Count() == 0) {
        return kExitDone;
    }
    if (!WaitUntilQuiet(configPath, found, patience > 0 ? patience : kQuietPatience, before)) {
        Say(name + ": its requests did not come to an end; nothing was changed");
        return kExitTimedOut;
    }
    // What was found may have been a request's doing that has ended since; the device may have been
    // mounted once more.
    if (!ListVolumes(volumes)) {
        report.obstacles.push_back(name + ": the volumes cannot be listed");
        return kExitDone;
    }
    for (const VolumeCheck& now : CheckVolumes(before, volumes, found.mountPath)) {
        ClearSurplus(now, report);
    }
    if (!IsQuiet(configPath, found, after) || after.nextNumber != before.nextNumber) {
        report.obstacles.push_back(name + ": a request came in meanwhile; check again");
    }
    return kExitDone;
}

}  // namespace client
