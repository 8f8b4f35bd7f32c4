// SPDX-License-Identifier: MIT
// What a verb has to say, described once: it comes out as text for people, as JSON for programs, or
// as a part of a page.
#pragma once

#include <json/json.h>
#include <stdint.h>

#include <memory>
#include <string>
#include <type_traits>
#include <vector>

namespace client {

// A value as JSON has it. The library has no constructor for every width of a count: on one machine
// or the other size_t or uint64_t would be ambiguous.
class Value : public Json::Value {
  public:
    using Json::Value::Value;
    Value(const Json::Value& value) : Json::Value(value) {}
    template <typename Count, typename = std::enable_if_t<std::is_unsigned_v<Count> &&
                                                          !std::is_same_v<Count, bool>>>
    Value(Count count) : Json::Value(Json::UInt64{count}) {}
};

// How a value is written in the text form; JSON has plain numbers.
enum class Unit { kPlain, kBytes };

// How the text form shows a list. JSON has an array of objects whichever it is.
enum class Layout {
    kHidden,
    kBlocks,     // the records one below the other, each in its own lines
    kRows,       // a line a record, its labelled facts in columns; numbers stand at the right
    kHeadedRows  // the same below a line of the labels
};

// An object of the JSON form and, in the order of the calls, lines of the text form. A null value
// is an unknown one. Texts given for the text form alone must be printable, and may hold colours;
// values may hold anything. A copy costs next to nothing: it shares what neither has changed since.
class Record {
  public:
    // The line above the record's other lines, which are indented below it.
    Record& Headline(const std::string& text);

    // A member of the JSON form alone.
    Record& Add(const char* name, const Value& value);
    // The same with a line "label  value" in the text form; none when the value is null.
    Record& Add(const char* name, const Value& value, const char* label, Unit unit = Unit::kPlain);
    // The same with the text given.
    Record& Shown(const char* name, const Value& value, const char* label, const std::string& text);
    // An array of records.
    Record& List(const char* name, const std::vector<Record>& records,
                 Layout layout = Layout::kHidden);

    // A record as one member; its text stands in line with this one's.
    Record& Member(const char* name, const Record& record);

    // The text form alone: a line "label  text", and a line of text. In a list of rows the line
    // stands below its record's row, in the last column.
    Record& Row(const char* label, const std::string& text);
    Record& Line(const std::string& text);

    Json::Value ToJson() const;

    // Returns the text form as a part of a page, without colours: facts as a list of terms, lists
    // of rows as tables.
    std::string ToHtml() const;

    // Prints the text form and forgets it, so that a long verb can show what it knows before it
    // goes on.
    void Print();

  private:
    struct Item {
        enum Kind { kLine, kRow, kList } kind;
        std::string label;
        std::string text;
        bool number;
        bool unknown;  // shown in a list of rows alone
        Layout layout;
        std::vector<Record> records;
    };

    // What JSON has of a call; of members with one name the last counts.
    struct Fact {
        enum Kind { kValue, kRecord, kList } kind;
        std::string name;
        Json::Value value;
        std::vector<Record> records;
    };

    struct Content {
        std::string headline;
        std::vector<Item> items;
        std::vector<Fact> facts;
    };

    // The content, to be changed; it is this record's alone from here on.
    Content& Own();

    size_t LabelWidth() const;
    void PrintAt(const std::string& indent, size_t labelWidth) const;
    void AddColumns(std::vector<std::string>& labels, std::string& alignment) const;
    void AddCells(size_t columns, std::vector<std::vector<std::string>>& rows) const;
    static void PrintRows(const Item& list, const std::string& indent);
    static std::string TableHtml(const Item& list);

    std::shared_ptr<Content> content_ = std::make_shared<Content>();
};

// Returns the value, or null when it is not known.
Json::Value IfKnown(bool known, uint64_t value);

// Returns the text, or null when it is empty.
Json::Value IfAny(const std::string& text);

// Returns a record of each item, in order.
template <typename Items, typename Describe>
std::vector<Record> RecordsOf(const Items& items, const Describe& describe) {
    std::vector<Record> records;
    records.reserve(items.size());
    for (const auto& item : items) {
        records.push_back(describe(item));
    }
    return records;
}

// Returns an array of the texts.
Json::Value TextsToJson(const std::vector<std::string>& texts);

// Says on standard error why the verb fails, and puts it into the report as "error". The text must
// be printable. Returns `exitStatus`.
int Fail(Record& report, int exitStatus, const std::string& text);

// The same for a verb that cannot do anything with the path it was given, which becomes the one
// member of the report's "refused". Returns kExitRefused.
int Refuse(Record& report, const std::string& path, const std::string& reason);

// Prints the report of a verb, as JSON or as text, and returns `exitStatus`. The JSON form begins
// with the members that all verbs have: schema, verb, exitStatus. When the verb neither did what it
// was asked nor a part of it, and no "error" was put into the report, what was last said on
// standard error is the error. Texts that are no UTF-8 are written as Printable has them.
int Finish(const std::string& verb, Record& report, bool json, int exitStatus);

}  // namespace client
