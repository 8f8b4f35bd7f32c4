// SPDX-License-Identifier: MIT
// The form of a record for a page.
#include "client/show/output.h"
#include "client/show/report.h"
#include "client/show/text.h"

namespace client {

namespace {

// Colours are the terminal's.
std::string Marked(const std::string& text) {
    return EscapeMarkup(Untoned(text));
}

std::string Element(const std::string& name, const std::string& content,
                    const std::string& attributes = "") {
    return "<" + name + attributes + ">" + content + "</" + name + ">";
}

// Cells of a row; the first one names it.
std::string RowOf(const std::vector<std::string>& cells, const std::string& alignment) {
    std::string row;
    for (size_t i = 0; i < cells.size(); ++i) {
        const char* const number = alignment[i] == 'r' ? " class=\"number\"" : "";
        row += i == 0 ? Element("th", Marked(cells[i]), " scope=\"row\"")
                      : Element("td", Marked(cells[i]), number);
    }
    return Element("tr", row) + "\n";
}

// A line that belongs to the row above it.
std::string RemarkOf(const std::string& text, size_t columns) {
    return Element("tr", Element("td", Marked(text),
                                 " class=\"remark\" colspan=\"" + std::to_string(columns) + "\"")) +
           "\n";
}

std::string HeadOf(const std::vector<std::string>& labels, const std::string& alignment) {
    std::string head;
    for (size_t i = 0; i < labels.size(); ++i) {
        head += Element(
            "th", Marked(labels[i]),
            std::string(" scope=\"col\"") + (alignment[i] == 'r' ? " class=\"number\"" : ""));
    }
    return Element("thead", Element("tr", head)) + "\n";
}

}  // namespace

std::string Record::TableHtml(const Item& list) {
    std::vector<std::string> labels;
    std::string alignment;
    for (const Record& record : list.records) {
        record.AddColumns(labels, alignment);
    }
    std::string body;
    for (const Record& record : list.records) {
        std::vector<std::vector<std::string>> rows;
        record.AddCells(labels.size(), rows);
        body += RowOf(rows.front(), alignment);
        for (size_t i = 1; i < rows.size(); ++i) {
            body += RemarkOf(rows[i].back(), labels.size());
        }
    }
    return Element("table", (list.layout == Layout::kHeadedRows ? HeadOf(labels, alignment) : "") +
                                Element("tbody", "\n" + body)) +
           "\n";
}

std::string Record::ToHtml() const {
    std::string html;
    std::string facts;  // one after the other make one list
    const auto finishFacts = [&html, &facts] {
        html += facts.empty() ? "" : Element("dl", "\n" + facts) + "\n";
        facts.clear();
    };
    if (!content_->headline.empty()) {
        html += Element("p", Element("strong", Marked(content_->headline))) + "\n";
    }
    for (const Item& item : content_->items) {
        if (item.kind == Item::kRow && !item.unknown) {
            facts += Element("dt", Marked(item.label)) + Element("dd", Marked(item.text)) + "\n";
        } else if (item.kind == Item::kLine) {
            finishFacts();
            html += Element("p", Marked(item.text)) + "\n";
        } else if (item.kind == Item::kList && item.layout == Layout::kBlocks) {
            finishFacts();
            for (const Record& record : item.records) {
                html += record.ToHtml();
            }
        } else if (item.kind == Item::kList) {
            finishFacts();
            html += TableHtml(item);
        }
    }
    finishFacts();
    return html;
}

}  // namespace client
