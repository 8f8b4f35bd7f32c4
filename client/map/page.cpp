// SPDX-License-Identifier: MIT
#include "client/map/page.h"

#include <sstream>

#include "client/map/page_style.h"
#include "client/show/text.h"

namespace client {

namespace {

constexpr size_t kLabelPitch = 4;  // rows
constexpr size_t kMostNames = 5;   // of files, in one place

std::string Shown(const std::string& text) {
    return EscapeMarkup(Printable(text));
}

// The colours of the kinds of units, for a light or a dark background.
std::string Colours(uint32_t KindStyle::*colour) {
    std::string text = ":root{";
    for (const KindStyle& style : kKindStyles) {
        char one[32];
        snprintf(one, sizeof(one), "--%s:#%06x;", style.name, style.*colour);
        text += one;
    }
    return text + "}";
}

std::string Head(const std::string& title) {
    return "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
           "<meta http-equiv=\"Content-Security-Policy\" content=\"default-src 'none'; style-src "
           "'unsafe-inline'\">\n"
           "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n"
           "<meta name=\"generator\" content=\"quorcachepinctl\">\n<title>" +
           title + "</title>\n<style>\n" + Colours(&KindStyle::light) +
           "\n@media screen and (prefers-color-scheme:dark){" + Colours(&KindStyle::dark) + "}" +
           kPageStyle + "</style>\n</head>\n";
}

// The state is told by its words, and by a sign where colours are not seen.
struct ToneStyle {
    const char* name;
    const char* sign;
};

ToneStyle StyleOf(Tone tone) {
    switch (tone) {
        case Tone::kGood:
            return {"good", "✓ "};
        case Tone::kBad:
            return {"bad", "✗ "};
        case Tone::kWarn:
            return {"warn", "! "};
        case Tone::kDim:
        case Tone::kStrong:
            break;
    }
    return {"dim", ""};
}

// What a place of the picture has, in words.
std::string PlaceText(const Page& page, const CellRun& run) {
    const auto count = [&run](const UnitSet& set) { return set.CountBetween(run.first, run.end); };
    const uint64_t pinned = count(page.picture.pinned);
    const uint64_t absent = count(page.picture.absent);
    const uint64_t besides = count(page.picture.besides);
    std::string text = HumanBytes((run.end - run.first) * kUnitBytes) + " at " +
                       HumanBytes(run.first * kUnitBytes) + ": ";
    text += pinned == 0 ? "" : Counted(pinned, "unit") + " pinned";
    text += absent == 0 ? "" : ", " + std::to_string(absent) + " of them not in the cache";
    text += besides == 0 ? ""
            : pinned > 0 ? ", " + std::to_string(besides) + " more in the cache"
                         : Counted(besides, "unit") + " in the cache";
    const std::vector<std::string> names = page.files.Between(run.first, run.end);
    for (size_t i = 0; i < names.size() && i < kMostNames; ++i) {
        text += (i == 0 ? ". " : ", ") + Printable(names[i]);
    }
    return names.size() > kMostNames
               ? text + " and " + Counted(names.size() - kMostNames, "more file")
               : text;
}

void AddPlace(std::ostream& out, const Page& page, const CellRun& run) {
    const Cell& cell = run.cell;
    out << "<b style=\"flex:" << run.cells << "\"";
    if (cell.pinned == 0 && cell.besides == 0) {
        out << "></b>";
        return;
    }
    // To be tapped, and not to be passed through by the tabulator key a thousand times.
    out << " class=\"p" << cell.pinned << " r" << cell.besides << (cell.absent ? " x" : "")
        << "\" tabindex=\"-1\"><i>" << EscapeMarkup(PlaceText(page, run)) << "</i></b>";
}

void AddLeftOut(std::ostream& out, const Picture& picture, size_t row) {
    if (const std::string text = LeftOutText(picture, row); !text.empty()) {
        out << "<p class=\"gap\">⋮ " << text << "</p>\n";
    }
}

void AddRow(std::ostream& out, const Page& page, size_t row) {
    const Grid& grid = page.picture.grid;
    out << "<div class=\"row\"><span class=\"at\">"
        << (HasLabel(grid, row, kLabelPitch) ? RowLabel(grid, grid.rows[row]) : "")
        << "</span><div class=\"cells\">";
    uint32_t cells = 0;
    for (const CellRun& run : RunsOfRow(page.picture, row)) {
        AddPlace(out, page, run);
        cells += run.cells;
    }
    if (cells < grid.columns) {  // the last row keeps the others' scale
        out << "<span style=\"flex:" << grid.columns - cells << "\"></span>";
    }
    out << "</div></div>\n";
}

void AddMap(std::ostream& out, const Page& page) {
    const Picture& picture = page.picture;
    std::string words;
    out << "<section aria-labelledby=\"map\">\n<h2 id=\"map\">Map</h2>\n<ul class=\"legend\">\n";
    for (const LegendLine& line : LegendOf(picture)) {
        out << "<li><span class=\"key\" style=\"background:var(--" << StyleOf(line.kind).name
            << ")\"></span>" << EscapeMarkup(line.text) << "</li>\n";
        words += (words.empty() ? "" : "; ") + line.text;
    }
    out << "</ul>\n<p class=\"dim\">Point at a place, or tap it, to see its files; "
        << HeightsText(picture.grid) << ".</p>\n<div class=\"map\" role=\"img\" aria-label=\""
        << EscapeMarkup("Map of the device. " + words) << "\">\n";
    for (size_t row = 0; row < picture.grid.rows.size(); ++row) {
        AddLeftOut(out, picture, row);
        AddRow(out, page, row);
    }
    AddLeftOut(out, picture, picture.grid.rows.size());
    out << "</div>\n</section>\n";
}

void AddParts(std::ostream& out, const std::vector<PagePart>& parts) {
    for (const PagePart& part : parts) {
        out << "<section>\n<h2>" << EscapeMarkup(part.title) << "</h2>\n"
            << part.content.ToHtml() << "</section>\n";
    }
}

}  // namespace

std::string PageText(const Page& page) {
    std::ostringstream out;
    const ToneStyle style = StyleOf(page.tone);
    const std::string volume = Shown(page.picture.mountPath);
    out << Head(volume + " on " + Shown(page.host)) << "<body>\n<main>\n<h1>" << volume
        << "</h1>\n<p class=\"dim\">" << Shown(page.host) << ", " << TimeText(page.picture.moment)
        << "</p>\n<p>" << EscapeMarkup(page.picture.size) << "</p>\n<p class=\"state " << style.name
        << "\">" << style.sign << EscapeMarkup(page.state) << "</p>\n";
    AddParts(out, page.before);
    AddMap(out, page);
    AddParts(out, page.after);
    out << "</main>\n</body>\n</html>\n";
    return out.str();
}

}  // namespace client
