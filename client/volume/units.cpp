// SPDX-License-Identifier: MIT
#include "client/volume/units.h"

#include <endian.h>
#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>
#include <iterator>

#include "util/pin_bitmap.h"
#include "util/scoped.h"

namespace client {

namespace {

constexpr size_t kReadPiece = 1 << 20;

constexpr size_t kWordBytes = sizeof(uint64_t);
constexpr uint64_t kWordUnits = 64;

uint64_t CountBits(uint64_t word) {
    // Most words of a large volume have none, and to count may be a call.
    return word == 0 ? 0 : static_cast<uint64_t>(__builtin_popcountll(word));
}

// The position of the lowest bit that is set; behind the last one when none is.
uint64_t LowestBit(uint64_t word) {
    return word == 0 ? kWordUnits : static_cast<uint64_t>(__builtin_ctzll(word));
}

// Bits `first` to `end`, that one not included.
uint64_t BitsBetween(uint64_t first, uint64_t end) {
    const uint64_t below = end == kWordUnits ? ~uint64_t{0} : (uint64_t{1} << end) - 1;
    return below & ~uint64_t{0} << first;
}

// The word that begins at a byte, its first unit in the lowest bit; behind the end there is none.
uint64_t WordAt(const std::vector<uint8_t>& bytes, size_t begin) {
    uint64_t word = 0;
    if (begin < bytes.size()) {
        memcpy(&word, &bytes[begin], std::min(kWordBytes, bytes.size() - begin));
    }
    return le64toh(word);
}

// Merges runs that touch or overlap; sorts them first.
UnitRuns Merged(UnitRuns runs) {
    std::sort(runs.begin(), runs.end(),
              [](const UnitRun& left, const UnitRun& right) { return left.first < right.first; });
    UnitRuns merged;
    for (const UnitRun& run : runs) {
        // Touching counts as overlapping: runs are apart by at least one unit.
        if (!merged.empty() && run.first <= merged.back().last + 1) {
            merged.back().last = std::max(merged.back().last, run.last);
        } else {
            merged.push_back(run);
        }
    }
    return merged;
}

}  // namespace

void UnitSet::Put(uint64_t unit) {
    if (unit < Room()) {
        bytes_[static_cast<size_t>(unit / 8)] |= static_cast<uint8_t>(1U << (unit % 8));
    }
}

void UnitSet::Put(const UnitRuns& runs) {
    for (const UnitRun& run : runs) {
        const uint64_t stop = std::min(run.last + 1, Room());
        for (uint64_t unit = run.first; unit < stop;) {
            if (unit % 8 == 0 && stop - unit >= 8) {
                bytes_[static_cast<size_t>(unit / 8)] = 0xff;
                unit += 8;
            } else {
                Put(unit);
                ++unit;
            }
        }
    }
}

uint64_t UnitSet::Count() const {
    return CountBetween(0, Room());
}

uint64_t UnitSet::RoomFor(const UnitRuns& runs) const {
    uint64_t count = 0;
    for (const UnitRun& run : runs) {
        count += std::min(run.last + 1, Room()) - std::min(run.first, Room());
    }
    return count;
}

uint64_t UnitSet::CountIn(const UnitRuns& runs) const {
    uint64_t count = 0;
    for (const UnitRun& run : runs) {
        count += CountBetween(run.first, run.last + 1);
    }
    return count;
}

uint64_t UnitSet::CountWithout(const UnitSet& other) const {
    uint64_t count = 0;
    for (size_t i = 0; i < bytes_.size(); i += kWordBytes) {
        count += CountBits(WordAt(bytes_, i) & ~WordAt(other.bytes_, i));
    }
    return count;
}

UnitSet UnitSet::Without(const UnitSet& other) const {
    UnitSet left = *this;
    // Behind its end the other set has nothing to take away.
    for (size_t i = 0; i < std::min(bytes_.size(), other.bytes_.size()); i += kWordBytes) {
        const uint64_t word = htole64(WordAt(bytes_, i) & ~WordAt(other.bytes_, i));
        memcpy(&left.bytes_[i], &word, std::min(kWordBytes, bytes_.size() - i));
    }
    return left;
}

uint64_t UnitSet::CountBetween(uint64_t first, uint64_t end) const {
    uint64_t count = 0;
    const uint64_t stop = std::min(end, Room());
    for (uint64_t unit = first; unit < stop;) {
        const uint64_t word = unit - unit % kWordUnits;
        const uint64_t next = std::min(stop, word + kWordUnits);
        count += CountBits(WordAt(bytes_, static_cast<size_t>(word / 8)) &
                           BitsBetween(unit - word, next - word));
        unit = next;
    }
    return count;
}

UnitRuns UnitSet::Runs() const {
    UnitRuns runs;
    for (size_t byte = 0; byte < bytes_.size(); byte += kWordBytes) {
        for (uint64_t word = WordAt(bytes_, byte); word != 0;) {
            const uint64_t begin = LowestBit(word);
            const uint64_t end = begin + LowestBit(~(word >> begin));
            const uint64_t first = byte * uint64_t{8} + begin;
            const uint64_t last = byte * uint64_t{8} + end - 1;
            if (!runs.empty() && runs.back().last + 1 == first) {
                runs.back().last = last;
            } else {
                runs.push_back({first, last});
            }
            word &= ~BitsBetween(begin, end);
        }
    }
    return runs;
}

UnitRuns RunsOf(const std::vector<FileMappingEntry>& extents) {
    UnitRuns runs;
    for (const FileMappingEntry& extent : extents) {
        // By the arithmetic of its last sector an empty extent at 0 would reach over all units.
        if (extent.numSectors > 0) {
            runs.push_back(
                {extent.deviceStartSector >> kPinUnitSectorShift,
                 (extent.deviceStartSector + extent.numSectors - 1) >> kPinUnitSectorShift});
        }
    }
    return Merged(std::move(runs));
}

uint64_t CountUnits(const UnitRuns& runs) {
    uint64_t count = 0;
    for (const UnitRun& run : runs) {
        count += run.last - run.first + 1;
    }
    return count;
}

UnitRuns CommonRuns(const UnitRuns& left, const UnitRuns& right) {
    UnitRuns common;
    for (size_t l = 0, r = 0; l < left.size() && r < right.size();) {
        const uint64_t first = std::max(left[l].first, right[r].first);
        const uint64_t last = std::min(left[l].last, right[r].last);
        if (first <= last) {
            common.push_back({first, last});
        }
        // The run that ends first can have nothing in common with what follows in the other list.
        if (left[l].last < right[r].last) {
            ++l;
        } else {
            ++r;
        }
    }
    return common;
}

std::vector<FileMappingEntry> WrittenOf(const std::vector<FileMappingEntry>& extents) {
    std::vector<FileMappingEntry> written;
    std::copy_if(extents.begin(), extents.end(), std::back_inserter(written),
                 [](const FileMappingEntry& extent) { return extent.uninitialized != 1; });
    return written;
}

uint64_t BytesOf(const std::vector<FileMappingEntry>& extents) {
    uint64_t bytes = 0;
    for (const FileMappingEntry& extent : extents) {
        bytes += extent.numSectors * kSectorBytes;
    }
    return bytes;
}

bool ReadUnitSet(const std::string& path, UnitSet& set) {
    // A pipe in the bitmap's place keeps nobody waiting.
    const ScopedFd fd(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (!fd.valid()) {
        return false;
    }
    std::vector<uint8_t> bytes;
    for (;;) {
        const size_t before = bytes.size();
        bytes.resize(before + kReadPiece);
        const ssize_t done = read(fd.get(), bytes.data() + before, kReadPiece);
        if (done < 0 && errno != EINTR) {
            return false;
        }
        bytes.resize(before + static_cast<size_t>(std::max<ssize_t>(done, 0)));
        if (done == 0) {
            break;
        }
    }
    set = UnitSet(std::move(bytes));
    return true;
}

}  // namespace client
