// SPDX-License-Identifier: MIT
#include "softcache/store/cache_files.h"

#include <fcntl.h>
#include <string.h>

#include <algorithm>

#include "softcache/store/distrust.h"
#include "softcache/store/examination.h"
#include "softcache/store/signature.h"
#include "softcache/store/storage.h"

namespace softcache {

namespace {

// One start on its way.
struct Start {
    const CacheFilesWanted& wanted;
    CacheFiles& files;
    SsdIdentity identity;
    SsdHead found;  // as the SSD had it
    uint64_t deviceSize = 0;
    uint64_t oldDeviceSize = 0;
    uint32_t slots = 0;
    bool isOurs = false;
    bool isBlockDevice = false;

    std::string Ssd(const std::string& what) const { return "ssd " + wanted.ssd + ": " + what; }
    void Remark(const std::string& line) const { files.remarks.push_back(line); }
};

std::string Examine(Start& start) {
    const CacheFilesWanted& wanted = start.wanted;
    std::string wrong = ExamineBacking(start.files.backingFd.get(), start.identity.uuid);
    if (!wrong.empty()) {
        return "backing " + wanted.backing + ": " + wrong;
    }
    Examination result;
    wrong = ExamineSsd(*start.files.store, start.identity, result);
    if (!wrong.empty()) {
        return start.Ssd(wrong);
    }
    if (result.kind == SsdKind::kElse && !wanted.format) {
        return start.Ssd(result.found + "; --format overwrites it");
    }
    start.found = start.files.store->Head();
    start.isOurs = result.kind == SsdKind::kOurs && !wanted.format;
    start.oldDeviceSize = start.isOurs ? start.files.store->Head().deviceSize : start.deviceSize;
    return "";
}

// What the SSD will look like.
SsdHead Plan(const Start& start) {
    SsdHead plan;
    plan.pinsRoom = PinsRoomFor(start.deviceSize);
    if (start.isOurs) {
        plan.pinsRoom = std::max(plan.pinsRoom, start.files.store->Head().pinsRoom);
    }
    plan.slots = start.slots;
    return plan;
}

// How many slots there will be. Nothing is written yet.
std::string ChooseSlots(Start& start) {
    const uint64_t has = start.files.store->Ssd().Size();
    const uint32_t fit = SlotsThatFit(has, start.deviceSize);
    const uint64_t fitting = uint64_t{fit} * kUnitSize;
    start.slots = static_cast<uint32_t>(start.wanted.ssdSize / kUnitSize);
    if (start.wanted.ssdSize == 0) {
        start.slots = start.isOurs ? start.files.store->Head().slots : fit;
    }
    if (start.slots == 0) {
        return start.Ssd("too small: " + std::to_string(has) +
                         " bytes have no room for a unit of " + std::to_string(kUnitSize));
    }
    const uint64_t needed = SsdBytes(Plan(start));
    if (start.isBlockDevice && has < needed) {
        return start.Ssd("too small: a cache of " +
                         std::to_string(start.slots * uint64_t{kUnitSize}) + " bytes takes " +
                         std::to_string(needed) + ", it has " + std::to_string(has) +
                         ", enough for " + std::to_string(fitting));
    }
    return "";
}

// Before anything else is written: nothing that the SSD holds counts any more, but the pins.
std::string StartCold(Start& start) {
    start.files.store->InvalidateTable();
    return start.files.store->WriteHead({}) == 0 ? "" : start.Ssd("cannot be written");
}

// Its table was not made invalid when it should have been: copies in it may be stale.
std::string HeedDistrust(Start& start) {
    if (!start.isOurs || !Distrust(start.wanted.distrust).Has(start.found)) {
        return "";
    }
    start.Remark(
        start.Ssd("could not be written any more when it was used: the cache starts cold"));
    return StartCold(start);
}

// A file gets its length, and its space. One that was shorter than its head says was cut while
// nobody looked.
std::string SizeFile(Start& start) {
    const SsdStore& store = *start.files.store;
    const uint64_t has = store.Ssd().Size();
    const uint64_t needed = SsdBytes(Plan(start));
    const bool wasCut = start.isOurs && (has < SsdBytes(store.Head()) ||
                                         ((store.Head().flags & kAllocated) != 0 &&
                                          store.Ssd().Allocated() < SsdBytes(store.Head())));
    if (wasCut) {
        start.Remark(
            start.Ssd("was cut or lost space since it was used: nothing of it is believed"));
        std::string wrong = StartCold(start);
        if (!wrong.empty()) {
            return wrong;
        }
    }
    if (start.isBlockDevice || (start.isOurs && has == needed && !wasCut)) {
        return "";
    }
    const std::string wrong = SizeSsdFile(start.files.ssdFd.get(), needed);
    return wrong.empty() ? "" : start.Ssd(wrong);
}

std::string Prepare(Start& start) {
    SsdStore& store = *start.files.store;
    const uint64_t needed = SsdBytes(Plan(start));
    const uint32_t flags =
        !start.isBlockDevice && store.Ssd().Allocated() >= needed ? kAllocated : 0u;
    if (start.isOurs && start.slots != store.Head().slots) {
        start.Remark(start.Ssd("has another size than it had: the cache starts cold"));
    }
    int result = start.isOurs ? store.Adopt(start.identity, start.deviceSize, start.slots, flags)
                              : store.Format(start.identity, start.deviceSize, start.slots, flags);
    RecoveryReport report;
    if (result == 0) {
        result = RecoverTable(store, start.oldDeviceSize, start.files.warm, report);
    }
    if (result != 0) {
        return start.Ssd(strerror(-result));
    }
    return "";
}

// Copies of what was changed past the cache would hide it.
std::string NoticeChange(Start& start) {
    if (!start.isOurs || !start.files.store->IsChanged(*start.files.backing)) {
        return "";
    }
    start.Remark("backing " + start.wanted.backing +
                 ": was changed since the cache stopped: the cache starts cold");
    return StartCold(start);
}

void GoDirect(Start& start) {
    std::string why = start.files.backing->GoDirect();
    if (!why.empty()) {
        start.Remark("backing " + start.wanted.backing + ": through the page cache, " + why);
    }
    Disk ssd(start.files.ssdFd.get());
    why = ssd.GoDirect();
    if (!why.empty()) {
        start.Remark(start.Ssd("through the page cache, " + why));
    }
    start.files.store->Use(ssd);
}

}  // namespace

std::string OpenCacheFiles(const CacheFilesWanted& wanted, CacheFiles& files) {
    CacheFiles opened;
    Start start{wanted, opened, {}, {}, 0, 0, 0, false, false};
    std::string wrong = WhyNotTwoFiles(wanted.backing, wanted.ssd);
    if (wrong.empty()) {
        wrong = OpenBacking(wanted.backing, opened.backingFd, start.deviceSize);
    }
    if (wrong.empty()) {
        wrong = OpenSsd(wanted.ssd, opened.ssdFd, start.isBlockDevice);
    }
    if (!wrong.empty()) {
        return wrong;
    }
    start.identity = {wanted.name, "", AbsolutePath(wanted.backing)};
    opened.backing = std::make_unique<Disk>(opened.backingFd.get());
    opened.store = std::make_unique<SsdStore>(Disk(opened.ssdFd.get()));
    for (auto* step : {Examine, HeedDistrust, ChooseSlots, SizeFile}) {
        wrong = step(start);
        if (!wrong.empty()) {
            return wrong;
        }
    }
    GoDirect(start);
    wrong = NoticeChange(start);
    if (wrong.empty()) {
        wrong = Prepare(start);
    }
    if (wrong.empty()) {
        Distrust(wanted.distrust).Forget(start.found);
        files = std::move(opened);
    }
    return wrong;
}

bool ReadBackingUuid(const Disk& backing, std::string& uuid) {
    // Opened once more, as it is open for direct access.
    const std::string path = "/proc/thread-self/fd/" + std::to_string(backing.Fd());
    const OwnedFd fd(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_LARGEFILE));
    Signature signature;
    if (!fd.valid() || !FindSignature(fd.get(), path, signature).empty()) {
        return false;
    }
    uuid = signature.uuid;
    return true;
}

}  // namespace softcache
