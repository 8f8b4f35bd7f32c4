// SPDX-License-Identifier: MIT
// Bitmaps whose bytes the test owns.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <string>
#include <vector>

#include "util/pin_bitmap.h"

// Around the borders of a piece of a file.
constexpr size_t kFileSizes[] = {0, 1, 4095, 4096, 4097, 8192, 10000, 2 << 20};

// Bytes that differ from piece to piece.
inline std::string Pattern(size_t size) {
    std::string bytes(size, '\0');
    for (size_t i = 0; i < size; ++i) {
        bytes[i] = static_cast<char>(i * 7 + i / 4096);
    }
    return bytes;
}

// A bitmap over a text's bytes. The bytes are a heap block of just that size.
inline PinBitmap Over(std::vector<uint8_t>& bytes) {
    return PinBitmap{bytes.data(), static_cast<uint32_t>(bytes.size())};
}

inline std::vector<uint8_t> Bytes(const std::string& text) {
    std::vector<uint8_t> bytes(text.begin(), text.end());
    bytes.shrink_to_fit();
    bytes.reserve(1);  // an empty bitmap has an address, too
    return bytes;
}

inline std::string Text(const std::vector<uint8_t>& bytes) {
    return std::string(bytes.begin(), bytes.end());
}
