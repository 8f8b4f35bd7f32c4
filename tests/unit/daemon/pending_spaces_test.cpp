// SPDX-License-Identifier: MIT
#include "daemon/pending_spaces.h"

#include <memory>
#include <new>

#include "tests/unit/daemon/daemon_test.h"

namespace {

using Spaces = PendingSpaceList::Spaces;

class PendingSpacesTest : public DaemonTest {};

// At exit: the worker may be asking still, and the exit may have interrupted a change.
TEST_F(PendingSpacesTest, TheEndOfTheListFreesNothing) {
    alignas(PendingSpaceList) static char place[sizeof(PendingSpaceList)];
    auto* const list = new (place) PendingSpaceList;

    list->Publish(std::make_shared<const Spaces>(Spaces{"/volume1"}));
    const std::weak_ptr<const Spaces> published = list->Snapshot();
    list->~PendingSpaceList();
    EXPECT_FALSE(published.expired());
    AllowLeftovers();
}

TEST_F(PendingSpacesTest, AnEmptyListIsPublishedAsNone) {
    PendingSpaceList list;

    list.Publish(std::make_shared<const Spaces>(Spaces{"/volume1"}));
    ASSERT_NE(list.Snapshot(), nullptr);
    list.Publish(std::make_shared<const Spaces>());
    EXPECT_EQ(list.Snapshot(), nullptr);
    list.Publish(nullptr);
    EXPECT_EQ(list.Snapshot(), nullptr);
}

}  // namespace
