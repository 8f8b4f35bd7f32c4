// SPDX-License-Identifier: MIT
#include "util/file.h"

#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include "util/log.h"
#include "util/scoped.h"

namespace {

namespace read_string {

constexpr const char* kLogFunction = "FileReadString";

// Reads up to `limit` bytes. Returns them, or nothing when a read fails.
std::string ReadUpTo(int fd, size_t limit) {
    std::string text(limit, '\0');
    size_t length = 0;
    ssize_t done = 0;

    do {
        done = read(fd, &text[length], limit - length);
        length += done > 0 ? static_cast<size_t>(done) : 0;
    } while (done > 0 && length < limit);
    text.resize(done < 0 ? 0 : length);
    return text;
}

int ReadContent(const char* path, size_t limit, std::string& text) {
    struct stat status = {};
    ScopedFd fd(open(path, O_RDONLY | O_NONBLOCK));

    if (!fd.valid()) {
        LogError("Can't open file (%s)", path);
        return -1;
    }
    bool regular = fstat(fd.get(), &status) == 0 && S_ISREG(status.st_mode);
    std::string content = regular ? ReadUpTo(fd.get(), limit) : std::string();
    if (content.empty()) {
        LogError("Can't get a line from file (%s)", path);
        return -1;
    }
    text = content;
    LogVerbose("Get text = %s", text.c_str());
    return 0;
}

}  // namespace read_string

}  // namespace

int FileExists(const char* path) {
    struct stat status = {};

    return stat(path, &status) == -1 ? 0 : 1;
}

int FileWriteString(const char* path, const std::string& text) {
    FILE* file = fopen(path, "w+");

    if (file == nullptr) {
        LogError("Can't open file (%s)", path);
        return -1;
    }
    // The flush makes a full device show here instead of after the last test.
    bool written = fwrite(text.data(), 1, text.size(), file) == text.size() && fflush(file) == 0;
    fclose(file);
    if (!written) {
        LogError("Write error");
        return -1;
    }
    LogVerbose("Write to file OK");
    return 0;
}

int FileReadString(const char* path, std::string& text) {
    FILE* file = fopen(path, "r");
    char* line = nullptr;
    size_t capacity = 0;

    if (file == nullptr) {
        LogError("Can't open file (%s)", path);
        return -1;
    }
    ssize_t length = getline(&line, &capacity, file);
    fclose(file);
    if (length <= 0) {
        free(line);
        LogError("Can't get a line from file (%s)", path);
        return -1;
    }
    text.assign(line, static_cast<size_t>(length));
    free(line);
    LogVerbose("Get text = %s", text.c_str());
    return 0;
}

int FileReadContent(const char* path, size_t limit, std::string& text) {
    return read_string::ReadContent(path, limit, text);
}

int FileGetSizeByte(const char* path, uint64_t* size) {
    struct stat status = {};

    if (stat(path, &status) == -1) {
        LogError("Can't get file (%s) stat result", path);
        return -1;
    }
    *size = static_cast<uint64_t>(status.st_size);
    return 0;
}

int FileGetInodeNumber(const char* path, unsigned long* inode) {
    struct stat status = {};

    if (stat(path, &status) == -1) {
        LogError("Stat file %s error", path);
        return -1;
    }
    // An unsigned long of the target has 32 bits; so have stored inode numbers everywhere.
    *inode = static_cast<uint32_t>(status.st_ino);
    return 0;
}
