// SPDX-License-Identifier: MIT
// Copies of the lists: when one is made, which one goes, and putting one back.
#include "client/service/store_copies.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "tests/unit/support/unit_test.h"
#include "util/json_file.h"

namespace client {

namespace {

class StoreCopiesTest : public UnitTest {
  protected:
    void SetUp() override {
        UnitTest::SetUp();
        path_ = std::filesystem::canonical(dir_.path()).string() + "/conf";
        WriteList(1);
    }
    // A store that lists so many files of /mnt/a, has a queue and other things of its own.
    void WriteList(size_t files, const std::string& more = "") {
        WriteFile(path_, R"({"nextRequestNum":8,"own":true,"requestQueue":["7"],)"
                         R"("requests":{"7":{"type":"reloadPinBlocks"}},"volumes":{)" +
                             (files > 0 ? R"("/mnt/a":{"files":{)" + Entries(files) + "}}" : "") +
                             more + "}}");
    }
    static std::string Entries(size_t count) {
        std::string entries;
        for (size_t i = 1; i <= count; ++i) {
            entries +=
                (i == 1 ? "\"" : ",\"") + std::to_string(i) + "\":\"f" + std::to_string(i) + "\"";
        }
        return entries;
    }
    KeptCopy Keep() {
        StoredList store;
        KeptCopy kept;
        EXPECT_TRUE(store.LockAsItIs(path_, why_) && KeepCopy(store, kept, why_)) << why_;
        return kept;
    }
    bool Back(size_t index = 0) {
        StoredList store;
        aside_.clear();
        return store.LockAsItIs(path_, why_) &&
               PutBack(ListCopies(path_)[index], store, aside_, why_);
    }
    Json::Value Document(const std::string& path) {
        Json::Value document;
        EXPECT_EQ(ReadFileToJson(path, document), 0) << path;
        return document;
    }
    std::vector<std::pair<uint64_t, size_t>> Listing() {
        std::vector<std::pair<uint64_t, size_t>> listing;
        for (const StoreCopy& copy : ListCopies(path_)) {
            listing.emplace_back(copy.number, copy.files);
        }
        return listing;
    }
    using Numbers = std::vector<std::pair<uint64_t, size_t>>;

