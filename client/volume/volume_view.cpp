// SPDX-License-Identifier: MIT
#include "client/volume/volume_view.h"

#include <sys/stat.h>

#include <set>

#include "util/pin_bitmap.h"
#include "util/scoped.h"
#include "util/space.h"

namespace client {

namespace {

constexpr unsigned kDeviceToBitmapShift = 19;  // 8 bits of 64 KiB to a byte

std::string Text(const CString& text) {
    return text ? text.get() : "";
}

bool AreOfOneDevice(const Volume& left, const Volume& right) {
    return left.mountPath == right.mountPath || (!left.uuid.empty() && left.uuid == right.uuid) ||
           AreOneFile(BitmapPathOf(left), BitmapPathOf(right));
}

}  // namespace

std::string BitmapPathOf(const Volume& volume) {
    return Text(CString(BitmapPathByDirectory(volume.mountPath.c_str())));
}

VolumeView LookAt(const Volume& volume) {
    VolumeView view;
    view.mountPath = volume.mountPath;
    view.bitmapPath = BitmapPathOf(volume);
    if (!volume.uuid.empty() && SpaceHasCache(volume.uuid.c_str()) == 1) {
        view.cachePath = Text(CString(SpaceGetCachePath(volume.uuid.c_str())));
    }
    if (!view.cachePath.empty()) {
        DeviceGetSizeByte(view.cachePath.c_str(), &view.deviceSize);
        view.residency = ReadResidency(view.cachePath);
    }
    view.hasBitmap = ReadUnitSet(view.bitmapPath, view.bits);
    view.fileBytes = view.bits.Room() / 8;
    if (view.deviceSize > 0) {
        view.bits.Resize(static_cast<size_t>(view.deviceSize >> kDeviceToBitmapShift));
    }
    return view;
}

bool AreOneFile(const std::string& path, const std::string& other) {
    struct stat left = {};
    struct stat right = {};
    return stat(path.c_str(), &left) == 0 && stat(other.c_str(), &right) == 0 &&
           left.st_dev == right.st_dev && left.st_ino == right.st_ino;
}

std::vector<const Volume*> MountsOf(const Volume& volume, const std::vector<Volume>& volumes) {
    std::vector<const Volume*> mounts;
    std::set<std::string> seen;
    for (const Volume& other : volumes) {
        if (AreOfOneDevice(volume, other) && seen.insert(other.mountPath).second) {
            mounts.push_back(&other);
        }
    }
    return mounts;
}

}  // namespace client
