// SPDX-License-Identifier: MIT
#include "client/pins/unit_counts.h"

namespace client {

UnitCounts CountUnits(const VolumeView& view, const UnitSet& units) {
    UnitCounts counts;
    counts.units = units.Count();
    counts.set = counts.units - units.CountWithout(view.bits);
    counts.cacheTells = view.residency.known;
    if (counts.cacheTells) {
        counts.withDriver = counts.units - units.CountWithout(view.residency.pinned);
        counts.resident = counts.units - units.CountWithout(view.residency.resident);
    }
    return counts;
}

Json::Value RunsToJson(const UnitRuns& runs) {
    Json::Value list(Json::arrayValue);
    for (const UnitRun& run : runs) {
        Json::Value pair(Json::arrayValue);
        pair.append(Json::UInt64{run.first});
        pair.append(Json::UInt64{run.last});
        list.append(pair);
    }
    return list;
}

void AddCounts(const UnitCounts& counts, Record& record) {
    std::string text = std::to_string(counts.units) + ", set " + std::to_string(counts.set);
    if (counts.cacheTells) {
        text += ", with the driver " + std::to_string(counts.withDriver) + ", in the cache " +
                std::to_string(counts.resident);
    }
    record.Add("unitsSet", Json::UInt64{counts.set})
        .Add("unitsWithDriver", IfKnown(counts.cacheTells, counts.withDriver))
        .Add("unitsResident", IfKnown(counts.cacheTells, counts.resident))
        .Shown("units", Json::UInt64{counts.units}, "units", text);
}

}  // namespace client