    std::string path_;
    std::string aside_;
    std::string why_;
};

TEST_F(StoreCopiesTest, ACopyHoldsTheListsAloneWithTheStoresMode) {
    chmod(path_.c_str(), 0640);
    EXPECT_EQ(Keep().number, 1U);
    const Json::Value copy = Document(path_ + ".copy-1");
    EXPECT_EQ(copy["volumes"], Document(path_)["volumes"]);
    EXPECT_EQ(copy["nextRequestNum"], 8);
    EXPECT_EQ(copy.getMemberNames(), (std::vector<std::string>{"nextRequestNum", "volumes"}));
    struct stat status = {};
    ASSERT_EQ(stat((path_ + ".copy-1").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777U, 0640U);
}

TEST_F(StoreCopiesTest, NoneIsMadeOfWhatWasKept) {
    Keep();
    EXPECT_EQ(Keep().number, 0U);
    WriteList(1, R"(,"/mnt/b":{"files":{}},"/mnt/c":{"files":null})");
    EXPECT_EQ(Keep().number, 0U) << "no file more";
    WriteList(2);
    EXPECT_EQ(Keep().number, 2U);
    EXPECT_EQ(Listing(), (Numbers{{2, 2}, {1, 1}}));
}

TEST_F(StoreCopiesTest, NothingIsKeptWhereThereNeverWasAList) {
    WriteFile(path_, "{}");
    EXPECT_EQ(Keep().number, 0U);
    EXPECT_TRUE(ListCopies(path_).empty());
}

TEST_F(StoreCopiesTest, TheOldestGoesButNeverTheOneThatListsMost) {
    for (const size_t files : {3U, 9U, 4U, 5U, 6U, 7U, 8U}) {
        WriteList(files);
        Keep();
    }
    EXPECT_EQ(Listing(), (Numbers{{7, 8}, {6, 7}, {5, 6}, {4, 5}, {2, 9}}));
    WriteList(9, R"(,"/mnt/b":{"files":{"1":"x"}})");
    Keep();
    EXPECT_EQ(Listing(), (Numbers{{8, 10}, {7, 8}, {6, 7}, {5, 6}, {4, 5}}));
}

TEST_F(StoreCopiesTest, ALossIsTold) {
    const struct {
        size_t before, after;
        const char* beside;  // a second volume, before
        const char* lost;
    } kRows[] = {
        {4, 2, "", ""},
        {4, 1, "", "lists 1 file on 1 volume, and listed 4 files on 1 volume in copy "},
        {1, 0, "", "lists 0 files on 0 volumes, and listed 1 file on 1 volume in copy "},
        {4, 4, R"(,"/mnt/b":{"files":{"1":"x"}})",
         "lists 4 files on 1 volume, and listed 5 files on 2 volumes in copy "},
    };
    for (const auto& row : kRows) {
        WriteList(row.before, row.beside);
        Keep();
        WriteList(row.after);
        const std::string lost = Keep().lost;
        EXPECT_EQ(lost.substr(0, lost.find_last_of(' ') + 1), row.lost) << row.before;
    }
}

TEST_F(StoreCopiesTest, WhatCannotBeReadIsNoLastCopy) {
    Keep();
    WriteList(2);
    Keep();
    WriteFile(path_ + ".copy-2", "{");
    WriteFile(path_ + ".copy-03", "{}");
    WriteFile(path_ + ".copy-x", "{}");
    WriteFile(path_ + ".copy-4.new", "{}");
    const std::vector<StoreCopy> copies = ListCopies(path_);
    ASSERT_EQ(copies.size(), 2U);
    EXPECT_FALSE(copies[0].good);
    EXPECT_EQ(NewestGood(copies), &copies[1]);
    EXPECT_EQ(Keep().number, 3U);
    EXPECT_EQ(NewestGood({}), nullptr);
}

TEST_F(StoreCopiesTest, InAStoreThatCanBeReadTheListsAloneChange) {
    WriteList(2);
    Keep();
    WriteList(1, R"(,"/mnt/new":{"files":{"5":"x"}})");
    ASSERT_TRUE(Back()) << why_;
    const Json::Value document = Document(path_);
    EXPECT_EQ(document["volumes"], Document(path_ + ".copy-1")["volumes"]);
    EXPECT_EQ(document["requestQueue"][0], "7");
    EXPECT_EQ(document["own"], true);
    EXPECT_EQ(aside_, "");
    EXPECT_EQ(Listing(), (Numbers{{2, 2}, {1, 2}})) << "what was there is kept";
}

TEST_F(StoreCopiesTest, AStoreThatCannotBeReadIsPutAside) {
    Keep();
    const std::string copy = ReadFile(path_ + ".copy-1");
    for (const char* const bad : {"", "{\"volumes\":", "[]", "{\"volumes\":7}"}) {
        WriteFile(path_, bad);
        ASSERT_TRUE(Back()) << why_;
        EXPECT_EQ(ReadFile(aside_), bad);
        EXPECT_EQ(ReadFile(path_), copy);
    }
    EXPECT_EQ(aside_, path_ + ".unreadable-4");
    unlink(path_.c_str());
    ASSERT_TRUE(Back()) << why_;
    EXPECT_EQ(aside_, "") << "there was nothing to put aside";
    EXPECT_EQ(ReadFile(path_), copy);
}

TEST_F(StoreCopiesTest, ACopyThatCannotBeWrittenChangesNothing) {
    Keep();
    WriteFile(path_, "{");
    std::filesystem::create_directory(path_ + ".new");
    EXPECT_FALSE(Back());
    EXPECT_EQ(why_, path_ + ".new: Is a directory");
    EXPECT_EQ(ReadFile(path_), "{");
    EXPECT_FALSE(std::filesystem::exists(path_ + ".unreadable-1"));
    WriteList(2);
    std::filesystem::create_directory(path_ + ".copy-2.new");
    StoredList store;
    KeptCopy kept;
    EXPECT_TRUE(store.LockAsItIs(path_, why_));
    EXPECT_FALSE(KeepCopy(store, kept, why_));
    EXPECT_EQ(why_, path_ + ".copy-2.new: Is a directory");
    EXPECT_EQ(Listing(), (Numbers{{1, 1}}));
}

}  // namespace

}  // namespace client
