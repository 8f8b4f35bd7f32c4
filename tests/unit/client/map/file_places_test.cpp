// SPDX-License-Identifier: MIT
// Which files lie in a stretch of units.
#include "client/map/file_places.h"

#include <gtest/gtest.h>

namespace client {

namespace {

TEST(FilePlaces, EachFileIsNamedOnceByItsFirstUnit) {
    const FilePlaces places({{"/m/late", {{100, 199}}},
                             {"/m/small", {{10, 10}}},
                             {"/m/other", {{10, 10}}},
                             {"/m/torn", {{5, 9}, {40, 50}, {60, 60}}},
                             {"/m/none", {}}});
    const struct {
        uint64_t first;
        uint64_t end;
        std::vector<std::string> names;
    } rows[] = {
        {0, 5, {}},
        {0, 6, {"/m/torn"}},
        {9, 11, {"/m/torn", "/m/small", "/m/other"}},
        {10, 11, {"/m/small", "/m/other"}},
        {11, 40, {}},
        {45, 61, {"/m/torn"}},
        {199, 200, {"/m/late"}},
        {200, 1000, {}},
        {0, 1000, {"/m/torn", "/m/small", "/m/other", "/m/late"}},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(places.Between(row.first, row.end), row.names) << row.first;
    }
}

// Files may share extents: behind a short one a long one may still go on.
TEST(FilePlaces, AFileThatReachesOverOthersIsFound) {
    const FilePlaces places({{"/m/long", {{0, 1000}}}, {"/m/short", {{10, 11}}}});
    EXPECT_EQ(places.Between(500, 501), (std::vector<std::string>{"/m/long"}));
    EXPECT_EQ(FilePlaces().Between(0, 10), (std::vector<std::string>{}));
}

}  // namespace

}  // namespace client
