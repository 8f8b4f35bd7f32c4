// SPDX-License-Identifier: MIT
#include "client/pins/rest_plan.h"

#include <algorithm>

#include "client/pins/price.h"
#include "client/show/output.h"

namespace client {

namespace {

// Decides what becomes of one entry. Returns whether it changes; `entries` gets what is kept.
bool PlanEntry(const PinnedFile& pinned, const Followers& followers,
               std::vector<StoredFile>& entries, ListPlan& plan) {
    const std::string path = ListedPath(pinned);
    const std::string start = Printable(path) + ": " + FateName(pinned.fate);
    const auto follower = followers.find(path);
    switch (pinned.fate) {
        case Fate::kGone:
            plan.actions.push_back(start + ", taken off the list");
            return true;
        case Fate::kReplaced:
            if (follower != followers.end() && follower->second.why.empty()) {
                // The path is what the operator pinned; the number is the service's.
                entries.push_back({pinned.entry.relative, follower->second.file.inode});
                plan.actions.push_back(start + ", the file that is there now takes its place");
            } else {
                // The listed file is not there whatever became of the new one.
                plan.actions.push_back(start + ", taken off the list");
                plan.left.push_back(
                    Printable(path) + ": what is there now is not pinned: " +
                    (follower != followers.end() ? follower->second.why : "it is not known"));
            }
            return true;
        case Fate::kRenamed:
            entries.push_back({pinned.file.relative, pinned.entry.inode});
            plan.actions.push_back(start + ", listed at its new path " +
                                   Printable(pinned.file.path));
            return true;
        case Fate::kUnknown:
            // Kept: taking it off could not be taken back, and its units with it.
            plan.left.push_back(start + ": " + pinned.why);
            break;
        case Fate::kThere:
            break;
    }
    entries.push_back(pinned.entry);
    return false;
}

// Plans the list of one mount path of the device.
void PlanList(const DeviceState& device, const std::string& mountPath, const Followers& followers,
              ListPlan& plan) {
    std::vector<StoredFile> entries;
    bool changes = false;
    for (const PinnedFile& pinned : device.listed) {
        if (pinned.mountPath == mountPath) {
            changes |= PlanEntry(pinned, followers, entries, plan);
        }
    }
    if (changes) {  // the plan has the whole list, and no list that stays as it is
        plan.lists[mountPath] = entries;
    }
}

}  // namespace

std::string WhyLeftAlone(const DeviceState& device) {
    const std::string name = Printable(device.view.mountPath);
    // Without the device's size the bitmap's length is not known, and any other is an error.
    if (device.view.cachePath.empty()) {
        return name + ": left as it is, as it has no cache now";
    }
    return device.view.deviceSize > 0
               ? ""
               : name + ": left as it is, as the size of its cached device is not known";
}

ListPlan PlanLists(const std::vector<DeviceState>& devices, const Followers& followers) {
    ListPlan plan;
    for (const DeviceState& device : devices) {
        if (!WhyLeftAlone(device).empty()) {
            plan.left.push_back(WhyLeftAlone(device));
            continue;
        }
        // Each mount path has a list of its own. That of a former one may mean another volume.
        for (const Volume* const mount : device.mounts) {
            PlanList(device, mount->mountPath, followers, plan);
        }
    }
    return plan;
}

BitmapPlan PlanBitmap(const DeviceState& device, bool overcommit) {
    const VolumeView& view = device.view;
    BitmapPlan plan;
    plan.bits = device.needed;
    // Setting is safe, clearing is not: a file that cannot be looked at may need any set unit.
    if (!device.uncertain.empty()) {
        plan.bits.Put(view.bits.Runs());
        if (device.surplus.Count() > 0) {
            plan.left.push_back(Printable(view.mountPath) + ": " +
                                Counted(device.surplus.Count(), "unit") +
                                " not cleared: " + device.uncertain);
        }
    }
    const UnitSet missing = plan.bits.Without(view.bits);
    const UnitSet kept = plan.bits.Without(missing);
    const std::string why = WhyNotFitting(view, kept.Count(), plan.bits.Count());
    if (!overcommit && !why.empty()) {
        plan.left.push_back(why + kOvercommitRemedy);
        plan.bits = kept;
    }
    plan.set = plan.bits.CountWithout(view.bits);
    plan.cleared = view.bits.CountWithout(plan.bits);
    // A file that is missing has every bit clear.
    const bool fits = !view.hasBitmap || view.fileBytes == plan.bits.Bytes().size();
    plan.write = plan.set > 0 || plan.cleared > 0 || !fits;
    // A driver that reports nothing is handed what was written, and otherwise left alone.
    plan.hand =
        plan.write || (view.residency.known && (plan.bits.CountWithout(view.residency.pinned) > 0 ||
                                                view.residency.pinned.CountWithout(plan.bits) > 0));
    return plan;
}

}  // namespace client
