// SPDX-License-Identifier: MIT
#include "tests/unit/platform/scratch.h"

#include <errno.h>
#include <fcntl.h>
#include <sched.h>
#include <string.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <sstream>

namespace {

// The reason why nothing can be mounted here, or an empty text. Leaves the machine's namespace
// once.
std::string EnterNamespace() {
    static bool entered = false;
    if (!entered) {
        if (unshare(CLONE_NEWNS) != 0 ||
            mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) {
            return std::string("no mount namespace of its own: ") + strerror(errno);
        }
        entered = true;
    }
    if (mount("scratch", kScratch, "tmpfs", 0, nullptr) != 0) {
        return std::string("no tmpfs can be mounted: ") + strerror(errno);
    }
    return "";
}

}  // namespace

void ScratchTest::SetUp() {
    const std::string reason = EnterNamespace();
    if (!reason.empty()) {
        GTEST_SKIP() << "mounting is not possible here: " << reason;
    }
    ClearLog();
}

void ScratchTest::TearDown() {
    SetIoctlHook(nullptr);
    SetFlockHook(nullptr);
    SetOpenHook(nullptr);
    SetSleepHook(nullptr);
    umount2(kScratch, MNT_DETACH);  // and all that is mounted below
}

std::string RunProgram(const std::vector<std::string>& command) {
    std::vector<char*> arguments;
    arguments.reserve(command.size() + 1);
    for (const std::string& word : command) {
        arguments.push_back(const_cast<char*>(word.c_str()));
    }
    arguments.push_back(nullptr);
    int ends[2] = {};
    EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0);
    const pid_t child = fork();
    if (child == 0) {
        dup2(ends[1], STDOUT_FILENO);
        execvp(arguments[0], arguments.data());
        _exit(127);
    }
    close(ends[1]);
    std::string output;
    char buffer[4096];
    for (ssize_t got = 0; (got = read(ends[0], buffer, sizeof buffer)) > 0;) {
        output.append(buffer, static_cast<size_t>(got));
    }
    close(ends[0]);
    int status = 0;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0) << command[0] << " failed";
    return output;
}

std::string MakeDirectory(const std::string& name) {
    std::string path = std::string(kScratch) + "/" + name;
    EXPECT_EQ(mkdir(path.c_str(), 0755), 0) << path << ": " << strerror(errno);
    return path;
}

std::string MakeFile(const std::string& name, uint64_t megabytes) {
    std::string path = std::string(kScratch) + "/" + name;
    WriteFile(path, "");
    EXPECT_EQ(truncate(path.c_str(), static_cast<off_t>(megabytes << 20)), 0) << strerror(errno);
    return path;
}

std::string MakeImage(const std::string& fsType, const std::string& name,
                      const std::vector<std::string>& options) {
    std::string image = MakeFile(name, fsType == "xfs" ? 320 : 128);  // XFS starts at 300
    std::vector<std::string> command = {"mkfs." + fsType, "-q"};
    command.insert(command.end(), options.begin(), options.end());
    command.push_back(image);
    RunProgram(command);
    return image;
}

std::string MountImage(const std::string& image, const std::string& directory,
                       const std::string& options) {
    std::string mountPoint = MakeDirectory(directory);
    RunProgram({"mount", "-o", options, image, mountPoint});
    return mountPoint;
}

std::string SourceOf(const std::string& mountPoint) {
    std::string source = RunProgram({"findmnt", "-n", "-o", "SOURCE", "--mountpoint", mountPoint});
    source.erase(source.find_last_not_of('\n') + 1);
    return source;
}

void WriteFile(const std::string& path, const std::string& content) {
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file << content;
    file.close();
    EXPECT_TRUE(file.good()) << path;
}

std::string ReadFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    EXPECT_TRUE(file.good()) << path;
    std::ostringstream content;
    content << file.rdbuf();
    return content.str();
}

uint64_t InodeOf(const std::string& path) {
    struct stat status = {};
    EXPECT_EQ(lstat(path.c_str(), &status), 0) << path;
    return status.st_ino;
}
