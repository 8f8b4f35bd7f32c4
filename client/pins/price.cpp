// SPDX-License-Identifier: MIT
#include "client/pins/price.h"

#include <stdio.h>

#include "client/show/output.h"
#include "client/volume/volume_view.h"

namespace client {

namespace {

Price& PriceFor(std::vector<Price>& prices, const std::string& mountPath) {
    for (Price& price : prices) {
        if (price.mountPath == mountPath) {
            return price;
        }
    }
    prices.emplace_back();
    prices.back().mountPath = mountPath;
    return prices.back();
}

UnitRuns RunsOn(const std::vector<FileRef>& files, const std::string& mountPath) {
    std::vector<FileMappingEntry> extents;
    for (const FileRef& file : files) {
        if (file.volume->mountPath == mountPath) {
            extents.insert(extents.end(), file.extents.begin(), file.extents.end());
        }
    }
    return RunsOf(extents);
}

// Fills what depends on the volume's bitmap and cache.
void LookUp(const FileJob& job, const Volume& volume, Price& price) {
    const VolumeView view = LookAt(volume);
    const UnitRuns runs = RunsOn(job.list.files, volume.mountPath);
    UnitSet then = view.bits;
    UnitSet room(view.bits.Bytes().size());
    room.Put(runs);
    price.units = CountUnits(runs);
    price.unitsNoBit = price.units - room.Count();
    price.unitsSet = view.bits.CountIn(runs);
    price.pinnedNow = view.bits.Count();
    if (job.type == kRequestPinFiles) {
        then.Put(runs);
    } else {
        then = then.Without(room);
        then.Put(RunsOn(job.repinned, volume.mountPath));
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

std::vector<Price> PriceOf(const FileJob& job) {
    std::vector<Price> prices;
    for (const Message& message : job.messages) {
        ++PriceFor(prices, message.mountPath).requests;
    }
    for (const FileRef& file : job.list.files) {
        Price& price = PriceFor(prices, file.volume->mountPath);
        ++price.files;
        price.extents += file.extents.size();
        price.bytes += BytesOf(file.extents);
    }
    for (const FileRef& file : job.repinned) {
        ++PriceFor(prices, file.volume->mountPath).repinnedFiles;
    }
    for (Price& price : prices) {
        for (const Volume& volume : job.volumes) {
            if (volume.mountPath == price.mountPath) {
                LookUp(job, volume, price);
                break;
            }
        }
    }
    return prices;
}

Json::Value PriceToJson(const std::vector<Price>& prices) {
    Json::Value list(Json::arrayValue);
    for (const Price& price : prices) {
        Json::Value item;
        item["volume"] = price.mountPath;
        item["files"] = static_cast<Json::UInt64>(price.files);
        item["extents"] = static_cast<Json::UInt64>(price.extents);
        item["bytes"] = static_cast<Json::UInt64>(price.bytes);
        item["units"] = static_cast<Json::UInt64>(price.units);
        item["unitsAlreadyPinned"] = static_cast<Json::UInt64>(price.unitsSet);
        item["unitsWithoutBit"] = static_cast<Json::UInt64>(price.unitsNoBit);
        item["roundingBytes"] = static_cast<Json::UInt64>(
            price.units * kUnitBytes > price.bytes ? price.units * kUnitBytes - price.bytes : 0);
        item["pinnedUnitsNow"] = static_cast<Json::UInt64>(price.pinnedNow);
        item["pinnedUnitsThen"] = static_cast<Json::UInt64>(price.pinnedThen);
        item["cacheBytes"] = price.cacheSize == 0
                                 ? Json::Value()
                                 : Json::Value(static_cast<Json::UInt64>(price.cacheSize));
        item["requests"] = static_cast<Json::UInt64>(price.requests);
        item["repinnedFiles"] = static_cast<Json::UInt64>(price.repinnedFiles);
        list.append(item);
    }
    return list;
}

void PrintPrice(const std::vector<Price>& prices, const FileJob& job) {
    for (const Price& price : prices) {
        const uint64_t rounded = price.units * kUnitBytes;
        Print(Toned(Tone::kStrong, Printable(price.mountPath)) + ": " +
              Counted(price.files, "file") + ", " + Counted(price.extents, "extent"));
        Table table("ll");
        table.Add({"data", HumanBytes(price.bytes)});
        table.Add({"units", std::to_string(price.units) + " of 64 KiB = " + HumanBytes(rounded) +
                                (rounded > price.bytes
                                     ? "; rounding adds " + HumanBytes(rounded - price.bytes)
                                     : "")});
        table.Add({"pinned already", Counted(price.unitsSet, "unit")});
        if (price.unitsNoBit > 0) {
            table.Add({"without a bit", Counted(price.unitsNoBit, "unit") +
                                            " at the device's end, which cannot be pinned"});
        }
        if (price.repinnedFiles > 0) {
            table.Add({"pinned again", Counted(price.repinnedFiles, "file that shares units",
                                               "files that share units")});
        }
        table.Add({"cache", CacheText(price)});
        table.Add({"requests", std::to_string(price.requests)});
        table.Show("  ");
    }
    Print(job.messages.empty() ? "no files" : "nothing was sent: this was a dry run");
}

}  // namespace client
