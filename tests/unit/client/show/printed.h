// SPDX-License-Identifier: MIT
// What a record prints.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "client/show/report.h"

namespace client {

inline std::string TextOf(Record record) {
    testing::internal::CaptureStdout();
    record.Print();
    return testing::internal::GetCapturedStdout();
}

}  // namespace client
