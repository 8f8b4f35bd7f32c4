// SPDX-License-Identifier: MIT
#include "tests/unit/platform/mapping_fixture.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>

#include "platform/linux/unique_fd.h"

using stand_in::UniqueFd;

void MappingTest::UseVolume(const std::string& fsType, std::vector<std::string> options) {
    const std::string blockSize =
        fsType == "xfs" ? "size=" + std::to_string(kBlock) : std::to_string(kBlock);
    options.insert(options.end(), {"-b", blockSize});
    image_ = MakeImage(fsType, "volume.img", options);
    volume_ = MountImage(image_, "volume");
    device_ = SourceOf(volume_);
    mapper_.reset(FileSystemDeviceCreater::Create(device_));
    ASSERT_NE(mapper_, nullptr);
}

int MappingTest::Map(const std::string& name, FileMappingTable& table) {
    const std::string path = volume_ + "/" + name;
    return mapper_->GetMappingTable(path.substr(0, path.rfind('/')),
                                    static_cast<unsigned long>(InodeOf(path)), 0, table);
}

FileMappingTable MappingTest::MapFile(const std::string& name) {
    FileMappingTable table;
    EXPECT_GE(Map(name, table), 0) << name;
    return table;
}

void MappingTest::Sync() const {
    const UniqueFd volume(open(volume_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    EXPECT_EQ(syncfs(volume.Get()), 0);
}

std::string MappingTest::ReadByTable(const FileMappingTable& table) const {
    const UniqueFd image(open(image_.c_str(), O_RDONLY | O_CLOEXEC));
    std::string content(static_cast<size_t>(table.fileSize), '\0');
    for (const FileMappingEntry& entry : table.entries) {
        const auto start = static_cast<size_t>(entry.startSector * 512);
        if (entry.uninitialized != 0 || start >= content.size()) {
            continue;
        }
        const auto whole = static_cast<size_t>(entry.numSectors * 512);
        const size_t length = std::min(whole, content.size() - start);
        EXPECT_EQ(pread(image.Get(), &content[start], length,
                        static_cast<off_t>(entry.deviceStartSector * 512)),
                  static_cast<ssize_t>(length));
    }
    return content;
}

std::string BlockText(const std::string& name, size_t number) {
    const std::string unit = "<" + name + " " + std::to_string(number) + ">";
    std::string text;
    while (text.size() < kBlock) {
        text += unit;
    }
    return text.substr(0, kBlock);
}

void WriteBlock(const std::string& path, const std::string& name, size_t number) {
    const UniqueFd file(open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644));
    EXPECT_EQ(pwrite(file.Get(), BlockText(name, number).data(), kBlock,
                     static_cast<off_t>(number * kBlock)),
              static_cast<ssize_t>(kBlock))
        << path;
}
