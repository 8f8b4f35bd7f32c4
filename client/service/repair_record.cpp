// SPDX-License-Identifier: MIT
#include "client/service/repair_record.h"

#include <json/json.h>
#include <unistd.h>

#include "client/show/report.h"
#include "client/show/text.h"
#include "client/volume/replace_file.h"

namespace client {

namespace {

constexpr char kEnding[] = ".repaired";
constexpr char kTimeKey[] = "time";
constexpr char kLeftKey[] = "left";

}  // namespace

bool NoteRepair(const std::string& path, const RepairRecord& record, std::string& why) {
    Json::Value document;
    document[kTimeKey] = Json::Int64{record.at};
    document[kLeftKey] = Value(record.left);
    const bool there = access(path.c_str(), F_OK) == 0;
    return ReplaceFile(path + kEnding, document.toStyledString(), there ? path : "", why);
}

std::optional<RepairRecord> ReadRepairRecord(const std::string& path) {
    std::string text;
    Json::Value document;
    // Members of another kind would make the library throw.
    if (ReadText(path + kEnding, text) != 0 || !ParseJson(text, document) || !document.isObject() ||
        !document[kTimeKey].isUInt64() || !document[kLeftKey].isUInt64()) {
        return std::nullopt;
    }
    return RepairRecord{static_cast<time_t>(document[kTimeKey].asUInt64()),
                        static_cast<size_t>(document[kLeftKey].asUInt64())};
}

}  // namespace client
