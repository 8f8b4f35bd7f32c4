// SPDX-License-Identifier: MIT
#include "client/map/picture.h"

#include <algorithm>

namespace client {

namespace {

constexpr uint64_t kMostCells = 1 << 20;
constexpr uint32_t kGridWidth = 1024;  // pixels, at most
constexpr uint32_t kMostSide = 12;
constexpr uint32_t kMargin = 16;
constexpr uint32_t kLabelWidth = 72;
constexpr uint32_t kHeaderHeight = 40;
constexpr uint32_t kLegendLine = 16;
constexpr uint32_t kLabelPitch = 48;  // pixels between labels, at least

CellState StateOf(const VolumeView& view, uint64_t unit) {
    const bool resident = view.residency.known && view.residency.resident.Has(unit);
    if (view.bits.Has(unit)) {
        return !view.residency.known || resident ? kCellPinned : kCellPinnedAbsent;
    }
    return resident ? kCellResident : kCellFree;
}

// The power of two at or above the square root of 4/3 of the cells, so that a picture is about as
// wide as it is high and its rows begin at round offsets.
uint32_t ColumnsFor(uint64_t cells) {
    uint32_t columns = 16;
    while (columns < kGridWidth && static_cast<uint64_t>(columns) * columns < cells * 4 / 3) {
        columns *= 2;
    }
    return columns;
}

}  // namespace

Picture MakePicture(const VolumeView& view) {
    Picture picture;
    picture.mountPath = view.mountPath;
    picture.units = view.bits.Room();
    picture.cacheTells = view.residency.known;
    while (picture.units / picture.unitsPerCell > kMostCells) {
        picture.unitsPerCell *= 2;
    }
    const uint64_t cells = (picture.units + picture.unitsPerCell - 1) / picture.unitsPerCell;
    picture.columns = ColumnsFor(cells);
    picture.rows = static_cast<uint32_t>(
        std::max<uint64_t>((cells + picture.columns - 1) / picture.columns, 1));
    picture.cells.assign(static_cast<size_t>(picture.columns) * picture.rows, kCellNone);
    for (uint64_t unit = 0; unit < picture.units; ++unit) {
        const CellState state = StateOf(view, unit);
        CellState& cell = picture.cells[static_cast<size_t>(unit / picture.unitsPerCell)];
        cell = std::max(cell, state);
        ++picture.counts[state];
    }
    return picture;
}

PictureFrame FrameOf(const Picture& picture) {
    PictureFrame frame = {};
    frame.side = std::clamp(kGridWidth / picture.columns, 1U, kMostSide);
    frame.left = kMargin + kLabelWidth;
    frame.top = kMargin + kHeaderHeight;
    const uint32_t legend = kLegendLine * static_cast<uint32_t>(LegendOf(picture).size() + 1);
    frame.width = std::max(frame.left + picture.columns * frame.side + kMargin, 480U);
    frame.height = frame.top + picture.rows * frame.side + kMargin + legend + kMargin;
    return frame;
}

uint32_t CellColour(CellState state) {
    switch (state) {
        case kCellFree:
            return 0xe6e6e6;
        case kCellResident:
            return 0x9ec5e8;
        case kCellPinned:
            return 0x1f8a4c;
        case kCellPinnedAbsent:
            return 0xd1495b;
        default:
            return 0xffffff;
    }
}

const char* CellMeaning(const Picture& picture, CellState state) {
    switch (state) {
        case kCellFree:
            return picture.cacheTells ? "neither" : "not pinned";
        case kCellResident:
            return "in the cache, not pinned";
        case kCellPinned:
            return picture.cacheTells ? "pinned, in the cache" : "pinned";
        case kCellPinnedAbsent:
            return "pinned, not in the cache";
        default:
            return "";
    }
}

std::vector<CellState> LegendOf(const Picture& picture) {
    return picture.cacheTells
               ? std::vector<CellState>{kCellPinned, kCellPinnedAbsent, kCellResident, kCellFree}
               : std::vector<CellState>{kCellPinned, kCellFree};
}

uint32_t RowsPerLabel(const PictureFrame& frame) {
    uint32_t rows = 1;
    while (rows * frame.side < kLabelPitch) {
        rows *= 2;
    }
    return rows;
}

}  // namespace client
