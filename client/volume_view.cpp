// SPDX-License-Identifier: MIT
#include "client/volume_view.h"

#include "util/pin_bitmap.h"
#include "util/scoped.h"
#include "util/space.h"

namespace {

constexpr unsigned kDeviceToBitmapShift = 19;  // 8 bits of 64 KiB to a byte

std::string Text(const CString& text) {
    return text ? text.get() : "";
}

}  // namespace

VolumeView LookAt(const Volume& volume) {
    VolumeView view;
    view.mountPath = volume.mountPath;
    view.bitmapPath = Text(CString(BitmapPathByDirectory(volume.mountPath.c_str())));
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
