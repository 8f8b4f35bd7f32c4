// SPDX-License-Identifier: MIT
#include "client/map/grid.h"

#include <algorithm>
#include <iterator>
#include <numeric>
#include <utility>

#include "client/show/output.h"

namespace client {

namespace {

using Rows = std::vector<uint64_t>;  // their numbers, in order

// The rows of so many units that have any of the sets. By runs: a large device is mostly empty.
Rows FindOccupied(uint64_t units, const std::vector<const UnitSet*>& sets, uint64_t rowUnits) {
    Rows rows;
    for (const UnitSet* const set : sets) {
        for (const UnitRun& run : set->Runs()) {
            for (uint64_t row = run.first / rowUnits;
                 row <= run.last / rowUnits && row * rowUnits < units; ++row) {
                rows.push_back(row);
            }
        }
    }
    std::sort(rows.begin(), rows.end());
    rows.erase(std::unique(rows.begin(), rows.end()), rows.end());
    return rows;
}

// The least count at a level of cells of so many units, a power of two.
uint64_t LeastAt(unsigned level, uint64_t unitsPerCell) {
    unsigned power = 0;
    while (unitsPerCell >> power > 1) {
        ++power;
    }
    return level == kFullLevel ? unitsPerCell : uint64_t{1} << ((level - 1) * power + 2) / 3;
}

// Of rows with nothing those go that have a neighbour with nothing: what stands in their place
// takes a row too.
Rows WithSingleGaps(const Rows& occupied) {
    Rows kept;
    for (const uint64_t row : occupied) {
        if (!kept.empty() && kept.back() + 2 == row) {
            kept.push_back(row - 1);
        }
        kept.push_back(row);
    }
    return kept;
}

Rows MergePairs(Rows rows) {
    for (uint64_t& row : rows) {
        row /= 2;
    }
    rows.erase(std::unique(rows.begin(), rows.end()), rows.end());
    return rows;
}

}  // namespace

uint64_t Grid::CellEnd(uint64_t first) const {
    return std::min(first + unitsPerCell, units);
}

uint64_t Grid::RowEnd(uint64_t first) const {
    return std::min(first + RowUnits(), units);
}

Grid LayOut(uint64_t units, const std::vector<const UnitSet*>& sets, uint32_t columns,
            uint32_t mostRows) {
    Grid grid = {units, 1, columns, {}};
    // Fewer units in a row than that would take too many rows whatever lies where.
    for (const UnitSet* const set : sets) {
        const uint64_t count = set->CountBetween(0, units);
        while (grid.RowUnits() * mostRows < count) {
            grid.unitsPerCell *= 2;
        }
    }
    Rows rows = FindOccupied(units, sets, grid.RowUnits());
    while (rows.size() > mostRows) {
        rows = MergePairs(std::move(rows));
        grid.unitsPerCell *= 2;
    }
    const uint64_t all = (units + grid.RowUnits() - 1) / grid.RowUnits();
    if (all > mostRows) {
        rows = WithSingleGaps(rows);
    } else {
        rows.resize(static_cast<size_t>(all));
        std::iota(rows.begin(), rows.end(), 0);
    }
    for (const uint64_t row : rows) {
        grid.rows.push_back(row * grid.RowUnits());
    }
    return grid;
}

uint64_t LeftOutBefore(const Grid& grid, size_t row) {
    const uint64_t from = row == 0 ? 0 : grid.RowEnd(grid.rows[row - 1]);
    return (row < grid.rows.size() ? grid.rows[row] : grid.units) - from;
}

bool HasLabel(const Grid& grid, size_t row, size_t pitch) {
    size_t above = 0;
    while (above < row && LeftOutBefore(grid, row - above) == 0) {
        ++above;
    }
    return above % pitch == 0;
}

std::string RowLabel(const Grid& grid, uint64_t unit) {
    constexpr const char* kMeasures[] = {"KiB", "MiB", "GiB", "TiB"};
    size_t measure = 0;
    unsigned shift = 10;
    while (measure + 1 < std::size(kMeasures) &&
           grid.RowUnits() * kUnitBytes >> (shift + 10) != 0) {
        ++measure;
        shift += 10;
    }
    return std::to_string(unit * kUnitBytes >> shift) + " " + kMeasures[measure];
}

std::string LeftOutText(uint64_t units) {
    return HumanBytes(units * kUnitBytes) + " with nothing";
}

unsigned LevelOf(const Grid& grid, uint64_t count, uint64_t of) {
    if (count == 0 || count >= of) {
        return count == 0 ? 0 : kFullLevel;
    }
    unsigned level = kFullLevel - 1;
    while (level > 1 && count < LeastAt(level, grid.unitsPerCell)) {
        --level;
    }
    return level;
}

std::vector<LevelMeaning> LevelsOf(const Grid& grid) {
    std::vector<LevelMeaning> levels;
    for (unsigned level = 1; level < kFullLevel; ++level) {
        const uint64_t least = LeastAt(level, grid.unitsPerCell);
        if (least < LeastAt(level + 1, grid.unitsPerCell)) {
            levels.push_back(
                {level, least == 1 ? "some" : HumanBytes(least * kUnitBytes) + " and more"});
        }
    }
    levels.push_back({kFullLevel, "all"});
    return levels;
}

}  // namespace client
