// SPDX-License-Identifier: MIT
#include "client/verbs/repair.h"

#include <algorithm>
#include <set>

#include "client/pins/sweep.h"
#include "client/request/sending.h"
#include "client/request/watch.h"
#include "client/show/exit_status.h"
#include "client/show/output.h"

namespace client {

namespace {

// What a request is to do for one file; told once the request has been sent.
struct PlannedAction {
    RequestType type;
    uint32_t inode;  // that the request names
    std::string name;
    std::string done;  // in words
};

// What is to be done on one volume.
struct VolumePlan {
    const VolumeCheck* check;
    const Volume* volume;
    std::vector<FileRef> pins;      // to be pinned (again)
    std::vector<uint32_t> entries;  // inodes to take off the list
    std::vector<PlannedAction> actions;
};

void PlanPin(const FileRef& file, const std::string& name, const char* done, VolumePlan& plan) {
    plan.pins.push_back(file);
    plan.actions.push_back({kRequestPinFiles, file.inode, name, done});
}

void PlanEntry(uint32_t inode, const std::string& name, const char* done, VolumePlan& plan) {
    plan.entries.push_back(inode);
    plan.actions.push_back({kRequestUnpinFiles, inode, name, done});
}

// Stores the file at a path that a list entry names, when it can be pinned.
bool FileToFollow(const FileCheck& file, const Volume& volume, const std::vector<Volume>& volumes,
                  Mapper& mapper, FileRef& found, std::string& why) {
    return ExamineFile(PathOnVolume(volume.mountPath, file.now.stored.relative), volumes, found,
                       why) &&
           MapForRequest(mapper, found, why);
}

VolumePlan MakePlan(const VolumeCheck& check, const Volume& volume,
                    const std::vector<Volume>& volumes, RepairReport& report) {
    VolumePlan plan = {&check, &volume, {}, {}, {}};
    Mapper mapper;
    for (const FileCheck& file : check.files) {
        const std::string name = Printable(file.now.stored.relative);
        FileRef found;
        std::string why;
        if (file.condition == FileCondition::kMissingBits) {
            PlanPin(file.now.file, name, "pinned again", plan);
        } else if (file.condition == FileCondition::kGone) {
            PlanEntry(file.now.stored.inode, name, "taken off the list", plan);
        } else if (file.condition == FileCondition::kReplaced) {
            PlanEntry(file.now.stored.inode, name, "the file that was pinned taken off the list",
                      plan);
            if (FileToFollow(file, volume, volumes, mapper, found, why)) {
                PlanPin(found, name, "the file that is there now is pinned", plan);
            } else {
                report.obstacles.push_back(name + ": what is there now is not pinned: " + why);
            }
        } else if (file.condition == FileCondition::kOtherName && file.missing > 0) {
            report.obstacles.push_back(name + ": " + file.now.why + "; its " +
                                       Counted(file.missing, "missing unit") +
                                       " can only be pinned, or its entry released, by that name");
        } else if (file.condition == FileCondition::kUnmappable) {
            report.obstacles.push_back(name + ": " + file.now.why);
        }
    }
    return plan;
}

// A request that changes nothing and makes the service hand the bitmap to the driver: pinning the
// smallest file that is pinned.
void AddPush(VolumePlan& plan) {
    const FileCheck* smallest = nullptr;
    for (const FileCheck& file : plan.check->files) {
        if (file.condition == FileCondition::kGood && file.units > 0 &&
            (smallest == nullptr || file.units < smallest->units)) {
            smallest = &file;
        }
    }
    if (plan.pins.empty() && smallest != nullptr) {
        plan.pins.push_back(smallest->now.file);
    }
}

bool BitmapChanges(const VolumeCheck& check) {
    return check.surplus.Count() > 0 || check.driverLacks > 0 || check.driverSurplus > 0;
}

// Where nothing can be pinned: releasing the bitmap file itself, which is never pinned, does the
// same. It clears the units that the file lies in, so that none of them may be needed.
std::vector<FileRef> PushByRelease(const VolumePlan& plan, const std::vector<Volume>& volumes,
                                   RepairReport& report) {
    FileRef bitmap;
    std::string why;
    Mapper mapper;
    if (!plan.pins.empty() || !BitmapChanges(*plan.check) ||
        !ExamineFile(plan.check->view.bitmapPath, volumes, bitmap, why) ||
        !MapForRequest(mapper, bitmap, why)) {
        return {};
    }
    if (plan.check->wanted.CountIn(RunsOf(bitmap.extents)) > 0) {
        report.obstacles.push_back(Printable(plan.check->mountPath) +
                                   ": no request is sent to hand the driver the bitmap; the next "
                                   "that pins a file does");
        return {};
    }
    return {bitmap};
}

// Sends the messages and waits for them.
int SendAndWait(std::vector<Message>& messages, const std::string& configPath,
                const SendOptions& options, RepairReport& report, std::vector<Watched>& requests) {
    ConfigState state;
    std::string why;
    size_t sent = 0;
    if (!ReadConfigState(configPath, state, why)) {
        Say(why);
        return kExitNoService;
    }
    const int status = SendAll(messages, options.patience, sent);
    report.requests += sent;
    requests = ToWatch(messages, sent);
    return status != kExitDone && status != kExitPartly
               ? status
               : WaitForRequests(requests, {configPath, state.nextNumber, options.timeout});
}

// Tells what the requests that were sent do, and what was not asked for.
void RecordActions(const VolumePlan& plan, const std::vector<Watched>& requests,
                   RepairReport& report) {
    std::set<std::pair<RequestType, uint32_t>> sent;
    for (const Watched& request : requests) {
        for (const StoredFile& file : ParseStoredFiles(request.message.stored)) {
            sent.insert({request.message.type, file.inode});
        }
    }
    for (const PlannedAction& action : plan.actions) {
        if (sent.count({action.type, action.inode}) > 0) {
            report.actions.push_back(action.name + ": " + action.done);
        } else {
            report.obstacles.push_back(action.name + ": its request was not sent (" + action.done +
                                       ")");
        }
    }
}

// The plan's requests, in order; each file that a release names must still be there.
std::vector<Message> MessagesOf(VolumePlan& plan, const std::vector<Volume>& volumes,
                                RepairReport& report) {
    AddPush(plan);
    std::vector<Message> messages;
    const auto add = [&messages](const std::vector<Message>& more) {
        messages.insert(messages.end(), more.begin(), more.end());
    };
    add(PackFiles(kRequestUnpinFiles, PushByRelease(plan, volumes, report)));
    add(PackFiles(kRequestPinFiles, plan.pins));
    return messages;
}

int CarryOut(VolumePlan& plan, const std::vector<Volume>& volumes, const std::string& configPath,
             const SendOptions& options, RepairReport& report) {
    std::vector<Watched> requests;
    int status = SweepVolume(*plan.check, configPath, options.timeout, report);
    if (status != kExitDone) {
        return status;
    }
    std::vector<Message> messages = MessagesOf(plan, volumes, report);
    status = SendAndWait(messages, configPath, options, report, requests);
    RecordActions(plan, requests, report);
    return status;
}

const Volume* FindVolume(const std::string& mountPath, const std::vector<Volume>& volumes) {
    for (const Volume& volume : volumes) {
        if (volume.mountPath == mountPath) {
            return &volume;
        }
    }
    return nullptr;
}

}  // namespace

int Repair(const std::vector<VolumeCheck>& checks, const std::vector<Volume>& volumes,
           const ServiceState& service, const SendOptions& options, RepairReport& report) {
    for (const VolumeCheck& check : checks) {
        const Volume* const volume = FindVolume(check.mountPath, volumes);
        const std::string name = Printable(check.mountPath);
        if (IsClean(check)) {
            continue;
        }
        if (volume == nullptr || !VolumeKeepsPins(*volume)) {
            report.obstacles.push_back(name + ": not mounted, or without a cache that keeps pins");
            continue;
        }
        if (check.fileTooLong) {
            report.obstacles.push_back(name + ": the bitmap file is longer than the bitmap");
            continue;
        }
        VolumePlan plan = MakePlan(check, *volume, volumes, report);
        const int status = CarryOut(plan, volumes, service.configPath, options, report);
        if (status != kExitDone) {
            return status;
        }
    }
    return kExitDone;
}

}  // namespace client
