// SPDX-License-Identifier: MIT
// The libraries export what their headers declare and nothing else.
#include <set>
#include <sstream>

#include "tests/unit/platform/scratch.h"

namespace {

std::set<std::string> ExportsOf(const std::string& library) {
    std::istringstream lines(
        RunProgram({"nm", "--dynamic", "--demangle", "--defined-only", library}));
    std::set<std::string> names;
    for (std::string line; std::getline(lines, line);) {
        const std::string symbol = line.substr(line.find(' ') + 3);  // behind the type letter
        names.insert(symbol.substr(0, symbol.find('(')));
    }
    return names;
}

using Names = std::set<std::string>;

TEST(ExportsTest, AreWhatTheHeadersDeclare) {
    EXPECT_EQ(ExportsOf(QUOR_LIBRARY_CORE), (Names{"QLIBCFileGetKeyValue"}));
    EXPECT_EQ(ExportsOf(QUOR_LIBRARY_FLASHCACHE), (Names{"QUORFlashcacheGetCachePath"}));
    EXPECT_EQ(ExportsOf(QUOR_LIBRARY_STORAGECORE),
              (Names{"QUORSpaceInfoEnum", "QUORSpaceInfoFree", "QUORSpaceUUIDGet",
                     "QUORFlashCacheConfigTmpGet", "QUORFlashCacheConfigFree",
                     "QUORFlashCacheStatGet", "QUORFlashCacheStatFree"}));
    EXPECT_EQ(ExportsOf(QUOR_LIBRARY_DATAVERIFIER),
              (Names{"FileSystemDevice::GetDevicePath", "FileSystemDeviceCreater::Create",
                     "typeinfo for FileSystemDevice", "typeinfo name for FileSystemDevice"}));
}

TEST(ExportsTest, NamesCarryNoVersion) {
    for (const char* const library : {QUOR_LIBRARY_CORE, QUOR_LIBRARY_STORAGECORE,
                                      QUOR_LIBRARY_FLASHCACHE, QUOR_LIBRARY_DATAVERIFIER}) {
        const std::string path = library;
        const std::string name = path.substr(path.rfind('/') + 1);
        const std::string dynamic = RunProgram({"readelf", "--dynamic", "--wide", path});
        EXPECT_NE(dynamic.find("Library soname: [" + name + "]"), std::string::npos) << dynamic;
        EXPECT_EQ(name.substr(name.size() - 3), ".so");
    }
}

}  // namespace
