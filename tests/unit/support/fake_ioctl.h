// SPDX-License-Identifier: MIT
// ioctl, with every request recorded. The driver's control requests, which no device here
// understands, are accepted; a file can be given a device's size; all else goes to the file itself.
#pragma once

#include <stdint.h>

#include <string>
#include <vector>

void FakeIoctlReset();

// One ioctl.
struct IoctlRecord {
    std::string path;  // of the descriptor's file
    int openFlags = 0;
    unsigned long request = 0;
    const void* argument = nullptr;  // meaningless when the request was sent without one
    std::vector<uint8_t> bytes;      // control requests: what the argument pointed to
    std::vector<uint8_t> bitmap;     // bitmap request: the bitmap's bytes
};
std::vector<IoctlRecord> IoctlsSent();

// Makes the nth ioctl of this request from now fail.
void FailIoctl(unsigned long request, int nth, int error);

// Answers every ioctl of this request with a result, failures apart.
void SetIoctlResult(unsigned long request, int result);

// Lets a file answer the block-device size request. Without, the file answers for itself.
void SetDeviceSize(const std::string& path, uint64_t bytes);
