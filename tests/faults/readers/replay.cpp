// SPDX-License-Identifier: MIT
// Gives every file of a corpus to its reader: foreign_bytes DIRECTORY. Files stand in directories
// named for their readers, of which none may be empty.
#include <stdio.h>

#include <filesystem>
#include <fstream>
#include <iterator>

#include "tests/faults/readers/readers.h"

namespace {

// Returns how many files it gave to the reader.
int Replay(const readers::Reader& reader, const std::filesystem::path& directory) {
    int count = 0;
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator(directory, error)) {
        std::ifstream file(entry.path(), std::ios::binary);
        fprintf(stderr, "%s\n", entry.path().c_str());
        reader.read({std::istreambuf_iterator<char>(file), {}});
        ++count;
    }
    return count;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        fprintf(stderr, "usage: foreign_bytes DIRECTORY\n");
        return 2;
    }
    readers::BeSilent();
    int status = 0;
    for (const readers::Reader& reader : readers::kReaders) {
        if (Replay(reader, std::filesystem::path(argv[1]) / reader.name) == 0) {
            fprintf(stderr, "nothing for %s\n", reader.name);
            status = 1;
        }
    }
    return status;
}
