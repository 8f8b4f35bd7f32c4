// SPDX-License-Identifier: MIT
// Lists of expected log lines, put together from parts.
#pragma once

#include <vector>

#include "tests/unit/support/expected_line.h"

using Lines = std::vector<ExpectedLine>;

inline Lines operator+(Lines left, const Lines& right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}
