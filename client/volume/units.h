// SPDX-License-Identifier: MIT
// Units of 64 KiB of a cached device: a bitmap of all of them, and the runs of them that a file
// has.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <string>
#include <vector>

#include "platform/quordataverifier.h"

namespace client {

constexpr uint64_t kUnitBytes = 65536;
constexpr uint64_t kSectorBytes = 512;

// Units `first` to `last`, both included.
struct UnitRun {
    uint64_t first;
    uint64_t last;
};

// Sorted, apart from each other by at least one unit.
using UnitRuns = std::vector<UnitRun>;

// A bit a unit, least significant first, as in the pin bitmap's file. Units behind the last byte
// are not in the set and cannot be put into it.
class UnitSet {
  public:
    UnitSet() = default;
    explicit UnitSet(size_t bytes) : bytes_(bytes) {}
    explicit UnitSet(std::vector<uint8_t> bytes) : bytes_(std::move(bytes)) {}

    uint64_t Room() const { return static_cast<uint64_t>(bytes_.size()) * 8; }
    bool Has(uint64_t unit) const {
        return unit < Room() && (bytes_[static_cast<size_t>(unit / 8)] >> (unit % 8) & 1) != 0;
    }
    void Put(uint64_t unit);
    void Put(const UnitRuns& runs);
    uint64_t Count() const;
    // Units of the runs that could be in the set.
    uint64_t RoomFor(const UnitRuns& runs) const;
    // Units of the runs that are in the set.
    uint64_t CountIn(const UnitRuns& runs) const;
    // Units that are in this set and not in the other.
    uint64_t CountWithout(const UnitSet& other) const;
    UnitSet Without(const UnitSet& other) const;
    // Units of [first, end) that are in the set.
    uint64_t CountBetween(uint64_t first, uint64_t end) const;
    UnitRuns Runs() const;
    const std::vector<uint8_t>& Bytes() const { return bytes_; }
    // Gives the set room for that many bytes; bits behind them are dropped.
    void Resize(size_t bytes) { bytes_.resize(bytes); }

  private:
    std::vector<uint8_t> bytes_;
};

// Returns the units in which the extents lie.
UnitRuns RunsOf(const std::vector<FileMappingEntry>& extents);

uint64_t CountUnits(const UnitRuns& runs);

// Returns the units that are in both.
UnitRuns CommonRuns(const UnitRuns& left, const UnitRuns& right);

// Returns those of the extents that were ever written; the service reads no others.
std::vector<FileMappingEntry> WrittenOf(const std::vector<FileMappingEntry>& extents);

// Returns the bytes of the extents.
uint64_t BytesOf(const std::vector<FileMappingEntry>& extents);

// Reads a file of raw bits. Returns false, with errno set, when it cannot be read.
bool ReadUnitSet(const std::string& path, UnitSet& set);

}  // namespace client
