// SPDX-License-Identifier: MIT
// Which links of plain names go, and which stay because somebody may still need them.
#include "client/request/unneeded_links.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include "client/volume/plain_links.h"
#include "tests/unit/client/client_test.h"

namespace client {

namespace {

using Texts = std::vector<std::string>;

class UnneededLinksTest : public ClientTest {
  protected:
    void SetUp() override {
        ClientTest::SetUp();
        if (geteuid() != 0) {
            GTEST_SKIP() << "needs root: the directory must be root's";
        }
        volumes_ = Volumes();
    }
    // Makes a file that has its link.
    FileRef Linked(const std::string& relative) {
        FileRef file;
        std::string why;
        file.volume = FindMounted(mount_, volumes_);
        file.path = Make(relative);
        file.inode = InodeOf(file.path);
        file.relative = LinkName(file.inode);
        EXPECT_TRUE(MakeLink(file, why)) << why;
        return file;
    }
    void Queue(const char* type, const FileRef& file) {
        state_.queue.push_back({std::to_string(state_.queue.size() + 1), type, mount_,
                                file.relative + "#" + std::to_string(file.inode)});
    }
    bool Has(const FileRef& file) const { return HasLink(mount_, file.inode); }

    std::vector<Volume> volumes_;
    ConfigState state_;
};

TEST_F(UnneededLinksTest, OfUnpinnedFilesThoseGoThatNothingPinsAnyMore) {
    const FileRef unpinned = Linked("a a");
    const FileRef listed = Linked("b b");
    const FileRef queued = Linked("c c");
    const FileRef other = Linked("d d");
    const FileRef removed = Linked("e e");
    FileRef plain = Linked("plain");
    plain.relative = "plain";
    unlink(removed.path.c_str());
    state_.pinned[mount_] = {{listed.relative, listed.inode}};
    Queue("pinFiles", queued);
    RemoveLinksOf({unpinned, listed, queued, plain}, state_);
    EXPECT_FALSE(Has(unpinned));
    EXPECT_TRUE(Has(listed));
    EXPECT_TRUE(Has(queued));
    EXPECT_TRUE(Has(other)) << "it was not asked about";
    EXPECT_TRUE(Has(plain)) << "it was not unpinned by its link";
    EXPECT_FALSE(Has(removed)) << "its last name";
}

TEST_F(UnneededLinksTest, AtRestThoseGoThatNeitherListNorQueueNames) {
    const FileRef unneeded = Linked("a a");
    const FileRef elsewhere = Linked("b b");
    const FileRef toPin = Linked("c c");
    const FileRef toUnpin = Linked("d d");
    const FileRef last = Linked("e e");
    unlink(last.path.c_str());
    state_.pinned["/mnt/former"] = {{elsewhere.relative, elsewhere.inode}};
    Queue("pinFiles", toPin);
    Queue("unpinFiles", toUnpin);
    EXPECT_EQ(RemoveUnneededLinks(mount_, state_), Texts{unneeded.relative});
    EXPECT_FALSE(Has(unneeded));
    EXPECT_EQ(access(unneeded.path.c_str(), F_OK), 0) << "the file itself stays";
    EXPECT_TRUE(Has(elsewhere)) << "the volume may have been mounted there";
    EXPECT_TRUE(Has(toPin));
    EXPECT_TRUE(Has(toUnpin)) << "its request goes by the link";
    EXPECT_TRUE(Has(last)) << "its data would go, and nobody has asked for that here";
    EXPECT_EQ(RemoveUnneededLinks(mount_, state_), Texts());
}

}  // namespace

}  // namespace client
