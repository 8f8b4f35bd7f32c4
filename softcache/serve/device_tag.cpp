// SPDX-License-Identifier: MIT
#include "softcache/serve/device_tag.h"

#include <blkid/blkid.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <algorithm>
#include <fstream>
#include <iterator>

namespace softcache {

constexpr const char* kTypes[] = {"UUID", "LABEL", "PARTUUID", "PARTLABEL"};

// Whether it is a loop device on what a cache has mounted; the kernel tells the path without its
// beginning when the mount has been taken away meanwhile.
static bool IsServed(const std::string& path) {
    struct stat status {};
    if (stat(path.c_str(), &status) != 0) {
        return false;
    }
    const std::string number =
        std::to_string(major(status.st_rdev)) + ":" + std::to_string(minor(status.st_rdev));
    std::ifstream file("/sys/dev/block/" + number + "/loop/backing_file");
    std::string backing;
    std::getline(file, backing);
    const std::string end = "/device";
    return backing.size() >= end.size() &&
           backing.compare(backing.size() - end.size(), end.size(), end) == 0;
}

static std::string FindTagged(blkid_cache cache, const std::string& type,
                              const std::string& value) {
    std::string found;
    blkid_dev_iterate each = blkid_dev_iterate_begin(cache);
    blkid_dev_set_search(each, type.c_str(), value.c_str());
    blkid_dev device = nullptr;
    while (found.empty() && blkid_dev_next(each, &device) == 0) {
        device = blkid_verify(cache, device);
        if (device != nullptr && !IsServed(blkid_dev_devname(device))) {
            found = blkid_dev_devname(device);
        }
    }
    blkid_dev_iterate_end(each);
    return found;
}

std::string ResolveTag(std::string& text) {
    const size_t equals = text.find('=');
    const std::string type = text.substr(0, equals);
    if (equals == std::string::npos ||
        std::find(std::begin(kTypes), std::end(kTypes), type) == std::end(kTypes)) {
        return "";
    }
    blkid_cache cache = nullptr;
    // Looked at afresh: what was found by an earlier look may be another device by now.
    if (blkid_get_cache(&cache, "/dev/null") != 0) {
        return "no block device can be looked for";
    }
    blkid_probe_all(cache);
    const std::string found = FindTagged(cache, type, text.substr(equals + 1));
    blkid_put_cache(cache);
    if (found.empty()) {
        return "no block device has " + text;
    }
    text = found;
    return "";
}

}  // namespace softcache
