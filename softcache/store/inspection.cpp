// SPDX-License-Identifier: MIT
#include "softcache/store/inspection.h"

#include <fcntl.h>
#include <string.h>

#include <algorithm>

#include "softcache/store/file_io.h"
#include "softcache/store/signature.h"
#include "softcache/store/ssd_recovery.h"

namespace softcache {

static std::string Line(const std::string& label, const std::string& value) {
    return label + std::string(label.size() < 14 ? 14 - label.size() : 1, ' ') + value + "\n";
}

static std::string Number(uint64_t number) {
    return std::to_string(number);
}

static std::string Hex(const std::array<uint8_t, 16>& id) {
    std::string text;
    for (const uint8_t byte : id) {
        text += "0123456789abcdef"[byte >> 4];
        text += "0123456789abcdef"[byte & 15];
    }
    return text;
}

static std::string HeadLines(const SsdHead& head) {
    const SsdIdentity& identity = head.identity;
    return Line("cache", identity.name) + Line("backing", identity.backing) +
           Line("UUID", identity.uuid.empty() ? "none" : identity.uuid) +
           Line("device", Number(head.deviceSize) + " bytes") + Line("id", Hex(head.id)) +
           Line("head", "number " + Number(head.sequence)) +
           Line("stopped",
                (head.flags & kStoppedInOrder) != 0 ? "in order" : "not in order, or in use") +
           Line("pins at", Number(PinsPlace(head, 0)) + " and " + Number(PinsPlace(head, 1))) +
           Line("table at", Number(TableStart(head)) + ", " + Number(TablePages(head.slots)) +
                                " pages of 4096 bytes, seed " + Number(head.tableSeed)) +
           Line("units at",
                Number(SlotStart(head, 0)) + ", " + Number(head.slots) + " slots of 65536 bytes");
}

static std::string PinsLine(int found, const std::vector<uint8_t>& bitmap) {
    return Line("pins", found == 1 ? Number(bitmap.size()) + " bytes, " +
                                         Number(CountBits(bitmap)) + " units"
                                   : "none that is whole");
}

static bool IsPinned(const std::vector<uint8_t>& bitmap, uint32_t unit) {
    return unit / 8 < bitmap.size() && ((bitmap[unit / 8] >> (unit % 8)) & 1) != 0;
}

static std::string TableLines(const std::vector<TableEntry>& entries, const RecoveryReport& report,
                              const std::vector<uint8_t>& bitmap) {
    uint64_t resident = 0;
    uint64_t pinned = 0;
    for (const TableEntry& entry : entries) {
        resident += entry.unit != kNoUnit ? 1 : 0;
        pinned += entry.unit != kNoUnit && IsPinned(bitmap, entry.unit) ? 1 : 0;
    }
    return Line("open", Number(report.open) + " units that are not believed") +
           Line("broken", Number(report.broken) + " sectors of the table, " + Number(report.wrong) +
                              " units that cannot be") +
           Line("resident", Number(resident) + " units, " + Number(pinned) + " of them pinned");
}

std::string InspectSsd(const std::string& path, std::string& lines) {
    const auto failure = [&](const std::string& why) { return "ssd " + path + ": " + why; };
    const OwnedFd fd(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_LARGEFILE));
    if (!fd.valid()) {
        return failure(strerror(errno));
    }
    SsdStore store{Disk(fd.get())};
    const int loaded = store.Load();
    if (loaded != 1) {
        Signature signature;
        FindSignature(fd.get(), path, signature);
        return failure(loaded < 0
                           ? strerror(-loaded)
                           : "holds " + (signature.what.empty() ? "no cache" : signature.what));
    }
    std::vector<uint8_t> bitmap;
    const int pins = store.ReadPins(bitmap);
    std::vector<TableEntry> entries;
    RecoveryReport report;
    const int result = ExamineTable(store, store.Head().deviceSize, entries, report);
    if (pins < 0 || result < 0) {
        return failure(strerror(pins < 0 ? -pins : -result));
    }
    lines = HeadLines(store.Head()) + PinsLine(pins, bitmap) + TableLines(entries, report, bitmap);
    return "";
}

}  // namespace softcache
