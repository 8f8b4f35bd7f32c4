// SPDX-License-Identifier: MIT
// The text form of a record.
#include <algorithm>

#include "client/show/output.h"
#include "client/show/report.h"
#include "client/show/text.h"

namespace client {

namespace {

constexpr char kIndent[] = "  ";

// Prints rows of cells, in columns that are as wide as their widest cell. `alignment` has a
// character a column: l or r.
void PrintTable(const std::vector<std::vector<std::string>>& rows, const std::string& alignment,
                const std::string& indent) {
    std::vector<size_t> widths(alignment.size());
    for (const auto& row : rows) {
        for (size_t i = 0; i < row.size(); ++i) {
            widths[i] = std::max(widths[i], Columns(row[i]));
        }
    }
    for (const auto& row : rows) {
        std::string line = indent;
        for (size_t i = 0; i < row.size(); ++i) {
            const std::string padding(widths[i] - Columns(row[i]), ' ');
            line += i == 0 ? "" : "  ";
            line += alignment[i] == 'r' ? padding + row[i] : row[i] + padding;
        }
        // An empty last column would leave blanks at the end, which only show when copied.
        line.erase(line.find_last_not_of(' ') + 1);
        Print(line);
    }
}

}  // namespace

// Records without a headline stand in line with the rows around them.
size_t Record::LabelWidth() const {
    size_t width = 0;
    for (const Item& item : content_->items) {
        if (item.kind == Item::kRow && !item.unknown) {
            width = std::max(width, Columns(item.label));
        }
        for (const Record& record : item.records) {
            if (item.layout == Layout::kBlocks && record.content_->headline.empty()) {
                width = std::max(width, record.LabelWidth());
            }
        }
    }
    return width;
}

// A column's label is that of its first fact; a column that has a number in it stands at the right.
void Record::AddColumns(std::vector<std::string>& labels, std::string& alignment) const {
    size_t column = 0;
    for (const Item& item : content_->items) {
        if (item.kind != Item::kRow) {
            continue;
        }
        if (column == labels.size()) {
            labels.push_back(item.label);
            alignment += 'l';
        }
        // One number is enough: "-" stands for one that is not known.
        alignment[column] = item.number ? 'r' : alignment[column];
        ++column;
    }
}

void Record::AddCells(size_t columns, std::vector<std::vector<std::string>>& rows) const {
    std::vector<std::string> cells;
    for (const Item& item : content_->items) {
        if (item.kind == Item::kRow) {
            cells.push_back(item.text);
        }
    }
    rows.push_back(cells);
    for (const Item& item : content_->items) {
        if (item.kind == Item::kLine) {
            // A remark belongs to its row, and is as wide as it likes.
            cells.assign(columns, "");
            cells.back() = item.text;
            rows.push_back(cells);
        }
    }
}

void Record::PrintRows(const Item& list, const std::string& indent) {
    std::vector<std::string> labels;
    std::string alignment;
    for (const Record& record : list.records) {
        record.AddColumns(labels, alignment);
    }
    std::vector<std::vector<std::string>> rows;
    if (list.layout == Layout::kHeadedRows) {
        rows.push_back(labels);
    }
    for (const Record& record : list.records) {
        record.AddCells(labels.size(), rows);
    }
    PrintTable(rows, alignment, indent);
}

void Record::PrintAt(const std::string& given, size_t labelWidth) const {
    std::string indent = given;
    bool belowRows = false;
    if (!content_->headline.empty()) {
        client::Print(indent + content_->headline);
        indent += kIndent;
        labelWidth = LabelWidth();
    }
    for (const Item& item : content_->items) {
        if (item.kind == Item::kLine) {
            client::Print(indent + item.text);
        } else if (item.kind == Item::kRow && !item.unknown) {
            // Values begin in one column, whichever record they are of.
            std::string line = indent + item.label;
            line.append(labelWidth - Columns(item.label), ' ').append(kIndent).append(item.text);
            client::Print(line);
            belowRows = true;
        } else if (item.kind == Item::kList && item.layout == Layout::kBlocks) {
            for (const Record& record : item.records) {
                record.PrintAt(indent, labelWidth);
            }
        } else if (item.kind == Item::kList) {
            // Below a line of its own the list belongs to that line.
            PrintRows(item, belowRows ? indent + kIndent : indent);
        }
    }
}

void Record::Print() {
    // The JSON part stays: what was shown early still belongs to the document.
    PrintAt("", LabelWidth());
    Own().headline.clear();
    Own().items.clear();
}

}  // namespace client
