// SPDX-License-Identifier: MIT
// How the findings of a check are shown.
#include "client/pins/check.h"
#include "client/show/output.h"

namespace client {

namespace {

Json::Value FileToJson(const FileCheck& file, const std::string& mountPath) {
    Json::Value item;
    item["path"] = PathOnVolume(mountPath, file.now.stored.relative);
    item["inode"] = file.now.stored.inode;
    item["condition"] = ConditionName(file.condition);
    item["units"] = static_cast<Json::UInt64>(file.units);
    item["unitsMissing"] = static_cast<Json::UInt64>(file.missing);
    if (!file.now.why.empty()) {
        item["reason"] = file.now.why;
    }
    return item;
}

std::string FileText(const FileCheck& file) {
    switch (file.condition) {
        case FileCondition::kMissingBits:
            return Counted(file.missing, "unit") + " of " + std::to_string(file.units) +
                   " not set: it grew, was rewritten, or a unit it shares was cleared";
        case FileCondition::kGone:
            return "gone";
        case FileCondition::kOtherName:
            return file.now.why + (file.missing == 0
                                       ? ""
                                       : "; " + Counted(file.missing, "unit") + " of " +
                                             std::to_string(file.units) + " not set");
        default:
            return file.now.why;
    }
}

// One finding about the volume's bits a line.
void PrintFindings(const VolumeCheck& check) {
    const auto line = [](const std::string& text) { Print("  " + Toned(Tone::kBad, text)); };
    if (check.surplus.Count() > 0) {
        line(Counted(check.surplus.Count(), "unit") + " set that no pinned file needs: " +
             HumanBytes(check.surplus.Count() * kUnitBytes) + " of the cache held for nothing");
    }
    if (check.driverLacks > 0) {
        line(Counted(check.driverLacks, "unit") +
             " set in the file and not in the driver's bitmap");
    }
    if (check.driverSurplus > 0) {
        line(Counted(check.driverSurplus, "unit") +
             " set in the driver's bitmap and not in the file");
    }
    if (check.fileTooLong) {
        line(Printable(check.view.bitmapPath) + " has " + std::to_string(check.view.fileBytes) +
             " bytes, the bitmap " + std::to_string(check.view.bits.Bytes().size()) +
             ": every request fails until the file is removed");
    }
    if (check.withoutBit > 0) {
        Print("  " + Toned(Tone::kWarn, Counted(check.withoutBit, "unit") +
                                            " at the device's end, for which there are no bits"));
    }
    if (check.queued > 0) {
        Print("  " +
              Toned(Tone::kWarn, Counted(check.queued, "request") +
                                     " of the volume still queued; differences may be theirs"));
    }
}

void PrintCheck(const VolumeCheck& check) {
    size_t good = 0;
    for (const FileCheck& file : check.files) {
        good += file.condition == FileCondition::kGood ? 1U : 0U;
    }
    const bool clean = IsClean(check);
    std::string text = std::to_string(good) + " of " + Counted(check.files.size(), "file") +
                       " good, " + Counted(check.view.bits.Count(), "unit") + " set";
    if (!check.bitmapWith.empty()) {
        text += "; its bitmap is checked with " + Printable(check.bitmapWith);
    }
    if (!check.mounted) {
        text = "not mounted, cannot be checked";
    }
    Print(Toned(Tone::kStrong, Printable(check.mountPath)) + ": " +
          Toned(clean ? Tone::kGood : Tone::kBad, text));
    for (const FileCheck& file : check.files) {
        const bool held = file.condition == FileCondition::kOtherName && file.missing == 0;
        if (file.condition != FileCondition::kGood) {
            Print("  " + Printable(file.now.stored.relative) + ": " +
                  Toned(held ? Tone::kWarn : Tone::kBad, FileText(file)));
        }
    }
    PrintFindings(check);
}

}  // namespace

Json::Value CheckToJson(const std::vector<VolumeCheck>& checks) {
    Json::Value list(Json::arrayValue);
    for (const VolumeCheck& check : checks) {
        const bool tells = check.view.residency.known;
        Json::Value item;
        item["mountPath"] = check.mountPath;
        item["mounted"] = check.mounted;
        item["bitmapWith"] =
            check.bitmapWith.empty() ? Json::Value() : Json::Value(check.bitmapWith);
        item["clean"] = IsClean(check);
        item["files"] = Json::Value(Json::arrayValue);
        for (const FileCheck& file : check.files) {
            item["files"].append(FileToJson(file, check.mountPath));
        }
        item["requestsQueued"] = static_cast<Json::UInt64>(check.queued);
        item["unitsSet"] = static_cast<Json::UInt64>(check.view.bits.Count());
        item["unitsWanted"] = static_cast<Json::UInt64>(check.wanted.Count());
        item["unitsMissing"] = static_cast<Json::UInt64>(check.missing);
        item["unitsSurplus"] = static_cast<Json::UInt64>(check.surplus.Count());
        item["unitsWithoutBit"] = static_cast<Json::UInt64>(check.withoutBit);
        item["unitsDriverLacks"] =
            tells ? Json::Value(Json::UInt64{check.driverLacks}) : Json::Value();
        item["unitsDriverSurplus"] =
            tells ? Json::Value(Json::UInt64{check.driverSurplus}) : Json::Value();
        item["bitmapFileTooLong"] = check.fileTooLong;
        list.append(item);
    }
    return list;
}

void PrintChecks(const std::vector<VolumeCheck>& checks) {
    for (const VolumeCheck& check : checks) {
        PrintCheck(check);
    }
    if (checks.empty()) {
        Print("nothing is pinned, nothing to check");
    }
}

}  // namespace client
