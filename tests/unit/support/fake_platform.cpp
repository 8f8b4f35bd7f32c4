// SPDX-License-Identifier: MIT
#include "tests/unit/support/fake_platform.h"

#include <gtest/gtest.h>
#include <stdio.h>
#include <string.h>

#include <algorithm>
#include <mutex>

#include "platform/quorcore.h"
#include "platform/quorflashcache.h"
#include "platform/quorstoragecore.h"
#include "tests/unit/support/fake_heap.h"

// Never destroyed, like all below: calls still come when the program ends.
FakePlatform& g_platform = *new FakePlatform;

namespace {

std::mutex g_mutex;
auto& g_held = *new std::map<const void*, std::string>;
auto& g_mappingsAnswered = *new std::map<std::string, size_t>;

void Record(const std::string& call) {
    {
        std::lock_guard<std::mutex> lock(g_mutex);
        g_platform.calls.push_back(call);
    }
    if (g_platform.onCall) {
        g_platform.onCall(call);
    }
}

template <typename Record>
Record* HandOut(Record* record, const std::string& label) {
    std::lock_guard<std::mutex> lock(g_mutex);
    g_held[record] = label;
    return record;
}

// Returns false, with a failure, for what is not held.
bool TakeBack(const void* record, const char* function) {
    std::lock_guard<std::mutex> lock(g_mutex);
    if (g_held.erase(record) == 0) {
        ADD_FAILURE() << function << " of a record that is not held";
        return false;
    }
    return true;
}

// An entry of an answer table, or null.
template <typename Map, typename Key>
const typename Map::mapped_type* Find(const Map& map, const Key& key) {
    auto found = map.find(key);
    return found == map.end() ? nullptr : &found->second;
}

std::string Text(const char* text) {
    return text == nullptr ? "null" : text;
}

// The library's own copy of a text inside one of its records, which the record's release deletes.
char* NewText(const std::string& text) {
    auto* copy = new char[text.size() + 1];
    memcpy(copy, text.c_str(), text.size() + 1);
    return copy;
}

class FakeDevice : public FileSystemDevice {
  public:
    ~FakeDevice() override {
        TakeBack(this, "~FileSystemDevice");
        Record("~FileSystemDevice()");
    }
    FakeDevice() = default;
    FakeDevice(const FakeDevice&) = delete;
    FakeDevice& operator=(const FakeDevice&) = delete;

    int GetType() const override {
        Record("GetType()");
        return 0;
    }

    int GetMappingTable(const std::string& directory, unsigned long inode, int flags,
                        FileMappingTable& table) override {
        Record("GetMappingTable(" + directory + ", " + std::to_string(inode) + ", " +
               std::to_string(flags) + ")");
        const std::vector<FakeMapping>* answers = Find(g_platform.mappings, inode);
        if (answers == nullptr || answers->empty()) {
            table.entries.clear();
            return 0;
        }
        std::lock_guard<std::mutex> lock(g_mutex);
        size_t& answered = g_mappingsAnswered[std::to_string(inode)];
        const FakeMapping& answer = (*answers)[std::min(answered++, answers->size() - 1)];
        table.entries = answer.entries;
        return answer.result;
    }
};

}  // namespace

void FakePlatform::AddVolume(const std::string& mountPath, const std::string& uuid,
                             const std::string& ssdPath, const std::string& cachePath) {
    spaces.push_back({mountPath, uuid});
    configs[uuid] = FakeCacheConfig{ssdPath};
    stats[ssdPath] = FakeCacheStat{};
    cachePaths[ssdPath] = FakeCachePath{cachePath};
}

int FakePlatform::Count(const std::string& function) const {
    std::lock_guard<std::mutex> lock(g_mutex);
    return static_cast<int>(std::count_if(calls.begin(), calls.end(), [&](const std::string& call) {
        return call.rfind(function + "(", 0) == 0;
    }));
}

void FakePlatformReset() {
    g_platform = FakePlatform{};
    g_held.clear();
    g_mappingsAnswered.clear();
}

std::vector<std::string> PlatformRecordsHeld() {
    std::lock_guard<std::mutex> lock(g_mutex);
    std::vector<std::string> labels;

    for (const auto& record : g_held) {
        labels.push_back(record.second);
    }
    return labels;
}

