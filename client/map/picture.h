// SPDX-License-Identifier: MIT
// A volume's units as a picture: those that are pinned, and, where the cache reports it, those that
// it holds.
#pragma once

#include <stdint.h>

#include <array>
#include <string>
#include <vector>

#include "client/volume/volume_view.h"

namespace client {

enum CellState : uint8_t {
    kCellNone = 0,      // behind the last unit
    kCellFree,          // neither pinned nor, as far as is known, in the cache
    kCellResident,      // in the cache, not pinned
    kCellPinned,        // pinned; in the cache too, where that is known
    kCellPinnedAbsent,  // pinned and not in the cache, wholly or in part
};
constexpr size_t kCellStates = 5;

// Cells stand row by row, from the device's begin. A cell of several units shows the last state in
// the order above that any of them has.
struct Picture {
    std::string mountPath;
    uint64_t units = 0;
    uint64_t unitsPerCell = 1;
    uint32_t columns = 0;
    uint32_t rows = 0;
    bool cacheTells = false;
    std::vector<CellState> cells;                // columns * rows
    std::array<uint64_t, kCellStates> counts{};  // units of each state
};

// Lays the volume's units out in cells, as many as a picture file shows well.
Picture MakePicture(const VolumeView& view);

// Where the cells are in a picture file, in pixels.
struct PictureFrame {
    uint32_t width;
    uint32_t height;
    uint32_t left;  // of the first cell
    uint32_t top;
    uint32_t side;          // of a cell
    uint32_t rowsPerLabel;  // every how many rows the offset stands at the left
};
PictureFrame FrameOf(const Picture& picture);

// A line of the legend: a state, its colour as 0xRRGGBB, and what it means in a few words.
struct LegendLine {
    CellState state;
    uint32_t colour;
    const char* meaning;
};
std::vector<LegendLine> LegendOf(const Picture& picture);

// Writes the picture as SVG. Returns false, with the reason in `why`.
bool WriteSvg(const Picture& picture, const std::string& path, std::string& why);

// Prints the volume's units as marks, fitted to `columns`.
void PrintMap(const VolumeView& view, size_t columns);

}  // namespace client
