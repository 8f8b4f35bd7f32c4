// SPDX-License-Identifier: MIT
#include "client/map/picture.h"

#include <errno.h>
#include <string.h>

#include <algorithm>
#include <fstream>
#include <sstream>

#include "client/show/output.h"

namespace client {

namespace {

constexpr uint64_t kMostCells = 1 << 20;
constexpr uint32_t kGridWidth = 1024;  // pixels, at most
constexpr uint32_t kLeastWidth = 480;  // of the picture: the legend's lines need so much
constexpr uint32_t kMostSide = 12;
constexpr uint32_t kMargin = 16;
constexpr uint32_t kLabelWidth = 72;
constexpr uint32_t kHeaderHeight = 40;
constexpr uint32_t kLegendLine = 16;
constexpr uint32_t kLabelPitch = 48;  // pixels between labels, at least

// The states in the legend's order. Without a cache that reports what it holds there are only two.
constexpr struct {
    CellState state;
    uint32_t colour;
    const char* meaning;
    const char* muteMeaning;  // with a cache that reports nothing; null = the state does not occur
} kStates[] = {
    {kCellPinned, 0x1f8a4c, "pinned, in the cache", "pinned"},
    {kCellPinnedAbsent, 0xd1495b, "pinned, not in the cache", nullptr},
    {kCellResident, 0x9ec5e8, "in the cache, not pinned", nullptr},
    {kCellFree, 0xe6e6e6, "neither", "not pinned"},
};

CellState StateOf(const VolumeView& view, uint64_t unit) {
    const bool resident = view.residency.known && view.residency.resident.Has(unit);
    if (view.bits.Has(unit)) {
        // A cache that reports nothing is not said to lack anything.
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

// A mount path may hold what SVG takes for its own.
std::string Escaped(const std::string& text) {
    std::string out;
    for (const char c : text) {
        out += c == '&' ? "&amp;" : c == '<' ? "&lt;" : c == '>' ? "&gt;" : std::string(1, c);
    }
    return out;
}

void Text(std::ostream& out, uint32_t x, uint32_t y, const std::string& text,
          const char* anchor = "start") {
    out << "<text x=\"" << x << "\" y=\"" << y << "\" text-anchor=\"" << anchor << "\">"
        << Escaped(text) << "</text>\n";
}

void Rectangle(std::ostream& out, uint32_t x, uint32_t y, uint32_t width, uint32_t height,
               CellState state) {
    const auto* const row = std::find_if(std::begin(kStates), std::end(kStates),
                                         [state](const auto& it) { return it.state == state; });
    char colour[8];
    snprintf(colour, sizeof(colour), "#%06x", row->colour);
    out << "<rect x=\"" << x << "\" y=\"" << y << "\" width=\"" << width << "\" height=\"" << height
        << "\" fill=\"" << colour << "\"/>\n";
}

// One rectangle for each run of cells of one state: a large volume has few runs and many cells.
void Row(std::ostream& out, const Picture& picture, const PictureFrame& frame, uint32_t row) {
    const CellState* const cells = &picture.cells[static_cast<size_t>(row) * picture.columns];
    for (uint32_t first = 0; first < picture.columns;) {
        uint32_t end = first;
        while (end < picture.columns && cells[end] == cells[first]) {
            ++end;
        }
        if (cells[first] != kCellNone) {
            Rectangle(out, frame.left + first * frame.side, frame.top + row * frame.side,
                      (end - first) * frame.side, frame.side, cells[first]);
        }
        first = end;
    }
}

void Legend(std::ostream& out, const Picture& picture, const PictureFrame& frame) {
    uint32_t y = frame.top + picture.rows * frame.side + kMargin;
    for (const LegendLine& line : LegendOf(picture)) {
        const uint64_t units = picture.counts[line.state];
        Rectangle(out, frame.left, y, 10, 10, line.state);
        Text(out, frame.left + 16, y + 10,
             std::string(line.meaning) + ": " + Counted(units, "unit") + ", " +
                 HumanBytes(units * kUnitBytes));
        y += kLegendLine;
    }
    Text(out, frame.left, y + 10,
         "a square is " + Counted(picture.unitsPerCell, "unit") + ", " +
             HumanBytes(picture.unitsPerCell * kUnitBytes));
}

void Draw(std::ostream& out, const Picture& picture) {
    const PictureFrame frame = FrameOf(picture);
    out << "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"" << frame.width << "\" height=\""
        << frame.height << "\" font-family=\"sans-serif\" font-size=\"11\">\n"
        << "<rect width=\"100%\" height=\"100%\" fill=\"#ffffff\"/>\n";
    Text(out, frame.left, 32,
         Printable(picture.mountPath) + ": " + HumanBytes(picture.units * kUnitBytes) + " in " +
             Counted(picture.units, "unit") + " of 64 KiB");
    for (uint32_t row = 0; row < picture.rows; ++row) {
        if (row % frame.rowsPerLabel == 0) {
            const uint64_t unit = uint64_t{row} * picture.columns * picture.unitsPerCell;
            Text(out, frame.left - 8, frame.top + row * frame.side + 9,
                 HumanBytes(unit * kUnitBytes), "end");
        }
        Row(out, picture, frame, row);
    }
    Legend(out, picture, frame);
    out << "</svg>\n";
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
        // Of several units in a cell the one that an operator should see wins.
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
    frame.width = std::max(frame.left + picture.columns * frame.side + kMargin, kLeastWidth);
    frame.height = frame.top + picture.rows * frame.side + kMargin + legend + kMargin;
    for (frame.rowsPerLabel = 1; frame.rowsPerLabel * frame.side < kLabelPitch;) {
        frame.rowsPerLabel *= 2;
    }
    return frame;
}

std::vector<LegendLine> LegendOf(const Picture& picture) {
    std::vector<LegendLine> lines;
    for (const auto& row : kStates) {
        const char* const meaning = picture.cacheTells ? row.meaning : row.muteMeaning;
        if (meaning != nullptr) {
            lines.push_back({row.state, row.colour, meaning});
        }
    }
    return lines;
}

bool WriteSvg(const Picture& picture, const std::string& path, std::string& why) {
    errno = 0;
    std::ofstream file(path, std::ios::trunc);
    Draw(file, picture);
    file.close();  // a full disk shows only here
    if (!file) {
        why = path + ": " + strerror(errno != 0 ? errno : EIO);
        return false;
    }
    return true;
}

}  // namespace client
