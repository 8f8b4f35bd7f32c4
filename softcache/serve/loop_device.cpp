// SPDX-License-Identifier: MIT
#include "softcache/serve/loop_device.h"

#include <errno.h>
#include <fcntl.h>
#include <linux/fs.h>
#include <linux/loop.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <filesystem>

namespace softcache {

constexpr unsigned kLoopMajor = 7;
constexpr uint32_t kSmallestSector = 512;
constexpr int kMostTries = 64;  // others may take the free device first

std::string DefaultNameDirectory() {
    return "/dev/quorcache";
}

uint32_t SectorSizeOf(int fd) {
    int size = 0;
    return ioctl(fd, BLKSSZGET, &size) == 0 && size > 0 ? static_cast<uint32_t>(size)
                                                        : kSmallestSector;
}

static std::string Failure(const std::string& path, int error) {
    return "loop device " + path + ": " + strerror(error);
}

// Where nobody makes nodes for new devices, as in a container, this does.
static void MakeNode(const std::string& path, unsigned number) {
    if (mknod(path.c_str(), S_IFBLK | 0660, makedev(kLoopMajor, number)) != 0 && errno != EEXIST) {
        return;  // opening it will say why
    }
}

std::string LoopDevice::Configure(const std::string& path, uint32_t sectorSize) {
    const OwnedFd control(open("/dev/loop-control", O_RDWR | O_CLOEXEC));
    if (!control.valid()) {
        return Failure("/dev/loop-control", errno);
    }
    const OwnedFd file(open(path.c_str(), O_RDWR | O_CLOEXEC));
    struct stat status {};
    if (!file.valid() || fstat(file.get(), &status) != 0) {
        return Failure(path, errno);
    }
    loop_config config{};
    config.fd = static_cast<uint32_t>(file.get());
    config.block_size = sectorSize;
    config.info.lo_flags = LO_FLAGS_DIRECT_IO | LO_FLAGS_AUTOCLEAR;
    path.copy(reinterpret_cast<char*>(config.info.lo_file_name), LO_NAME_SIZE - 1);
    int error = EBUSY;
    for (int tries = 0; error == EBUSY && tries < kMostTries; ++tries) {
        const int number = ioctl(control.get(), LOOP_CTL_GET_FREE);
        if (number < 0) {
            return Failure("/dev/loop-control", errno);
        }
        node_ = "/dev/loop" + std::to_string(number);
        MakeNode(node_, static_cast<unsigned>(number));
        OwnedFd device(open(node_.c_str(), O_RDWR | O_CLOEXEC));
        error = device.valid() && ioctl(device.get(), LOOP_CONFIGURE, &config) == 0 ? 0 : errno;
        if (error == 0) {
            device_ = std::move(device);
            fileDevice_ = status.st_dev;
            fileInode_ = status.st_ino;
        }
    }
    return error == 0 ? "" : Failure(node_, error);
}

// The link is relative, as those that a device manager makes; so it finds nothing to change in it.
static std::filesystem::path TargetOf(const std::string& node, const std::filesystem::path& link) {
    return std::filesystem::path(node).lexically_relative(link.parent_path());
}

std::string LoopDevice::PutLink(const std::string& directory, const std::string& name) {
    namespace fs = std::filesystem;
    const fs::path link = fs::path(directory) / name;
    const std::string fresh = directory + "/." + name + ".new";
    std::error_code error;
    fs::create_directories(directory, error);
    unlink(fresh.c_str());  // of an earlier start that was killed; the name is this cache's alone
    if (symlink(TargetOf(node_, link).c_str(), fresh.c_str()) != 0 ||
        rename(fresh.c_str(), link.c_str()) != 0) {
        const int why = errno;
        unlink(fresh.c_str());
        return "link " + link.string() + ": " + strerror(why);
    }
    link_ = link;
    return "";
}

std::string LoopDevice::Attach(const std::string& path, uint32_t sectorSize,
                               const std::string& directory, const std::string& name) {
    std::string wrong = Configure(path, sectorSize);
    if (wrong.empty()) {
        wrong = PutLink(directory, name);
    }
    if (wrong.empty() && !OwnedFd(open(link_.c_str(), O_RDONLY | O_CLOEXEC)).valid()) {
        wrong = Failure(link_, errno);
    }
    if (!wrong.empty()) {
        Release();
    }
    return wrong;
}

void LoopDevice::Release() {
    std::error_code error;
    if (!link_.empty() && std::filesystem::read_symlink(link_, error) == TargetOf(node_, link_)) {
        unlink(link_.c_str());
    }
    link_.clear();
    if (device_.valid()) {
        fsync(device_.get());
        device_ = OwnedFd();
    }
}

bool LoopDevice::IsInUse() const {
    loop_info64 info{};
    const OwnedFd device(node_.empty() ? -1 : open(node_.c_str(), O_RDONLY | O_CLOEXEC));
    return device.valid() && ioctl(device.get(), LOOP_GET_STATUS64, &info) == 0 &&
           info.lo_inode == fileInode_ && info.lo_device == fileDevice_;
}

}  // namespace softcache
