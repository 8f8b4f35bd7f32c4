// SPDX-License-Identifier: MIT
// How it is shown what holds.
#include "client/pins/holding.h"
#include "client/show/output.h"

namespace client {

namespace {

void PrintAbsent(const Holding& holding) {
    if (holding.absent > 0) {
        Print("  " + Toned(Tone::kBad, "not in the cache") + " " + Counted(holding.absent, "unit") +
              ": " + holding.whyAbsent);
    }
}

}  // namespace

Json::Value HoldingToJson(const std::vector<Holding>& holdings) {
    Json::Value list(Json::arrayValue);
    for (const Holding& holding : holdings) {
        Json::Value item;
        item["volume"] = holding.mountPath;
        item["files"] = static_cast<Json::UInt64>(holding.files);
        item["bytes"] = static_cast<Json::UInt64>(holding.bytes);
        item["units"] = static_cast<Json::UInt64>(holding.wanted);
        item["unitsSet"] = static_cast<Json::UInt64>(holding.set);
        item["unitsWithDriver"] = Json::Value();
        item["unitsResident"] = Json::Value();
        item["unitsAbsent"] = Json::Value();
        if (holding.cacheTells) {
            item["unitsWithDriver"] = static_cast<Json::UInt64>(holding.driver);
            item["unitsResident"] = static_cast<Json::UInt64>(holding.resident);
            item["unitsAbsent"] = static_cast<Json::UInt64>(holding.absent);
        }
        item["wrong"] = RefusalsToJson(holding.wrong);
        list.append(item);
    }
    return list;
}

void PrintHolding(const std::vector<Holding>& holdings, bool pinned) {
    for (const Holding& holding : holdings) {
        const size_t good = holding.files - holding.wrong.size();
        const std::string head =
            (pinned ? "pinned " : "unpinned ") + std::to_string(good) +
            (holding.wrong.empty() ? "" : " of " + std::to_string(holding.files)) +
            (holding.files == 1 ? " file, " : " files, ") + HumanBytes(holding.bytes);
        Print(Toned(Tone::kStrong, Printable(holding.mountPath)) + ": " +
              Toned(holding.wrong.empty() ? Tone::kGood : Tone::kBad, head));
        std::string units = "  units " + std::string(pinned ? "wanted " : "concerned ") +
                            std::to_string(holding.wanted) +
                            (pinned ? ", bits set " : ", still set ") + std::to_string(holding.set);
        if (holding.cacheTells) {
            units += ", with the driver " + std::to_string(holding.driver) + ", in the cache " +
                     std::to_string(holding.resident);
        }
        Print(units);
        PrintAbsent(holding);
        for (const Refusal& wrong : holding.wrong) {
            Print("  " + Toned(Tone::kBad, pinned ? "not pinned" : "not unpinned") + " " +
                  Printable(wrong.path) + ": " + wrong.reason);
        }
    }
}

void PrintRepinnedHolding(const std::vector<Holding>& holdings) {
    for (const Holding& holding : holdings) {
        const size_t good = holding.files - holding.wrong.size();
        Print("  " + Counted(good, "pinned file", "pinned files") + " that shared units " +
              (good == 1 ? "is" : "are") + " whole again");
        PrintAbsent(holding);
        for (const Refusal& wrong : holding.wrong) {
            Print("  " + Toned(Tone::kBad, "no longer whole") + " " + Printable(wrong.path) + ": " +
                  wrong.reason);
        }
    }
}

}  // namespace client
