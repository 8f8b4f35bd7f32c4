// SPDX-License-Identifier: MIT
// Directories of links that a killed command has left behind.
#include "client/request/leftovers.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/msg.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <thread>

#include "client/request/packing.h"
#include "client/service/queue.h"
#include "client/request/stale_entries.h"
#include "tests/unit/client/client_test.h"
#include "util/scoped.h"

namespace client {

namespace {

class LeftoversTest : public QueueClientTest {
  protected:
    bool There(const std::string& name) const {
        return std::filesystem::exists(std::filesystem::path(mount_) / name);
    }
};

TEST(Leftovers, AreKnownByTheirNames) {
    EXPECT_TRUE(IsLinkDirectoryName(".quorcachepinctl-a1B2c3"));
    EXPECT_FALSE(IsLinkDirectoryName(".quorcachepinctl-a1B2c3d"));
    EXPECT_FALSE(IsLinkDirectoryName(".quorcachepinctl-"));
    EXPECT_FALSE(IsLinkDirectoryName("quorcachepinctl-a1B2c3"));
}

TEST_F(LeftoversTest, AreRemovedWhenTheQueueIsQuietAndNobodyHoldsThem) {
    const int queue = MakeQueue();
    std::string held;
    std::string why;
    const ScopedFd lock(MakeLinkDirectory(mount_, held));
    ASSERT_TRUE(lock.valid());
    Make(".quorcachepinctl-Ab12Cd/gone#120");
    Make(".quorcachepinctl-Ab12Cd/target");
    Make(".quorcachepinctl-Others/file");
    RemoveLeftovers(mount_, 60);
    EXPECT_TRUE(There(".quorcachepinctl-Ab12Cd")) << "it is new";
    std::this_thread::sleep_for(std::chrono::milliseconds(2500));

    ASSERT_EQ(SendMessage(queue, VolumeMessage(kRequestReloadPinBlocks, mount_), 0, why),
              SendOutcome::kSent);
    RemoveLeftovers(mount_, 1);
    EXPECT_TRUE(There(".quorcachepinctl-Ab12Cd/gone#120")) << "a message waits";

    RequestMsg msg;
    ASSERT_GE(msgrcv(queue, &msg, sizeof(msg.body), 0, 0), 0);
    RemoveLeftovers(mount_, 1);
    EXPECT_TRUE(There(".quorcachepinctl-Ab12Cd/gone#120")) << "a message was taken just now";

    RemoveLeftovers(mount_, -1);
    EXPECT_FALSE(There(".quorcachepinctl-Ab12Cd"));
    EXPECT_TRUE(There(".quorcachepinctl-Others/file")) << "it holds what is not ours";
    EXPECT_TRUE(std::filesystem::exists(held)) << "somebody holds it";
}

TEST_F(LeftoversTest, AHangUpIsTakenForTermWhileLinksAreThere) {
    const std::vector<Volume> volumes = Volumes();
    struct sigaction before = {};
    struct sigaction now = {};
    ASSERT_EQ(sigaction(SIGHUP, nullptr, &before), 0);
    {
        const StaleEntryLinks links(volumes[0]);
        ASSERT_EQ(sigaction(SIGHUP, nullptr, &now), 0);
        EXPECT_NE(now.sa_handler, SIG_DFL);
        EXPECT_NE(now.sa_handler, SIG_IGN);
        EXPECT_EXIT(raise(SIGHUP), testing::KilledBySignal(SIGTERM), "");
    }
    ASSERT_EQ(sigaction(SIGHUP, nullptr, &now), 0);
    EXPECT_EQ(now.sa_handler, before.sa_handler);
}

}  // namespace

}  // namespace client
