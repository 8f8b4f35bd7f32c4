// SPDX-License-Identifier: MIT
#include "tests/faults/readers/readers.h"

#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <syslog.h>
#include <unistd.h>

#include <filesystem>

#include "util/log.h"

namespace readers {

namespace {

[[noreturn]] void Die(const char* what) {
    perror(what);
    _exit(2);
}

void WriteAll(int fd, const Bytes& bytes) {
    if (ftruncate(fd, 0) != 0 ||
        pwrite(fd, bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size())) {
        Die("write");
    }
}

struct Directory {
    Directory() {
        char pattern[] = "/tmp/readers.XXXXXX";
        if (mkdtemp(pattern) == nullptr) {
            Die("mkdtemp");
        }
        path = pattern;
    }
    ~Directory() {
        std::error_code ignored;
        std::filesystem::remove_all(path, ignored);
    }
    std::string path;
};

}  // namespace

const Reader* FindReader(const std::string& name) {
    for (const Reader& reader : kReaders) {
        if (name == reader.name) {
            return &reader;
        }
    }
    return nullptr;
}

void BeSilent() {
    g_logToSyslog = 0;
    g_processName = "readers";
    g_printLevel = 3;  // all lines are formatted
    setlogmask(LOG_MASK(LOG_EMERG));
    if (freopen("/dev/null", "w", stdout) == nullptr) {
        Die("/dev/null");
    }
}

MemoryFile::MemoryFile(const Bytes& bytes) : fd_(memfd_create("bytes", MFD_CLOEXEC)) {
    if (fd_ < 0) {
        Die("memfd_create");
    }
    WriteAll(fd_, bytes);
}

MemoryFile::~MemoryFile() {
    close(fd_);
}

const std::string& OwnDirectory() {
    static const Directory directory;
    return directory.path;
}

void WriteFile(const std::string& path, const Bytes& bytes) {
    int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    if (fd < 0) {
        Die(path.c_str());
    }
    WriteAll(fd, bytes);
    close(fd);
}

}  // namespace readers
