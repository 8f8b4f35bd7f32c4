// SPDX-License-Identifier: MIT
#include "client/map/picture_svg.h"

#include <sstream>

#include "client/show/output.h"
#include "client/show/text.h"

namespace client {

namespace {

constexpr uint32_t kSide = 8;  // pixels of a cell
constexpr uint32_t kMargin = 16;
constexpr uint32_t kLabelWidth = 80;
constexpr uint32_t kLeft = kMargin + kLabelWidth;
constexpr uint32_t kLine = 18;       // of text
constexpr uint32_t kLabelPitch = 8;  // rows
constexpr uint32_t kWidth = kLeft + kSvgColumns * kSide + kMargin;

// Writes down the page; `top` is where the next thing goes.
class Drawing {
  public:
    explicit Drawing(const Picture& picture) : picture_(picture) {}

    std::string Draw() {
        Line(Printable(picture_.mountPath) + ", " + TimeText(picture_.moment),
             R"( font-size="15" font-weight="bold")");
        Line(picture_.size);
        top_ += kMargin / 2;
        for (size_t row = 0; row <= picture_.grid.rows.size(); ++row) {
            LeftOut(row);
            Row(row);
        }
        top_ += kMargin / 2;
        for (const LegendLine& line : LegendOf(picture_)) {
            body_ << "<rect x=\"" << kLeft << "\" y=\"" << top_ + 4
                  << "\" width=\"12\" height=\"12\"" << Fill(line.kind)
                  << R"( stroke="#8c959f" stroke-width="0.5"/>)";
            Text(kLeft + 20, line.text);
        }
        Line(HeightsText(picture_.grid));
        return Head() + body_.str() + "</svg>\n";
    }

  private:
    static std::string Fill(UnitKind kind) {
        char text[24];
        snprintf(text, sizeof(text), " fill=\"#%06x\"", StyleOf(kind).light);
        return text;
    }

    std::string Head() const {
        const std::string height = std::to_string(top_ + kMargin);
        const std::string width = std::to_string(kWidth);
        return "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"" + width + "\" height=\"" +
               height + "\" viewBox=\"0 0 " + width + " " + height +
               "\" role=\"img\" font-family=\"sans-serif\" font-size=\"12\" fill=\"#1b1f24\">\n"
               "<title>" +
               EscapeMarkup(Printable(picture_.mountPath)) +
               ": what is pinned and what is in the cache</title>\n"
               "<rect width=\"100%\" height=\"100%\" fill=\"#ffffff\"/>\n";
    }

    void Text(uint32_t x, const std::string& text, const char* attributes = "") {
        body_ << "<text x=\"" << x << "\" y=\"" << top_ + kLine - 4 << "\"" << attributes << ">"
              << EscapeMarkup(text) << "</text>\n";
        top_ += kLine;
    }

    void Line(const std::string& text, const char* attributes = "") {
        Text(kLeft, text, attributes);
    }

    void LeftOut(size_t row) {
        if (const std::string text = LeftOutText(picture_, row); !text.empty()) {
            Line("⋮ " + text, R"( fill="#57606a" font-style="italic")");
        }
    }

    void Part(const CellRun& run, uint64_t at, unsigned level, UnitKind kind) {
        if (level > 0) {
            const double height = level / double{kFullLevel};
            body_ << "<rect x=\"" << at << "\" y=\"" << 1 - height << "\" width=\"" << run.cells
                  << "\" height=\"" << height << "\"" << Fill(kind) << "/>";
        }
    }

    void Row(size_t row) {
        const Grid& grid = picture_.grid;
        if (row == grid.rows.size()) {
            return;
        }
        if (HasLabel(grid, row, kLabelPitch)) {
            body_ << "<text x=\"" << kLeft - 8 << "\" y=\"" << top_ + kSide
                  << "\" text-anchor=\"end\">" << RowLabel(grid, grid.rows[row]) << "</text>\n";
        }
        body_ << "<g class=\"row\" shape-rendering=\"crispEdges\" transform=\"translate(" << kLeft
              << "," << top_ << ") scale(" << kSide << ")\">";
        uint64_t at = 0;
        for (const CellRun& run : RunsOfRow(picture_, row)) {
            Part(run, at, kFullLevel, UnitKind::kNeither);
            Part(run, at, run.cell.besides, UnitKind::kBesides);
            Part(run, at, run.cell.pinned, run.cell.absent ? UnitKind::kAbsent : UnitKind::kPinned);
            at += run.cells;
        }
        body_ << "</g>\n";
        top_ += kSide;
    }

    const Picture& picture_;
    uint32_t top_ = kMargin;
    std::ostringstream body_;
};

}  // namespace

std::string DrawSvg(const Picture& picture) {
    return Drawing(picture).Draw();
}

}  // namespace client
