// SPDX-License-Identifier: MIT
// The map in the terminal: a mark stands for some units, two panels for what is pinned and what is
// in the cache.
#include <langinfo.h>
#include <string.h>

#include <algorithm>
#include <iterator>

#include "client/map/picture.h"
#include "client/show/output.h"

namespace client {

namespace {

constexpr uint64_t kMostRows = 16;  // of a panel
constexpr size_t kLabelColumns = 11;
constexpr size_t kFewestMarks = 16;  // of a row that has a label

struct Marks {
    const char* none;
    const char* few;   // less than half of the mark's units
    const char* many;  // half or more
    const char* all;
};

Marks ChooseMarks() {
    // A terminal without UTF-8 would show the blocks as three characters each.
    if (strcmp(nl_langinfo(CODESET), "UTF-8") == 0) {
        return {"·", "░", "▒", "█"};
    }
    return {".", "-", "+", "#"};
}

const char* MarkFor(const Marks& marks, uint64_t count, uint64_t of) {
    if (count == 0) {
        return marks.none;
    }
    if (count == of) {
        return marks.all;
    }
    return count * 2 < of ? marks.few : marks.many;
}

// How the units are laid out in marks.
struct Grid {
    uint64_t units;
    uint64_t perMark;
    uint64_t perRow;  // marks
    bool labels;      // offsets at the left, unless it is too narrow for them
};

// Rows hold a power of two of marks, so that they begin at round offsets.
Grid GridFor(uint64_t units, size_t columns) {
    Grid grid = {units, 1, 1, columns >= kLabelColumns + 1 + kFewestMarks};
    const size_t room = columns - (grid.labels ? kLabelColumns + 1 : 0);
    while (grid.perRow * 2 <= room && grid.perRow < 128) {
        grid.perRow *= 2;
    }
    while (grid.perMark * grid.perRow * kMostRows < units) {
        grid.perMark *= 2;
    }
    return grid;
}

// Offsets of rows in the largest unit that makes all of them whole numbers.
std::string RowLabel(uint64_t offset, uint64_t pitch) {
    constexpr const char* kUnits[] = {"KiB", "MiB", "GiB", "TiB"};
    size_t unit = 0;
    unsigned shift = 10;
    while (unit + 1 < std::size(kUnits) && pitch >> (shift + 10) != 0) {
        ++unit;
        shift += 10;
    }
    return std::to_string(offset >> shift) + " " + kUnits[unit];
}

// Where the cache reports what it holds: green when it holds all pinned units of the mark, red when
// none.
std::string TonedMark(const char* mark, const UnitSet& set, const UnitSet* held, uint64_t first,
                      uint64_t end) {
    const uint64_t all = set.CountBetween(first, end);
    uint64_t both = 0;
    if (held == nullptr || all == 0) {
        return mark;
    }
    for (uint64_t unit = first; unit < end; ++unit) {
        both += set.Has(unit) && held->Has(unit) ? 1U : 0U;
    }
    const Tone tone = both == all ? Tone::kGood : both == 0 ? Tone::kBad : Tone::kWarn;
    return Toned(tone, mark);
}

void PrintPanel(const UnitSet& set, const UnitSet* held, const Grid& grid) {
    const Marks marks = ChooseMarks();
    const uint64_t rowUnits = grid.perMark * grid.perRow;
    for (uint64_t first = 0; first < grid.units; first += rowUnits) {
        const std::string label = RowLabel(first * kUnitBytes, rowUnits * kUnitBytes);
        std::string line;
        // At the right, so that offsets of one unit stand below each other.
        if (grid.labels) {
            line.append(kLabelColumns - std::min(label.size(), kLabelColumns), ' ');
            line += label + " ";
        }
        for (uint64_t mark = 0; mark < grid.perRow; ++mark) {
            const uint64_t begin = first + mark * grid.perMark;
            const uint64_t end = std::min(begin + grid.perMark, grid.units);
            if (begin < end) {  // the last row may be short
                line += TonedMark(MarkFor(marks, set.CountBetween(begin, end), end - begin), set,
                                  held, begin, end);
            }
        }
        Print(line);
    }
}

std::string Amount(uint64_t units) {
    return Counted(units, "unit") + " = " + HumanBytes(units * kUnitBytes);
}

}  // namespace

void PrintMap(const VolumeView& view, size_t columns) {
    const Grid grid = GridFor(view.bits.Room(), columns);
    const Marks marks = ChooseMarks();
    const Residency& residency = view.residency;
    Print(Toned(Tone::kStrong, Printable(view.mountPath)) + ": " + Amount(view.bits.Room()) +
          " on the device, a mark is " + Amount(grid.perMark));
    Print("pinned: " + Amount(view.bits.Count()) +
          (residency.known
               ? ", of those " +
                     Amount(view.bits.Count() - view.bits.CountWithout(residency.resident)) +
                     " in the cache"
               : ""));
    PrintPanel(view.bits, residency.known ? &residency.resident : nullptr, grid);
    if (residency.known) {
        Print("in the cache: " + Amount(residency.resident.Count()) + " of " +
              HumanBytes(residency.cacheSize));
        PrintPanel(residency.resident, nullptr, grid);
    }
    Print(std::string("  ") + marks.none + " none  " + marks.few + " less than half  " +
          marks.many + " half or more  " + marks.all + " all of a mark's units");
}

}  // namespace client
