// SPDX-License-Identifier: MIT
#include "util/space.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "platform/quorflashcache.h"
#include "util/log.h"
#include "util/scoped.h"

namespace {

constexpr char kBitmapFileName[] = "quorcachepinfile.bitmap";
constexpr int kSpaceEnumKind = 1;
constexpr size_t kPathSize = 512;

struct SpaceListDeleter {
    void operator()(SpaceInfo* list) const { QUORSpaceInfoFree(list); }
};
using SpaceList = std::unique_ptr<SpaceInfo, SpaceListDeleter>;

// Returns false when the spaces cannot be listed.
bool EnumSpaces(SpaceList& list) {
    SpaceInfo* first = nullptr;
    int result = QUORSpaceInfoEnum(kSpaceEnumKind, &first);

    list.reset(first);  // whatever the result: a failure may have stored what it had found
    return result >= 0;
}

bool SameText(const char* left, const char* right) {
    size_t length = strlen(left);

    return strlen(right) == length && memcmp(left, right, length) == 0;
}

}  // namespace

char* SpaceGetUUID(const char* mountPath) {
    SpaceList list;
    char* uuid = nullptr;

    if (!EnumSpaces(list)) {
        LogError("Can't enum spaces");
        return nullptr;
    }
    for (const SpaceInfo* space = list.get(); space != nullptr; space = space->next) {
        if (strcmp(space->referencePath, mountPath) == 0) {
            uuid = QUORSpaceUUIDGet(space);
            break;
        }
    }
    LogVerbose("Get UUID = %s", uuid);
    return uuid;
}

char* SpaceGetReferencePath(const char* uuid) {
    SpaceList list;

    if (!EnumSpaces(list)) {
        LogError("Can't enum spaces");
        return nullptr;
    }
    for (const SpaceInfo* space = list.get(); space != nullptr; space = space->next) {
        CString spaceUuid(QUORSpaceUUIDGet(space));
        if (spaceUuid == nullptr) {
            LogError("Get space uuid failed");
            return nullptr;
        }
        if (SameText(uuid, spaceUuid.get())) {
            char* path = strdup(space->referencePath);
            LogVerbose("Get reference path = %s", path);
            return path;
        }
    }
    return nullptr;
}

FlashCacheConfig* SpaceGetCacheConfig(const char* uuid) {
    FlashCacheConfigQuery query = {};
    FlashCacheConfig* config = nullptr;

    query.selector = FLASH_CACHE_CONFIG_BY_SPACE_UUID;
    query.spaceUuid = uuid;
    int result = QUORFlashCacheConfigTmpGet(&query, &config);
    if (result == 0) {
        LogVerbose("Can't find cache in the config file. Space UUID is (%s)", uuid);
    } else if (result == -1) {
        LogError("Fail to get SSD cache config");
    }
    return config;
}

int SpaceHasCache(const char* uuid) {
    FlashCacheConfig* config = SpaceGetCacheConfig(uuid);

    if (config == nullptr) {
        LogVerbose("Space (%s) doesn't be found in the config", uuid);
        return 0;
    }
    // The number says that the check itself went well, whatever it found.
    LogVerbose("Check Space (%s) ret=%d", uuid, 0);
    QUORFlashCacheConfigFree(config);
    return 1;
}

char* SpaceGetCacheSsdPath(const char* uuid) {
    FlashCacheConfig* config = SpaceGetCacheConfig(uuid);

    if (config == nullptr) {
        return nullptr;
    }
    char* path = config->ssdPath == nullptr ? nullptr : strdup(config->ssdPath);
    QUORFlashCacheConfigFree(config);
    return path;
}

char* BitmapPathByDirectory(const char* directory) {
    char path[kPathSize] = {};

    snprintf(path, sizeof(path), "%s/%s", directory, kBitmapFileName);
    return strdup(path);
}

char* SpaceGetBitmapPath(const char* uuid) {
    CString directory(SpaceGetReferencePath(uuid));

    if (directory == nullptr) {
        LogError("Can't get reference path");
        return nullptr;
    }
    char* path = BitmapPathByDirectory(directory.get());
    if (path == nullptr) {
        LogError("Can't get bitmap path");
    }
    return path;
}

int SpaceHasCacheAndSupportPinByUUID(const char* uuid) {
    FlashCacheStatQuery query = {};
    FlashCacheStat* stat = nullptr;
    int support = 0;

    if (SpaceHasCache(uuid) == 0) {
        LogVerbose("Space (UUID = %s) doesn't has cache", uuid);
        return 0;
    }
    CString ssdPath(SpaceGetCacheSsdPath(uuid));
    if (ssdPath == nullptr) {
        LogError("Can't get cache's ssd path");
        return 0;
    }
    query.selector = FLASH_CACHE_STAT_BY_SSD_PATH;
    query.ssdPath = ssdPath.get();
    if (QUORFlashCacheStatGet(&query, &stat) <= 0) {
        LogVerbose(
            "Failed to get status of flashcache, ssd = %s. (Might be due to cache is not "
            "estabilied yet)",
            ssdPath.get());
    } else if (stat != nullptr) {
        LogVerbose("supportPin=%d", stat->supportPin);
        support = stat->state == 1 && stat->supportPin == 1 ? 1 : 0;
    }
    if (stat != nullptr) {
        QUORFlashCacheStatFree(&stat);
    }
    return support;
}

int SpaceHasCacheAndSupportPin(const char* mountPath) {
    CString uuid(SpaceGetUUID(mountPath));

    if (uuid == nullptr) {
        LogError("Can't get space uuid from mount path (%s)", mountPath);
        return 0;
    }
    int support = SpaceHasCacheAndSupportPinByUUID(uuid.get());
    if (support == 1) {
        LogVerbose("Volume (%s) support pin", mountPath);
    }
    return support;
}

char* SpaceGetCachePath(const char* uuid) {
    char path[kPathSize] = {};
    CString ssdPath(SpaceGetCacheSsdPath(uuid));

    if (ssdPath == nullptr) {
        LogError("Can't get cache's ssd path");
        return nullptr;
    }
    if (QUORFlashcacheGetCachePath(ssdPath.get(), path, sizeof(path)) != 1) {
        LogError("Can't get cache path");
        return nullptr;
    }
    path[sizeof(path) - 1] = '\0';  // a library that fills the buffer must not make us read on
    return strdup(path);
}

char* SpaceGetCachePathByMountPath(const char* mountPath) {
    CString uuid(SpaceGetUUID(mountPath));

    if (uuid == nullptr) {
        LogError("Can't get space uuid from reference path (%s)", mountPath);
        return nullptr;
    }
    char* path = SpaceGetCachePath(uuid.get());
    if (path == nullptr) {
        LogError("Can't get cache path");
    }
    return path;
}
