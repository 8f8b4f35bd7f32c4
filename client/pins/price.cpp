// SPDX-License-Identifier: MIT
#include "client/pins/price.h"

#include <stdio.h>

#include "client/show/output.h"
#include "client/volume/volume_view.h"

namespace client {

namespace {

Price& PriceFor(std::vector<Price>& prices, const std::string& volume) {
    for (Price& price : prices) {
        if (price.volume == volume) {
            return price;
        }
    }
    prices.emplace_back();
    prices.back().volume = volume;
    return prices.back();
}

UnitRuns RunsOn(const std::vector<FileRef>& files, const std::string& volume) {
    std::vector<FileMappingEntry> extents;
    for (const FileRef& file : files) {
        if (file.volume->mountPath == volume) {
            extents.insert(extents.end(), file.extents.begin(), file.extents.end());
        }
    }
    return RunsOf(extents);
}

// Fills what depends on the volume's bitmap and cache.
void CompareWithVolume(bool pin, const Volume& volume, const UnitRuns& units,
                       const UnitRuns& repinned, Price& price) {
    const VolumeView view = LookAt(volume);
    UnitSet then = view.bits;
    UnitSet own(view.bits.Bytes().size());
    own.Put(units);
    price.units = CountUnits(units);
    price.withoutBit = price.units - own.Count();
    price.unitsSet = view.bits.CountIn(units);
    price.pinnedNow = view.bits.Count();
    if (pin) {
        then.Put(units);
    } else {
        // In this order, as the service does it: the unpin clears a shared unit, the repin sets it.
        then = then.Without(own);
        then.Put(repinned);
    }
    price.pinnedThen = then.Count();
    price.cacheSize = view.residency.cacheSize;
}

std::string Share(uint64_t units, uint64_t cacheSize) {
    char text[32];
    snprintf(text, sizeof(text), "%.1f %%",
             100.0 * static_cast<double>(units * kUnitBytes) / static_cast<double>(cacheSize));
    return text;
}

std::string CacheText(const Price& price) {
    if (price.cacheSize == 0) {
        return "its size is not known here; pinned now " +
               HumanBytes(price.pinnedNow * kUnitBytes) + ", afterwards " +
               HumanBytes(price.pinnedThen * kUnitBytes);
    }
    const bool tooMuch = price.pinnedThen * kUnitBytes > price.cacheSize;
    return HumanBytes(price.cacheSize) + "; pinned now " + Share(price.pinnedNow, price.cacheSize) +
           ", afterwards " + Share(price.pinnedThen, price.cacheSize) +
           (tooMuch ? Toned(Tone::kBad, "  more than the cache holds") : "");
}

}  // namespace

std::vector<Price> PriceOf(bool pin, const std::vector<FileRef>& files,
                           const std::vector<FileRef>& repinned) {
    std::vector<Price> prices;
    std::vector<const Volume*> volumes;
    for (const FileRef& file : files) {
        Price& price = PriceFor(prices, file.volume->mountPath);
        if (prices.size() > volumes.size()) {
            volumes.push_back(file.volume);
        }
        ++price.files;
        price.extents += file.extents.size();
        price.bytes += BytesOf(file.extents);
    }
    for (const FileRef& file : repinned) {
        Price& price = PriceFor(prices, file.volume->mountPath);
        if (prices.size() > volumes.size()) {
            volumes.push_back(file.volume);
        }
        ++price.repinnedFiles;
    }
    for (size_t i = 0; i < prices.size(); ++i) {
        CompareWithVolume(pin, *volumes[i], RunsOn(files, prices[i].volume),
                          RunsOn(repinned, prices[i].volume), prices[i]);
    }
    return prices;
}

Record DescribePrice(const Price& price) {
    const uint64_t unitBytes = price.units * kUnitBytes;
    const uint64_t rounding = unitBytes > price.bytes ? unitBytes - price.bytes : 0;
    Record record;
    record
        .Headline(Toned(Tone::kStrong, Printable(price.volume)) + ": " +
                  Counted(price.files, "file") + ", " + Counted(price.extents, "extent"))
        .Add("volume", price.volume)
        .Add("files", Json::UInt64{price.files})
        .Add("extents", Json::UInt64{price.extents})
        .Add("bytes", Json::UInt64{price.bytes}, "data", Unit::kBytes)
        .Shown("units", Json::UInt64{price.units}, "units",
               std::to_string(price.units) + " of 64 KiB = " + HumanBytes(unitBytes) +
                   (rounding > 0 ? "; rounding adds " + HumanBytes(rounding) : ""))
        .Add("roundingBytes", Json::UInt64{rounding})
        .Shown("unitsSet", Json::UInt64{price.unitsSet}, "pinned already",
               Counted(price.unitsSet, "unit"))
        .Add("unitsWithoutBit", Json::UInt64{price.withoutBit})
        .Add("pinnedUnitsNow", Json::UInt64{price.pinnedNow})
        .Add("pinnedUnitsThen", Json::UInt64{price.pinnedThen})
        .Add("repinnedFiles", Json::UInt64{price.repinnedFiles});
    if (price.withoutBit > 0) {
        record.Row("without a bit", Counted(price.withoutBit, "unit") +
                                        " at the device's end, which cannot be pinned");
    }
    if (price.repinnedFiles > 0) {
        record.Row("pinned again", Counted(price.repinnedFiles, "file that shares units",
                                           "files that share units"));
    }
    return record
        .Shown("cacheBytes", IfKnown(price.cacheSize > 0, price.cacheSize), "cache",
               CacheText(price))
        .Add("requests", Json::UInt64{price.requests}, "requests");
}

}  // namespace client
