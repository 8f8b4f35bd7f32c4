// SPDX-License-Identifier: MIT
// The fixture of the command's tests: a volume that is a directory, with a cache that keeps pins,
// and files whose extents the test says.
#pragma once

#include <stdint.h>

#include <string>
#include <vector>

#include "client/request/file_check.h"
#include "client/volume/units.h"
#include "tests/unit/support/unit_test.h"

namespace client {

class ClientTest : public UnitTest {
  protected:
    static constexpr uint64_t kUnit = 128;                // sectors
    static constexpr uint64_t kDeviceSize = 64ULL << 20;  // 1024 units, a bitmap of 128 bytes

    void SetUp() override;
    void TearDown() override;

    // Makes a file of the volume; returns its absolute path.
    std::string Make(const std::string& relative, const std::string& content = "x");

    // Says where a file lies: device start sector and number of sectors of each extent.
    static void Place(const std::string& path,
                      const std::vector<std::pair<uint64_t, uint64_t>>& extents);

    // Makes a file of the volume that lies in `count` units from `unit`; returns its path.
    std::string MakeAt(const std::string& relative, uint64_t unit, uint64_t count = 1);

    // Writes the volume's bitmap file with these units set.
    void WriteBitmap(const std::vector<uint64_t>& units);

    // A cache of 1 MiB that tells: bytes of what it holds and of the bitmap that it was given.
    void LetTheCacheTell(const std::string& resident, const std::string& pinned);

    // The volumes as the command lists them.
    static std::vector<Volume> Volumes();

    // A file as the command examines it; the test fails when it is refused.
    static FileRef Examine(const std::string& path, const std::vector<Volume>& volumes);

    std::string mount_;   // mount path of the volume
    std::string device_;  // its cached device

  private:
    int lock_ = -1;  // of the cache that tells
};

// The same, in an IPC namespace of its own in which the service's queue can be made.
class QueueClientTest : public ClientTest {
  protected:
    void SetUp() override;

    // Makes the queue and its key file as the service does, with room for so many requests. Returns
    // its id.
    int MakeQueue(size_t requests = 1024);
};

// The low half of a file's inode number.
uint32_t InodeOf(const std::string& path);

}  // namespace client
