// SPDX-License-Identifier: MIT
#include "client/pins/price.h"

#include <stdio.h>

#include <algorithm>
#include <iterator>

#include "client/show/output.h"
#include "client/volume/volume_view.h"

namespace client {

namespace {

std::vector<FileRef> FilesOn(const Volume& volume, const std::vector<FileRef>& files) {
    std::vector<FileRef> found;
    std::copy_if(files.begin(), files.end(), std::back_inserter(found),
                 [&volume](const FileRef& file) { return file.volume == &volume; });
    return found;
}

// Prices the files of one volume.
Price PriceOn(const Volume& volume, bool pin, const std::vector<FileRef>& files,
              const std::vector<FileRef>& repinned) {
    const VolumeView view = LookAt(volume);
    const std::vector<FileMappingEntry> extents = ExtentsOf(files);
    const UnitRuns units = RunsOf(extents);
    UnitSet then = view.bits;
    UnitSet own(view.bits.Bytes().size());
    own.Put(units);
    if (pin) {
        then.Put(units);
    } else {
        // In this order, as the service does it: the unpin clears a shared unit, the repin sets it.
        then = then.Without(own);
        then.Put(RunsOf(ExtentsOf(repinned)));
    }
    Price price;
    price.volume = volume.mountPath;
    price.files = files.size();
    price.extents = extents.size();
    price.bytes = BytesOf(extents);
    price.units = CountUnits(units);
    price.unitsSet = view.bits.CountIn(units);
    price.withoutBit = price.units - own.Count();
    price.pinnedNow = view.bits.Count();
    price.pinnedThen = then.Count();
    price.cacheSize = view.residency.cacheSize;
    price.repinnedFiles = repinned.size();
    return price;
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
    std::vector<FileRef> all = files;
    all.insert(all.end(), repinned.begin(), repinned.end());
    for (const VolumeFiles& group : GroupByVolume(all)) {
        const Volume& volume = *group.volume;
        prices.push_back(PriceOn(volume, pin, FilesOn(volume, files), FilesOn(volume, repinned)));
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
