// SPDX-License-Identifier: MIT
#include "softcache/store/signature.h"

#include <blkid/blkid.h>

#include <memory>

namespace softcache {

constexpr int kAmbiguous = -2;  // of libblkid's safe probe

struct FreeProbe {
    void operator()(blkid_probe probe) const { blkid_free_probe(probe); }
};

static std::string Value(blkid_probe probe, const char* name) {
    const char* value = nullptr;
    return blkid_probe_lookup_value(probe, name, &value, nullptr) == 0 ? value : "";
}

static std::string Describe(blkid_probe probe) {
    const std::string type = Value(probe, "TYPE");
    if (type.empty()) {
        return "a " + Value(probe, "PTTYPE") + " partition table";
    }
    const std::string article =
        std::string("aeio").find(type[0]) == std::string::npos ? "a " : "an ";
    return article + type + (Value(probe, "USAGE") == "filesystem" ? " file system" : "");
}

std::string FindSignature(int fd, const std::string& path, Signature& found) {
    const std::unique_ptr<blkid_struct_probe, FreeProbe> owner(blkid_new_probe());
    blkid_probe probe = owner.get();
    if (probe == nullptr || blkid_probe_set_device(probe, fd, 0, 0) != 0) {
        return path + ": cannot be examined";
    }
    blkid_probe_enable_superblocks(probe, 1);
    blkid_probe_set_superblocks_flags(probe,
                                      BLKID_SUBLKS_UUID | BLKID_SUBLKS_TYPE | BLKID_SUBLKS_USAGE);
    blkid_probe_enable_partitions(probe, 1);
    const int result = blkid_do_safeprobe(probe);
    if (result < 0 && result != kAmbiguous) {
        return path + ": cannot be examined";
    }
    found = Signature();
    if (result == kAmbiguous) {
        found.what = "more than one file system or the like";
    } else if (result == 0) {
        found.what = Describe(probe);
        found.uuid = Value(probe, "UUID");
    }
    return "";
}

}  // namespace softcache
