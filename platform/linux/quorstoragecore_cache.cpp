// SPDX-License-Identifier: MIT
// libquorstoragecore for plain Linux: the configuration and the state of a space's cache.
#include <stdlib.h>
#include <string.h>

#include <map>
#include <mutex>

#include "platform/linux/cache_registry.h"
#include "platform/linux/report.h"
#include "platform/linux/volume_cache.h"
#include "platform/linux/volumes.h"
#include "platform/quorstoragecore.h"

using namespace stand_in;

namespace {

FlashCacheConfig* NewConfig(const CacheEntry& cache) {
    auto* const config = static_cast<FlashCacheConfig*>(calloc(1, sizeof(FlashCacheConfig)));
    char* const ssdPath = strdup(cache.ssd.c_str());
    if (config == nullptr || ssdPath == nullptr) {
        free(config);
        free(ssdPath);
        return nullptr;
    }
    config->ssdPath = ssdPath;
    return config;
}

using Caches = std::shared_ptr<const CacheListing>;
using Volumes = std::shared_ptr<const VolumeListing>;

// Which cache a space has, in two lists that do not change: as long as they are the same, so is the
// answer. Only what was found is kept.
class Findings {
  public:
    bool Recall(const Caches& caches, const Volumes& volumes, const std::string& uuid,
                CacheEntry& found) {
        const std::lock_guard<std::mutex> lock(mutex_);
        const auto finding =
            caches == caches_ && volumes == volumes_ ? byUuid_.find(uuid) : byUuid_.end();
        if (finding == byUuid_.end()) {
            return false;
        }
        found = finding->second;
        return true;
    }

    void Remember(const Caches& caches, const Volumes& volumes, const std::string& uuid,
                  const CacheEntry& found) {
        const std::lock_guard<std::mutex> lock(mutex_);
        if (caches != caches_ || volumes != volumes_) {
            byUuid_.clear();
            caches_ = caches;
            volumes_ = volumes;
        }
        byUuid_[uuid] = found;
    }

  private:
    std::mutex mutex_;
    Caches caches_;
    Volumes volumes_;
    std::map<std::string, CacheEntry> byUuid_;
};

// Stores the cache of the space with this UUID. Returns 1 when it has one, 0 when not, -1 when that
// could not be found out.
int FindCacheByUuid(const std::string& uuid, CacheEntry& found) {
    static Findings& findings = *new Findings;  // may be in use while the process exits
    const Caches registry = ReadCacheRegistry();
    const int notFound = registry->complete ? 0 : -1;
    if (registry->caches.empty()) {
        return notFound;  // no device needs to be read for that
    }
    const Volumes mounted = ListVolumes();
    if (!mounted) {
        return -1;
    }
    if (findings.Recall(registry, mounted, uuid, found)) {
        return 1;
    }
    for (const Volume& volume : mounted->volumes) {
        if (volume.uuid == uuid) {
            const int result = FindCacheOf(volume.device, registry->caches, found);
            if (result == 1) {
                findings.Remember(registry, mounted, uuid, found);
            }
            return result == 0 ? notFound : result;
        }
    }
    return mounted->complete ? 0 : -1;
}

}  // namespace

int QUORFlashCacheConfigTmpGet(const FlashCacheConfigQuery* query, FlashCacheConfig** config) {
    if (config == nullptr) {
        return -1;
    }
    *config = nullptr;
    if (query == nullptr || query->selector != FLASH_CACHE_CONFIG_BY_SPACE_UUID ||
        query->spaceUuid == nullptr) {
        Report("cache configuration can be asked for by space UUID only");
        return -1;
    }
    CacheEntry cache;
    const int result = FindCacheByUuid(query->spaceUuid, cache);
    if (result == 1) {
        *config = NewConfig(cache);
        if (*config == nullptr) {
            Report("no memory for a cache configuration");
            return -1;
        }
    }
    return result;
}

void QUORFlashCacheConfigFree(FlashCacheConfig* config) {
    if (config != nullptr) {
        free(config->ssdPath);
        free(config);
    }
}

int QUORFlashCacheStatGet(const FlashCacheStatQuery* query, FlashCacheStat** stat) {
    if (stat == nullptr) {
        return -1;
    }
    *stat = nullptr;
    if (query == nullptr || query->selector != FLASH_CACHE_STAT_BY_SSD_PATH ||
        query->ssdPath == nullptr) {
        Report("cache status can be asked for by SSD path only");
        return -1;
    }
    CacheEntry cache;
    const int result = FindCacheBySsd(query->ssdPath, cache);
    if (result == 1) {
        auto* const record = static_cast<FlashCacheStat*>(calloc(1, sizeof(FlashCacheStat)));
        if (record == nullptr) {
            Report("no memory for a cache status");
            return -1;
        }
        record->state = cache.state;
        record->supportPin = cache.supportPin;
        *stat = record;
    }
    return result;
}

void QUORFlashCacheStatFree(FlashCacheStat** stat) {
    if (stat != nullptr) {
        free(*stat);
        *stat = nullptr;
    }
}
