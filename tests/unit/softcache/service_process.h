// SPDX-License-Identifier: MIT
// quorsoftcache as a process of its own, and volumes on loop devices on what it mounts.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include "tests/unit/softcache/test_files.h"

namespace softcache {

// Empty, or why neither mounts nor loop devices can be had here.
std::string WhyNoMounts();

// Moves this process into a mount namespace of its own, so that nothing it mounts is seen, or left,
// outside.
void EnterPrivateMounts();

struct Outcome {
    int status = -1;     // exit status; 128 + the signal that ended it
    std::string output;  // standard output and standard error
};

// Runs a command line to its end.
Outcome RunShell(const std::string& command);

// Runs it and expects success.
void MustRun(const std::string& command);

// One run of quorsoftcache.
class ServiceProcess {
  public:
    ServiceProcess() = default;
    ~ServiceProcess() { Kill(); }
    ServiceProcess(const ServiceProcess&) = delete;
    ServiceProcess& operator=(const ServiceProcess&) = delete;

    // Starts it and waits for its first line, or its end. True when the line is "... ready".
    bool Start(const std::vector<std::string>& arguments);

    // Waits for its end after the signal; 0 = no signal, it ends by itself.
    Outcome End(int signal);

    void Kill();  // if it still runs

    pid_t Pid() const { return pid_; }

  private:
    pid_t pid_ = -1;
    OwnedFd output_;
    std::string text_;
};

// A file system on a loop device on `file`, mounted on `mountPoint`. The loop device goes with the
// mount, whoever ends it.
class LoopVolume {
  public:
    // `make` is the command that makes the file system, empty where there is one already.
    LoopVolume(const std::string& file, const std::string& mountPoint, const std::string& make,
               bool directIo);
    ~LoopVolume();
    LoopVolume(const LoopVolume&) = delete;
    LoopVolume& operator=(const LoopVolume&) = delete;

    bool Unmount();

  private:
    void Mount(const std::string& file, const std::string& make, bool directIo);

    std::string mountPoint_;
    bool mounted_ = false;
};

// Where a file lies on the file system's device, in bytes.
struct Extent {
    uint64_t offset;
    uint64_t length;
};
std::vector<Extent> FileExtents(const std::string& path);

}  // namespace softcache
