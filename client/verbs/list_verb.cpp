// SPDX-License-Identifier: MIT
// list: the pinned files, as the service keeps them.
#include <errno.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "client/show/exit_status.h"
#include "client/request/file_check.h"
#include "client/show/output.h"
#include "client/service/service_state.h"
#include "client/verbs/verbs.h"

namespace client {

namespace {

// What lies at a pinned file's path.
struct FileNow {
    std::string state;  // "there", "replaced", "gone", or why it cannot be told
    uint64_t size = 0;
};

FileNow LookAtFile(const std::string& path, uint32_t inode) {
    struct stat status = {};
    if (lstat(path.c_str(), &status) != 0) {
        return {errno == ENOENT || errno == ENOTDIR ? "gone" : strerror(errno), 0};
    }
    const bool same = S_ISREG(status.st_mode) && static_cast<uint32_t>(status.st_ino) == inode;
    return {same ? "there" : "replaced", static_cast<uint64_t>(status.st_size)};
}

// Returns the mount path that was meant, or "" for all; false, with the reason, when none is.
bool ChooseMountPath(const std::string& given, const ConfigState& state, std::string& mountPath,
                     std::string& why) {
    if (given.empty() || state.pinned.count(given) > 0) {
        mountPath = given;
        return true;
    }
    std::vector<Volume> volumes;
    ListVolumes(volumes);
    const Volume* const volume = ResolveVolume(given, volumes, why);
    mountPath = volume != nullptr ? volume->mountPath : "";
    return volume != nullptr;
}

void PrintPaths(const ConfigState& state, const std::string& chosen, bool nul) {
    // Raw names are for other programs; a terminal gets them with nothing that could write to it.
    const bool raw = nul || isatty(STDOUT_FILENO) == 0;
    for (const auto& [mountPath, files] : state.pinned) {
        for (const StoredFile& file : files) {
            if (chosen.empty() || chosen == mountPath) {
                const std::string path = PathOnVolume(mountPath, file.relative);
                fputs((raw ? path : Printable(path)).c_str(), stdout);
                fputc(nul ? '\0' : '\n', stdout);
            }
        }
    }
}

void PrintVolume(const std::string& mountPath, const std::vector<StoredFile>& files) {
    Table table("rrll");
    for (const StoredFile& file : files) {
        const FileNow now = LookAtFile(PathOnVolume(mountPath, file.relative), file.inode);
        const bool there = now.state == "there";
        table.Add({there ? HumanBytes(now.size) : "-", std::to_string(file.inode),
                   Printable(file.relative), there ? "" : Toned(Tone::kBad, now.state)});
    }
    Print(Toned(Tone::kStrong, Printable(mountPath)) + ": " + Counted(files.size(), "file") +
          " pinned");
    table.Show("  ");
}

Json::Value VolumeToJson(const std::string& mountPath, const std::vector<StoredFile>& files) {
    Json::Value item;
    item["mountPath"] = mountPath;
    item["files"] = Json::Value(Json::arrayValue);
    for (const StoredFile& file : files) {
        const std::string path = PathOnVolume(mountPath, file.relative);
        const FileNow now = LookAtFile(path, file.inode);
        Json::Value entry;
        entry["path"] = path;
        entry["relativePath"] = file.relative;
        entry["inode"] = file.inode;
        entry["state"] = now.state;
        entry["size"] = now.state == "there" ? Json::Value(Json::UInt64{now.size}) : Json::Value();
        item["files"].append(entry);
    }
    return item;
}

}  // namespace

int ListVerb(const ListOptions& options) {
    const ServiceState service = ReadServiceState(options.common.configPath);
    Json::Value report = NewReport("list");
    std::string chosen;
    std::string why = service.why;
    int status = service.known ? kExitDone : kExitNoService;
    report["volumes"] = Json::Value(Json::arrayValue);
    if (service.known && !ChooseMountPath(options.volume, service.state, chosen, why)) {
        why = Printable(options.volume) + ": " + why;
        status = kExitRefused;
    }
    if (status != kExitDone) {
        Say(why);
    } else if ((options.paths || options.nulSeparated) && !options.common.json) {
        PrintPaths(service.state, chosen, options.nulSeparated);
        return status;
    }
    for (const auto& [mountPath, files] : service.state.pinned) {
        if (status != kExitDone || (!chosen.empty() && chosen != mountPath)) {
            continue;
        }
        if (options.common.json) {
            report["volumes"].append(VolumeToJson(mountPath, files));
        } else {
            PrintVolume(mountPath, files);
        }
    }
    if (options.common.json) {
        PrintReport(report, status);
    } else if (status == kExitDone &&
               (service.state.pinned.empty() ||
                (!chosen.empty() && service.state.pinned.count(chosen) == 0))) {
        Print("nothing is pinned");
    }
    return status;
}

}  // namespace client
