// SPDX-License-Identifier: MIT
// What the SSD holds beside the units: head, pins and table, read and written. What it means stands
// in BlockCache.
#pragma once

#include <stdint.h>

#include <mutex>
#include <string>
#include <vector>

#include "softcache/store/disk.h"
#include "softcache/store/ssd_format.h"

namespace softcache {

// All functions that write return 0 with everything on stable storage, or -errno. Heads and pins
// may be written by any number of threads; what is read is read before there are several.
class SsdStore {
  public:
    explicit SsdStore(const Disk& ssd) : ssd_(ssd) {}

    // Goes on with the same SSD, opened another way.
    void Use(const Disk& ssd) { ssd_ = ssd; }

    // Reads the newest whole head: 1 when there is one, 0 when there is none, else -errno.
    int Load();

    // Makes it the SSD of a cold cache without pins, whatever it held. It has to have SsdBytes.
    int Format(const SsdIdentity& identity, uint64_t deviceSize, uint32_t slots, uint32_t flags);

    // Makes what Load found the SSD of this device, which may have grown, with so many slots. The
    // pins stay; the table stays unless the slots move. It takes effect with the next head.
    int Adopt(const SsdIdentity& identity, uint64_t deviceSize, uint32_t slots, uint32_t flags);

    // Nothing in the table counts any more from the next head on.
    void InvalidateTable();

    // Makes it the SSD of the volume with this UUID, by a head at once unless it is already.
    int SetUuid(const std::string& uuid);

    // Writes a head with these slots open, at most kMostOpen.
    int WriteHead(std::vector<uint32_t> open);
    // Writes the head of an orderly stop, with the backing's mark unless it cannot be read.
    int WriteLastHead(const Disk& backing);

    // Whether the backing's mark is another one than at the stop. False where none was kept, as
    // after a kill, and when the backing cannot be read.
    bool IsChanged(const Disk& backing) const;

    // As many lines as there are slots; `broken` sectors of the table hold none.
    int ReadTable(std::vector<TableEntry>& entries, uint32_t& broken) const;
    // Writes one page of kPageEntries lines, which count for as long as the head has this seed. Not
    // on stable storage before a sync.
    int WriteTablePage(uint32_t seed, uint32_t page, const TableEntry* entries) const;
    // Writes all of it; as many lines as there are slots.
    int WriteTable(uint32_t seed, std::vector<TableEntry> entries) const;

    // The newest pin bitmap that is whole. Returns 1, 0 when there is none, or -errno.
    int ReadPins(std::vector<uint8_t>& bitmap);
    int WritePins(const std::vector<uint8_t>& bitmap);

    const SsdHead& Head() const { return head_; }
    const Disk& Ssd() const { return ssd_; }

  private:
    int PutHeadInUse();
    int PutHead();

    Disk ssd_;
    std::mutex mutex_;  // guards writing, and what changes of the head
    SsdHead head_;
    uint64_t pinsSequence_ = 0;
};

}  // namespace softcache
