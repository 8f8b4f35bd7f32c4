// SPDX-License-Identifier: MIT
#include "softcache/store/ssd_store.h"

#include <errno.h>
#include <sys/random.h>

#include <algorithm>
#include <utility>

namespace softcache {

static uint32_t RandomSeed(uint32_t other) {
    uint32_t seed = other;
    while (seed == other) {
        (void)!getrandom(&seed, sizeof(seed), 0);
    }
    return seed;
}

static uint64_t HeadPlace(uint64_t sequence) {
    return (sequence % 2) * kPageBytes;
}

int SsdStore::Load() {
    bool found = false;
    for (const uint64_t place : {HeadPlace(0), HeadPlace(1)}) {
        const AlignedBytes page = AllocateAligned(kPageBytes);
        const int result =
            ssd_.Size() < place + kPageBytes ? -ENODATA : ssd_.Read(page.get(), kPageBytes, place);
        SsdHead head;
        if (result != 0 && result != -ENODATA) {
            return result;
        }
        if (result == 0 && DecodeHead(page.get(), head) &&
            (!found || head.sequence > head_.sequence)) {
            head_ = std::move(head);
            found = true;
        }
    }
    return found ? 1 : 0;
}

// Until the new head is there the SSD is nobody's.
int SsdStore::Format(const SsdIdentity& identity, uint64_t deviceSize, uint32_t slots,
                     uint32_t flags) {
    const AlignedBytes zeros = AllocateAligned(kPinsStart);
    std::fill_n(zeros.get(), kPinsStart, uint8_t{0});
    int result = ssd_.Write(zeros.get(), kPinsStart, 0);
    if (result == 0) {
        result = ssd_.Sync();
    }
    if (result != 0) {
        return result;
    }
    head_ = SsdHead();
    (void)!getrandom(head_.id.data(), head_.id.size(), 0);
    head_.deviceSize = deviceSize;
    head_.pinsRoom = PinsRoomFor(deviceSize);
    head_.slots = slots;
    head_.tableSeed = RandomSeed(0);
    head_.flags = flags;
    head_.identity = identity;
    pinsSequence_ = 0;
    result = WriteTable(head_.tableSeed, std::vector<TableEntry>(slots));
    if (result == 0) {
        result = WritePins({});
    }
    return result == 0 ? WriteHead({}) : result;
}

int SsdStore::Adopt(const SsdIdentity& identity, uint64_t deviceSize, uint32_t slots,
                    uint32_t flags) {
    const uint32_t seed = head_.tableSeed;
    if (PinsRoomFor(deviceSize) > head_.pinsRoom) {
        // The pins must lie in the first place then, which is the same in the old and new layout.
        std::vector<uint8_t> bitmap;
        int result = ReadPins(bitmap);
        while (result >= 0 && PinsPlace(head_, pinsSequence_) != kPinsStart) {
            result = WritePins(bitmap);
        }
        if (result < 0) {
            return result;
        }
        head_.pinsRoom = PinsRoomFor(deviceSize);
        InvalidateTable();
    }
    if (slots != head_.slots) {
        InvalidateTable();
    }
    head_.slots = slots;
    head_.deviceSize = deviceSize;
    head_.identity = identity;
    head_.flags = flags;
    // Before a byte of another layout is written.
    return head_.tableSeed == seed ? 0 : WriteHead({});
}

void SsdStore::InvalidateTable() {
    const std::lock_guard<std::mutex> lock(mutex_);
    head_.tableSeed = RandomSeed(head_.tableSeed);
}

int SsdStore::SetUuid(const std::string& uuid) {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (head_.identity.uuid == uuid) {
        return 0;
    }
    const std::string known = std::exchange(head_.identity.uuid, uuid);
    const int result = PutHeadInUse();
    if (result != 0) {
        head_.identity.uuid = known;
    }
    return result;
}

int SsdStore::WriteHead(std::vector<uint32_t> open) {
    const std::lock_guard<std::mutex> lock(mutex_);
    head_.open = std::move(open);
    return PutHeadInUse();
}

// One that is shorter than a page is marked as if zeros followed. Returns 0 or -errno.
static int ReadMark(const Disk& backing, uint32_t& mark) {
    PageBytes first{};
    const auto size = static_cast<size_t>(std::min<uint64_t>(backing.Size(), first.size()));
    const int result = backing.Read(first.data(), size, 0);
    mark = MarkOf(first);
    return result;
}

int SsdStore::WriteLastHead(const Disk& backing) {
    uint32_t mark = 0;
    const bool known = ReadMark(backing, mark) == 0;
    const std::lock_guard<std::mutex> lock(mutex_);
    head_.open.clear();
    head_.flags |= kStoppedInOrder | (known ? uint32_t{kBackingMarked} : 0);
    head_.backingMark = known ? mark : 0;
    return PutHead();
}

bool SsdStore::IsChanged(const Disk& backing) const {
    uint32_t mark = 0;
    return (head_.flags & kBackingMarked) != 0 && ReadMark(backing, mark) == 0 &&
           mark != head_.backingMark;
}

// This one and the next under the mutex.
int SsdStore::PutHeadInUse() {
    head_.flags &= ~uint32_t{kStoppedInOrder | kBackingMarked};
    head_.backingMark = 0;
    return PutHead();
}

int SsdStore::PutHead() {
    ++head_.sequence;
    const AlignedBytes page = AllocateAligned(kPageBytes);
    const PageBytes bytes = EncodeHead(head_);
    std::copy(bytes.begin(), bytes.end(), page.get());
    const int result = ssd_.Write(page.get(), kPageBytes, HeadPlace(head_.sequence));
    return result == 0 ? ssd_.Sync() : result;
}

int SsdStore::ReadTable(std::vector<TableEntry>& entries, uint32_t& broken) const {
    constexpr uint32_t kPagesAtOnce = 64;
    const uint32_t pages = TablePages(head_.slots);
    const AlignedBytes bytes = AllocateAligned(kPagesAtOnce * kPageBytes);
    entries.assign(size_t{pages} * kPageEntries, TableEntry());
    broken = 0;
    for (uint32_t first = 0; first < pages; first += kPagesAtOnce) {
        const uint32_t count = std::min(kPagesAtOnce, pages - first);
        const int result = ssd_.Read(bytes.get(), count * kPageBytes,
                                     TableStart(head_) + uint64_t{first} * kPageBytes);
        if (result != 0) {
            return result;
        }
        for (uint32_t i = 0; i < count; ++i) {
            broken += DecodeTablePage(head_.tableSeed, first + i, bytes.get() + i * kPageBytes,
                                      entries.data() + size_t{first + i} * kPageEntries);
        }
    }
    entries.resize(head_.slots);
    return 0;
}

int SsdStore::WriteTablePage(uint32_t seed, uint32_t page, const TableEntry* entries) const {
    static thread_local const AlignedBytes aligned = AllocateAligned(kPageBytes);
    const PageBytes bytes = EncodeTablePage(seed, page, entries);
    std::copy(bytes.begin(), bytes.end(), aligned.get());
    return ssd_.Write(aligned.get(), kPageBytes, TableStart(head_) + uint64_t{page} * kPageBytes);
}

int SsdStore::WriteTable(uint32_t seed, std::vector<TableEntry> entries) const {
    constexpr uint32_t kPagesAtOnce = 64;
    const uint32_t pages = TablePages(head_.slots);
    const AlignedBytes bytes = AllocateAligned(kPagesAtOnce * kPageBytes);
    entries.resize(size_t{pages} * kPageEntries);
    for (uint32_t first = 0; first < pages; first += kPagesAtOnce) {
        const uint32_t count = std::min(kPagesAtOnce, pages - first);
        for (uint32_t i = 0; i < count; ++i) {
            const TableEntry* of = entries.data() + size_t{first + i} * kPageEntries;
            const PageBytes page = EncodeTablePage(seed, first + i, of);
            std::copy(page.begin(), page.end(), bytes.get() + i * kPageBytes);
        }
        const int result = ssd_.Write(bytes.get(), count * kPageBytes,
                                      TableStart(head_) + uint64_t{first} * kPageBytes);
        if (result != 0) {
            return result;
        }
    }
    return ssd_.Sync();
}

int SsdStore::ReadPins(std::vector<uint8_t>& bitmap) {
    pinsSequence_ = 0;
    const AlignedBytes first = AllocateAligned(kPageBytes);
    for (uint64_t place = 0; place < 2; ++place) {
        PinsHeader pins;
        int result = ssd_.Read(first.get(), kPageBytes, PinsPlace(head_, place));
        if (result != 0) {
            return result;
        }
        if (!DecodePinsHeader(head_, first.get(), pins) || pins.sequence <= pinsSequence_) {
            continue;
        }
        const size_t bytes = kPinsHeaderBytes + static_cast<size_t>(pins.length);
        const AlignedBytes whole = AllocateAligned(bytes);
        result = ssd_.Read(whole.get(), (bytes + kPageBytes - 1) / kPageBytes * kPageBytes,
                           PinsPlace(head_, place));
        if (result != 0) {
            return result;
        }
        if (PinsAreWhole(pins, whole.get())) {
            pinsSequence_ = pins.sequence;
            bitmap.assign(whole.get() + kPinsHeaderBytes, whole.get() + bytes);
        }
    }
    return pinsSequence_ == 0 ? 0 : 1;
}

int SsdStore::WritePins(const std::vector<uint8_t>& bitmap) {
    const std::lock_guard<std::mutex> lock(mutex_);
    const std::vector<uint8_t> bytes = EncodePins(head_, pinsSequence_ + 1, bitmap);
    const AlignedBytes aligned = AllocateAligned(bytes.size());
    std::copy(bytes.begin(), bytes.end(), aligned.get());
    int result = ssd_.Write(aligned.get(), bytes.size(), PinsPlace(head_, pinsSequence_ + 1));
    if (result == 0) {
        result = ssd_.Sync();
    }
    if (result == 0) {
        ++pinsSequence_;
    }
    return result;
}

}  // namespace softcache
