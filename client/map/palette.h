// SPDX-License-Identifier: MIT
// The kinds of units and their colours. Blues and oranges, which people who see red and green alike
// tell apart; each is lighter or darker than all others, so that they survive grey print.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <array>

namespace client {

// In the legend's order.
enum class UnitKind { kPinned, kAbsent, kBesides, kNeither };

struct KindStyle {
    UnitKind kind;
    const char* name;         // in style sheets
    uint32_t light;           // 0xRRGGBB, on white paper
    uint32_t dark;            // on a dark screen
    const char* meaning;      // a few words
    const char* muteMeaning;  // with a cache that tells nothing; null = does not occur
};

constexpr std::array<KindStyle, 4> kKindStyles = {{
    {UnitKind::kPinned, "pinned", 0x00315f, 0xe3f2ff, "pinned, in the cache", "pinned"},
    {UnitKind::kAbsent, "absent", 0xd55e00, 0xe69f00, "pinned, not in the cache", nullptr},
    {UnitKind::kBesides, "besides", 0x86c5ec, 0x0a6aa6, "in the cache, not pinned", nullptr},
    {UnitKind::kNeither, "neither", 0xf4f5f7, 0x23272c, "neither", "not pinned"},
}};

constexpr const KindStyle& StyleOf(UnitKind kind) {
    return kKindStyles[static_cast<size_t>(kind)];
}

}  // namespace client