extern "C" {

int QLIBCFileGetKeyValue(const char* file, const char* key, char* value, size_t size, int flags) {
    bool zeroed = std::all_of(value, value + size, [](char byte) { return byte == '\0'; });

    Record(std::string("QLIBCFileGetKeyValue(") + file + ", " + key + ", " + std::to_string(size) +
           (zeroed ? " zeroed" : "") + ", " + std::to_string(flags) + ")");
    const FakeKeyValue* answer = Find(g_platform.settings, std::string(file) + ":" + key);
    if (answer == nullptr) {
        return 0;
    }
    if (answer->result > 0) {
        snprintf(value, size, "%s", answer->value.c_str());
    }
    return answer->result;
}

int QUORSpaceInfoEnum(int kind, SpaceInfo** list) {
    Record("QUORSpaceInfoEnum(" + std::to_string(kind) + ")");
    if (g_platform.enumResult < 0 && !g_platform.storesListOnFailure) {
        return g_platform.enumResult;
    }
    *list = nullptr;
    for (auto space = g_platform.spaces.rbegin(); space != g_platform.spaces.rend(); ++space) {
        auto* node = new SpaceInfo{};
        snprintf(node->referencePath, sizeof(node->referencePath), "%s",
                 space->referencePath.c_str());
        // The UUID lies elsewhere in the library; here it is kept in the node's reserved part.
        snprintf(node->reserved0, sizeof(node->reserved0), "%s",
                 space->hasUuid ? space->uuid.c_str() : "");
        node->next = *list;
        *list = node;
    }
    if (*list != nullptr) {
        HandOut(*list, "space list");
    }
    return g_platform.enumResult;
}

void QUORSpaceInfoFree(SpaceInfo* list) {
    Record("QUORSpaceInfoFree()");
    if (list != nullptr && TakeBack(list, "QUORSpaceInfoFree")) {
        while (list != nullptr) {
            SpaceInfo* next = list->next;
            delete list;
            list = next;
        }
    }
}

char* QUORSpaceUUIDGet(const SpaceInfo* space) {
    Record(std::string("QUORSpaceUUIDGet(") + space->referencePath + ")");
    if (space->reserved0[0] == '\0') {
        return nullptr;
    }
    char* uuid = nullptr;
    if (asprintf(&uuid, "%s", space->reserved0) < 0) {
        return nullptr;
    }
    HeapWatchAdd(uuid, "UUID text");
    return uuid;
}

int QUORFlashCacheConfigTmpGet(const FlashCacheConfigQuery* query, FlashCacheConfig** config) {
    bool clean = query->reserved0[0] == 0 && query->reserved0[1] == 0 && query->reserved1[0] == 0 &&
                 query->reserved1[1] == 0;

    Record("QUORFlashCacheConfigTmpGet(" + std::to_string(query->selector) + ", " +
           Text(query->spaceUuid) + (clean ? ")" : ", reserved words set)"));
    const FakeCacheConfig* answer = Find(g_platform.configs, Text(query->spaceUuid));
    if (answer == nullptr) {
        return 0;
    }
    if (answer->stored) {
        auto* record = new FlashCacheConfig{};
        record->ssdPath = answer->hasSsdPath ? NewText(answer->ssdPath) : nullptr;
        *config = HandOut(record, "config " + answer->ssdPath);
    }
    return answer->result;
}

void QUORFlashCacheConfigFree(FlashCacheConfig* config) {
    Record("QUORFlashCacheConfigFree()");
    if (TakeBack(config, "QUORFlashCacheConfigFree")) {
        delete[] config->ssdPath;
        delete config;
    }
}

int QUORFlashCacheStatGet(const FlashCacheStatQuery* query, FlashCacheStat** stat) {
    bool clean = query->reserved[0] == 0 && query->reserved[1] == 0;

    Record("QUORFlashCacheStatGet(" + std::to_string(query->selector) + ", " +
           Text(query->ssdPath) + (clean ? ")" : ", reserved words set)"));
    const FakeCacheStat* answer = Find(g_platform.stats, Text(query->ssdPath));
    if (answer == nullptr) {
        return 0;
    }
    if (answer->stored) {
        auto* record = new FlashCacheStat{};
        record->state = answer->state;
        record->supportPin = answer->supportPin;
        *stat = HandOut(record, "stat " + Text(query->ssdPath));
    }
    return answer->result;
}

void QUORFlashCacheStatFree(FlashCacheStat** stat) {
    Record("QUORFlashCacheStatFree()");
    if (TakeBack(*stat, "QUORFlashCacheStatFree")) {
        delete *stat;
        *stat = nullptr;
    }
}

int QUORFlashcacheGetCachePath(const char* ssdPath, char* path, size_t size) {
    bool zeroed = std::all_of(path, path + size, [](char byte) { return byte == '\0'; });

    Record(std::string("QUORFlashcacheGetCachePath(") + ssdPath + ", " + std::to_string(size) +
           (zeroed ? " zeroed)" : ")"));
    const FakeCachePath* answer = Find(g_platform.cachePaths, std::string(ssdPath));
    if (answer == nullptr) {
        return 0;
    }
    // As a library that trusts its caller: cut to the buffer, with no terminator when it is full.
    memcpy(path, answer->path.data(), std::min(size, answer->path.size()));
    return answer->result;
}

}  // extern "C"

int FileSystemDevice::GetDevicePath(const std::string& path, std::string& devicePath, bool flag) {
    Record("GetDevicePath(" + path + ", " + (flag ? "true" : "false") + ")");
    devicePath = g_platform.devicePath;
    return g_platform.devicePathResult;
}

FileSystemDevice* FileSystemDeviceCreater::Create(const std::string& devicePath) {
    Record("Create(" + devicePath + ")");
    return g_platform.createsDevice ? HandOut(new FakeDevice, "file system device") : nullptr;
}
