// SPDX-License-Identifier: MIT
// Changing the lists of pinned files while no service runs.
#include "client/service/stored_list.h"

#include <gtest/gtest.h>
#include <json/json.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>

#include "tests/unit/support/unit_test.h"
#include "util/json_file.h"

namespace client {

namespace {

class StoredListTest : public UnitTest {
  protected:
    void SetUp() override {
        UnitTest::SetUp();
        path_ = std::filesystem::canonical(dir_.path()).string() + "/conf";
        WriteFile(path_, kBefore);
    }
    Json::Value Document() {
        Json::Value document;
        EXPECT_EQ(ReadFileToJson(path_, document), 0);
        return document;
    }
    // The document that a text holds.
    Json::Value Parsed(const std::string& text) {
        Json::Value document;
        WriteFile(dir_ / "text", text);
        EXPECT_EQ(ReadFileToJson(dir_ / "text", document), 0) << text;
        return document;
    }
    std::vector<std::string> NamesBeside() {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(dir_.path())) {
            if (entry.path().filename() != "text") {
                names.push_back(entry.path().filename());
            }
        }
        std::sort(names.begin(), names.end());
        return names;
    }

    static constexpr const char* kBefore =
        R"({"nextRequestNum":8,"requestQueue":["7"],"own":[1,null,{"x":2.5}],)"
        R"("requests":{"7":{"data":"q#9","mountPath":"/mnt/a","type":"pinFiles"}},)"
        R"("volumes":{"/mnt/a":{"files":{"5":"gone","6":"b"}},"/mnt/b":{"files":{"7":"c"}}}})";

    std::string path_;
    std::string why_;
};

struct ListRow {
    const char* what;
    StoredLists lists;
    const char* volumes;  // afterwards
};

TEST_F(StoredListTest, OnlyTheListsGivenChange) {
    const ListRow rows[] = {
        {"nothing",
         {},
         R"({"/mnt/a":{"files":{"5":"gone","6":"b"}},"/mnt/b":{"files":{"7":"c"}}})"},
        {"an entry goes",
         {{"/mnt/a", {{"b", 6}}}},
         R"({"/mnt/a":{"files":{"6":"b"}},"/mnt/b":{"files":{"7":"c"}}})"},
        {"another inode and name",
         {{"/mnt/b", {{"new/d", 4294967295}}}},
         R"({"/mnt/a":{"files":{"5":"gone","6":"b"}},"/mnt/b":{"files":{"4294967295":"new/d"}}})"},
        {"the last entry", {{"/mnt/a", {}}}, R"({"/mnt/b":{"files":{"7":"c"}}})"},
        {"all", {{"/mnt/a", {}}, {"/mnt/b", {}}}, "{}"},
        {"a mount path that is not listed",
         {{"/mnt/c", {}}},
         R"({"/mnt/a":{"files":{"5":"gone","6":"b"}},"/mnt/b":{"files":{"7":"c"}}})"},
        {"quotes and blanks",
         {{"/mnt/a", {}}, {"/mnt/b", {{"a \"b\"\\#;", 1}}}},
         R"({"/mnt/b":{"files":{"1":"a \"b\"\\#;"}}})"},
    };
    for (const ListRow& row : rows) {
        SCOPED_TRACE(row.what);
        WriteFile(path_, kBefore);
        Json::Value expected = Parsed(kBefore);
        expected["volumes"] = Parsed(row.volumes);
        StoredList list;
        ASSERT_TRUE(list.Lock(path_, why_)) << why_;
        ASSERT_TRUE(list.Replace(row.lists, why_)) << why_;
        EXPECT_EQ(Document(), expected);
    }
    EXPECT_EQ(NamesBeside(), (std::vector<std::string>{"conf", "conf.lock"}));
}

TEST_F(StoredListTest, TheFormIsTheServicesOwn) {
    StoredList list;
    ASSERT_TRUE(list.Lock(path_, why_) && list.Replace({{"/mnt/a", {}}}, why_)) << why_;
    ASSERT_EQ(WriteJsonToFile(Document(), (dir_ / "text").c_str()), 0);
    EXPECT_EQ(ReadFile(path_), ReadFile(dir_ / "text"));
}

