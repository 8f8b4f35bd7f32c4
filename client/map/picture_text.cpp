// SPDX-License-Identifier: MIT
// The map in the terminal: a mark stands for some units; a panel for what is pinned, one for what
// of it is not in the cache, one for what the cache holds.
#include <langinfo.h>
#include <string.h>

#include <algorithm>

#include "client/map/picture.h"
#include "client/show/output.h"
#include "client/show/text.h"

namespace client {

namespace {

constexpr uint32_t kMostRows = 16;  // of a panel
constexpr uint32_t kMostColumns = 128;
constexpr size_t kLabelColumns = 11;
constexpr size_t kFewestMarks = 16;  // of a row that has a label

struct Marks {
    const char* levels[kFullLevel + 1];
    const char* leftOut;
};

const Marks& ChooseMarks() {
    static constexpr Marks kBlocks = {{"·", "░", "▒", "▓", "█"}, "⋮"};
    static constexpr Marks kAscii = {{".", "-", "=", "+", "#"}, ":"};
    // A terminal without UTF-8 would show the blocks as three characters each.
    return strcmp(nl_langinfo(CODESET), "UTF-8") == 0 ? kBlocks : kAscii;
}

// The columns of a terminal, divided between labels and marks.
struct Widths {
    size_t label;  // 0 where there is no room for labels
    uint32_t marks;
};

Widths WidthsFor(size_t columns) {
    Widths widths = {columns >= kLabelColumns + 1 + kFewestMarks ? kLabelColumns : 0, 1};
    const size_t room = columns - (widths.label > 0 ? widths.label + 1 : 0);
    while (widths.marks <= room / 2 && widths.marks < kMostColumns) {
        widths.marks *= 2;
    }
    return widths;
}

// What stands at the left of a row, at the right of its own columns.
std::string AtLeft(const std::string& text, const Widths& widths) {
    if (widths.label == 0) {
        return "";
    }
    const size_t taken = Columns(text);
    return std::string(widths.label - std::min(taken, widths.label), ' ') + text + " ";
}

void PrintLeftOut(const Grid& grid, size_t row, const Widths& widths) {
    if (const uint64_t units = LeftOutBefore(grid, row)) {
        const char* const mark = ChooseMarks().leftOut;
        Print(widths.label > 0 ? AtLeft(mark, widths) + LeftOutText(units) : mark);
    }
}

// What the marks of the grid mean.
std::string MarksText(const Grid& grid) {
    const Marks& marks = ChooseMarks();
    std::string text =
        "a mark is " + AmountText(grid.unitsPerCell) + ": " + marks.levels[0] + " none";
    for (const LevelMeaning& one : LevelsOf(grid)) {
        text += std::string("  ") + marks.levels[one.level] + " " + one.text;
    }
    return text;
}

void PrintPanel(const std::string& title, const UnitSet& set, uint64_t units, Tone tone,
                const Widths& widths) {
    const Marks& marks = ChooseMarks();
    const Grid grid = LayOut(units, {&set}, widths.marks, kMostRows);
    Print(title);
    Print(Toned(Tone::kDim, "  " + MarksText(grid)));
    for (size_t row = 0; row < grid.rows.size(); ++row) {
        PrintLeftOut(grid, row, widths);
        std::string line;
        const uint64_t end = grid.RowEnd(grid.rows[row]);
        for (uint64_t first = grid.rows[row]; first < end; first += grid.unitsPerCell) {
            const uint64_t of = grid.CellEnd(first) - first;
            line += marks.levels[LevelOf(grid, set.CountBetween(first, first + of), of)];
        }
        Print(AtLeft(RowLabel(grid, grid.rows[row]), widths) + Toned(tone, line));
    }
    PrintLeftOut(grid, grid.rows.size(), widths);
}

}  // namespace

void PrintMap(const VolumeView& view, time_t moment, size_t columns) {
    const Picture picture = MakePicture(view, moment, 1, 1);
    const Residency& residency = view.residency;
    const Widths widths = WidthsFor(columns);
    const auto panel = [&](const std::string& title, const UnitSet& set, Tone tone) {
        PrintPanel(title + ": " + AmountText(set.Count()), set, view.bits.Room(), tone, widths);
    };
    Print(Toned(Tone::kStrong, Printable(view.mountPath)) + ", " + TimeText(moment) + ": " +
          SizeText(view));
    panel("pinned", view.bits, Tone::kGood);
    if (picture.absent.Count() > 0) {
        panel("pinned and not in the cache", picture.absent, Tone::kBad);
    }
    if (residency.known) {
        panel("in the cache", residency.resident, Tone::kGood);
    }
}

}  // namespace client
