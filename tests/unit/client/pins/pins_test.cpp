// SPDX-License-Identifier: MIT
#include "tests/unit/client/pins/pins_test.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <filesystem>

#include "tests/unit/support/fake_platform.h"

namespace client {

void PinsTest::SetUp() {
    ClientTest::SetUp();
    volumes_ = Volumes();
}

void PinsTest::TearDown() {
    if (lock_ != -1) {
        close(lock_);
    }
    ClientTest::TearDown();
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

void PinsTest::LetTheCacheTell(const std::string& resident, const std::string& pinned) {
    const std::string registry = dir_ / "registry";
    std::filesystem::create_directory(registry);
    WriteFile(dir_ / "resident", resident);
    WriteFile(dir_ / "pinned", pinned);
    WriteFile(registry + "/vol.json", R"({"name":"vol","cacheSize":1048576,"device":")" + device_ +
                                          R"(","resident":")" + (dir_ / "resident") +
                                          R"(","pinned":")" + (dir_ / "pinned") + "\"}");
    lock_ = open((registry + "/vol.lock").c_str(), O_RDONLY | O_CREAT | O_CLOEXEC, 0600);
    ASSERT_EQ(flock(lock_, LOCK_EX), 0);
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
