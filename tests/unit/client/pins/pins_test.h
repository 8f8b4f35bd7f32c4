// SPDX-License-Identifier: MIT
// The fixture of the model's tests: a service's list and queue beside the volume of the command's
// tests.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "client/pins/device_state.h"
#include "tests/unit/client/client_test.h"

namespace client {

class PinsTest : public ClientTest {
  protected:
    using Extents = std::vector<std::pair<uint64_t, uint64_t>>;

    void SetUp() override;

    // Puts the file on the volume's list; by its inode of now unless one is given.
    void List(const std::string& relative, uint32_t inode = 0);

    // Makes a file with these extents and lists it. Returns its path.
    std::string Pinned(const std::string& relative, const Extents& extents = {{0, kUnit}});

    // Makes a file with these extents; a reference as of one that a request names.
    FileRef File(const std::string& relative, const Extents& extents);

    // Queues a request to pin a file of the volume.
    void Queue(const std::string& relative);

    // Mounts the volume at a second path, which is returned.
    std::string MountAgain();

    // The volume's device as the model sees it now.
    DeviceState Read();

    // The listed file of this path. Fails the test when there is none.
    PinnedFile Listed(const std::string& relative);

    ConfigState state_;
    std::vector<Volume> volumes_;
};

}  // namespace client
