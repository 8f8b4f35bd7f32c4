// SPDX-License-Identifier: MIT
// The service's configuration file, read from outside.
#include "client/service/config_state.h"

#include <gtest/gtest.h>

#include "tests/unit/client/client_test.h"
#include "tests/unit/support/unit_test.h"

namespace client {

namespace {

class ConfigStateTest : public testing::Test {
  protected:
    bool Read(const std::string& content) {
        WriteFile(dir_ / "conf", content);
        state_ = ConfigState();
        return ReadConfigState(dir_ / "conf", state_, why_);
    }

    TempDir dir_;
    ConfigState state_;
    std::string why_;
};

TEST_F(ConfigStateTest, AMissingFileIsTheEmptyState) {
    state_.nextNumber = 7;
    EXPECT_TRUE(ReadConfigState(dir_ / "conf", state_, why_));
    EXPECT_EQ(state_.nextNumber, 0);
    EXPECT_TRUE(state_.queue.empty());
}

TEST_F(ConfigStateTest, TheQueueAndTheListsAreRead) {
    ASSERT_TRUE(Read(R"({
       "nextRequestNum" : 3, "requestQueue" : [ "2", "1" ],
       "requests" : {
          "1" : { "data" : "photos/b.jpg#1235;c#7", "mountPath" : "/mnt/pool1", "type" : "pinFiles" },
          "2" : { "data" : null, "mountPath" : "/mnt/pool2", "type" : "reloadPinBlocks" } },
       "volumes" : { "/mnt/pool1" : { "files" : { "1234" : "z", "4294967295" : "a" } } } })"))
        << why_;
    EXPECT_EQ(state_.nextNumber, 3);
    ASSERT_EQ(state_.queue.size(), 2U);
    EXPECT_EQ(state_.queue[0].number, "2");
    EXPECT_EQ(state_.queue[0].type, "reloadPinBlocks");
    EXPECT_EQ(state_.queue[0].data, "");
    EXPECT_EQ(state_.queue[1].mountPath, "/mnt/pool1");
    EXPECT_EQ(state_.queue[1].data, "photos/b.jpg#1235;c#7");
    ASSERT_EQ(state_.pinned.size(), 1U);
    ASSERT_EQ(state_.pinned["/mnt/pool1"].size(), 2U);
    EXPECT_EQ(state_.pinned["/mnt/pool1"][0].relative, "a");  // by path
    EXPECT_EQ(state_.pinned["/mnt/pool1"][0].inode, 4294967295U);
    EXPECT_TRUE(state_.defects.empty());
}

struct OddRow {
    const char* what;
    const char* content;
    size_t queued;
    size_t defects;
};

TEST_F(ConfigStateTest, WhatWouldEndTheWorkerIsNamed) {
    const OddRow rows[] = {
        {"empty object", "{}", 0, 0},
        {"null", "null", 0, 0},
        {"null members", R"({"requestQueue":null,"requests":{},"volumes":null})", 0, 0},
        {"queued and not stored", R"({"requestQueue":["1"],"requests":{}})", 0, 1},
        {"unknown type",
         R"({"requestQueue":["1"],"requests":{"1":{"type":"pinfiles","mountPath":"/m"}}})", 1, 1},
        {"queued twice",
         R"({"requestQueue":["1","1"],"requests":{"1":{"type":"pinFiles","mountPath":"/m"}}})", 2,
         1},
        {"queue of another kind", R"({"requestQueue":"1"})", 0, 1},
        {"requests of another kind", R"({"requestQueue":["1"],"requests":[]})", 0, 1},
        {"volumes of another kind", R"({"volumes":[1]})", 0, 0},
        {"files of another kind", R"({"volumes":{"/m":{"files":7}}})", 0, 0},
        {"texts of another kind",
         R"({"nextRequestNum":"x","requestQueue":[1],"requests":{"1":{"type":3}}})", 0, 1},
    };
    for (const OddRow& row : rows) {
        ASSERT_TRUE(Read(row.content)) << row.what << ": " << why_;
        EXPECT_EQ(state_.queue.size(), row.queued) << row.what;
        EXPECT_EQ(state_.defects.size(), row.defects) << row.what;
    }
}

TEST_F(ConfigStateTest, ADamagedFileIsSaidToBeDamaged) {
    for (const char* const content : {"[]", "{\"nextRequestNum\" : "}) {
        why_.clear();
        EXPECT_FALSE(Read(content)) << content;
        EXPECT_NE(why_.find("damaged"), std::string::npos) << content << ": " << why_;
    }
    EXPECT_FALSE(Read(std::string(100000, '[')));
    why_.clear();
    EXPECT_FALSE(ReadConfigState(dir_ / "conf/below", state_, why_));
    EXPECT_NE(why_, "");
}

TEST(StoredFiles, EntriesArePathHashInode) {
    const std::vector<StoredFile> files = ParseStoredFiles(";;a#5;my dir/b#4294967295;c#x;#7;d;;");
    ASSERT_EQ(files.size(), 3U);
    EXPECT_EQ(files[0].relative, "a");
    EXPECT_EQ(files[0].inode, 5U);
    EXPECT_EQ(files[1].relative, "my dir/b");
    EXPECT_EQ(files[1].inode, 4294967295U);
    EXPECT_EQ(files[2].inode, 0U);
    EXPECT_TRUE(ParseStoredFiles("").empty());
}

TEST(StoredFiles, NumbersGoRound) {
    EXPECT_EQ(NumberDistance(0, 0), 0);
    EXPECT_EQ(NumberDistance(5, 9), 4);
    EXPECT_EQ(NumberDistance(2147483645, 0), 1);
    EXPECT_EQ(NumberDistance(2147483644, 3), 5);
    EXPECT_EQ(NumberDistance(9, 5), 2147483646 - 4);
}

// In an IPC namespace of its own: no service is running there.
class ServiceStateTest : public QueueClientTest {};

TEST_F(ServiceStateTest, AFileThatIsGivenIsRead) {
    WriteFile(dir_ / "conf", R"({"volumes":{"/m":{"files":{"7":"a"}}},"nextRequestNum":4})");
    const ServiceState service = ReadServiceState(dir_ / "conf");
    EXPECT_TRUE(service.known) << service.why;
    EXPECT_EQ(service.configPath, dir_ / "conf");
    EXPECT_EQ(service.state.nextNumber, 4);
    EXPECT_EQ(service.state.pinned.at("/m").size(), 1U);
    EXPECT_EQ(service.why, "");
}

TEST_F(ServiceStateTest, WhatCannotBeReadIsNotKnownWithTheReason) {
    WriteFile(dir_ / "damaged", "{");
    WriteFile(dir_ / "file", "{}");
    const std::pair<std::string, const char*> rows[] = {
        {dir_ / "damaged", "is damaged"},
        {dir_ / "missing", "No such file or directory"},
        {dir_ / "file/below", "Not a directory"},
    };
    for (const auto& [path, why] : rows) {
        const ServiceState service = ReadServiceState(path);
        EXPECT_FALSE(service.known) << path;
        EXPECT_NE(service.why.find(why), std::string::npos) << path << ": " << service.why;
        EXPECT_TRUE(service.state.pinned.empty()) << path;
    }
}

TEST_F(ServiceStateTest, WithoutAServiceAndAPathNothingIsKnown) {
    const ServiceState service = ReadServiceState("");
    EXPECT_FALSE(service.known);
    EXPECT_EQ(service.configPath, "");
    EXPECT_NE(service.why, "");
}

}  // namespace

}  // namespace client
