// SPDX-License-Identifier: MIT
// The fixture of the verbs' tests: the command is called with its arguments, and what came back is
// looked at as a person or a program would.
#pragma once

#include <json/json.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "tests/unit/client/client_test.h"
#include "tests/unit/client/service/impostor.h"

namespace client {

struct CallResult {
    int status;
    std::string out;   // standard output
    std::string talk;  // standard error
};

// Runs the command with these arguments.
CallResult Call(std::vector<std::string> arguments);

// Parses a report; the test fails when it is no JSON.
Json::Value ParseReport(const std::string& text);

// "name:kind" of the members of an object, kinds being n number, s text, b boolean, a array,
// o object, 0 null.
std::string Shape(const Json::Value& value);

// Of a verb that can do nothing with the path it was given.
constexpr char kRefusedShape[] = "error:s exitStatus:n refused:a schema:n verb:s";

// With a configuration file of its own, in an IPC namespace in which no service runs.
class VerbsTest : public QueueClientTest {
  protected:
    void SetUp() override;

    // Runs the verb with --config-path.
    CallResult Run(std::vector<std::string> arguments);

    // The same with --json; the report must parse and carry the verb and the exit status that came
    // back.
    Json::Value Report(std::vector<std::string> arguments, int expectedStatus);

    // Makes the volume's list of these relative paths, each by the inode of the file that is there.
    void List(const std::vector<std::string>& relatives);

    // A pinned file of two units, one of them set, and a queued reload.
    std::string PinHalf();

    // Messages in the queue.
    static uint64_t Waiting(int queue);

    // Starts a process that looks like a working service; it lives as long as what is returned.
    std::unique_ptr<BusyImpostor> Serve();

    // Runs the verb beside a process that looks like a working service. Whenever a message comes,
    // it is taken and `act` is called with the number of messages so far, the first being 1; `act`
    // makes the configuration file say what has become of it. `messages` are expected.
    CallResult RunServed(const std::vector<std::string>& arguments, int queue, int messages,
                         const std::function<void(int)>& act);

    std::string config_;
};

}  // namespace client
