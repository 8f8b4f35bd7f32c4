// SPDX-License-Identifier: MIT
#include "daemon/service.h"

#include <errno.h>
#include <unistd.h>

#include "tests/unit/daemon/daemon_test.h"

namespace {

using Spaces = PendingSpaceList::Spaces;

class ServicePendingTest : public DaemonTest {
  protected:
    static Spaces Now() {
        auto spaces = g_service.pendingSpaces.Snapshot();
        return spaces == nullptr ? Spaces() : *spaces;
    }
};

// What the list held before the first test of this program could change it.
class AtTheStart : public testing::Environment {
  public:
    void SetUp() override { spaces_ = g_service.pendingSpaces.Snapshot(); }
    static std::shared_ptr<const PendingSpaceList::Spaces> spaces_;
};
std::shared_ptr<const PendingSpaceList::Spaces> AtTheStart::spaces_;
const auto* const g_atTheStart = testing::AddGlobalTestEnvironment(new AtTheStart);

TEST_F(ServicePendingTest, NothingIsPendingAtTheStart) {
    EXPECT_EQ(AtTheStart::spaces_, nullptr);
    EXPECT_EQ(PendingSpaceList().Snapshot(), nullptr);
    AtEveryLogSetting([](LogCapture& log) {
        for (const char* path : {"", "/volume1"}) {
            EXPECT_FALSE(ServiceIsSpacePending(path)) << path;
        }
        EXPECT_TRUE(log.Shows({}));
    });
    EXPECT_EQ(g_service.pendingSpaces.Snapshot(), nullptr);
}

TEST_F(ServicePendingTest, AnAddedSpaceIsPendingUntilItIsRemoved) {
    AtEveryLogSetting([](LogCapture& log) {
        EXPECT_EQ(ServiceAddPendingSpaceAtomic("/volume1"), 0);
        EXPECT_TRUE(log.Shows(
            {kDaemonLog.Verbose("ServiceAddPendingSpaceAtomic", "Add pending space = /volume1")}));
        EXPECT_TRUE(ServiceIsSpacePending("/volume1"));
        EXPECT_FALSE(ServiceMutexIsHeld());

        EXPECT_EQ(ServiceRemovePendingSpaceAtomic("/volume1"), 0);
        EXPECT_TRUE(log.Shows({kDaemonLog.Verbose("ServiceRemovePendingSpaceAtomic",
                                                  "Remove pending space (/volume1)")}));
        EXPECT_FALSE(ServiceIsSpacePending("/volume1"));
        EXPECT_FALSE(ServiceMutexIsHeld());
    });
}

TEST_F(ServicePendingTest, SpacesAreComparedByteForByte) {
    struct Row {
        const char* what;
        const char* added;
        const char* asked;
        bool pending;
    };
    const Row rows[] = {
        {"the same text", "/volume1", "/volume1", true},
        {"a slash more", "/volume1", "/volume1/", false},
        {"a slash less", "/volume1/", "/volume1", false},
        {"another case", "/volume1", "/Volume1", false},
        {"a prefix of it", "/volume1", "/volume", false},
        {"longer than it", "/volume1", "/volume12", false},
        {"two slashes", "/volume1", "//volume1", false},
        {"empty, asked for something", "", "/volume1", false},
        {"something, asked for empty", "/volume1", "", false},
        {"empty", "", "", true},
        {"bytes that are no text", "/vol\xff\x01", "/vol\xff\x01", true},
    };

    for (const Row& row : rows) {
        ASSERT_EQ(ServiceAddPendingSpaceAtomic(row.added), 0) << row.what;
        EXPECT_EQ(ServiceIsSpacePending(row.asked), row.pending) << row.what;
        ASSERT_EQ(ServiceRemovePendingSpaceAtomic(row.added), 0) << row.what;
    }
}

// Paths that differ in their last character alone, wherever it stands.
TEST_F(ServicePendingTest, LongPathsAreComparedToTheirEnd) {
    LogCapture quiet;

    for (size_t length : {255U, 256U, 257U, 511U, 512U, 513U, 1000U}) {
        std::string one = "/" + Text(length - 2) + "1";
        std::string other = "/" + Text(length - 2) + "2";
        EXPECT_EQ(ServiceAddPendingSpaceAtomic(one.c_str()), 0);
        EXPECT_TRUE(ServiceIsSpacePending(one.c_str())) << length;
        EXPECT_FALSE(ServiceIsSpacePending(other.c_str())) << length;
        EXPECT_EQ(ServiceRemovePendingSpaceAtomic(other.c_str()), -1) << length;
        EXPECT_EQ(ServiceAddPendingSpaceAtomic(other.c_str()), 0);
        EXPECT_EQ(ServiceRemovePendingSpaceAtomic(other.c_str()), 0) << length;
        EXPECT_TRUE(ServiceIsSpacePending(one.c_str())) << length;
        EXPECT_EQ(ServiceRemovePendingSpaceAtomic(one.c_str()), 0) << length;
    }
}

TEST_F(ServicePendingTest, TheListKeepsTheOrderOfInsertion) {
    for (const char* path : {"/c", "/a", "", "/b"}) {
        ASSERT_EQ(ServiceAddPendingSpaceAtomic(path), 0);
    }
    EXPECT_EQ(Now(), Spaces({"/c", "/a", "", "/b"}));
    ASSERT_EQ(ServiceRemovePendingSpaceAtomic("/a"), 0);
    EXPECT_EQ(Now(), Spaces({"/c", "", "/b"}));
    ASSERT_EQ(ServiceAddPendingSpaceAtomic("/a"), 0);
    EXPECT_EQ(Now(), Spaces({"/c", "", "/b", "/a"}));
    for (const char* path : {"/c", "", "/b", "/a"}) {
        EXPECT_TRUE(ServiceIsSpacePending(path)) << path;
    }
}

TEST_F(ServicePendingTest, RemovingWhatIsNotPendingIsAnErrorAndChangesNothing) {
    AtEveryLogSetting([](LogCapture& log) {
        ASSERT_EQ(ServiceAddPendingSpaceAtomic("/volume1"), 0);
        log.Clear();
        EXPECT_EQ(ServiceRemovePendingSpaceAtomic("/volume2"), -1);
        EXPECT_TRUE(log.Shows({kDaemonLog.Error("ServiceRemovePendingSpaceAtomic",
                                                "Space (/volume2) is not pending")}));
        EXPECT_FALSE(ServiceMutexIsHeld());
        EXPECT_EQ(Now(), Spaces({"/volume1"}));
        ASSERT_EQ(ServiceRemovePendingSpaceAtomic("/volume1"), 0);
    });
}

TEST_F(ServicePendingTest, RemovingFromAnEmptyListIsAnError) {
    LogCapture log;

    EXPECT_EQ(ServiceRemovePendingSpaceAtomic(""), -1);
    EXPECT_TRUE(log.Shows(
        {kDaemonLog.Error("ServiceRemovePendingSpaceAtomic", "Space () is not pending")}));
    EXPECT_FALSE(ServiceMutexIsHeld());
}

// Meant: nothing may be stored any more after this.
TEST_F(ServicePendingTest, AddingASpaceTwiceLeavesTheMutexLocked) {
    AtEveryLogSetting([](LogCapture& log) {
        ASSERT_EQ(ServiceAddPendingSpaceAtomic("/volume1"), 0);
        log.Clear();
        EXPECT_EQ(ServiceAddPendingSpaceAtomic("/volume1"), -1);
        EXPECT_TRUE(log.Shows({kDaemonLog.Error("ServiceAddPendingSpaceAtomic",
                                                "Space (/volume1) is already pending")}));
        EXPECT_EQ(pthread_mutex_trylock(&g_service.mutex), EBUSY);
        EXPECT_EQ(Now(), Spaces({"/volume1"}));

        pthread_mutex_unlock(&g_service.mutex);
        ASSERT_EQ(ServiceRemovePendingSpaceAtomic("/volume1"), 0);
    });
}

// Meant: the mutex is not recursive, so its holder waits for itself.
TEST_F(ServicePendingTest, AHolderOfTheMutexBlocksForGoodInEitherChange) {
    for (auto change : {ServiceAddPendingSpaceAtomic, ServiceRemovePendingSpaceAtomic}) {
        EXPECT_EXIT(
            {
                Background thread([change] {
                    pthread_mutex_lock(&g_service.mutex);
                    change("/volume1");
                });
                bool blocked = WaitUntilBlockedOnServiceMutex(thread);
                _exit(blocked && ServiceMutexIsHeld() && Now().empty() ? 0 : 1);
            },
            testing::ExitedWithCode(0), "");
    }
}

TEST_F(ServicePendingTest, AReaderKeepsTheListItHas) {
    ASSERT_EQ(ServiceAddPendingSpaceAtomic("/volume1"), 0);
    auto before = g_service.pendingSpaces.Snapshot();

    ASSERT_EQ(ServiceAddPendingSpaceAtomic("/volume2"), 0);
    auto between = g_service.pendingSpaces.Snapshot();
    ASSERT_EQ(ServiceRemovePendingSpaceAtomic("/volume1"), 0);
    ASSERT_EQ(ServiceRemovePendingSpaceAtomic("/volume2"), 0);

    EXPECT_EQ(*before, Spaces({"/volume1"}));
    EXPECT_EQ(*between, Spaces({"/volume1", "/volume2"}));
    EXPECT_EQ(g_service.pendingSpaces.Snapshot(), nullptr);
}

TEST_F(ServicePendingTest, AReadTakesNoLock) {
    ASSERT_EQ(ServiceAddPendingSpaceAtomic("/volume1"), 0);
    pthread_mutex_lock(&g_service.mutex);
    Background reader([] {
        EXPECT_TRUE(ServiceIsSpacePending("/volume1"));
        EXPECT_FALSE(ServiceIsSpacePending("/volume2"));
    });
    EXPECT_TRUE(reader.Ends());
    pthread_mutex_unlock(&g_service.mutex);
}

TEST_F(ServicePendingTest, ARepeatedQuestionFollowsTheList) {
    ServiceAddPendingSpaceAtomic("/volume1");
    PendingQuestion first("/volume1");
    PendingQuestion second("/volume2");
    EXPECT_TRUE(first.Ask());
    EXPECT_FALSE(second.Ask());
    ServiceAddPendingSpaceAtomic("/volume2");
    EXPECT_TRUE(first.Ask());
    EXPECT_TRUE(second.Ask());
    ServiceRemovePendingSpaceAtomic("/volume1");
    EXPECT_FALSE(first.Ask());
    EXPECT_TRUE(second.Ask());
    ServiceRemovePendingSpaceAtomic("/volume2");
    EXPECT_FALSE(second.Ask());
}

}  // namespace
