// SPDX-License-Identifier: MIT
#include "softcache/serve/served_cache.h"

#include <json/json.h>
#include <string.h>

namespace softcache {

ServedCache::ServedCache(const Disk& backing, SsdStore& ssd, const std::vector<WarmSlot>& warm,
                         std::string registryDirectory, RegistryRecord registryRecord)
    : store(ssd),
      cache(backing, ssd, warm),
      volume(backing, ssd),
      registry(std::move(registryDirectory), std::move(registryRecord)) {
    cache.BeforeBackingReads([this] { faults.BeforeBackingRead(); });
}

std::string ServedCache::RestorePins() {
    std::vector<uint8_t> bitmap;
    const int result = store.ReadPins(bitmap);
    if (result < 0) {
        return std::string("pins cannot be read: ") + strerror(-result);
    }
    if (result == 0) {
        return "pins are not whole: none is in force";
    }
    if (bitmap.size() > cache.MaxPinBytes()) {
        return "pins left alone: " + std::to_string(bitmap.size()) + " bytes, this device takes " +
               std::to_string(cache.MaxPinBytes());
    }
    if (!bitmap.empty()) {
        cache.SetPins(bitmap);
        record.Restore(std::move(bitmap));
    }
    return "";
}

int ServedCache::ApplyPins(const std::vector<uint8_t>& bitmap) {
    const int result = store.WritePins(bitmap);
    if (result == 0) {
        cache.SetPins(bitmap);
    }
    return result;
}

// A failed change may have been made in part, so the volume is told of it too.
int ServedCache::Write(const void* data, size_t size, uint64_t offset) {
    const int result = cache.Write(data, size, offset);
    volume.Written(data, size, offset);
    return result;
}

int ServedCache::Allocate(int mode, uint64_t offset, uint64_t length) {
    const int result = cache.Allocate(mode, offset, length);
    volume.Written(nullptr, 0, offset);
    return result;
}

int ServedCache::Flush(bool dataOnly) {
    const int result = cache.Flush(dataOnly);
    volume.BeforeSync();
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
    stats["unsettledUnits"] = Number(levels.unsettled);
    stats["retiredUnits"] = Number(levels.retired);
    const CacheCounters counters = cache.Counters();
    stats["reads"] = Number(counters.reads);
    stats["writes"] = Number(counters.writes);
    stats["hits"] = Number(counters.hits);
    stats["misses"] = Number(counters.misses);
    stats["bypasses"] = Number(counters.bypasses);
    stats["ssdErrors"] = Number(counters.ssdErrors);
}

// The lists are written by hand: as values they would take 20 times the memory of their text.
static void AppendRequests(const ControlEvidence& evidence, std::string& text) {
    const char* separator = "\n";
    for (const ControlRequest& request : evidence.requests) {
        const bool isBitmap = request.kind == ControlKind::kBitmap;
        text += separator;
        text += "    {\"seq\" : " + std::to_string(request.seq) + ", \"request\" : \"" +
                (isBitmap ? "bitmap" : "unpin") +
                "\", \"result\" : " + std::to_string(request.result) + ", \"" +
                (isBitmap ? "bytes" : "ranges") + "\" : " + std::to_string(request.amount) + "}";
        separator = ",\n";
    }
}

static void AppendRanges(const ControlEvidence& evidence, std::string& text) {
    const char* separator = "\n";
    for (const UnpinRange& range : evidence.releasedRanges) {
        text += separator;
        text += "    [" + std::to_string(range.startSector) + ", " +
                std::to_string(range.numSectors) + "]";
        separator = ",\n";
    }
}

static void AddControl(const ControlEvidence& evidence, Json::Value& stats) {
    stats["controlRequests"]["bitmap"] = Number(evidence.bitmaps);
    stats["controlRequests"]["unpin"] = Number(evidence.unpins);
    stats["controlRequests"]["refused"] = Number(evidence.refused);
    stats["lastBitmap"] = Json::Value(Json::nullValue);
    if (evidence.bitmap) {
        stats["lastBitmap"]["bytes"] = Number(evidence.bitmap->size());
        stats["lastBitmap"]["bitsSet"] = Number(CountBits(*evidence.bitmap));
    }
}

std::string StatsText(const ServedCache& served) {
    const ControlEvidence evidence = served.record.Evidence();
    Json::Value stats(Json::objectValue);
    AddCache(served.cache, stats);
    AddControl(evidence, stats);
    std::string text = stats.toStyledString();
    text.erase(text.rfind("\n}"));
    text += ",\n  \"releasedRanges\" : [";
    AppendRanges(evidence, text);
    text += "],\n  \"requests\" : [";
    AppendRequests(evidence, text);
    text += "]\n}\n";
    return text;
}

}  // namespace softcache
