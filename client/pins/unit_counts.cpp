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

}  // namespace client
