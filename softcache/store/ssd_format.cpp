// SPDX-License-Identifier: MIT
#include "softcache/store/ssd_format.h"

#include <string.h>
#include <zlib.h>

#include <algorithm>

namespace softcache {

constexpr char kMagic[16] = "quorsoftcache";
constexpr uint32_t kVersion = 1;
constexpr uint64_t kLeastPinsRoom = 1 << 20;
constexpr uint64_t kGrowth =
    4;  // times its size that a device can grow to without moving the units

// Offsets and lengths of a head's fields.
constexpr size_t kChecksumAt = 20;
constexpr size_t kNameAt = 112;
constexpr size_t kNameBytes = 64;
constexpr size_t kUuidAt = 176;
constexpr size_t kUuidBytes = 48;
constexpr size_t kBackingAt = 224;
constexpr size_t kBackingBytes = 288;
constexpr size_t kOpenAt = 512;
static_assert(kBackingAt + kBackingBytes == kOpenAt);
static_assert(kOpenAt + size_t{kMostOpen} * 4 == kPageBytes);

static uint64_t RoundUp(uint64_t bytes, uint64_t to) {
    return (bytes + to - 1) / to * to;
}

template <typename T>
static void Put(uint8_t* at, T value) {
    for (size_t i = 0; i < sizeof(T); ++i) {
        at[i] = static_cast<uint8_t>(value >> (8 * i));
    }
}

template <typename T>
static T Get(const uint8_t* at) {
    T value = 0;
    for (size_t i = 0; i < sizeof(T); ++i) {
        value = static_cast<T>(value | (static_cast<T>(at[i]) << (8 * i)));
    }
    return value;
}

static uint32_t Checksum(const uint8_t* bytes, size_t size) {
    return static_cast<uint32_t>(crc32_z(0, bytes, size));
}

static void PutText(uint8_t* at, size_t room, const std::string& text) {
    std::copy_n(text.begin(), std::min(room, text.size()), at);
}

static std::string GetText(const uint8_t* at, size_t room) {
    const auto* text = reinterpret_cast<const char*>(at);
    return std::string(text, strnlen(text, room));
}

uint64_t PinsRoomFor(uint64_t deviceSize) {
    const uint64_t bitmap = deviceSize >> 19;
    return std::max(kLeastPinsRoom, RoundUp(kPinsHeaderBytes + kGrowth * bitmap, kUnitSize));
}

uint64_t PinsPlace(const SsdHead& head, uint64_t sequence) {
    return kPinsStart + (sequence % 2) * head.pinsRoom;
}

uint64_t TableStart(const SsdHead& head) {
    return kPinsStart + 2 * head.pinsRoom;
}

uint32_t TablePages(uint32_t slots) {
    return (slots + kPageEntries - 1) / kPageEntries;
}

uint64_t SlotStart(const SsdHead& head, uint32_t slot) {
    const uint64_t table = RoundUp(uint64_t{TablePages(head.slots)} * kPageBytes, kUnitSize);
    return TableStart(head) + table + uint64_t{slot} * kUnitSize;
}

uint64_t SsdBytes(const SsdHead& head) {
    return SlotStart(head, head.slots);
}

uint32_t SlotsThatFit(uint64_t bytes, uint64_t deviceSize) {
    SsdHead head;
    head.pinsRoom = PinsRoomFor(deviceSize);
    uint32_t fit = 0;
    auto most = static_cast<uint32_t>(std::min<uint64_t>(bytes / kUnitSize, kNoSlot - 1));
    while (fit < most) {
        head.slots = most - (most - fit) / 2;
        if (SsdBytes(head) <= bytes) {
            fit = head.slots;
        } else {
            most = head.slots - 1;
        }
    }
    return fit;
}

bool LooksLikeHead(const uint8_t* page) {
    return memcmp(page, kMagic, sizeof(kMagic)) == 0;
}

PageBytes EncodeHead(const SsdHead& head) {
    PageBytes page{};
    uint8_t* at = page.data();
    memcpy(at, kMagic, sizeof(kMagic));
    Put(at + 16, kVersion);
    Put(at + 24, head.sequence);
    memcpy(at + 32, head.id.data(), head.id.size());
    Put(at + 48, head.deviceSize);
    Put(at + 56, head.pinsRoom);
    Put(at + 64, head.slots);
    Put(at + 68, head.tableSeed);
    Put(at + 72, head.flags);
    Put(at + 76, static_cast<uint32_t>(head.open.size()));
    Put(at + 80, head.backingMark);
    PutText(at + kNameAt, kNameBytes, head.identity.name);
    PutText(at + kUuidAt, kUuidBytes, head.identity.uuid);
    PutText(at + kBackingAt, kBackingBytes, head.identity.backing);
    for (size_t i = 0; i < head.open.size(); ++i) {
        Put(at + kOpenAt + 4 * i, head.open[i]);
    }
    Put(at + kChecksumAt, Checksum(at, kPageBytes));  // of the page with 0 in its place
    return page;
}

bool DecodeHead(const uint8_t* page, SsdHead& head) {
    PageBytes copy;
    memcpy(copy.data(), page, kPageBytes);
    Put(copy.data() + kChecksumAt, uint32_t{0});
    const auto open = Get<uint32_t>(page + 76);
    if (!LooksLikeHead(page) || Get<uint32_t>(page + 16) != kVersion || open > kMostOpen ||
        Checksum(copy.data(), kPageBytes) != Get<uint32_t>(page + kChecksumAt)) {
        return false;
    }
    head.sequence = Get<uint64_t>(page + 24);
    memcpy(head.id.data(), page + 32, head.id.size());
    head.deviceSize = Get<uint64_t>(page + 48);
    head.pinsRoom = Get<uint64_t>(page + 56);
    head.slots = Get<uint32_t>(page + 64);
    head.tableSeed = Get<uint32_t>(page + 68);
    head.flags = Get<uint32_t>(page + 72);
    head.backingMark = Get<uint32_t>(page + 80);
    head.identity.name = GetText(page + kNameAt, kNameBytes);
    head.identity.uuid = GetText(page + kUuidAt, kUuidBytes);
    head.identity.backing = GetText(page + kBackingAt, kBackingBytes);
    head.open.resize(open);
    for (uint32_t i = 0; i < open; ++i) {
        head.open[i] = Get<uint32_t>(page + kOpenAt + size_t{4} * i);
    }
    return true;
}

uint32_t MarkOf(const PageBytes& first) {
    return Checksum(first.data(), first.size());
}

// A sector: its checksum, the seed plus its number in the table, its lines of 8 bytes.
PageBytes EncodeTablePage(uint32_t seed, uint32_t page, const TableEntry* entries) {
    PageBytes bytes{};
    for (uint32_t i = 0; i < kPageEntries; ++i) {
        uint8_t* sector = bytes.data() + i / kSectorEntries * kTableSectorBytes;
        uint8_t* line = sector + 8 + size_t{8} * (i % kSectorEntries);
        Put(line, entries[i].unit);
        Put(line + 4, entries[i].lastUse);
    }
    constexpr uint32_t kSectors = kPageEntries / kSectorEntries;
    for (uint32_t i = 0; i < kSectors; ++i) {
        uint8_t* sector = bytes.data() + i * kTableSectorBytes;
        Put(sector + 4, seed + page * kSectors + i);
        Put(sector, Checksum(sector + 4, kTableSectorBytes - 4));
    }
    return bytes;
}

uint32_t DecodeTablePage(uint32_t seed, uint32_t page, const uint8_t* bytes, TableEntry* entries) {
    constexpr uint32_t kSectors = kPageEntries / kSectorEntries;
    uint32_t broken = 0;
    for (uint32_t i = 0; i < kSectors; ++i) {
        const uint8_t* sector = bytes + i * kTableSectorBytes;
        const bool whole = Get<uint32_t>(sector) == Checksum(sector + 4, kTableSectorBytes - 4) &&
                           Get<uint32_t>(sector + 4) == seed + page * kSectors + i;
        broken += whole ? 0 : 1;
        for (uint32_t j = 0; j < kSectorEntries; ++j) {
            const uint8_t* line = sector + 8 + size_t{8} * j;
            *entries++ =
                whole ? TableEntry{Get<uint32_t>(line), Get<uint32_t>(line + 4)} : TableEntry{};
        }
    }
    return broken;
}

std::vector<uint8_t> EncodePins(const SsdHead& head, uint64_t sequence,
                                const std::vector<uint8_t>& bitmap) {
    const uint64_t whole = RoundUp(kPinsHeaderBytes + bitmap.size(), kPageBytes);
    std::vector<uint8_t> bytes(static_cast<size_t>(whole), 0);
    Put(bytes.data() + 8, sequence);
    Put(bytes.data() + 16, uint64_t{bitmap.size()});
    memcpy(bytes.data() + 24, head.id.data(), 8);
    std::copy(bitmap.begin(), bitmap.end(), bytes.begin() + kPinsHeaderBytes);
    Put(bytes.data(), Checksum(bytes.data() + 8, kPinsHeaderBytes - 8 + bitmap.size()));
    return bytes;
}

bool DecodePinsHeader(const SsdHead& head, const uint8_t* bytes, PinsHeader& pins) {
    pins.checksum = Get<uint32_t>(bytes);
    pins.sequence = Get<uint64_t>(bytes + 8);
    pins.length = Get<uint64_t>(bytes + 16);
    return memcmp(bytes + 24, head.id.data(), 8) == 0 &&
           pins.length <= head.pinsRoom - kPinsHeaderBytes;
}

bool PinsAreWhole(const PinsHeader& pins, const uint8_t* bytes) {
    return pins.checksum ==
           Checksum(bytes + 8, kPinsHeaderBytes - 8 + static_cast<size_t>(pins.length));
}

}  // namespace softcache
