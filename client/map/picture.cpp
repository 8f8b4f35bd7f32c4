// SPDX-License-Identifier: MIT
#include "client/map/picture.h"

#include "client/show/output.h"

namespace client {

namespace {

Cell CellOf(const Picture& picture, uint64_t first, uint64_t end) {
    const auto level = [&picture, first, end](const UnitSet& set) {
        return LevelOf(picture.grid, set.CountBetween(first, end), end - first);
    };
    return {level(picture.pinned), level(picture.besides),
            picture.absent.CountBetween(first, end) > 0};
}

// The units of the set that lie close together. A file system's own are spread over all of a
// device, and to show each would leave no room for the files.
UnitSet CloseOnes(const UnitSet& set) {
    constexpr uint64_t kStretch = 128;  // units
    constexpr uint64_t kFew = 8;
    UnitSet close(set.Bytes().size());
    for (uint64_t first = 0; first < set.Room(); first += kStretch) {
        if (set.CountBetween(first, first + kStretch) >= kFew) {
            close.Put(UnitRuns{{first, first + kStretch - 1}});
        }
    }
    return close;
}

uint64_t UnitsOf(const Picture& picture, UnitKind kind) {
    const uint64_t pinned = picture.pinned.Count();
    const uint64_t absent = picture.absent.Count();
    const uint64_t besides = picture.besides.Count();
    switch (kind) {
        case UnitKind::kPinned:
            return pinned - absent;
        case UnitKind::kAbsent:
            return absent;
        case UnitKind::kBesides:
            return besides;
        case UnitKind::kNeither:
            break;
    }
    return picture.grid.units - pinned - besides;
}

}  // namespace

Picture MakePicture(const VolumeView& view, time_t moment, uint32_t columns, uint32_t mostRows) {
    Picture picture;
    picture.mountPath = view.mountPath;
    picture.moment = moment;
    picture.size = SizeText(view);
    picture.cacheTells = view.residency.known;
    picture.pinned = view.bits;
    // A cache that tells nothing is not said to lack anything.
    if (picture.cacheTells) {
        picture.absent = view.bits.Without(view.residency.resident);
        picture.besides = view.residency.resident.Without(view.bits);
        // What it holds behind the last bit has no place here.
        picture.besides.Resize(view.bits.Bytes().size());
    }
    const UnitSet others =
        picture.pinned.Count() > 0 ? CloseOnes(picture.besides) : picture.besides;
    picture.grid = LayOut(view.bits.Room(), {&picture.pinned, &others}, columns, mostRows);
    return picture;
}

std::string LeftOutText(const Picture& picture, size_t row) {
    const Grid& grid = picture.grid;
    const uint64_t units = LeftOutBefore(grid, row);
    const uint64_t end = row < grid.rows.size() ? grid.rows[row] : grid.units;
    const uint64_t cached = picture.besides.CountBetween(end - units, end);
    if (units == 0 || cached == 0) {
        return units == 0 ? "" : LeftOutText(units);
    }
    return HumanBytes(units * kUnitBytes) + " with nothing pinned, " + Counted(cached, "unit") +
           " in the cache";
}

std::vector<CellRun> RunsOfRow(const Picture& picture, size_t row) {
    const Grid& grid = picture.grid;
    std::vector<CellRun> runs;
    for (uint64_t first = grid.rows[row]; first < grid.RowEnd(grid.rows[row]);
         first += grid.unitsPerCell) {
        const uint64_t end = grid.CellEnd(first);
        const Cell cell = CellOf(picture, first, end);
        if (!runs.empty() && runs.back().cell == cell) {
            runs.back().end = end;
            ++runs.back().cells;
        } else {
            runs.push_back({first, end, 1, cell});
        }
    }
    return runs;
}

std::string AmountText(uint64_t units) {
    return Counted(units, "unit") + " = " + HumanBytes(units * kUnitBytes);
}

std::string SizeText(const VolumeView& view) {
    const uint64_t units = view.bits.Room();
    return HumanBytes(units * kUnitBytes) + " in " + Counted(units, "unit") + " of 64 KiB" +
           (view.residency.known ? ", a cache of " + HumanBytes(view.residency.cacheSize) : "");
}

std::vector<LegendLine> LegendOf(const Picture& picture) {
    std::vector<LegendLine> lines;
    for (const KindStyle& style : kKindStyles) {
        const char* const meaning = picture.cacheTells ? style.meaning : style.muteMeaning;
        if (meaning != nullptr) {
            lines.push_back({style.kind, std::string(meaning) + ": " +
                                             AmountText(UnitsOf(picture, style.kind))});
        }
    }
    return lines;
}

std::string HeightsText(const Grid& grid) {
    constexpr const char* kHeights[] = {"", "a quarter", "a half", "three quarters", "the whole"};
    std::string text = "a square is " + AmountText(grid.unitsPerCell);
    if (grid.unitsPerCell > 1) {
        const char* between = "; filled by ";
        for (const LevelMeaning& one : LevelsOf(grid)) {
            text += std::string(between) + kHeights[one.level] + ": " + one.text;
            between = ", ";
        }
    }
    return text;
}

}  // namespace client
