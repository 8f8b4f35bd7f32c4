// SPDX-License-Identifier: MIT
#include "tests/unit/client/verbs/verbs_test.h"

#include <sys/msg.h>

#include <filesystem>
#include <memory>
#include <thread>

#include "client/command_line.h"
#include "client/show/output.h"
#include "tests/unit/client/service/impostor.h"
#include "util/request.h"

namespace client {

CallResult Call(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), "quorcachepinctl");
    std::vector<char*> pointers;
    for (std::string& argument : arguments) {
        pointers.push_back(argument.data());
    }
    TakeLastSaid();  // by an earlier test: each call is the first of its process
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    CallResult result;
    result.status = RunCommandLine(static_cast<int>(pointers.size()), pointers.data());
    result.out = testing::internal::GetCapturedStdout();
    result.talk = testing::internal::GetCapturedStderr();
    return result;
}

Json::Value ParseReport(const std::string& text) {
    const std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
    Json::Value report;
    std::string errors;
    EXPECT_TRUE(reader->parse(text.data(), text.data() + text.size(), &report, &errors))
        << errors << text;
    return report;
}

std::string Shape(const Json::Value& value) {
    std::string shape;
    for (const std::string& name : value.getMemberNames()) {
        const Json::Value& member = value[name];
        shape += (shape.empty() ? "" : " ") + name + ":";
        shape += member.isNull()      ? "0"
                 : member.isBool()    ? "b"
                 : member.isNumeric() ? "n"
                 : member.isString()  ? "s"
                 : member.isArray()   ? "a"
                                      : "o";
    }
    return shape;
}

void VerbsTest::SetUp() {
    QueueClientTest::SetUp();
    config_ = dir_ / "conf";
    WriteFile(config_, "{}");
}

CallResult VerbsTest::Run(std::vector<std::string> arguments) {
    arguments.insert(arguments.end(), {"--config-path", config_});
    return Call(arguments);
}

Json::Value VerbsTest::Report(std::vector<std::string> arguments, int expectedStatus) {
    const std::string verb = arguments[0];
    arguments.push_back("--json");
    const CallResult result = Run(arguments);
    EXPECT_EQ(result.status, expectedStatus) << verb << "\n" << result.out << result.talk;
    const Json::Value report = ParseReport(result.out);
    EXPECT_EQ(report["schema"], 1);
    EXPECT_EQ(report["verb"], verb);
    EXPECT_EQ(report["exitStatus"], result.status);
    return report;
}

void VerbsTest::List(const std::vector<std::string>& relatives) {
    std::string files;
    for (const std::string& relative : relatives) {
        files += (files.empty() ? "\"" : ",\"") + std::to_string(InodeOf(mount_ + "/" + relative)) +
                 "\":\"" + relative + "\"";
    }
    WriteFile(config_, R"({"volumes":{")" + mount_ + R"(":{"files":{)" + files + "}}}}");
}

std::string VerbsTest::PinHalf() {
    const std::string path = Make("photos/a.jpg");
    Place(path, {{4 * kUnit, 2 * kUnit}});
    WriteBitmap({4});
    WriteFile(config_, R"({"nextRequestNum":8,"requestQueue":["7"],"requests":{"7":{"type":)"
                       R"("reloadPinBlocks","mountPath":")" +
                           mount_ + R"(","data":null}},"volumes":{")" + mount_ +
                           R"(":{"files":{")" + std::to_string(InodeOf(path)) +
                           R"(":"photos/a.jpg"}}}})");
    return path;
}

std::unique_ptr<BusyImpostor> VerbsTest::Serve() {
    const std::string program = dir_ / "quorcachepinfiled";
    if (!Exists(program)) {
        std::filesystem::create_symlink("/usr/bin/python3", program);
    }
    return std::make_unique<BusyImpostor>(program, "", 0, std::vector<std::string>{"-f", config_});
}

CallResult VerbsTest::RunServed(const std::vector<std::string>& arguments, int queue, int messages,
                                const std::function<void(int)>& act) {
    const auto service = Serve();
    std::thread taker([&] {
        RequestMsg taken = {};
        for (int i = 1; i <= messages; ++i) {
            if (msgrcv(queue, &taken, sizeof(taken.body), 0, 0) > 0) {
                act(i);
            }
        }
    });
    CallResult result = Run(arguments);
    taker.join();
    return result;
}

uint64_t VerbsTest::Waiting(int queue) {
    struct msqid_ds record = {};
    EXPECT_EQ(msgctl(queue, IPC_STAT, &record), 0);
    return record.msg_qnum;
}

}  // namespace client
