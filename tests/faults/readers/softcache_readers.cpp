// SPDX-License-Identifier: MIT
#include <string.h>
#include <unistd.h>

#include <algorithm>

#include "softcache/serve/control_commands.h"
#include "softcache/serve/device_ioctl.h"
#include "softcache/store/ssd_recovery.h"
#include "tests/faults/readers/readers.h"

namespace readers {

namespace {

constexpr uint64_t kDeviceSize = 37 * uint64_t{65536};
constexpr uint32_t kSlots = 4;
constexpr size_t kSsdSize = size_t{1} << 20;
constexpr uint32_t kRequests[] = {FLASH_CACHE_SET_PIN_BITMAP, FLASH_CACHE_UNPIN_RANGES, 0x80081272,
                                  0x80041272};

// A served cache of 37 units on files in memory.
struct Served {
    Served() { store.Format({"one", "", "/backing"}, kDeviceSize, kSlots, 0); }

    MemoryFile backing{Bytes(kDeviceSize, 'b')};
    MemoryFile ssd{Bytes(kSsdSize, 's')};
    softcache::SsdStore store{softcache::Disk(ssd.Fd())};
    softcache::ServedCache cache{softcache::Disk(backing.Fd()),
                                 store,
                                 {},
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

// The first byte chooses the place on a formatted SSD that the rest is written over: the first
// head, the second, the pins or the table.
void ReadSsd(const Bytes& bytes) {
    if (bytes.empty()) {
        return;
    }
    const MemoryFile file(Bytes(kSsdSize, '\0'));
    const softcache::Disk disk(file.Fd());
    softcache::SsdStore made(disk);
    made.Format({"one", "", "/backing"}, kDeviceSize, kSlots, 0);
    made.WritePins({0xa5, 0, 1});
    const uint64_t places[] = {0, softcache::kPageBytes, softcache::kPinsStart,
                               TableStart(made.Head())};
    disk.Write(bytes.data() + 1, bytes.size() - 1, places[static_cast<uint8_t>(bytes[0]) % 4]);

    softcache::SsdStore store(disk);
    if (store.Load() == 1) {
        std::vector<uint8_t> bitmap;
        std::vector<softcache::WarmSlot> warm;
        softcache::RecoveryReport report;
        store.ReadPins(bitmap);
        RecoverTable(store, store.Head().deviceSize, warm, report);
    }
}

}  // namespace readers
