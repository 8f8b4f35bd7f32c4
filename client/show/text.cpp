// SPDX-License-Identifier: MIT
#include "client/show/text.h"

#include <errno.h>

#include <algorithm>
#include <fstream>
#include <memory>
#include <sstream>

namespace client {

namespace {

// The length that a first byte announces, 0 when it can begin no character.
size_t AnnouncedLength(unsigned char first) {
    if (first < 0x80) {
        return 1;
    }
    // 0xc0 and 0xc1 would begin an overlong form, what lies between a continuation.
    if (first >= 0xc2 && first <= 0xdf) {
        return 2;
    }
    if (first >= 0xe0 && first <= 0xef) {
        return 3;
    }
    return first >= 0xf0 && first <= 0xf4 ? 4 : 0;
}

bool IsCharacter(uint32_t character, size_t length) {
    // By length: a smaller number has a shorter form, which is the only right one.
    constexpr uint32_t kLeast[] = {0, 0, 0x80, 0x800, 0x10000};
    const bool surrogate = character >= 0xd800 && character <= 0xdfff;
    return character >= kLeast[length] && character <= 0x10ffff && !surrogate;
}

}  // namespace

size_t DecodeUtf8(const std::string& text, size_t at, uint32_t& character) {
    const auto first = static_cast<unsigned char>(text[at]);
    const size_t length = AnnouncedLength(first);
    if (length == 0 || at + length > text.size()) {
        return 0;
    }
    constexpr uint32_t kFirstBits[] = {0, 0x7f, 0x1f, 0x0f, 0x07};
    uint32_t value = first & kFirstBits[length];
    for (size_t i = 1; i < length; ++i) {
        const auto next = static_cast<unsigned char>(text[at + i]);
        // A cut character: what follows may begin another one.
        if ((next & 0xc0) != 0x80) {
            return 0;
        }
        value = value << 6 | (next & 0x3fU);
    }
    if (!IsCharacter(value, length)) {
        return 0;
    }
    character = value;
    return length;
}

bool IsUtf8(const std::string& text) {
    uint32_t character = 0;
    for (size_t at = 0; at < text.size();) {
        const size_t length = DecodeUtf8(text, at, character);
        if (length == 0) {
            return false;
        }
        at += length;
    }
    return true;
}

bool HasWhiteSpace(const std::string& text) {
    return text.find_first_of(" \t\n\v\f\r") != std::string::npos;
}

bool StartsWith(const std::string& text, const std::string& start) {
    return text.compare(0, start.size(), start) == 0;
}

bool EndsWith(const std::string& text, const std::string& end) {
    return text.size() >= end.size() &&
           text.compare(text.size() - end.size(), end.size(), end) == 0;
}

std::string DirectoryOf(const std::string& path) {
    const size_t slash = path.find_last_of('/');
    // The root keeps its slash.
    return slash == std::string::npos ? "." : path.substr(0, std::max<size_t>(slash, 1));
}

std::string NameOf(const std::string& path) {
    return path.substr(path.find_last_of('/') + 1);
}

std::string TimeText(time_t time) {
    char text[64];
    struct tm parts = {};
    localtime_r(&time, &parts);
    strftime(text, sizeof(text), "%Y-%m-%d %H:%M:%S", &parts);
    return text;
}

std::string EscapeMarkup(const std::string& text) {
    std::string out;
    for (const char c : text) {
        switch (c) {
            case '&':
                out += "&amp;";
                break;
            case '<':
                out += "&lt;";
                break;
            case '>':
                out += "&gt;";
                break;
            case '"':
                out += "&quot;";
                break;
            default:
                out += c;
        }
    }
    return out;
}

int ReadText(const std::string& path, std::string& text) {
    errno = 0;
    std::ifstream file(path);
    if (!file.is_open()) {
        // A stream need not say why; the caller wants a reason all the same.
        return errno != 0 ? errno : EIO;
    }
    std::ostringstream all;
    // In one go, whatever the size: files of /proc have none.
    all << file.rdbuf();
    text = all.str();
    return 0;
}

bool ParseJson(const std::string& text, Json::Value& document) {
    const std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
    try {  // nesting too deep is reported by an exception
        return reader->parse(text.data(), text.data() + text.size(), &document, nullptr);
    } catch (const std::exception&) {
        return false;
    }
}

}  // namespace client
