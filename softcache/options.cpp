// SPDX-License-Identifier: MIT
#include "softcache/options.h"

#include <stdio.h>

#include <CLI/CLI.hpp>

#include "softcache/serve/loop_device.h"
#include "softcache/serve/registry.h"
#include "softcache/store/distrust.h"
#include "softcache/store/storage.h"

namespace softcache {

// Needs none of the options that serving needs.
struct Inspection {
    std::string ssd;
};

static CLI::Validator SizeValidator() {
    const auto check = [](const std::string& text) {
        uint64_t bytes = 0;
        return ParseSize(text, bytes) ? std::string() : "'" + text + "' is no size";
    };
    return CLI::Validator(check, "SIZE");
}

// What is served, and where.
static void AddPlaces(CLI::App& app, Options& options, std::string& ssdSize) {
    app.add_option("--name", options.name, "Name of the cache and of its registry entry")
        ->required();
    app.add_option("--backing", options.backing,
                   "File or block device to cache;\nUUID=, LABEL=, PARTUUID= too")
        ->required();
    app.add_option("--ssd", options.ssd,
                   "File or block device that holds the cached units;\nUUID= and so on too")
        ->required();
    app.add_option("--ssd-size", ssdSize,
                   "Size of the cache: bytes, or with K, M, G, T\n(default: all of --ssd)")
        ->type_name("")
        ->check(SizeValidator());
    app.add_option("--mount", options.mountPoint,
                   "Directory to mount on\n(default: " + DefaultMountPoint("NAME") + ", made)");
    app.add_flag("--device", options.device,
                 "Attach a loop device and name it " + DefaultNameDirectory() + "/NAME");
}

// How it is told to others, and what it does instead of serving, or for tests.
static void AddManners(CLI::App& app, Options& options, bool& noPin) {
    options.registryDirectory = DefaultRegistryDirectory();
    app.add_option("--registry", options.registryDirectory, "Registry directory")
        ->capture_default_str();
    options.distrustDirectory = DefaultDistrustDirectory();
    app.add_option("--distrust", options.distrustDirectory,
                   "Directory of notes of SSDs written no more")
        ->capture_default_str();
    app.add_option("--state", options.state, "State told by the registry entry, 1 = serving")
        ->check(CLI::NonNegativeNumber)
        ->capture_default_str();
    app.add_flag("--no-pin", noPin, "Let the registry entry say that pinning is\nnot supported");
    app.add_flag("--format", options.format, "Overwrite whatever the SSD holds");
    app.add_flag("--test-doors", options.testDoors, "Take orders to fail (for tests)");
    app.add_option("--inspect", options.inspect, "Print what an SSD holds, and serve nothing")
        ->trigger_on_parse()
        ->type_name("SSD")
        ->each([](const std::string& ssd) { throw Inspection{ssd}; });
    app.set_version_flag("--version", "quorsoftcache " QUOR_VERSION);
}

std::optional<int> ParseOptions(int argc, char** argv, Options& options) {
    CLI::App app("A flash cache in user space: a cached device as a file in a FUSE mount.",
                 "quorsoftcache");
    std::string ssdSize;
    bool noPin = false;
    app.get_formatter()->column_width(26);  // with the texts, 80 for a line
    AddPlaces(app, options, ssdSize);
    AddManners(app, options, noPin);
    try {
        app.parse(argc, argv);
    } catch (const Inspection& asked) {
        options.inspect = asked.ssd;
        return std::nullopt;
    } catch (const CLI::Success& asked) {  // --help, --version
        return app.exit(asked);
    } catch (const CLI::ParseError& error) {
        fprintf(stderr, "quorsoftcache: %s\n", error.what());
        return 2;
    }
    if (!ssdSize.empty()) {
        ParseSize(ssdSize, options.ssdSize);
    }
    options.supportPin = !noPin;
    return std::nullopt;
}

}  // namespace softcache
