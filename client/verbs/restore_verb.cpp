// SPDX-License-Identifier: MIT
// restore and keep-copy: the copies of the service's lists.
#include <errno.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>

#include "client/service/store_copies.h"
#include "client/show/exit_status.h"
#include "client/show/output.h"
#include "client/show/poll.h"
#include "client/show/report.h"
#include "client/show/text.h"
#include "client/verbs/around_unit.h"
#include "client/verbs/verbs.h"

namespace client {

namespace {

constexpr double kReadPause = 0.02;  // seconds between two looks at a store that is being rewritten
constexpr double kReadLimit = 1;

Record DescribeCopy(const StoreCopy& copy) {
    const bool good = copy.good;
    return Record()
        .Add("number", Json::UInt64{copy.number}, "copy")
        .Shown("time", Json::Int64{copy.made}, "made", TimeText(copy.made))
        .Shown("files", IfKnown(good, copy.files), "files",
               good ? std::to_string(copy.files) : "cannot be read")
        .Shown("volumes", IfKnown(good, copy.volumes.size()), "volumes",
               good ? std::to_string(copy.volumes.size()) : "-")
        .Add("path", copy.path);
}

// Whether services run, which keep what they read from being changed behind their backs.
bool IsAtRest() {
    return FindServices().empty();
}

// One call of restore with a copy.
class Restore {
  public:
    Restore(const RestoreOptions& options, const std::string& path, const StoreCopy& copy)
        : options_(options), path_(path), copy_(copy) {}

    int Run(Record& report);

  private:
    int PutBackAtRest();

    const RestoreOptions& options_;
    const std::string& path_;
    const StoreCopy& copy_;
    std::string aside_;
};

int Restore::PutBackAtRest() {
    StoredList store;
    std::string why;
    if (!IsAtRest()) {
        Say("a service was started meanwhile; nothing was changed");
        return kExitRefused;
    }
    if (!store.LockAsItIs(path_, why) || !PutBack(copy_, store, aside_, why)) {
        Say(why + "; nothing was changed");
        return kExitRefused;
    }
    return kExitDone;
}

int Restore::Run(Record& report) {
    int status = kExitRefused;
    if (geteuid() != 0) {
        Say("only root sees whether the service runs; nothing was changed");
    } else if (IsAtRest()) {
        status = PutBackAtRest();
    } else if (options_.restart) {
        status = AroundUnit(FindServices(), path_, "restore", [this] { return PutBackAtRest(); });
    } else {
        Say("the service runs; stop it, or give --restart; nothing was changed");
    }
    report.Add("aside", IfAny(aside_));
    if (status == kExitDone) {
        report.Line("the service lists the " + Counted(copy_.files, "file") + " of copy " +
                    std::to_string(copy_.number) +
                    " again; check --repair makes the bitmaps agree");
    }
    if (!aside_.empty()) {
        report.Line("what could not be read is now " + Printable(aside_));
    }
    return status;
}

// Finds the store whose copies are meant, there or not. Returns kExitDone, or another exit status,
// having said why.
int FindStore(const CommonOptions& common, std::string& path) {
    std::string why;
    // One that was named and is not there may have copies all the same.
    if (!common.configPath.empty() && access(common.configPath.c_str(), F_OK) != 0) {
        path = common.configPath;
    } else if (!FindConfigPath(common.configPath, path, why)) {
        Say(why);
        return kExitNoService;
    }
    return kExitDone;
}

int RestoreOne(const RestoreOptions& options, const std::string& path,
               const std::vector<StoreCopy>& copies, Record& report) {
    const auto copy = std::find_if(copies.begin(), copies.end(), [&options](const StoreCopy& one) {
        return one.number == options.copy;
    });
    if (copy == copies.end() || !copy->good) {
        Say("copy " + std::to_string(options.copy) + " of " + Printable(path) +
            (copy == copies.end() ? " is not there" : " cannot be read") + "; nothing was changed");
        return kExitRefused;
    }
    return Restore(options, path, *copy).Run(report);
}

// Waits for as long as a service takes to rewrite its store. Returns whether it can be read.
bool CanBeRead(const std::string& path, std::string& why) {
    const Poll poll(kReadPause, IsAtRest() ? 0 : kReadLimit);
    Json::Value document;
    while (!ReadStore(path, document, why)) {
        if (!poll.Again()) {
            return false;
        }
    }
    return true;
}

// Puts the last good copy in the place of a store that cannot be read.
int ReplaceUnreadable(const std::vector<StoreCopy>& copies, StoredList& store,
                      const std::string& damage, Record& report) {
    const StoreCopy* const copy = NewestGood(copies);
    std::string aside;
    std::string why = "there is no copy of it";
    std::string text;
    const int error = ReadText(store.Path(), text);
    if (!IsAtRest() || (error != 0 && error != EIO)) {
        // What cannot be opened for the moment may be whole.
        Say((error != 0 ? Printable(store.Path()) + ": " + strerror(error) : damage) +
            "; it stays as it is" + (error != 0 ? "" : ", as a service runs"));
        return kExitPartly;
    }
    if (copy == nullptr || !PutBack(*copy, store, aside, why)) {
        Say(damage + ", and stays as it is: " + why);
        return kExitPartly;
    }
    Say(damage + "; it is now " + Printable(aside) + ", and copy " + std::to_string(copy->number) +
        " of " + TimeText(copy->made) + ", which lists " + Counted(copy->files, "file") +
        ", has taken its place");
    report.Add("aside", aside).Add("restored", Json::UInt64{copy->number});
    return kExitPartly;
}

int KeepOrReplace(const std::string& path, Record& report) {
    StoredList store;
    KeptCopy kept;
    std::string why;
    const std::vector<StoreCopy> copies = ListCopies(path);
    if (access(path.c_str(), F_OK) != 0) {
        // So the service begins anew, which may be what was meant.
        const std::string absent = Printable(path) + ": " + strerror(errno);
        if (NewestGood(copies) != nullptr) {
            Say(absent + "; there are copies: quorcachepinctl restore");
        }
        return kExitDone;
    }
    if (!store.LockAsItIs(path, why)) {
        Say(why);
        return kExitRefused;
    }
    if (!CanBeRead(path, why)) {
        return ReplaceUnreadable(copies, store, why, report);
    }
    if (!KeepCopy(store, kept, why)) {
        Say("no copy was made: " + why);
        return kExitPartly;
    }
    report.Add("kept", IfKnown(kept.number > 0, kept.number)).Add("lost", IfAny(kept.lost));
    if (!kept.lost.empty()) {
        Say(Printable(path) + " " + kept.lost +
            "; if that was not meant, quorcachepinctl restore puts the copy back");
    }
    return kExitDone;
}

}  // namespace

int RestoreVerb(const RestoreOptions& options) {
    Record report;
    std::string path;
    int status = FindStore(options.common, path);
    if (status == kExitDone) {
        const std::vector<StoreCopy> copies = ListCopies(path);
        report.List("copies", RecordsOf(copies, DescribeCopy),
                    options.copy == 0 ? Layout::kHeadedRows : Layout::kHidden);
        if (options.copy != 0) {
            status = RestoreOne(options, path, copies, report);
        } else if (copies.empty()) {
            report.Line("there are no copies of " + Printable(path));
        }
    }
    return Finish("restore", report, options.common.json, status);
}

int KeepCopyVerb(const CommonOptions& options) {
    Record report;
    std::string path;
    int status = FindStore(options, path);
    if (status == kExitDone) {
        status = KeepOrReplace(path, report);
    }
    return Finish("keep-copy", report, options.json, status);
}

}  // namespace client
