// SPDX-License-Identifier: MIT
// Where a file lies, as the service asks for it, beside the least that the kernel can be asked.
#include <fcntl.h>
#include <linux/fiemap.h>
#include <linux/fs.h>
#include <stdio.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <memory>
#include <string>
#include <vector>

#include "bench/bench.h"
#include "platform/quordataverifier.h"

namespace {

constexpr uint32_t kExtents = 256;  // room for one answer

struct File {
    std::string path;
    unsigned long inode;
};

// The files that lie on the volume.
std::vector<File> Files() {
    std::vector<File> files;
    for (int number = 0; number < 30; ++number) {
        char name[16];
        snprintf(name, sizeof name, "/f%02d", number);
        const std::string path = std::string(BenchMountPath()) + name;
        struct stat status = {};
        if (stat(path.c_str(), &status) == 0) {
            files.push_back({path, static_cast<unsigned long>(status.st_ino)});
        }
    }
    return files;
}

void AskByInode(benchmark::State& state, int64_t) {
    const std::vector<File> files = Files();
    std::string path;
    FileSystemDevice::GetDevicePath(BenchMountPath(), path, false);
    const std::unique_ptr<FileSystemDevice> device(FileSystemDeviceCreater::Create(path));
    size_t next = 0;
    for (auto _ : state) {
        FileMappingTable table;
        const File& file = files[next++ % files.size()];
        if (!device || device->GetMappingTable(BenchMountPath(), file.inode, 0, table) < 0) {
            state.SkipWithError("the file was not mapped");
            break;
        }
    }
}

// Open, FIEMAP, close.
void AskByPath(benchmark::State& state, int64_t) {
    const std::vector<File> files = Files();
    std::vector<char> room(sizeof(fiemap) + kExtents * sizeof(fiemap_extent));
    size_t next = 0;
    for (auto _ : state) {
        const int file = open(files[next++ % files.size()].path.c_str(), O_RDONLY | O_CLOEXEC);
        auto* const map = reinterpret_cast<fiemap*>(room.data());
        *map = {};
        map->fm_length = FIEMAP_MAX_OFFSET;
        map->fm_extent_count = kExtents;
        const bool asked = ioctl(file, FS_IOC_FIEMAP, map) == 0;
        close(file);
        if (!asked) {
            state.SkipWithError("the file has no map");
            break;
        }
    }
}

}  // namespace

void RegisterExtents() {
    Register("extents", "ours", 1, AskByInode);
    Register("extents", "peer", 1, AskByPath);
}
