// SPDX-License-Identifier: MIT
#include "softcache/served_cache.h"

#include <json/json.h>

#include "softcache/pin_store.h"

namespace softcache {

ServedCache::ServedCache(int backing, int ssd, uint64_t deviceSize, uint32_t slots,
                         std::string pinStorePathArg, std::string registryDirectory,
                         RegistryRecord registryRecord)
    : cache(backing, ssd, deviceSize, slots),
      registry(std::move(registryDirectory), std::move(registryRecord)),
      pinStorePath(std::move(pinStorePathArg)) {}

std::string ServedCache::RestorePins() {
    std::vector<uint8_t> bitmap;
    std::string reason;
    switch (LoadPins(pinStorePath, cache.MaxPinBytes(), bitmap, reason)) {
        case PinLoad::kLoaded:
            cache.SetPins(bitmap);
            record.Restore(std::move(bitmap));
            return "";
        case PinLoad::kUnusable:
            return "pins " + pinStorePath + " left alone: " + reason;
        case PinLoad::kAbsent:
            break;
    }
    return "";
}

int ServedCache::ApplyPins(const std::vector<uint8_t>& bitmap) {
    const int result = StorePins(pinStorePath, bitmap);
    if (result == 0) {
        cache.SetPins(bitmap);
    }
    return result;
}

static Json::Value Number(uint64_t value) {
    return static_cast<Json::UInt64>(value);
}

static void AddCache(const BlockCache& cache, Json::Value& stats) {
    const CacheLevels levels = cache.Levels();
    stats["unitSize"] = Number(kUnitSize);
    stats["deviceSize"] = Number(cache.DeviceSize());
    stats["units"] = Number(levels.units);
    stats["cacheUnits"] = Number(levels.cacheUnits);
    stats["residentUnits"] = Number(levels.resident);
    stats["pinnedUnits"] = Number(levels.pinned);
    stats["pinnedUnitsResident"] = Number(levels.pinnedResident);
    stats["retiredUnits"] = Number(levels.retired);
    const CacheCounters counters = cache.Counters();
    stats["reads"] = Number(counters.reads);
    stats["writes"] = Number(counters.writes);
    stats["hits"] = Number(counters.hits);
    stats["misses"] = Number(counters.misses);
    stats["bypasses"] = Number(counters.bypasses);
    stats["ssdErrors"] = Number(counters.ssdErrors);
}

static Json::Value RequestList(const ControlEvidence& evidence) {
    Json::Value list(Json::arrayValue);
    for (const ControlRequest& request : evidence.requests) {
        const bool isBitmap = request.kind == ControlKind::kBitmap;
        Json::Value& entry = list.append(Json::Value(Json::objectValue));
        entry["seq"] = Number(request.seq);
        entry["request"] = isBitmap ? "bitmap" : "unpin";
        entry["result"] = request.result;
        entry[isBitmap ? "bytes" : "ranges"] = Number(request.amount);
    }
    return list;
}

static Json::Value RangeList(const ControlEvidence& evidence) {
    Json::Value list(Json::arrayValue);
    for (const UnpinRange& range : evidence.releasedRanges) {
        Json::Value& entry = list.append(Json::Value(Json::arrayValue));
        entry.append(Number(range.startSector));
        entry.append(Number(range.numSectors));
    }
    return list;
}

static void AddControl(const ControlRecord& record, Json::Value& stats) {
    const ControlEvidence evidence = record.Evidence();
    stats["controlRequests"]["bitmap"] = Number(evidence.bitmaps);
    stats["controlRequests"]["unpin"] = Number(evidence.unpins);
    stats["controlRequests"]["refused"] = Number(evidence.refused);
    stats["lastBitmap"] = Json::Value(Json::nullValue);
    if (evidence.bitmap) {
        stats["lastBitmap"]["bytes"] = Number(evidence.bitmap->size());
        stats["lastBitmap"]["bitsSet"] = Number(CountBits(*evidence.bitmap));
    }
    stats["releasedRanges"] = RangeList(evidence);
    stats["requests"] = RequestList(evidence);
}

std::string StatsText(const ServedCache& served) {
    Json::Value stats(Json::objectValue);
    AddCache(served.cache, stats);
    AddControl(served.record, stats);
    return stats.toStyledString();
}

}  // namespace softcache
