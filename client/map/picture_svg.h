// SPDX-License-Identifier: MIT
// A picture as an SVG document.
#pragma once

#include <string>

#include "client/map/picture.h"

namespace client {

// Cells in a row of a document's picture, and rows at most.
constexpr uint32_t kSvgColumns = 128;
constexpr uint32_t kSvgRows = 96;

// Draws the picture. Each row is a group whose unit of length is a cell; a run of cells fills its
// lower part, so many quarters of it as its level is.
std::string DrawSvg(const Picture& picture);

}  // namespace client
