// SPDX-License-Identifier: MIT
// Files on a real volume, their mapping tables, and the proof that a table is right: the bytes at
// its places in the volume's image are the file's.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "platform/quordataverifier.h"
#include "tests/unit/platform/scratch.h"

constexpr size_t kBlock = 4096;  // bytes of a file-system block on the test volumes
constexpr uint64_t kBlockSectors = kBlock / 512;

class MappingTest : public ScratchTest {
  protected:
    // Makes, mounts and opens the volume; its files are 4096-byte blocks.
    void UseVolume(const std::string& fsType, std::vector<std::string> options = {});

    // The mapping call's result for the file at VOLUME/NAME; the table comes in `table`.
    int Map(const std::string& name, FileMappingTable& table);

    // As above for a call that must succeed.
    FileMappingTable MapFile(const std::string& name);

    // Writes out what the volume holds back, so that the image has it.
    void Sync() const;

    // The image's bytes at the table's places, in file order; zeros where the table has no entry or
    // one that was never written. As long as the file.
    std::string ReadByTable(const FileMappingTable& table) const;

    std::string volume_;  // mount point
    std::string image_;
    std::string device_;
    std::unique_ptr<FileSystemDevice> mapper_;
};

// A block of text that stands nowhere else: the file's name and the block's number.
std::string BlockText(const std::string& name, size_t number);

// Writes the block with that number of the file and no other.
void WriteBlock(const std::string& path, const std::string& name, size_t number);
