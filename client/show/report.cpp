// SPDX-License-Identifier: MIT
#include "client/show/report.h"

#include <algorithm>

#include "client/show/exit_status.h"
#include "client/show/output.h"
#include "client/show/text.h"

namespace client {

namespace {

constexpr int kJsonSchema = 1;

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
