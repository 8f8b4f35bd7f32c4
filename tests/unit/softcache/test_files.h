// SPDX-License-Identifier: MIT
// Files and bytes for the tests of the cache.
#pragma once

#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "softcache/store/file_io.h"

namespace softcache {

using Bytes = std::vector<uint8_t>;

// A directory of the test's own, gone with everything in it when it goes.
class TempDir {
  public:
    TempDir() {
        // A /tmp in memory may not take O_DIRECT.
        std::string name = "/var/tmp/softcacheXXXXXX";
        if (mkdtemp(name.data()) == nullptr) {
            abort();
        }
        path_ = std::filesystem::canonical(name).string();
    }
    ~TempDir() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    const std::string& Path() const { return path_; }
    std::string operator/(const std::string& name) const { return path_ + "/" + name; }

  private:
    std::string path_;
};

// Numbers that look random and are the same in every run.
class Random {
  public:
    explicit Random(uint32_t seed) : engine_(seed) {}
    uint32_t operator()() { return static_cast<uint32_t>(engine_()); }

  private:
    std::mt19937 engine_;
};

inline Bytes RandomBytes(size_t size, uint32_t seed) {
    std::mt19937_64 random(seed);
    Bytes bytes(size);
    for (size_t done = 0; done < size; done += sizeof(uint64_t)) {
        const auto eight = static_cast<uint64_t>(random());
        memcpy(bytes.data() + done, &eight, std::min(sizeof(eight), size - done));
    }
    return bytes;
}

inline OwnedFd OpenFile(const std::string& path, int flags) {
    return OwnedFd(open(path.c_str(), flags | O_CLOEXEC, 0600));
}

// A new file with these bytes, open for reading and writing.
inline OwnedFd NewFile(const std::string& path, const Bytes& bytes) {
    OwnedFd fd = OpenFile(path, O_RDWR | O_CREAT | O_TRUNC);
    EXPECT_EQ(WriteFull(fd.get(), bytes.data(), bytes.size(), 0), 0) << path;
    return fd;
}

inline std::string FileText(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

inline Bytes FileBytes(const std::string& path) {
    const std::string text = FileText(path);
    return Bytes(text.begin(), text.end());
}

// Bits given one by one, least significant bit of the first byte first.
inline Bytes Bitmap(size_t bytes, const std::vector<uint32_t>& bits) {
    Bytes bitmap(bytes, 0);
    for (const uint32_t bit : bits) {
        bitmap.at(bit / 8) = static_cast<uint8_t>(bitmap.at(bit / 8) | (1u << (bit % 8)));
    }
    return bitmap;
}

inline std::vector<uint32_t> BitsSet(const Bytes& bitmap) {
    std::vector<uint32_t> bits;
    for (uint32_t bit = 0; bit < bitmap.size() * 8; ++bit) {
        if (((bitmap[bit / 8] >> (bit % 8)) & 1) != 0) {
            bits.push_back(bit);
        }
    }
    return bits;
}

// While it lives, this process can write no file at or beyond `limit` bytes: a real error of a real
// write (EFBIG), also for root.
class FileSizeLimit {
  public:
    explicit FileSizeLimit(uint64_t limit) {
        signal(SIGXFSZ, SIG_IGN);
        getrlimit(RLIMIT_FSIZE, &before_);
        const rlimit lower = {static_cast<rlim_t>(limit), before_.rlim_max};
        setrlimit(RLIMIT_FSIZE, &lower);
    }
    ~FileSizeLimit() { setrlimit(RLIMIT_FSIZE, &before_); }
    FileSizeLimit(const FileSizeLimit&) = delete;
    FileSizeLimit& operator=(const FileSizeLimit&) = delete;

  private:
    rlimit before_{};
};

}  // namespace softcache
