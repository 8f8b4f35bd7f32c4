// SPDX-License-Identifier: MIT
#include "softcache/store/slot_journal.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace softcache {
namespace {

using Slots = std::vector<uint32_t>;

// A write to the unit in a closed slot.
void Change(SlotJournal& journal, uint32_t slot) {
    journal.Enter(slot);
    journal.NotesAreStable(journal.Note({slot}));
    journal.Leave(slot);
}

TEST(SlotJournal, ALineThatCouldMisleadNeedsANoteFirst) {
    SlotJournal journal;
    EXPECT_TRUE(journal.NeedsNote(3, false));
    EXPECT_FALSE(journal.NeedsNote(3, true)) << "an empty line misleads nobody";
    const uint64_t note = journal.Note({3});
    EXPECT_TRUE(journal.NeedsNote(3, false)) << "not yet on the SSD";
    EXPECT_EQ(journal.Noted(), Slots{3});
    journal.NotesAreStable(note);
    EXPECT_FALSE(journal.NeedsNote(3, false));
}

TEST(SlotJournal, WhatWasFilledFromEmptyNeedsNoneUntilItsLineIsWritten) {
    SlotJournal journal;
    journal.Enter(5);
    journal.Leave(5);
    EXPECT_FALSE(journal.NeedsNote(5, false));
    EXPECT_EQ(journal.BeginCheckpoint(), Slots{5});
    EXPECT_TRUE(journal.NeedsNote(5, false)) << "the line may be there at any moment";
    EXPECT_FALSE(journal.EndCheckpoint()) << "it was not noted";
    EXPECT_EQ(journal.Size(), 0u);
    EXPECT_TRUE(journal.NeedsNote(5, false));
}

TEST(SlotJournal, ACheckpointLeavesWhatIsBeingChangedAndWhatHasChangedSince) {
    SlotJournal journal;
    for (const uint32_t slot : {1u, 2u, 3u}) {
        Change(journal, slot);
    }
    journal.Enter(1);
    Slots taken = journal.BeginCheckpoint();
    std::sort(taken.begin(), taken.end());
    EXPECT_EQ(taken, (Slots{2, 3}));
    EXPECT_FALSE(journal.IsSettled(1));
    EXPECT_TRUE(journal.IsSettled(2));
    EXPECT_TRUE(journal.IsSettled(77)) << "never changed";
    Change(journal, 2);
    journal.Leave(1);
    EXPECT_FALSE(journal.IsSettled(1));
    EXPECT_FALSE(journal.IsSettled(2));
    EXPECT_TRUE(journal.EndCheckpoint());
    EXPECT_EQ(journal.Size(), 2u);
    EXPECT_EQ(journal.NotedSlots(), 2u);
    EXPECT_TRUE(journal.NeedsNote(3, false)) << "closed";
    EXPECT_FALSE(journal.NeedsNote(2, false)) << "still open";
    EXPECT_EQ(journal.BeginCheckpoint().size(), 2u);
    EXPECT_TRUE(journal.EndCheckpoint());
    EXPECT_EQ(journal.Size(), 0u);
}

TEST(SlotJournal, AnAbandonedCheckpointClosesNothing) {
    SlotJournal journal;
    Change(journal, 1);
    journal.BeginCheckpoint();
    journal.AbandonCheckpoint();
    EXPECT_FALSE(journal.IsSettled(1));
    EXPECT_EQ(journal.Noted(), Slots{1});
    EXPECT_EQ(journal.Idle(), Slots{1});
}

TEST(SlotJournal, AfterClearALateLeaveHarmsNobody) {
    SlotJournal journal;
    journal.Enter(1);
    journal.Clear();
    journal.Leave(1);
    EXPECT_EQ(journal.Size(), 0u);
    EXPECT_EQ(journal.NotedSlots(), 0u);
}

}  // namespace
}  // namespace softcache
