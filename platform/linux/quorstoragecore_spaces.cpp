// SPDX-License-Identifier: MIT
// libquorstoragecore for plain Linux: the list of spaces.
#include <stdlib.h>
#include <string.h>

#include "platform/linux/report.h"
#include "platform/linux/volumes.h"
#include "platform/quorstoragecore.h"

using namespace stand_in;

namespace stand_in {
const char* const kLibraryName = "libquorstoragecore";
}

namespace {

constexpr int kAllSpaces = 1;

// What a node of the list really is; callers see the record it begins with.
struct SpaceNode {
    SpaceInfo info;
    char* uuid;
};

SpaceNode* NewNode(const Volume& volume) {
    auto* const node = static_cast<SpaceNode*>(calloc(1, sizeof(SpaceNode)));
    char* const uuid = strdup(volume.uuid.c_str());
    if (node == nullptr || uuid == nullptr) {
        free(node);
        free(uuid);
        return nullptr;
    }
    memcpy(node->info.referencePath, volume.mountPoint.c_str(), volume.mountPoint.size() + 1);
    node->uuid = uuid;
    return node;
}

}  // namespace

int QUORSpaceInfoEnum(int kind, SpaceInfo** list) {
    if (kind != kAllSpaces || list == nullptr) {
        Report("spaces of kind %d are not known; kind %d is", kind, kAllSpaces);
        return -1;
    }
    const std::shared_ptr<const VolumeListing> mounted = ListVolumes();
    if (!mounted) {
        return -1;
    }
    SpaceInfo* first = nullptr;
    SpaceInfo** end = &first;
    for (const Volume& volume : mounted->volumes) {
        SpaceNode* const node = NewNode(volume);
        if (node == nullptr) {
            Report("no memory for the list of spaces");
            QUORSpaceInfoFree(first);
            return -1;
        }
        *end = &node->info;
        end = &node->info.next;
    }
    *list = first;
    return 0;
}

void QUORSpaceInfoFree(SpaceInfo* list) {
    while (list != nullptr) {
        auto* const node = reinterpret_cast<SpaceNode*>(list);
        list = list->next;
        free(node->uuid);
        free(node);
    }
}

char* QUORSpaceUUIDGet(const SpaceInfo* space) {
    return space == nullptr ? nullptr : strdup(reinterpret_cast<const SpaceNode*>(space)->uuid);
}
