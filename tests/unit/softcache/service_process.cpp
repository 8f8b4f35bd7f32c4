// SPDX-License-Identifier: MIT
#include "tests/unit/softcache/service_process.h"

#include <linux/fiemap.h>
#include <linux/fs.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/wait.h>

namespace softcache {

std::string WhyNoMounts() {
    if (geteuid() != 0) {
        return "needs root";
    }
    if (access("/dev/fuse", R_OK | W_OK) != 0) {
        return "needs /dev/fuse";
    }
    return access("/dev/loop-control", R_OK | W_OK) == 0 ? "" : "needs loop devices";
}

void EnterPrivateMounts() {
    ASSERT_EQ(unshare(CLONE_NEWNS), 0) << strerror(errno);
    ASSERT_EQ(mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr), 0) << strerror(errno);
}

static int ExitStatus(int status) {
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

Outcome RunShell(const std::string& command) {
    Outcome outcome;
    FILE* pipe = popen((command + " 2>&1").c_str(), "r");
    if (pipe == nullptr) {
        return outcome;
    }
    char buffer[4096];
    size_t got;
    while ((got = fread(buffer, 1, sizeof(buffer), pipe)) > 0) {
        outcome.output.append(buffer, got);
    }
    outcome.status = ExitStatus(pclose(pipe));
    return outcome;
}

void MustRun(const std::string& command) {
    const Outcome outcome = RunShell(command);
    ASSERT_EQ(outcome.status, 0) << command << ": " << outcome.output;
}

void ServiceProcess::Kill() {
    if (pid_ > 0) {
        End(SIGKILL);
    }
}

// It may have remarks to make first.
static bool IsReady(const std::string& text) {
    return !text.empty() && text.back() == '\n' && text.find(" ready") != std::string::npos;
}

bool ServiceProcess::Start(const std::vector<std::string>& arguments) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
        return false;
    }
    std::vector<std::string> words = {QUORSOFTCACHE};
    words.insert(words.end(), arguments.begin(), arguments.end());
    std::vector<char*> argv;
    for (std::string& word : words) {
        argv.push_back(word.data());
    }
    argv.push_back(nullptr);
    pid_ = fork();
    if (pid_ == 0) {
        dup2(ends[1], STDOUT_FILENO);
        dup2(ends[1], STDERR_FILENO);
        execv(argv[0], argv.data());
        _exit(127);
    }
    output_ = OwnedFd(ends[0]);
    close(ends[1]);
    char byte;
    while (!IsReady(text_) && read(output_.get(), &byte, 1) == 1) {
        text_ += byte;
    }
    return IsReady(text_);
}

Outcome ServiceProcess::End(int signal) {
    Outcome outcome;
    if (pid_ <= 0) {  // to kill() it would be every process
        ADD_FAILURE() << "not started, or ended already";
        return outcome;
    }
    if (signal != 0) {
        kill(pid_, signal);
    }
    char buffer[4096];
    ssize_t got;
    while ((got = read(output_.get(), buffer, sizeof(buffer))) > 0) {
        text_.append(buffer, static_cast<size_t>(got));
    }
    int status = 0;
    waitpid(pid_, &status, 0);
    pid_ = -1;
    outcome.status = ExitStatus(status);
    outcome.output = std::exchange(text_, std::string());
    return outcome;
}

LoopVolume::LoopVolume(const std::string& file, const std::string& mountPoint,
                       const std::string& make, bool directIo)
    : mountPoint_(mountPoint) {
    Mount(file, make, directIo);
}

void LoopVolume::Mount(const std::string& file, const std::string& make, bool directIo) {
    const std::string direct = directIo ? "on" : "off";
    Outcome outcome = RunShell("losetup --find --show --direct-io=" + direct + " " + file);
    ASSERT_EQ(outcome.status, 0) << outcome.output;
    const std::string loop = outcome.output.substr(0, outcome.output.find('\n'));
    if (!make.empty()) {
        outcome = RunShell(make + " " + loop);
        EXPECT_EQ(outcome.status, 0) << make << ": " << outcome.output;
    }
    mounted_ = outcome.status == 0 && RunShell("mount " + loop + " " + mountPoint_).status == 0;
    EXPECT_TRUE(mounted_);
    // While it is mounted this says: when it is no longer.
    EXPECT_EQ(RunShell("losetup --detach " + loop).status, 0);
}

LoopVolume::~LoopVolume() {
    Unmount();
}

bool LoopVolume::Unmount() {
    if (mounted_) {
        mounted_ = umount2(mountPoint_.c_str(), 0) != 0;
    }
    return !mounted_;
}

std::vector<Extent> FileExtents(const std::string& path) {
    constexpr uint32_t kMost = 256;
    alignas(fiemap) char raw[sizeof(fiemap) + kMost * sizeof(fiemap_extent)] = {};
    auto* map = reinterpret_cast<fiemap*>(raw);
    map->fm_length = FIEMAP_MAX_OFFSET;
    map->fm_flags = FIEMAP_FLAG_SYNC;
    map->fm_extent_count = kMost;
    const OwnedFd file = OpenFile(path, O_RDONLY);
    EXPECT_EQ(ioctl(file.get(), FS_IOC_FIEMAP, map), 0) << path;
    std::vector<Extent> extents;
    for (uint32_t i = 0; i < map->fm_mapped_extents; ++i) {
        extents.push_back({map->fm_extents[i].fe_physical, map->fm_extents[i].fe_length});
    }
    return extents;
}

}  // namespace softcache
