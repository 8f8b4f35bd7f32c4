// SPDX-License-Identifier: MIT
// What is noted of a repair can be read again, and nothing else is taken for it.
#include "client/service/repair_record.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "tests/unit/support/unit_test.h"

namespace client {

namespace {

class RepairRecordTest : public UnitTest {
  protected:
    std::string why_;
};

TEST_F(RepairRecordTest, TheLastOneIsReadAgain) {
    const std::string path = dir_ / "conf";
    EXPECT_FALSE(ReadRepairRecord(path).has_value()) << "there was none";
    WriteFile(path, "{}");
    ASSERT_EQ(chmod(path.c_str(), 0640), 0);
    ASSERT_TRUE(NoteRepair(path, {1700000000, 3}, why_)) << why_;
    ASSERT_TRUE(NoteRepair(path, {1700000001, 0}, why_)) << why_;
    const std::optional<RepairRecord> record = ReadRepairRecord(path);
    ASSERT_TRUE(record.has_value());
    EXPECT_EQ(record->at, 1700000001);
    EXPECT_EQ(record->left, 0U);
    struct stat status = {};
    ASSERT_EQ(stat((path + ".repaired").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0640U) << "who may read the one may read the other";
    EXPECT_FALSE(NoteRepair(dir_ / "nowhere/conf", {1, 0}, why_));
    EXPECT_NE(why_, "");
}

TEST_F(RepairRecordTest, WhatIsDamagedIsNoRecord) {
    const std::string path = dir_ / "conf";
    for (const char* const text : {"", "7", "[]", "{", R"({"time":1})", R"({"time":"1","left":0})",
                                   R"({"time":-1,"left":0})", R"({"time":1,"left":null})"}) {
        WriteFile(path + ".repaired", text);
        EXPECT_FALSE(ReadRepairRecord(path).has_value()) << text;
    }
}

}  // namespace

}  // namespace client
