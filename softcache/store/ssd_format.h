// SPDX-License-Identifier: MIT
// The bytes of a cache's SSD; docs/formats.md has them with an example. No input or output.
//
//   0        head, first place     4096 bytes
//   4096     head, second place    4096 bytes
//   65536    pins, first place     pinsRoom bytes
//            pins, second place    pinsRoom bytes
//            table                 pages of 4096 bytes
//            units                 slots of 64 KiB
//
// Heads and pins are written in turn into their two places, and the newer one that is whole counts:
// a write that is cut off leaves the one before it.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <array>
#include <string>
#include <vector>

#include "softcache/store/unit_table.h"

namespace softcache {

constexpr size_t kPageBytes = 4096;  // heads and pages of the table; whole blocks of every SSD
constexpr size_t kTableSectorBytes = 512;
constexpr uint32_t kSectorEntries = 63;
constexpr uint32_t kPageEntries = kSectorEntries * (kPageBytes / kTableSectorBytes);
constexpr uint64_t kPinsStart = 65536;
constexpr uint32_t kMostOpen = 896;  // slots that a head can name

enum SsdFlags : uint32_t {
    kStoppedInOrder = 1,  // nothing was written behind this head
    kAllocated = 2,       // all of the SSD file had space of its own when it was formatted
    kBackingMarked = 4,   // the head has the backing's mark
};

// Whose copies the SSD holds. Texts that are longer than their field are cut.
struct SsdIdentity {
    std::string name;     // of the cache, at most 64 bytes
    std::string uuid;     // of what lies on the backing, empty when it has none; at most 48 bytes
    std::string backing;  // absolute path, at most 288 bytes
};

struct SsdHead {
    uint64_t sequence = 0;         // the higher one counts
    std::array<uint8_t, 16> id{};  // made when the SSD was formatted
    uint64_t deviceSize = 0;       // bytes
    uint64_t pinsRoom = 0;         // bytes of each of the two places for pins
    uint32_t slots = 0;            // of 64 KiB
    uint32_t tableSeed = 0;        // sectors of the table with another one hold nothing
    uint32_t flags = 0;            // SsdFlags
    uint32_t backingMark = 0;      // of an orderly stop; see MarkOf
    SsdIdentity identity;
    std::vector<uint32_t> open;  // slots that may hold anything, whatever the table says
};

// One slot's line of the table.
struct TableEntry {
    uint32_t unit = kNoUnit;  // kNoUnit = empty
    uint32_t lastUse = 0;     // the higher, the later
};

// Where things lie, in bytes.
uint64_t PinsRoomFor(uint64_t deviceSize);
uint64_t PinsPlace(const SsdHead& head, uint64_t sequence);
uint64_t TableStart(const SsdHead& head);
uint32_t TablePages(uint32_t slots);
uint64_t SlotStart(const SsdHead& head, uint32_t slot);
uint64_t SsdBytes(const SsdHead& head);  // in all

// The slots that fit on an SSD of `bytes` for a device of that size; 0 when it is too small.
uint32_t SlotsThatFit(uint64_t bytes, uint64_t deviceSize);

using PageBytes = std::array<uint8_t, kPageBytes>;

// Whether a head, whole or not, begins here.
bool LooksLikeHead(const uint8_t* page);
PageBytes EncodeHead(const SsdHead& head);
bool DecodeHead(const uint8_t* page, SsdHead& head);  // false when it is not whole

// What tells a backing whose first page has changed. Every mount of an ext4 or XFS that may write
// changes the superblock, which is there.
uint32_t MarkOf(const PageBytes& first);

// The lines of slots kPageEntries * page and following; those beyond the last slot are empty.
// Decode leaves the lines of a sector that is not whole empty, and returns how many there were.
PageBytes EncodeTablePage(uint32_t seed, uint32_t page, const TableEntry* entries);
uint32_t DecodeTablePage(uint32_t seed, uint32_t page, const uint8_t* bytes, TableEntry* entries);

// Pins: a header and the bitmap as it was received, padded to whole pages.
constexpr size_t kPinsHeaderBytes = 32;
struct PinsHeader {
    uint32_t checksum = 0;
    uint64_t sequence = 0;
    uint64_t length = 0;  // bytes of the bitmap
};
std::vector<uint8_t> EncodePins(const SsdHead& head, uint64_t sequence,
                                const std::vector<uint8_t>& bitmap);
// False when it is not this cache's or cannot be its length.
bool DecodePinsHeader(const SsdHead& head, const uint8_t* bytes, PinsHeader& pins);
bool PinsAreWhole(const PinsHeader& pins, const uint8_t* bytes);  // header and bitmap

}  // namespace softcache
