// SPDX-License-Identifier: MIT
// pin and unpin: requests about files.
#include <map>

#include "client/exit_status.h"
#include "client/output.h"
#include "client/sending.h"
#include "client/verbs.h"

namespace {

struct FileVerb {
    const char* name;
    RequestType type;
};

// The whole of one call.
struct FileJob {
    std::vector<Volume> volumes;
    FileList list;
    std::vector<Message> messages;
    size_t sent = 0;
};

// Moves the files of volumes that keep no pins to the refusals: the service would drop their
// requests and forget what is pinned there.
void RefuseWithoutCache(FileList& list) {
    std::map<const Volume*, bool> keepsPins;
    std::vector<FileRef> kept;
    for (const FileRef& file : list.files) {
        const auto known = keepsPins.find(file.volume);
        const bool keeps = known != keepsPins.end() ? known->second : VolumeKeepsPins(*file.volume);
        keepsPins[file.volume] = keeps;
        if (keeps) {
            kept.push_back(file);
        } else {
            list.refusals.push_back({file.path, "its volume " + Printable(file.volume->mountPath) +
                                                    " has no cache that keeps pins now"});
        }
    }
    list.files = kept;
}

void SayRefusals(const FileList& list) {
    for (const std::string& note : list.notes) {
        Say(note);
    }
    for (const Refusal& refusal : list.refusals) {
        Say(TonedError(Tone::kBad, "refused") + " " + Printable(refusal.path) + ": " +
            refusal.reason);
    }
}

// Collects, checks and packs the files. Returns an exit status.
int Prepare(const FileVerb& verb, const FileVerbOptions& options, FileJob& job) {
    std::string why;
    if (!ListVolumes(job.volumes)) {
        Say("the volumes cannot be listed");
        return kExitNoService;
    }
    if (!CollectFiles(options.list, job.volumes, job.list, why)) {
        Say(why);
        return kExitUsage;
    }
    RefuseWithoutCache(job.list);
    SayRefusals(job.list);
    if (!job.list.refusals.empty() && (!options.keepGoing || job.list.files.empty())) {
        Say("nothing was sent" + std::string(options.keepGoing || job.list.files.empty()
                                                 ? ""
                                                 : "; --keep-going sends the other files"));
        return kExitRefused;
    }
    job.messages = PackFiles(verb.type, job.list.files);
    return kExitDone;
}

Json::Value ToJson(const FileJob& job, const char* verb) {
    Json::Value report = NewReport(verb);
    report["files"] = Json::Value(Json::arrayValue);
    for (const FileRef& file : job.list.files) {
        Json::Value item;
        item["path"] = file.path;
        item["volume"] = file.volume->mountPath;
        item["inode"] = file.inode;
        item["size"] = static_cast<Json::UInt64>(file.size);
        report["files"].append(item);
    }
    report["refused"] = Json::Value(Json::arrayValue);
    for (const Refusal& refusal : job.list.refusals) {
        Json::Value item;
        item["path"] = Printable(refusal.path);
        item["reason"] = refusal.reason;
        report["refused"].append(item);
    }
    report["requests"] = static_cast<Json::UInt64>(job.messages.size());
    report["sent"] = static_cast<Json::UInt64>(job.sent);
    return report;
}

void PrintSent(const FileJob& job, const char* verb) {
    std::map<std::string, std::pair<size_t, size_t>> perVolume;  // files, requests
    for (size_t i = 0; i < job.sent; ++i) {
        auto& [files, requests] = perVolume[job.messages[i].mountPath];
        files += job.messages[i].numFiles;
        ++requests;
    }
    for (const auto& [mountPath, counts] : perVolume) {
        Print(Printable(mountPath) + ": " + verb + " of " + Counted(counts.first, "file") +
              " sent in " + Counted(counts.second, "request"));
    }
    if (job.messages.empty()) {
        Print("no files, nothing sent");
    }
}

int RunFileVerb(const FileVerb& verb, const FileVerbOptions& options) {
    FileJob job;
    int status = Prepare(verb, options, job);
    if (status == kExitDone && !job.messages.empty()) {
        status = SendAll(job.messages, options.sendPatience, job.sent);
    }
    if (status == kExitDone && !job.list.refusals.empty()) {
        status = kExitPartly;
    }
    if (options.common.json) {
        Json::Value report = ToJson(job, verb.name);
        PrintReport(report, status);
    } else if (job.sent > 0 || status == kExitDone) {
        PrintSent(job, verb.name);
    }
    return status;
}

}  // namespace

int PinVerb(const FileVerbOptions& options) {
    return RunFileVerb({"pin", kRequestPinFiles}, options);
}

int UnpinVerb(const FileVerbOptions& options) {
    return RunFileVerb({"unpin", kRequestUnpinFiles}, options);
}
