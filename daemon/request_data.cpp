// SPDX-License-Identifier: MIT
#include "daemon/request_data.h"

#include <ctype.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>

#include <algorithm>

#include "util/file.h"
#include "util/log.h"
#include "util/scoped.h"

namespace {

constexpr char kSeparator[] = {kListSeparator, '\0'};
constexpr size_t kLineSize = 1024;                // of the log, a request's
constexpr size_t kPatternSize = kPathBufferSize;  // of the mount path, "/%s" and the terminator

bool IsSpace(char c) {
    return isspace(static_cast<unsigned char>(c)) != 0;
}

const char* SkipSpace(const char* text) {
    while (IsSpace(*text)) {
        ++text;
    }
    return text;
}

// Returns what a scan of the file path with the mount path, "/" and a text conversion converts, or
// an empty text. Foreign text is no scanning pattern, so the rules are spelt out: the literal part
// must match exactly, leading white space is skipped, the next ends the text.
std::string ScanRelativePath(const char* mountPath, const char* filePath) {
    size_t length = strlen(mountPath);

    if (length + strlen("/%s") >= kPatternSize || strncmp(filePath, mountPath, length) != 0 ||
        filePath[length] != '/') {
        return "";
    }
    const char* begin = SkipSpace(filePath + length + 1);
    const char* end = begin;
    while (*end != '\0' && !IsSpace(*end)) {
        ++end;
    }
    return {begin, std::min(end, begin + kTextBufferSize - 1)};
}

// Narrows what "%lu" converted from the text to the 32 bits that it has on the target, where a
// number beyond them, negative or not, becomes the largest.
unsigned long ToTargetUnsignedLong(const char* text, unsigned long value) {
    uint64_t magnitude = *SkipSpace(text) == '-' ? 0UL - value : value;

    return magnitude > UINT32_MAX ? UINT32_MAX : static_cast<uint32_t>(value);
}

// Scans one entry. Returns 0, or -1 when it is malformed.
int ParseEntry(const std::string& entry, FileInfo& info) {
    int numberStart = 0;

    if (sscanf(entry.c_str(), kEntryScan, info.szRelativePath, &numberStart, &info.inodeNum) != 2) {
        return -1;
    }
    info.inodeNum = ToTargetUnsignedLong(entry.c_str() + numberStart, info.inodeNum);
    return 0;
}

namespace make_list {

constexpr const char* kLogFunction = "AbsolutePathsToFileInodeList";

enum EntryResult { kEntryFailed = -1, kEntryAppended = 0, kEntryDoesNotFit = 1 };

// Appends one entry behind `length` characters of the list and advances it, or leaves both alone.
EntryResult AppendEntry(const char* mountPath, const char* path, char* list, size_t size,
                        size_t& length) {
    CString relativePath(FileGetRelativePathByMountPath(mountPath, path));
    unsigned long inode = 0;

    if (relativePath == nullptr) {
        return kEntryFailed;
    }
    if (FileGetInodeNumber(path, &inode) != 0) {
        LogError("Cant' get inode number of file (%s)", path);
        return kEntryFailed;
    }
    LogVerbose("szFormat=%s pszRelativePath=%s szFileInodeList=%p size=%zu len=%d", kEntryFormat,
               relativePath.get(), static_cast<void*>(list), size, static_cast<int>(length));
    const char* separator = length == 0 ? "" : kSeparator;
    int entryLength =
        snprintf(list + length, size - length, kEntryFormat, separator, relativePath.get(), inode);
    if (entryLength < 0 || static_cast<size_t>(entryLength) >= size - length) {
        // A cut entry would name another file or inode.
        list[length] = '\0';
        LogError("File list is too long to store, it ends before file (%s)", path);
        return kEntryDoesNotFit;
    }
    length += static_cast<size_t>(entryLength);
    return kEntryAppended;
}

}  // namespace make_list

}  // namespace

char* FileGetRelativePathByMountPath(const char* mountPath, const char* filePath) {
    std::string text = ScanRelativePath(mountPath, filePath);
    char* relativePath = nullptr;

    if (text.empty()) {
        LogError("Failed to Get relative path (Volume path=%s File path=%s", mountPath, filePath);
    } else {
        relativePath = strdup(text.c_str());
    }
    LogVerbose("Get relative path = %s (addr=%p)", relativePath, static_cast<void*>(relativePath));
    return relativePath;
}

int AbsolutePathsToFileInodeList(const char* mountPath, const char* absolutePaths,
                                 char* fileInodeList, size_t size) {
    char paths[kTextBufferSize] = {};
    char* position = nullptr;
    size_t length = 0;

    LogEnter();
    snprintf(paths, sizeof(paths), "%s", absolutePaths);
    for (char* path = strtok_r(paths, kSeparator, &position); path != nullptr;
         path = strtok_r(nullptr, kSeparator, &position)) {
        auto result = make_list::AppendEntry(mountPath, path, fileInodeList, size, length);
        if (result == make_list::kEntryFailed) {
            return -1;
        }
        if (result == make_list::kEntryDoesNotFit) {
            // What fits is stored: a failure here would stop intake for every client.
            break;
        }
    }
    LogVerbose("Get relativePaths = %s", fileInodeList);
    LogLeave();
    return 0;
}

void StringSplit(const std::string& text, const char* delimiters,
                 std::vector<std::string>& tokens) {
    char copy[kTextBufferSize] = {};
    char* position = nullptr;

    tokens.clear();
    snprintf(copy, sizeof(copy), "%s", text.c_str());
    for (char* token = strtok_r(copy, delimiters, &position); token != nullptr;
         token = strtok_r(nullptr, delimiters, &position)) {
        tokens.emplace_back(token);
    }
}

int RequestDataGetFileInfos(const char* data, std::vector<FileInfo>& infos) {
    std::vector<std::string> entries;
    int result = 0;

    StringSplit(data, kSeparator, entries);
    LogEnter();
    for (const std::string& entry : entries) {
        FileInfo info = {};
        if (ParseEntry(entry, info) != 0) {
            LogError("Parse file inode from string (%s) failed", entry.c_str());
            result = -1;
            break;
        }
        LogVerbose("info.szRelativePath=%s info.inodeNum=%lu", info.szRelativePath, info.inodeNum);
        infos.push_back(info);
    }
    LogLeave();
    return result;
}

std::string RequestToString(const Request& request) {
    char text[kLineSize] = {};
    int length = snprintf(text, sizeof(text), "Request type=%s mountPath=%s data=%s",
                          RequestTypeToString(request.type), request.mountPath, request.data);

    // Exactly full, and only that, is traced.
    if (length == static_cast<int>(sizeof(text))) {
        LogVerbose("String is full");
    }
    return text;
}
