// SPDX-License-Identifier: MIT
// The volumes, as the service knows them, and which one a path belongs to.
#pragma once

#include <string>
#include <vector>

namespace client {

struct Volume {
    std::string mountPath;  // the reference path, byte for byte as the service compares it
    std::string uuid;       // empty when it is not known
};

// Stores the volumes in the platform's order. Returns false when they cannot be listed.
bool ListVolumes(std::vector<Volume>& volumes);

// Returns the absolute path of a file of a volume, as a request and the service name it.
std::string PathOnVolume(const std::string& mountPath, const std::string& relative);

// Returns the path below the volume's mount path, without a leading "/"; empty when the path does
// not lie below it. Both paths must be normal: absolute, no "." or "..", no "//".
std::string PathBelow(const std::string& mountPath, const std::string& path);

// Returns the volume with the longest mount path that is `path` or a directory above it, null when
// there is none. `path` must be normal.
const Volume* FindVolumeOf(const std::string& path, const std::vector<Volume>& volumes);

// Returns the volume that is mounted there, null when there is none.
const Volume* FindMounted(const std::string& mountPath, const std::vector<Volume>& volumes);

// Why a path lies on none of the volumes: the rest of a sentence. Who is not root may be shown less
// than there is.
std::string WhyOnNoVolume();

// Why there is no volume at a mount path: the rest of a sentence that begins with the volume. That
// nothing is mounted there, or that only root can tell what is.
std::string WhyNotThere(const std::string& mountPath);

// Resolves what was given as VOLUME: a mount path or any existing path in it, with or without
// trailing slashes. Returns null, with the reason in `why`, when no volume is meant.
const Volume* ResolveVolume(const std::string& given, const std::vector<Volume>& volumes,
                            std::string& why);

// Whether the volume has a cache that keeps pinned units now. Without one the service drops the
// volume's requests and forgets what is pinned there.
bool VolumeKeepsPins(const Volume& volume);

}  // namespace client
