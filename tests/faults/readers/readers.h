// SPDX-License-Identifier: MIT
// The readers of bytes that others wrote, each as a function of such bytes. For every one there is
// a directory of that name in ../corpus.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <string>

namespace readers {

using Bytes = std::string;

struct Reader {
    const char* name;
    void (*read)(const Bytes& bytes);  // gives the bytes to the product
};

// daemon and util
void ReadConfiguration(const Bytes& bytes);
void ReadRequestData(const Bytes& bytes);
void ReadKey(const Bytes& bytes);
// platform/linux
void ReadSettings(const Bytes& bytes);
void ReadRegistry(const Bytes& bytes);
// softcache
void ReadControlText(const Bytes& bytes);
void ReadControlRequest(const Bytes& bytes);
void ReadSsd(const Bytes& bytes);
// client
void ReadList(const Bytes& bytes);
void ReadStoredState(const Bytes& bytes);

constexpr Reader kReaders[] = {
    {"configuration", ReadConfiguration},
    {"request_data", ReadRequestData},
    {"key", ReadKey},
    {"settings", ReadSettings},
    {"registry", ReadRegistry},
    {"control_text", ReadControlText},
    {"control_request", ReadControlRequest},
    {"ssd", ReadSsd},
    {"list", ReadList},
    {"stored_state", ReadStoredState},
};

// Returns the reader, or null.
const Reader* FindReader(const std::string& name);

// Called once before anything is read: keeps what the readers say of damage out of the logs.
void BeSilent();

// A file in memory, with a path as long as this lives.
class MemoryFile {
  public:
    explicit MemoryFile(const Bytes& bytes);
    ~MemoryFile();
    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;
    int Fd() const { return fd_; }
    std::string Path() const { return "/proc/self/fd/" + std::to_string(fd_); }

  private:
    int fd_;
};

// An empty directory of this process's own, taken away at its end.
const std::string& OwnDirectory();

// Writes the bytes to a file, over whatever it holds.
void WriteFile(const std::string& path, const Bytes& bytes);

}  // namespace readers
