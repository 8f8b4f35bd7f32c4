// SPDX-License-Identifier: MIT
#include <string.h>
#include <unistd.h>

#include <algorithm>

#include "softcache/pin_store.h"
#include "softcache/serve/control_commands.h"
#include "softcache/serve/device_ioctl.h"
#include "tests/faults/readers/readers.h"

namespace readers {

namespace {

constexpr uint64_t kDeviceSize = 37 * uint64_t{65536};
constexpr uint32_t kSlots = 4;
constexpr uint32_t kRequests[] = {FLASH_CACHE_SET_PIN_BITMAP, FLASH_CACHE_UNPIN_RANGES, 0x80081272,
                                  0x80041272};

// A served cache of 37 units on files in memory.
struct Served {
    MemoryFile backing{Bytes(kDeviceSize, 'b')};
    MemoryFile ssd{Bytes(size_t{kSlots} * 65536, 's')};
    softcache::ServedCache cache{backing.Fd(),
                                 ssd.Fd(),
                                 kDeviceSize,
                                 kSlots,
                                 OwnDirectory() + "/ssd.pins",
                                 OwnDirectory() + "/registry",
                                 softcache::RegistryRecord()};
};

Served& OneServed() {
    static Served served;
    return served;
}

}  // namespace

void ReadControlText(const Bytes& bytes) {
    std::vector<softcache::ControlCommand> commands;
    softcache::ParseControlText(bytes, commands);
}

// The first byte chooses the request and the width of pointers, and whether the rest is the
// argument or a bitmap that a descriptor points to.
void ReadControlRequest(const Bytes& bytes) {
    if (bytes.empty()) {
        return;
    }
    const auto choice = static_cast<uint8_t>(bytes[0]);
    const softcache::Caller caller = {getpid(), (choice & 4) != 0 ? 4U : 8U};
    softcache::IoctlReply reply;
    // As long as the longest argument: what lies behind shorter ones is zero.
    std::vector<uint8_t> argument(std::max(kUnpinBatchBytes, bytes.size()), 0);
    std::copy(bytes.begin() + 1, bytes.end(), argument.begin());
    uint8_t descriptor[softcache::kMaxDescriptorBytes] = {};
    const auto address = reinterpret_cast<uintptr_t>(argument.data());
    const auto size = static_cast<uint32_t>(bytes.size() - 1);
    memcpy(descriptor, &address, sizeof(address));
    memcpy(descriptor + sizeof(address), &size, sizeof(size));
    const void* const told =
        (choice & 8) != 0 ? static_cast<const void*>(descriptor) : argument.data();

    softcache::DeviceIoctl(OneServed().cache, caller, kRequests[choice & 3],
                           reinterpret_cast<uintptr_t>(told), reply);
    softcache::StatsText(OneServed().cache);
}

void ReadStoredPins(const Bytes& bytes) {
    std::vector<uint8_t> bitmap;
    std::string reason;

    WriteFile(OwnDirectory() + "/ssd.pins", bytes);
    softcache::LoadPins(OwnDirectory() + "/ssd.pins", 64, bitmap, reason);
    OneServed().cache.RestorePins();
}

}  // namespace readers
