// SPDX-License-Identifier: MIT
// libFuzzer's two functions, for the reader that the environment variable QUOR_READER names.
#include <stdio.h>
#include <stdlib.h>

#include "tests/faults/readers/readers.h"

namespace {

const readers::Reader* g_reader = nullptr;

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    const char* name = getenv("QUOR_READER");
    g_reader = readers::FindReader(name == nullptr ? "" : name);
    if (g_reader == nullptr) {
        fprintf(stderr, "QUOR_READER names no reader\n");
        exit(2);
    }
    readers::BeSilent();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    g_reader->read({reinterpret_cast<const char*>(data), size});
    return 0;
}
