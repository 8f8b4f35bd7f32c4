// SPDX-License-Identifier: MIT
// Letters for pictures that have no fonts: five by seven dots.
#pragma once

#include <stdint.h>

constexpr unsigned kGlyphWidth = 5;
constexpr unsigned kGlyphHeight = 7;
constexpr unsigned kGlyphPitch = 6;  // from one letter to the next

// Returns the seven rows of a character, the leftmost dot in bit 4. Small letters look like capital
// ones; a character that there is none of is blank.
const uint8_t* GlyphRows(char character);
