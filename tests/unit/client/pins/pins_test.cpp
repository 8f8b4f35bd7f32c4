// SPDX-License-Identifier: MIT
#include "tests/unit/client/pins/pins_test.h"

#include <filesystem>

#include "tests/unit/support/fake_platform.h"

namespace client {

void PinsTest::SetUp() {
    ClientTest::SetUp();
    volumes_ = Volumes();
}

void PinsTest::List(const std::string& relative, uint32_t inode) {
    state_.pinned[mount_].push_back(
        {relative, inode != 0 ? inode : InodeOf(mount_ + "/" + relative)});
}

std::string PinsTest::Pinned(const std::string& relative, const Extents& extents) {
    const std::string path = Make(relative);
    Place(path, extents);
    List(relative);
    return path;
}

FileRef PinsTest::File(const std::string& relative, const Extents& extents) {
    const std::string path = Make(relative);
    Place(path, extents);
    FileRef file = Examine(path, volumes_);
    for (const auto& [start, sectors] : extents) {
        file.extents.push_back({0, sectors, start, 0});
    }
    return file;
}

void PinsTest::Queue(const std::string& relative) {
    state_.queue.push_back({std::to_string(state_.queue.size()), "pinFiles", mount_,
                            relative + "#" + std::to_string(InodeOf(mount_ + "/" + relative))});
}

std::string PinsTest::MountAgain() {
    const std::string again = mount_ + "-again";
    std::filesystem::create_directory_symlink(mount_, again);
    g_platform.AddVolume(again, "uuid-1", "/dev/ssd1", device_);
    volumes_ = Volumes();
    return again;
}

DeviceState PinsTest::Read() {
    return ReadDevice(state_, volumes_.at(0), volumes_);
}

PinnedFile PinsTest::Listed(const std::string& relative) {
    for (const PinnedFile& pinned : Read().listed) {
        if (pinned.entry.relative == relative) {
            return pinned;
        }
    }
    ADD_FAILURE() << relative << " is not listed";
    return {};
}

}  // namespace client
