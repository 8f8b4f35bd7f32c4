// SPDX-License-Identifier: MIT
#include "softcache/store/examination.h"

#include <string.h>

#include <algorithm>

#include "softcache/store/signature.h"

namespace softcache {

constexpr uint64_t kLookedAt = 1 << 20;  // bytes that have to be zeros where nothing is known

// A cut path is the same as far as it goes.
static bool SamePath(const std::string& held, const std::string& wanted) {
    constexpr size_t kStored = 288;
    return held == wanted.substr(0, kStored);
}

bool IsSameVolume(const SsdIdentity& held, const SsdIdentity& wanted) {
    if (!held.uuid.empty() && !wanted.uuid.empty()) {
        return held.uuid == wanted.uuid;
    }
    return held.name == wanted.name && SamePath(held.backing, wanted.backing);
}

static std::string Describe(const SsdIdentity& identity) {
    return "the cache " + identity.name + " of " + identity.backing +
           (identity.uuid.empty() ? "" : ", UUID " + identity.uuid);
}

std::string ExamineBacking(int fd, std::string& uuid) {
    SsdStore store{Disk(fd)};
    const int result = store.Load();
    if (result < 0) {
        return strerror(-result);
    }
    if (result == 1) {
        return "is the SSD of " + Describe(store.Head().identity);
    }
    Signature signature;
    std::string wrong = FindSignature(fd, "it", signature);
    uuid = signature.uuid;
    return wrong;
}

// 1, 0 or -errno.
static int HoldsOnlyZeros(const Disk& ssd) {
    const auto size = static_cast<size_t>(std::min(ssd.Size(), kLookedAt));
    const AlignedBytes bytes = AllocateAligned(size);
    const int result = ssd.Read(bytes.get(), size, 0);
    if (result != 0) {
        return result;
    }
    return std::all_of(bytes.get(), bytes.get() + size, [](uint8_t byte) { return byte == 0; });
}

static std::string LookForSignature(const Disk& ssd, Examination& result) {
    Signature signature;
    std::string wrong = FindSignature(ssd.Fd(), "it", signature);
    if (!wrong.empty()) {
        return wrong;
    }
    if (!signature.what.empty()) {
        result.found =
            "holds " + signature.what + (signature.uuid.empty() ? "" : ", UUID " + signature.uuid);
        return "";
    }
    const int zeros = HoldsOnlyZeros(ssd);
    if (zeros < 0) {
        return strerror(-zeros);
    }
    result.kind = zeros == 1 ? SsdKind::kEmpty : SsdKind::kElse;
    result.found = "holds data, and no cache";
    return "";
}

std::string ExamineSsd(SsdStore& store, const SsdIdentity& wanted, Examination& result) {
    result = Examination();
    const Disk& ssd = store.Ssd();
    if (ssd.Size() == 0) {
        result.kind = SsdKind::kEmpty;
        return "";
    }
    const int loaded = store.Load();
    if (loaded < 0) {
        return strerror(-loaded);
    }
    if (loaded == 0) {
        return LookForSignature(ssd, result);
    }
    result.kind = IsSameVolume(store.Head().identity, wanted) ? SsdKind::kOurs : SsdKind::kElse;
    result.found = "holds " + Describe(store.Head().identity);
    return "";
}

}  // namespace softcache
