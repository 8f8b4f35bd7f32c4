// SPDX-License-Identifier: MIT
// A volume's units as a picture: those that are pinned, and, where the cache reports it, those that
// it holds.
#pragma once

#include <stdint.h>
#include <time.h>

#include <string>
#include <vector>

#include "client/map/grid.h"
#include "client/map/palette.h"
#include "client/volume/volume_view.h"

namespace client {

struct Picture {
    std::string mountPath;
    time_t moment = 0;  // when the volume was looked at
    std::string size;   // the device's and the cache's, in words
    bool cacheTells = false;
    UnitSet pinned;
    UnitSet absent;   // of the pinned ones, those that are not in the cache
    UnitSet besides;  // in the cache and not pinned
    Grid grid;
};

// A cell, by the levels of LevelOf.
struct Cell {
    unsigned pinned = 0;
    unsigned besides = 0;  // drawn behind `pinned`, which is the lower one where both show
    bool absent = false;   // some of the pinned units are not in the cache

    bool operator==(const Cell& other) const {
        return pinned == other.pinned && besides == other.besides && absent == other.absent;
    }
};

// Cells of one kind side by side.
struct CellRun {
    uint64_t first;  // unit
    uint64_t end;    // unit behind the last
    uint32_t cells;
    Cell cell;
};

// Lays the volume's units out in cells.
Picture MakePicture(const VolumeView& view, time_t moment, uint32_t columns, uint32_t mostRows);

// Returns what was left out before a row, or behind the last one for `rows.size()`, as in "2.9 TiB
// with nothing pinned, 12 units in the cache"; empty when nothing was.
std::string LeftOutText(const Picture& picture, size_t row);

// Returns what a row of the picture's grid has, in order and without gaps.
std::vector<CellRun> RunsOfRow(const Picture& picture, size_t row);

// Returns a number of units, as in "4 units = 256.0 KiB".
std::string AmountText(uint64_t units);

// Returns the device's size and the cache's, as the rest of a line.
std::string SizeText(const VolumeView& view);

// A line of the legend: a kind of unit that occurs, and its meaning with the number of its units.
struct LegendLine {
    UnitKind kind;
    std::string text;
};
std::vector<LegendLine> LegendOf(const Picture& picture);

// Returns what a cell is and what its heights mean, as a sentence.
std::string HeightsText(const Grid& grid);

// Prints the volume's units as marks, fitted to `columns` of the terminal.
void PrintMap(const VolumeView& view, time_t moment, size_t columns);

}  // namespace client
