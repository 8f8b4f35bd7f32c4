// SPDX-License-Identifier: MIT
// What the platform tests stand on: a mount namespace of their own with an empty tmpfs at kScratch,
// where they make images, mount them through loop devices and look at what the libraries answer.
// Everything mounted there goes with the test, also when it is killed.
#pragma once

#include <gtest/gtest.h>
#include <stdint.h>

#include <string>
#include <vector>

#include "tests/unit/platform/libc_hooks.h"

constexpr char kScratch[] = "/mnt";

class ScratchTest : public testing::Test {
  protected:
    void SetUp() override;
    void TearDown() override;
};

// Runs a program without a shell and returns its standard output; fails the test when the program
// fails.
std::string RunProgram(const std::vector<std::string>& command);

// Makes the directory kScratch/NAME and returns its path.
std::string MakeDirectory(const std::string& name);

// Makes the sparse file kScratch/NAME of `megabytes` and returns its path.
std::string MakeFile(const std::string& name, uint64_t megabytes);

// Makes an image of a file system; `options` go to mkfs before the image's path.
std::string MakeImage(const std::string& fsType, const std::string& name,
                      const std::vector<std::string>& options = {});

// Mounts the image on kScratch/DIRECTORY through a loop device and returns the mount point.
// `options` are mount options, the first of them "loop".
std::string MountImage(const std::string& image, const std::string& directory,
                       const std::string& options = "loop");

// The device that the kernel says the mount point is mounted from.
std::string SourceOf(const std::string& mountPoint);

void WriteFile(const std::string& path, const std::string& content);
std::string ReadFile(const std::string& path);
uint64_t InodeOf(const std::string& path);