TEST_F(StoredListTest, ModeAndLinkStay) {
    struct stat status = {};
    ASSERT_EQ(chmod(path_.c_str(), 0640), 0);
    std::filesystem::create_symlink(path_, dir_ / "link");
    StoredList list;
    ASSERT_TRUE(list.Lock(dir_ / "link", why_) && list.Replace({{"/mnt/a", {}}}, why_)) << why_;
    ASSERT_EQ(stat(path_.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777U, 0640U);
    EXPECT_TRUE(std::filesystem::is_symlink(dir_ / "link"));
    EXPECT_FALSE(Document()["volumes"].isMember("/mnt/a"));
}

TEST_F(StoredListTest, ASecondRepairIsKeptOutUntilTheFirstHasEnded) {
    StoredList second;
    {
        StoredList first;
        ASSERT_TRUE(first.Lock(path_, why_)) << why_;
        EXPECT_FALSE(second.Lock(path_, why_));
        EXPECT_EQ(why_, "another repair is at work on " + path_);
        ASSERT_TRUE(first.Replace({{"/mnt/a", {}}}, why_)) << why_;
        EXPECT_FALSE(second.Lock(path_, why_)) << "the file has been replaced, the lock has not";
    }
    EXPECT_TRUE(second.Lock(path_, why_)) << why_;
}

TEST_F(StoredListTest, OnlyTheOwnerCanHoldTheLock) {
    struct stat status = {};
    StoredList list;
    ASSERT_TRUE(list.Lock(path_, why_)) << why_;
    ASSERT_EQ(stat((path_ + ".lock").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 077U, 0U);
}

TEST_F(StoredListTest, AMissingFileIsNotMade) {
    StoredList list;
    EXPECT_FALSE(list.Lock(dir_ / "none", why_));
    EXPECT_EQ(why_, "configuration file " + (dir_ / "none") + ": No such file or directory");
    EXPECT_FALSE(Exists(dir_ / "none"));
    EXPECT_FALSE(Exists(dir_ / "none.lock"));
}

TEST_F(StoredListTest, WhatDoesNotHoldListsIsLeftAlone) {
    for (const char* const text :
         {"", "{", "[]", "7", "null", R"({"volumes":7})", R"({"volumes":["a"]})",
          R"({"volumes":{"/mnt/a":7}})", R"({"volumes":{"/mnt/a":{"files":["b"]}}})",
          R"({"volumes":{"/mnt/a":{"files":{"6":7}}}})"}) {
        SCOPED_TRACE(text);
        StoredList list;
        WriteFile(path_, text);
        EXPECT_FALSE(list.Lock(path_, why_));
        EXPECT_EQ(why_, "configuration file " + path_ + " is damaged");
        WriteFile(path_, kBefore);
        ASSERT_TRUE(list.Lock(path_, why_)) << why_;
        WriteFile(path_, text);
        EXPECT_FALSE(list.Replace({{"/mnt/a", {{"b", 6}}}}, why_)) << "it changed meanwhile";
        EXPECT_EQ(ReadFile(path_), text);
    }
    for (const char* const text : {"{}", R"({"volumes":null})", R"({"volumes":{"/mnt/a":{}}})"}) {
        StoredList list;
        WriteFile(path_, text);
        EXPECT_TRUE(list.Lock(path_, why_)) << text;
    }
}

TEST_F(StoredListTest, WhatAKilledRepairLeftIsNoObstacle) {
    WriteFile(path_ + ".new", std::string(100000, 'x'));
    StoredList list;
    ASSERT_TRUE(list.Lock(path_, why_) && list.Replace({{"/mnt/a", {}}}, why_)) << why_;
    EXPECT_EQ(Document()["volumes"].getMemberNames(), std::vector<std::string>{"/mnt/b"});
    EXPECT_EQ(NamesBeside(), (std::vector<std::string>{"conf", "conf.lock"}));
}

TEST_F(StoredListTest, AFailureLeavesTheOldFile) {
    std::filesystem::create_directory(path_ + ".new");
    StoredList list;
    ASSERT_TRUE(list.Lock(path_, why_)) << why_;
    EXPECT_FALSE(list.Replace({{"/mnt/a", {}}}, why_));
    EXPECT_EQ(why_, path_ + ".new: Is a directory");
    EXPECT_EQ(ReadFile(path_), kBefore);
}

}  // namespace

}  // namespace client
