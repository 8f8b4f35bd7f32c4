// SPDX-License-Identifier: MIT
// Exit statuses, and what goes to which stream.
#include "client/command_line.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/msg.h>
#include <unistd.h>

#include <filesystem>
#include <regex>
#include <sstream>

#include "client/show/exit_status.h"
#include "client/show/output.h"
#include "client/verb_options.h"
#include "tests/unit/client/verbs/verbs_test.h"
#include "tests/unit/support/fake_platform.h"
#include "util/request.h"

namespace client {

namespace {

class CommandLineTest : public QueueClientTest {
  protected:
    std::string Placed(const std::string& relative) {
        const std::string path = Make(relative);
        Place(path, {{0, 128}});
        return path;
    }
};

struct UsageRow {
    std::vector<std::string> arguments;
    int status;
};

TEST_F(CommandLineTest, WhatIsNoCommandIsAUsageErrorAndSaysWhy) {
    const UsageRow rows[] = {
        {{}, kExitUsage},
        {{"frobnicate"}, kExitUsage},
        {{"pin"}, kExitUsage},
        {{"pin", "--frobnicate", "x"}, kExitUsage},
        {{"pin", "x", "--timeout", "soon"}, kExitUsage},
        {{"pin", "x", "--send-timeout", "-1"}, kExitUsage},
        {{"reload"}, kExitUsage},
        {{"reload", "a", "b"}, kExitUsage},
        {{"explain"}, kExitUsage},
        {{"map"}, kExitUsage},
        {{"map", "x", "-o", "x.gif"}, kExitUsage},
        {{"pin", "-f", "/nothing/there"}, kExitUsage},
    };
    for (const UsageRow& row : rows) {
        const CallResult result = Call(row.arguments);
        EXPECT_EQ(result.status, row.status) << testing::PrintToString(row.arguments);
        EXPECT_NE(result.talk, "") << testing::PrintToString(row.arguments);
        EXPECT_EQ(result.out, "") << testing::PrintToString(row.arguments);
    }
}

// Besides the words on standard error.
TEST_F(CommandLineTest, AWrongCommandLineIsAReportToo) {
    const std::vector<std::string> lines[] = {
        {"pin"}, {"pin", "--nonsense", "a"}, {"map"}, {"map", "a", "-o", "a.png"}, {"nonsense"}};
    for (std::vector<std::string> line : lines) {
        line.push_back("--json");
        const CallResult result = Call(line);
        const Json::Value report = ParseReport(result.out);
        EXPECT_EQ(result.status, kExitUsage) << line[0];
        EXPECT_EQ(Shape(report), "error:s exitStatus:n schema:n verb:s") << line[0];
        EXPECT_EQ(report["verb"], line[0]);
        EXPECT_EQ(report["exitStatus"], kExitUsage) << line[0];
        EXPECT_NE(report["error"], "") << line[0];
    }
}

TEST_F(CommandLineTest, EveryVerbHelpsWithExamples) {
    EXPECT_EQ(Call({"--help"}).status, kExitDone);
    for (const VerbOptionNames& verb : AllOptionNames()) {
        const CallResult result = Call({verb.verb, "--help"});
        EXPECT_EQ(result.status, kExitDone) << verb.verb;
        EXPECT_EQ(result.talk, "") << verb.verb;
        EXPECT_NE(result.out.find("Example"), std::string::npos) << verb.verb;
        EXPECT_NE(result.out.find("quorcachepinctl " + verb.verb + " "), std::string::npos)
            << verb.verb;
        EXPECT_EQ(Call({"help", verb.verb}).out, result.out) << verb.verb;
    }
    EXPECT_EQ(Call({"help"}).out, Call({"--help"}).out);
}

TEST_F(CommandLineTest, NoLineOfHelpIsLongerThan80Columns) {
    std::vector<std::string> helps = {Call({"--help"}).out};
    for (const VerbOptionNames& verb : AllOptionNames()) {
        helps.push_back(Call({verb.verb, "--help"}).out);
    }
    for (const std::string& help : helps) {
        std::istringstream lines(help);
        size_t count = 0;
        for (std::string line; std::getline(lines, line); ++count) {
            EXPECT_LE(Columns(line), 80U) << line;
        }
        EXPECT_GT(count, 5U) << help;
    }
}

TEST_F(CommandLineTest, TheVersionNamesTheProgram) {
    const CallResult result = Call({"--version"});
    EXPECT_EQ(result.status, kExitDone);
    EXPECT_TRUE(std::regex_match(result.out, std::regex("quorcachepinctl [0-9]+[.0-9]*\n")))
        << result.out;
}

// On standard error, with the status of a wrong command line: a script whose arguments are missing
// by mistake must not take this for a success.
TEST_F(CommandLineTest, WithoutArgumentsThereIsTheHelp) {
    const CallResult result = Call({});
    EXPECT_EQ(result.status, kExitUsage);
    EXPECT_EQ(result.talk, Call({"--help"}).out);
    EXPECT_EQ(result.out, "");
}

struct WordsRow {
    std::vector<std::string> arguments;
    const char* words;
};

TEST_F(CommandLineTest, WhatIsWrongIsSaidWithTheProgramsNameAndWhatWasMeant) {
    const WordsRow rows[] = {
        {{"frob\033nicate"}, "there is no verb frob\\x1bnicate; --help lists them"},
        {{"pni", "x"}, "there is no verb pni; did you mean pin?"},
        {{"help", "pni"}, "there is no verb pni; did you mean pin?"},
        {{""}, "there is no verb ; --help lists them"},
        {{"pin", "--wiat", "x"}, "there is no option --wiat; did you mean --wait?"},
        {{"pin", "--wiat=5", "x"}, "there is no option --wiat; did you mean --wait?"},
        {{"pin", "-\033x", "x"},
         "there is no option -\\x1bx; quorcachepinctl pin --help tells more"},
        {{"--json", "list"},
         "there is no option --json before the verb; quorcachepinctl --help tells more"},
        {{"--hlep"}, "there is no option --hlep before the verb; did you mean --help?"},
        {{"reload", "a", "b"},
         "b is one argument too many; quorcachepinctl reload --help tells more"},
        {{"pin", "x", "--timeout", "so\033on"},
         "Could not convert: --timeout = so\\x1bon; quorcachepinctl pin --help tells more"},
        {{"pin"}, "PATH or --files-from is required; quorcachepinctl pin --help tells more"},
    };
    for (const WordsRow& row : rows) {
        const CallResult result = Call(row.arguments);
        EXPECT_EQ(result.status, kExitUsage) << row.words;
        EXPECT_EQ(result.talk, std::string("quorcachepinctl: ") + row.words + "\n");
    }
}

TEST_F(CommandLineTest, ANameInBracketsIsOneName) {
    const std::string before = std::filesystem::current_path();
    MakeQueue();
    WriteFile(dir_ / "conf", "{}");
    for (const char* const name : {"[a,b]", "[c]", "a", "b", "c"}) {
        Placed(name);
    }
    WriteFile(mount_ + "/[list]", mount_ + "/a\n");
    std::filesystem::current_path(mount_);
    const CallResult named =
        Call({"pin", "-n", "--json", "--config-path", dir_ / "conf", "[a,b]", "[c]"});
    const CallResult listed =
        Call({"pin", "-n", "--json", "--config-path", dir_ / "conf", "-f", "[list]"});
    std::filesystem::current_path(before);
    EXPECT_EQ(named.status, kExitDone) << named.talk;
    EXPECT_NE(named.out.find("/[a,b]\""), std::string::npos) << named.out;
    EXPECT_NE(named.out.find("/[c]\""), std::string::npos);
    EXPECT_EQ(named.out.find("/a\""), std::string::npos);
    EXPECT_EQ(named.out.find("/c\""), std::string::npos);
    EXPECT_EQ(listed.status, kExitDone) << listed.talk;
    EXPECT_NE(listed.out.find("/a\""), std::string::npos);
}

TEST_F(CommandLineTest, WhatCannotBePrintedIsAFailure) {
    WriteFile(dir_ / "conf", "{}");
    const std::string conf = dir_ / "conf";
    const char* arguments[] = {"quorcachepinctl", "list", "--config-path", conf.c_str()};
    EXPECT_EXIT(
        {
            const int full = open("/dev/full", O_WRONLY);
            dup2(full, STDOUT_FILENO);
            exit(RunCommandLine(4, const_cast<char**>(arguments)));
        },
        testing::ExitedWithCode(kExitPartly),
        "standard output cannot be written: No space left on device");
}

TEST_F(CommandLineTest, WithoutAQueueNothingIsSent) {
    const CallResult result = Call({"pin", Placed("a")});
    EXPECT_EQ(result.status, kExitNoService);
    EXPECT_NE(result.talk.find("there is no key file"), std::string::npos) << result.talk;
    EXPECT_EQ(result.out, "");
}

TEST_F(CommandLineTest, AFullQueueTimesOutAndSaysHowManyWereSent) {
    const int queue = MakeQueue();
    struct msqid_ds record = {};
    ASSERT_EQ(msgctl(queue, IPC_STAT, &record), 0);
    record.msg_qbytes = sizeof(Request);
    ASSERT_EQ(msgctl(queue, IPC_SET, &record), 0);
    std::vector<std::string> arguments = {"pin", "--send-timeout", "0"};
    for (int i = 0; i < 60; ++i) {
        arguments.push_back(Placed("a-name-of-forty-characters-and-a-number-" + std::to_string(i)));
    }
    const CallResult result = Call(arguments);
    EXPECT_EQ(result.status, kExitTimedOut);
    EXPECT_NE(result.talk.find("1 of "), std::string::npos) << result.talk;
    EXPECT_NE(result.out.find("sent in 1 request\n"), std::string::npos) << result.out;
}

TEST_F(CommandLineTest, NothingIsSentWhenAFileIsRefused) {
    const int queue = MakeQueue();
    struct msqid_ds record = {};
    const CallResult result = Call({"pin", Placed("a"), Make("b b")});
    EXPECT_EQ(result.status, kExitRefused);
    EXPECT_NE(result.talk.find("refused " + mount_ + "/b b: its name holds white space"),
              std::string::npos)
        << result.talk;
    EXPECT_EQ(result.out, "");
    ASSERT_EQ(msgctl(queue, IPC_STAT, &record), 0);
    EXPECT_EQ(record.msg_qnum, 0U);
    EXPECT_EQ(Call({"pin", "-k", Placed("a"), mount_ + "/b b"}).status, kExitNoService);
    ASSERT_EQ(msgctl(queue, IPC_STAT, &record), 0);
    EXPECT_EQ(record.msg_qnum, 1U);
    EXPECT_EQ(Call({"pin", "-k", mount_ + "/b b"}).status, kExitRefused);
}

TEST_F(CommandLineTest, FilesWithoutExtentsAndVolumesWithoutACacheAreRefused) {
    MakeQueue();
    const CallResult hole = Call({"pin", Make("hole")});
    EXPECT_EQ(hole.status, kExitRefused);
    EXPECT_NE(hole.talk.find("no place on the device"), std::string::npos) << hole.talk;
    const std::string path = Placed("a");
    g_platform.stats["/dev/ssd1"].supportPin = 0;
    for (const std::vector<std::string>& arguments :
         {std::vector<std::string>{"pin", path}, {"unpin", path}, {"reload", mount_}}) {
        const CallResult result = Call(arguments);
        EXPECT_EQ(result.status, kExitRefused) << arguments[0];
        EXPECT_NE(result.talk.find("no cache that keeps pins"), std::string::npos) << result.talk;
    }
    // A volume that is being changed may have no cache, and must still be pended and released.
    EXPECT_EQ(Call({"pend", mount_}).status, kExitNoService);
    EXPECT_EQ(Call({"release", mount_}).status, kExitNoService);
}

TEST_F(CommandLineTest, AnEmptyMountPathIsNeverSent) {
    const int queue = MakeQueue();
    struct msqid_ds record = {};
    g_platform.spaces.push_back({"", "uuid-x"});
    for (const char* const verb : {"reload", "pend", "release"}) {
        EXPECT_EQ(Call({verb, ""}).status, kExitRefused) << verb;
    }
    ASSERT_EQ(msgctl(queue, IPC_STAT, &record), 0);
    EXPECT_EQ(record.msg_qnum, 0U);
}

TEST_F(CommandLineTest, WaitingNeedsTheServicesConfigurationFile) {
    const int queue = MakeQueue();
    struct msqid_ds record = {};
    const std::string path = Placed("a");
    EXPECT_EQ(Call({"pin", "--wait", path}).status, kExitNoService);
    EXPECT_EQ(Call({"reload", "--wait", mount_}).status, kExitNoService);
    ASSERT_EQ(msgctl(queue, IPC_STAT, &record), 0);
    EXPECT_EQ(record.msg_qnum, 0U) << "nothing is sent that could not be waited for";
    const CallResult late = Call({"pin", "--wait", "--config-path", dir_ / "conf", path});
    EXPECT_EQ(late.status, kExitNoService) << "nobody takes it from the queue";
}

TEST_F(CommandLineTest, PathsAreListedForOtherPrograms) {
    const std::string path = Placed("a");
    WriteFile(dir_ / "conf", R"({"volumes":{")" + mount_ + R"(":{"files":{"1":"b","2":"a"}}}})");
    EXPECT_EQ(Call({"list", "--paths", "--config-path", dir_ / "conf"}).out,
              mount_ + "/a\n" + mount_ + "/b\n");
    EXPECT_EQ(Call({"list", "-0", "--config-path", dir_ / "conf"}).out,
              mount_ + "/a" + std::string(1, '\0') + mount_ + "/b" + std::string(1, '\0'));
    EXPECT_EQ(Call({"list", "--paths", "/proc", "--config-path", dir_ / "conf"}).status,
              kExitRefused);
}

}  // namespace

}  // namespace client
