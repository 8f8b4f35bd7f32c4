// SPDX-License-Identifier: MIT
// How a device's units are laid out in rows of cells, and how much of a cell's units is shown how
// high. A few pinned files on a large device are what an operator looks for: rows with nothing in
// them give way, so that the others can have small cells, and an amount counts by its logarithm.
#pragma once

#include <stdint.h>

#include <string>
#include <vector>

#include "client/volume/units.h"

namespace client {

struct Grid {
    uint64_t units = 0;
    uint64_t unitsPerCell = 1;   // a power of two
    uint32_t columns = 1;        // cells in a row, a power of two: rows begin at round offsets
    std::vector<uint64_t> rows;  // the first unit of each row that is shown, in order

    uint64_t RowUnits() const { return unitsPerCell * columns; }
    // The end of the cell or row that begins at `first`: the last one may be short.
    uint64_t CellEnd(uint64_t first) const;
    uint64_t RowEnd(uint64_t first) const;
};

// Lays out the first `units` units in the smallest cells with which all rows, or all rows that have
// units of the sets, are `mostRows` at most. Of rows that have none, only single ones are kept
// then.
Grid LayOut(uint64_t units, const std::vector<const UnitSet*>& sets, uint32_t columns,
            uint32_t mostRows);

// Returns how many units are left out before a row, or behind the last one for `rows.size()`.
uint64_t LeftOutBefore(const Grid& grid, size_t row);

// Whether the row is labelled when every `pitch`th is, counted from where units were left out.
bool HasLabel(const Grid& grid, size_t row, size_t pitch);

// Returns where the row that begins at a unit lies, in the largest measure that makes all rows of
// the grid begin at whole numbers, as in "3840 MiB".
std::string RowLabel(const Grid& grid, uint64_t unit);

// Returns what stands in the place of rows that were left out, as in "2.9 TiB with nothing".
std::string LeftOutText(uint64_t units);

// From nothing, 0, over three steps of equal ratio to all of a cell's units.
constexpr unsigned kFullLevel = 4;

// Returns the level of `count` units among the `of` units of a cell.
unsigned LevelOf(const Grid& grid, uint64_t count, uint64_t of);

// A level that occurs in a grid, and the amount from which on it is shown, as in "2.0 MiB and
// more".
struct LevelMeaning {
    unsigned level;
    std::string text;
};

// The levels from 1 on that a grid's cells can have.
std::vector<LevelMeaning> LevelsOf(const Grid& grid);

}  // namespace client
