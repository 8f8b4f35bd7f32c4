// SPDX-License-Identifier: MIT
// A volume as one HTML file: its picture, in which each place tells its files, between parts that
// are records. Nothing in it comes from outside, no script is in it, and a policy in its head
// forbids both.
#pragma once

#include <string>
#include <vector>

#include "client/map/file_places.h"
#include "client/map/picture.h"
#include "client/show/output.h"
#include "client/show/report.h"

namespace client {

// Cells in a row of a page's picture, as many as a phone can show, and rows at most.
constexpr uint32_t kPageColumns = 64;
constexpr uint32_t kPageRows = 64;

struct PagePart {
    std::string title;
    Record content;
};

struct Page {
    std::string host;        // the machine's name
    std::string state;       // of what is pinned, in a few words
    Tone tone = Tone::kDim;  // of the state
    Picture picture;
    FilePlaces files;
    std::vector<PagePart> before;  // parts above the picture
    std::vector<PagePart> after;
};

std::string PageText(const Page& page);

}  // namespace client
