// SPDX-License-Identifier: MIT
// The appliance's four libraries as a sysroot may have them for linking: the symbols, nothing
// behind them. Each library compiles its share.
#if defined(LIB_CORE)
#include "platform/quorcore.h"
int QLIBCFileGetKeyValue(const char*, const char*, char*, size_t, int) {
    return -1;
}
#elif defined(LIB_STORAGECORE)
#include "platform/quorstoragecore.h"
int QUORSpaceInfoEnum(int, SpaceInfo**) {
    return -1;
}
void QUORSpaceInfoFree(SpaceInfo*) {}
char* QUORSpaceUUIDGet(const SpaceInfo*) {
    return nullptr;
}
int QUORFlashCacheConfigTmpGet(const FlashCacheConfigQuery*, FlashCacheConfig**) {
    return -1;
}
void QUORFlashCacheConfigFree(FlashCacheConfig*) {}
int QUORFlashCacheStatGet(const FlashCacheStatQuery*, FlashCacheStat**) {
    return -1;
}
void QUORFlashCacheStatFree(FlashCacheStat**) {}
#elif defined(LIB_FLASHCACHE)
#include "platform/quorflashcache.h"
int QUORFlashcacheGetCachePath(const char*, char*, size_t) {
    return -1;
}
#elif defined(LIB_DATAVERIFIER)
#include "platform/quordataverifier.h"
int FileSystemDevice::GetDevicePath(const std::string&, std::string&, bool) {
    return -1;
}
FileSystemDevice* FileSystemDeviceCreater::Create(const std::string&) {
    return nullptr;
}
#endif
