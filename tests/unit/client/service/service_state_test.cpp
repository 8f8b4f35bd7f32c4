// SPDX-License-Identifier: MIT
// The service's configuration file: found and read, or the reason why it is not known.
#include "client/service/service_state.h"

#include <gtest/gtest.h>

#include "tests/unit/client/client_test.h"

namespace client {

namespace {

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
