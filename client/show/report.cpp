// SPDX-License-Identifier: MIT
#include "client/show/report.h"

#include <algorithm>

#include "client/show/exit_status.h"
#include "client/show/output.h"
#include "client/show/text.h"

namespace client {

namespace {

constexpr int kJsonSchema = 1;
constexpr char kIndent[] = "  ";

std::string TextOf(const Json::Value& value, Unit unit) {
    if (value.isNull()) {
        return "-";
    }
    if (value.isBool()) {
        return value.asBool() ? "yes" : "no";
    }
    // A count without a unit stays as it is: numbers of requests are compared, not read.
    if (unit == Unit::kBytes) {
        return HumanBytes(value.asUInt64());
    }
    return Printable(value.asString());
}

// Replaces texts that a JSON document cannot hold.
void MakeUtf8(Json::Value& value) {
    if (value.isString() && !IsUtf8(value.asString())) {
        value = Printable(value.asString());
    } else if (value.isArray() || value.isObject()) {
        for (Json::Value& member : value) {
            MakeUtf8(member);
        }
    }
}

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

Record::Content& Record::Own() {
    if (content_.use_count() > 1) {
        content_ = std::make_shared<Content>(*content_);
    }
    return *content_;
}

Record& Record::Headline(const std::string& text) {
    Own().headline = text;
    return *this;
}

Record& Record::Add(const char* name, const Value& value) {
    Own().facts.push_back({Fact::kValue, name, value, {}});
    return *this;
}

Record& Record::Add(const char* name, const Value& value, const char* label, Unit unit) {
    Shown(name, value, label, TextOf(value, unit));
    // As a line it is left out; in a column its place must be kept.
    Own().items.back().unknown = value.isNull();
    return *this;
}

Record& Record::Shown(const char* name, const Value& value, const char* label,
                      const std::string& text) {
    Add(name, value);
    Own().items.push_back({Item::kRow, label, text, value.isNumeric(), false, {}, {}});
    return *this;
}

Record& Record::List(const char* name, const std::vector<Record>& records, Layout layout) {
    Own().facts.push_back({Fact::kList, name, {}, records});
    if (layout != Layout::kHidden && !records.empty()) {
        Own().items.push_back({Item::kList, "", "", false, false, layout, records});
    }
    return *this;
}

Record& Record::Member(const char* name, const Record& record) {
    Own().facts.push_back({Fact::kRecord, name, {}, {record}});
    // As text it is a list of one.
    Own().items.push_back({Item::kList, "", "", false, false, Layout::kBlocks, {record}});
    return *this;
}

Record& Record::Row(const char* label, const std::string& text) {
    Own().items.push_back({Item::kRow, label, text, false, false, {}, {}});
    return *this;
}

Record& Record::Line(const std::string& text) {
    Own().items.push_back({Item::kLine, "", text, false, false, {}, {}});
    return *this;
}

Json::Value Record::ToJson() const {
    Json::Value json(Json::objectValue);
    for (const Fact& fact : content_->facts) {
        Json::Value& member = json[fact.name];
        if (fact.kind == Fact::kValue) {
            member = fact.value;
        } else if (fact.kind == Fact::kRecord) {
            member = fact.records.front().ToJson();
        } else {
            member = Json::Value(Json::arrayValue);
            for (const Record& record : fact.records) {
                member.append(record.ToJson());
            }
        }
    }
    return json;
}

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

Json::Value IfKnown(bool known, uint64_t value) {
    return known ? Json::Value(Json::UInt64{value}) : Json::Value();
}

Json::Value IfAny(const std::string& text) {
    return text.empty() ? Json::Value() : Json::Value(text);
}

Json::Value TextsToJson(const std::vector<std::string>& texts) {
    Json::Value list(Json::arrayValue);
    for (const std::string& text : texts) {
        list.append(text);
    }
    return list;
}

int Fail(Record& report, int exitStatus, const std::string& text) {
    Say(text);
    report.Add("error", text);
    return exitStatus;
}

int Refuse(Record& report, const std::string& path, const std::string& reason) {
    Record refusal;
    report.List("refused", {refusal.Add("path", path).Add("reason", reason)});
    // Programs find every failure under the same name, refusals too.
    report.Add("error", Printable(path) + ": " + reason);
    Say(TonedError(Tone::kBad, "refused") + " " + Printable(path) + ": " + reason);
    return kExitRefused;
}

int Finish(const std::string& verb, Record& report, bool json, int exitStatus) {
    const std::string said = TakeLastSaid();
    if (!json) {
        report.Print();
        return exitStatus;
    }
    Json::Value document = report.ToJson();
    document["schema"] = kJsonSchema;
    document["verb"] = verb;
    document["exitStatus"] = exitStatus;
    // Some functions below the verbs say themselves why they failed; programs read that here.
    const bool failed = exitStatus != kExitDone && exitStatus != kExitPartly;
    if (failed && !document.isMember("error") && !said.empty()) {
        document["error"] = said;
    }
    MakeUtf8(document);
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "  ";
    // Names of files stay readable; what is no UTF-8 has been replaced above.
    builder["emitUTF8"] = true;
    Print(Json::writeString(builder, document));
    return exitStatus;
}

}  // namespace client
