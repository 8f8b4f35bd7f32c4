// SPDX-License-Identifier: MIT
// The picture as PNG: one byte a pixel, an index into the palette of the cells' states and black.
#include <errno.h>
#include <png.h>
#include <stdio.h>
#include <string.h>

#include <memory>

#include "client/glyphs.h"
#include "client/output.h"
#include "client/picture.h"

namespace {

constexpr uint8_t kInk = kCellStates;  // palette index behind those of the states

class Canvas {
  public:
    Canvas(uint32_t width, uint32_t height)
        : width_(width), height_(height), pixels_(static_cast<size_t>(width) * height, kCellNone) {}

    void Fill(uint32_t x, uint32_t y, uint32_t width, uint32_t height, uint8_t colour) {
        for (uint32_t row = y; row < y + height && row < height_; ++row) {
            for (uint32_t column = x; column < x + width && column < width_; ++column) {
                pixels_[static_cast<size_t>(row) * width_ + column] = colour;
            }
        }
    }
    void Write(uint32_t x, uint32_t y, const std::string& text) {
        for (const char character : text) {
            const uint8_t* const rows = GlyphRows(character);
            for (uint32_t dot = 0; dot < kGlyphWidth * kGlyphHeight; ++dot) {
                const uint32_t column = dot % kGlyphWidth;
                if ((rows[dot / kGlyphWidth] >> (kGlyphWidth - 1 - column) & 1) != 0) {
                    Fill(x + column, y + dot / kGlyphWidth, 1, 1, kInk);
                }
            }
            x += kGlyphPitch;
        }
    }
    uint8_t* Row(uint32_t row) { return &pixels_[static_cast<size_t>(row) * width_]; }

  private:
    uint32_t width_;
    uint32_t height_;
    std::vector<uint8_t> pixels_;
};

void DrawCells(Canvas& canvas, const Picture& picture, const PictureFrame& frame) {
    for (uint32_t row = 0; row < picture.rows; ++row) {
        const uint32_t y = frame.top + row * frame.side;
        if (row % RowsPerLabel(frame) == 0) {
            const uint64_t unit =
                static_cast<uint64_t>(row) * picture.columns * picture.unitsPerCell;
            const std::string label = HumanBytes(unit * kUnitBytes);
            canvas.Write(frame.left - 8 - static_cast<uint32_t>(label.size()) * kGlyphPitch, y,
                         label);
        }
        for (uint32_t column = 0; column < picture.columns; ++column) {
            canvas.Fill(frame.left + column * frame.side, y, frame.side, frame.side,
                        picture.cells[static_cast<size_t>(row) * picture.columns + column]);
        }
    }
}

void DrawWords(Canvas& canvas, const Picture& picture, const PictureFrame& frame) {
    canvas.Write(frame.left, 24,
                 HumanBytes(picture.units * kUnitBytes) + " in " + Counted(picture.units, "unit") +
                     " of 64 KiB");
    uint32_t y = frame.top + picture.rows * frame.side + 16;
    for (const CellState state : LegendOf(picture)) {
        const uint64_t units = picture.counts[state];
        canvas.Fill(frame.left, y, 8, 8, state);
        canvas.Write(frame.left + 16, y,
                     std::string(CellMeaning(picture, state)) + ": " + Counted(units, "unit") +
                         ", " + HumanBytes(units * kUnitBytes));
        y += 16;
    }
    canvas.Write(frame.left, y,
                 "a square is " + Counted(picture.unitsPerCell, "unit") + ", " +
                     HumanBytes(picture.unitsPerCell * kUnitBytes));
}

// Writes the pixels through the library, which reports errors by a jump back to here.
bool WriteThrough(FILE* file, Canvas& canvas, const PictureFrame& frame) {
    png_structp writer = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = writer == nullptr ? nullptr : png_create_info_struct(writer);
    if (info == nullptr || setjmp(png_jmpbuf(writer)) != 0) {
        png_destroy_write_struct(&writer, &info);
        return false;
    }
    png_color palette[kCellStates + 1] = {};
    for (uint8_t state = 0; state < kCellStates; ++state) {
        const uint32_t colour = CellColour(static_cast<CellState>(state));
        palette[state] = {static_cast<png_byte>(colour >> 16), static_cast<png_byte>(colour >> 8),
                          static_cast<png_byte>(colour)};
    }
    png_init_io(writer, file);
    png_set_IHDR(writer, info, frame.width, frame.height, 8, PNG_COLOR_TYPE_PALETTE,
                 PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    png_set_PLTE(writer, info, palette, kCellStates + 1);
    png_write_info(writer, info);
    for (uint32_t row = 0; row < frame.height; ++row) {
        png_write_row(writer, canvas.Row(row));
    }
    png_write_end(writer, info);
    png_destroy_write_struct(&writer, &info);
    return true;
}

}  // namespace

bool WritePng(const Picture& picture, const std::string& path, std::string& why) {
    const PictureFrame frame = FrameOf(picture);
    Canvas canvas(frame.width, frame.height);
    DrawCells(canvas, picture, frame);
    DrawWords(canvas, picture, frame);
    errno = 0;
    FILE* const file = fopen(path.c_str(), "wbe");
    const bool written = file != nullptr && WriteThrough(file, canvas, frame);
    const bool closed = file != nullptr && fclose(file) == 0;
    if (!written || !closed) {
        why = path + ": " + strerror(errno != 0 ? errno : EIO);
        return false;
    }
    return true;
}
