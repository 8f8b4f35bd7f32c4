// SPDX-License-Identifier: MIT
// The picture as SVG: a rectangle for each run of cells of one state in a row.
#include <errno.h>
#include <string.h>

#include <fstream>
#include <sstream>

#include "client/map/picture.h"
#include "client/show/output.h"

namespace client {

namespace {

std::string Escaped(const std::string& text) {
    std::string out;
    for (const char c : text) {
        switch (c) {
            case '&':
                out += "&amp;";
                break;
            case '<':
                out += "&lt;";
                break;
            case '>':
                out += "&gt;";
                break;
            default:
                out += c;
        }
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
    char colour[8];
    snprintf(colour, sizeof(colour), "#%06x", CellColour(state));
    out << "<rect x=\"" << x << "\" y=\"" << y << "\" width=\"" << width << "\" height=\"" << height
        << "\" fill=\"" << colour << "\"/>\n";
}

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
    uint32_t y = frame.top + picture.rows * frame.side + 16;
    for (const CellState state : LegendOf(picture)) {
        const uint64_t units = picture.counts[state];
        Rectangle(out, frame.left, y, 10, 10, state);
        Text(out, frame.left + 16, y + 10,
             std::string(CellMeaning(picture, state)) + ": " + Counted(units, "unit") + ", " +
                 HumanBytes(units * kUnitBytes));
        y += 16;
    }
    Text(out, frame.left, y + 10,
         "a square is " + Counted(picture.unitsPerCell, "unit") + ", " +
             HumanBytes(picture.unitsPerCell * kUnitBytes));
}

std::string Draw(const Picture& picture) {
    const PictureFrame frame = FrameOf(picture);
    std::ostringstream out;
    out << "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"" << frame.width << "\" height=\""
        << frame.height << "\" font-family=\"sans-serif\" font-size=\"11\">\n"
        << "<rect width=\"100%\" height=\"100%\" fill=\"#ffffff\"/>\n";
    Text(out, frame.left, 32,
         Printable(picture.mountPath) + ": " + HumanBytes(picture.units * kUnitBytes) + " in " +
             Counted(picture.units, "unit") + " of 64 KiB");
    for (uint32_t row = 0; row < picture.rows; ++row) {
        if (row % RowsPerLabel(frame) == 0) {
            const uint64_t unit =
                static_cast<uint64_t>(row) * picture.columns * picture.unitsPerCell;
            Text(out, frame.left - 8, frame.top + row * frame.side + 9,
                 HumanBytes(unit * kUnitBytes), "end");
        }
        Row(out, picture, frame, row);
    }
    Legend(out, picture, frame);
    out << "</svg>\n";
    return out.str();
}

}  // namespace

bool WriteSvg(const Picture& picture, const std::string& path, std::string& why) {
    errno = 0;
    std::ofstream file(path, std::ios::trunc);
    file << Draw(picture);
    file.close();
    if (!file) {
        why = path + ": " + strerror(errno != 0 ? errno : EIO);
        return false;
    }
    return true;
}

}  // namespace client
