// SPDX-License-Identifier: MIT
// pin and unpin: what they send, what they refuse and what they cost.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>

#include "client/show/exit_status.h"
#include "client/volume/plain_links.h"
#include "tests/unit/client/service/impostor.h"
#include "tests/unit/client/verbs/verbs_test.h"

namespace client {

namespace {

class FileVerbsTest : public VerbsTest {};

TEST_F(FileVerbsTest, PinTellsFilesAndRefusals) {
    const std::string path = Make("a");
    Place(path, {{0, kUnit}});
    MakeQueue();
    const auto service = Serve();
    const Json::Value report = Report({"pin", path}, 0);
    EXPECT_EQ(Shape(report),
              "dryRun:b entries:a exitStatus:n files:a notPinned:a pinnedAlready:a "
              "refused:a repinned:a requests:n schema:n sent:n verb:s");
    EXPECT_EQ(Shape(report["files"][0]), "inode:n path:s size:n volume:s");
    EXPECT_EQ(report["files"][0]["path"], path);
    EXPECT_EQ(report["sent"], 1);
    const Json::Value refused = Report({"pin", path, mount_ + "/b\xff"}, 5);
    EXPECT_EQ(refused["sent"], 0);
    EXPECT_EQ(Shape(refused["refused"][0]), "path:s reason:s");
    EXPECT_EQ(refused["refused"][0]["path"], mount_ + "/b\\xff");
    const Json::Value partly = Report({"pin", "-k", path, mount_ + "/nothing"}, 1);
    EXPECT_EQ(partly["sent"], 1);
    EXPECT_EQ(partly["refused"].size(), 1U);
}

TEST_F(FileVerbsTest, ADryRunTellsThePriceAndSendsNothing) {
    PinHalf();
    MakeQueue();
    const std::string path = Make("b", std::string(5000, 'b'));
    Place(path, {{5 * kUnit + 8, 16}, {9 * kUnit, 8}});
    const Json::Value report = Report({"pin", "--dry-run", path}, 0);
    EXPECT_EQ(report["sent"], 0);
    EXPECT_EQ(report["dryRun"], true);
    ASSERT_EQ(report["price"].size(), 1U);
    const Json::Value& price = report["price"][0];
    EXPECT_EQ(Shape(price),
              "bytes:n cacheBytes:0 extents:n files:n pinnedUnitsNow:n pinnedUnitsThen:n "
              "repinnedFiles:n requests:n roundingBytes:n units:n unitsSet:n unitsWithoutBit:n "
              "volume:s");
    EXPECT_EQ(price["extents"], 2);
    EXPECT_EQ(price["bytes"], 24 * 512);
    EXPECT_EQ(price["units"], 2);
    EXPECT_EQ(price["roundingBytes"], 2 * 65536 - 24 * 512);
    EXPECT_EQ(price["pinnedUnitsNow"], 1);
    EXPECT_EQ(price["pinnedUnitsThen"], 3);
    const Json::Value unpin = Report({"unpin", "--dry-run", path}, 0)["price"][0];
    EXPECT_EQ(unpin["repinnedFiles"], 1) << "shares unit 5";
    EXPECT_EQ(unpin["pinnedUnitsThen"], 2) << "the two of the file that is pinned again";
    EXPECT_EQ(unpin["requests"], 2);
}

TEST_F(FileVerbsTest, UnpinTellsWhatWasNotPinnedAndWhatIsListedAndNotThere) {
    const std::string gone = PinHalf();
    const std::string other = Make("b");
    Place(other, {{9 * kUnit, 8}});
    unlink(gone.c_str());
    MakeQueue();
    const auto service = Serve();
    const Json::Value report = Report({"unpin", "-k", gone, other}, 1);
    EXPECT_EQ(report["notPinned"].size(), 1U);
    EXPECT_EQ(report["notPinned"][0], other);
    ASSERT_EQ(report["entries"].size(), 1U);
    EXPECT_EQ(Shape(report["entries"][0]), "fate:s inode:n path:s reason:s volume:s");
    EXPECT_EQ(report["entries"][0]["path"], gone);
    EXPECT_EQ(report["entries"][0]["fate"], "gone");
    ASSERT_EQ(report["refused"].size(), 1U);
    EXPECT_EQ(report["refused"][0]["path"], gone);
    EXPECT_EQ(report["sent"], 1);
    EXPECT_EQ(Report({"unpin", gone}, 5)["sent"], 0);
}

TEST_F(FileVerbsTest, UnpinNamesAFileInThePlaceOfAListedOneAndSendsTheOthers) {
    const std::string path = PinHalf();
    const std::string other = Make("b");
    Place(other, {{9 * kUnit, 8}});
    const std::string fresh = Make("new");
    Place(fresh, {{11 * kUnit, 8}});
    rename(fresh.c_str(), path.c_str());
    MakeQueue();
    const auto service = Serve();
    const Json::Value report = Report({"unpin", path, other}, 1);
    EXPECT_EQ(report["sent"], 1);
    ASSERT_EQ(report["refused"].size(), 1U);
    EXPECT_EQ(report["refused"][0]["path"], path);
    EXPECT_EQ(report["entries"][0]["fate"], "replaced");
}

struct RefusalRow {
    const char* what;
    std::vector<std::string> options;
    int status;
    uint64_t sent;
};

TEST_F(FileVerbsTest, ARefusalStopsAllOrWithKeepGoingItselfAlone) {
    const std::string good = MakeAt("good", 1);
    const std::string bad = mount_ + "/nothing";
    const int queue = MakeQueue();
    const auto service = Serve();
    const RefusalRow rows[] = {
        {"all or nothing", {good, bad}, kExitRefused, 0},
        {"the others", {"-k", good, bad}, kExitPartly, 1},
        {"no others", {"-k", bad}, kExitRefused, 0},
        {"a dry run refuses alike", {"-n", good, bad}, kExitRefused, 0},
        {"and sends nothing", {"-n", "-k", good, bad}, kExitPartly, 0},
        {"nor without a refusal", {"-n", good}, kExitDone, 0},
    };
    uint64_t waiting = 0;
    for (const char* const verb : {"pin", "unpin"}) {
        for (const RefusalRow& row : rows) {
            std::vector<std::string> arguments = row.options;
            arguments.insert(arguments.begin(), verb);
            const CallResult result = Run(arguments);
            waiting += row.sent;
            EXPECT_EQ(result.status, row.status) << verb << ": " << row.what << result.talk;
            EXPECT_EQ(Waiting(queue), waiting) << verb << ": " << row.what;
            EXPECT_EQ(result.talk.find("refused " + bad + ": ") != std::string::npos,
                      row.status != kExitDone)
                << verb << ": " << row.what << result.talk;
        }
    }
}

TEST_F(FileVerbsTest, WithNobodyToTakeItAPinWaitsAndIsNotDone) {
    const std::string path = MakeAt("a", 1);
    const int queue = MakeQueue();
    const CallResult result = Run({"pin", path});
    EXPECT_EQ(result.status, kExitNoService);
    EXPECT_NE(result.talk.find("the service does not run here; the requests wait until it is"),
              std::string::npos)
        << result.talk;
    EXPECT_EQ(Waiting(queue), 1U);
    std::filesystem::create_symlink("/bin/sh", dir_ / "quorcachepinfiled");
    const Impostor service(dir_ / "quorcachepinfiled", {"-f", config_});
    const CallResult workerless = Run({"pin", path});
    EXPECT_EQ(workerless.status, kExitNoService);
    EXPECT_NE(workerless.talk.find("the service's worker has ended"), std::string::npos)
        << workerless.talk;
    EXPECT_EQ(Waiting(queue), 2U);
}

TEST_F(FileVerbsTest, AStoppedServiceTakesNothing) {
    const std::string path = MakeAt("a", 1);
    MakeQueue();
    const auto service = Serve();
    ASSERT_EQ(kill(service->pid(), SIGSTOP), 0);
    int status = 0;
    ASSERT_EQ(waitpid(service->pid(), &status, WUNTRACED), service->pid());
    const CallResult result = Run({"pin", path});
    EXPECT_EQ(kill(service->pid(), SIGCONT), 0);
    EXPECT_EQ(result.status, kExitNoService);
    EXPECT_NE(result.talk.find("was stopped by a signal"), std::string::npos) << result.talk;
}

TEST_F(FileVerbsTest, WhatDoesNotFitIntoTheCacheIsRefusedUnlessItIsMeant) {
    const std::string path = MakeAt("a", 0, 17);
    const int queue = MakeQueue();
    const auto service = Serve();
    EXPECT_EQ(Run({"pin", path}).status, kExitDone) << "the size of a mute cache is not known";
    LetTheCacheTell("", "");
    const CallResult refused = Run({"pin", path});
    EXPECT_EQ(refused.status, kExitRefused);
    EXPECT_NE(refused.talk.find(mount_ +
                                ": 0 bytes pinned or queued and 1.1 MiB more do not fit into the "
                                "cache of 1.0 MiB\n"),
              std::string::npos)
        << refused.talk;
    EXPECT_NE(refused.talk.find("nothing was sent; --overcommit"), std::string::npos);
    EXPECT_EQ(Waiting(queue), 1U);
    EXPECT_EQ(Run({"pin", "-k", path}).status, kExitRefused);
    const CallResult dry = Run({"pin", "-n", path});
    EXPECT_EQ(dry.status, kExitDone);
    EXPECT_NE(dry.talk.find("pin refuses that without --overcommit"), std::string::npos);
    EXPECT_EQ(Run({"pin", "--overcommit", path}).status, kExitDone);
    EXPECT_EQ(Waiting(queue), 2U);
}

TEST_F(FileVerbsTest, ADryRunSaysSo) {
    const std::string path = MakeAt("a", 1);
    const CallResult dry = Run({"pin", "-n", path});
    EXPECT_EQ(dry.status, kExitDone) << "it needs no queue";
    EXPECT_NE(dry.out.find("nothing was sent: this was a dry run\n"), std::string::npos) << dry.out;
    EXPECT_EQ(dry.out.find(" sent in "), std::string::npos) << dry.out;
}

TEST_F(FileVerbsTest, WhatSharesUnitsIsPinnedAgainUnlessToldNot) {
    const std::string listed = PinHalf();
    const std::string path = MakeAt("b", 5);
    const int queue = MakeQueue();
    const auto service = Serve();
    const CallResult both = Run({"unpin", path});
    EXPECT_EQ(both.status, kExitDone) << both.talk;
    EXPECT_EQ(both.out, mount_ + ": unpin of 1 file sent in 1 request\n" +
                            "1 pinned file shares units with them; pinned again by 1 request\n");
    EXPECT_EQ(Waiting(queue), 2U);
    EXPECT_EQ(Run({"unpin", "--no-repin", path}).status, kExitDone);
    EXPECT_EQ(Waiting(queue), 3U);
    config_ = dir_ / "missing";
    const CallResult blind = Run({"unpin", path});
    EXPECT_EQ(blind.status, kExitNoService);
    EXPECT_NE(blind.talk.find("nothing was sent; "), std::string::npos) << blind.talk;
    EXPECT_EQ(Run({"unpin", "--no-repin", path}).status, kExitDone);
    EXPECT_EQ(Waiting(queue), 4U);
}

TEST_F(FileVerbsTest, AnUnpinOfAFileThatIsGoneNamesWhatTakesItOffTheList) {
    const std::string gone = PinHalf();
    unlink(gone.c_str());
    const int queue = MakeQueue();
    const CallResult result = Run({"unpin", gone});
    EXPECT_EQ(result.status, kExitRefused);
    EXPECT_NE(result.talk.find("refused " + gone +
                               ": is on the service's list and gone; check "
                               "--repair takes it off\n"),
              std::string::npos)
        << result.talk;
    EXPECT_EQ(Waiting(queue), 0U);
}

TEST_F(FileVerbsTest, WhileNoServiceRunsAnEmptyFileIsTakenOffTheList) {
    const std::string empty = MakeAt("empty", 1);
    const std::string good = MakeAt("good", 2);
    WriteFile(empty, "");
    List({"empty", "good"});
    const std::string before = ReadFile(config_);
    const int queue = MakeQueue();
    const CallResult dry = Run({"unpin", "-n", empty});
    EXPECT_EQ(dry.status, kExitDone) << dry.talk;
    EXPECT_NE(dry.out.find(empty + ": empty, would be taken off the list\n"), std::string::npos);
    EXPECT_EQ(Run({"unpin", empty, mount_ + "/nothing"}).status, kExitRefused);
    EXPECT_EQ(Run({"pin", empty}).status, kExitRefused);
    EXPECT_EQ(ReadFile(config_), before);

    const CallResult result = Run({"unpin", empty, good});
    EXPECT_EQ(result.status, kExitNoService) << "its request waits: " << result.talk;
    EXPECT_EQ(result.out, empty + ": empty, taken off the list\n" + mount_ +
                              ": unpin of 1 file sent in 1 request\n");
    EXPECT_EQ(Waiting(queue), 1U);
    const std::string after = ReadFile(config_);
    EXPECT_EQ(after.find("empty"), std::string::npos) << after;
    EXPECT_NE(after.find("good"), std::string::npos) << "its request is still to come";
    EXPECT_EQ(Run({"unpin", empty}).status, kExitRefused) << "it is not listed any more";
}

TEST_F(FileVerbsTest, AnEmptyFileStaysListedWhereTheListCannotChange) {
    const std::string empty = MakeAt("empty", 1);
    WriteFile(empty, "");
    List({"empty"});
    const std::string before = ReadFile(config_);
    std::filesystem::create_directory(config_ + ".new");
    const CallResult result = Run({"unpin", empty});
    EXPECT_EQ(result.status, kExitPartly);
    EXPECT_NE(result.talk.find("Is a directory; empty files stay on the list"), std::string::npos)
        << result.talk;
    EXPECT_EQ(result.out.find("taken off"), std::string::npos) << result.out;
    EXPECT_EQ(ReadFile(config_), before);
    std::filesystem::remove(config_ + ".new");

    std::filesystem::create_symlink("/bin/sh", dir_ / "quorcachepinfiled");
    const Impostor service(dir_ / "quorcachepinfiled", {"-f", config_});
    const CallResult refused = Run({"unpin", empty});
    EXPECT_EQ(refused.status, kExitRefused) << "a service that runs would undo it";
    EXPECT_NE(refused.talk.find("unpin takes it off while no service runs"), std::string::npos)
        << refused.talk;
    EXPECT_EQ(ReadFile(config_), before);
}

// What a waited-for pin comes to: what the service has done when it takes the message.
struct HoldingRow {
    const char* what;
    bool listed;
    std::vector<uint64_t> bits;
    int status;
    std::string text;  // of the one file
};

TEST_F(FileVerbsTest, APinThatWasWaitedForIsJudged) {
    const std::string path = MakeAt("a", 1, 2);
    const int queue = MakeQueue();
    const HoldingRow rows[] = {
        {"all well", true, {1, 2}, kExitDone, "pinned 1 file, 128.0 KiB\n  units  2, set 2\n"},
        {"a bit is missing",
         true,
         {1},
         kExitPartly,
         "pinned 0 of 1 file, 128.0 KiB\n  units  2, set 1\n  not pinned " + path +
             ": 1 unit of 2 not set\n"},
        {"it was dropped",
         false,
         {1, 2},
         kExitPartly,
         "pinned 0 of 1 file, 0 bytes\n  units  0, set 0\n  not pinned " + path +
             ": is not on the service's list: its request was dropped, the service's log says "
             "why\n"},
    };
    for (const HoldingRow& row : rows) {
        WriteFile(config_, R"({"nextRequestNum":5})");
        WriteBitmap({});
        const CallResult result = RunServed({"pin", "--wait", path}, queue, 1, [&](int) {
            WriteBitmap(row.bits);
            WriteFile(config_,
                      R"({"nextRequestNum":6,"volumes":{")" + mount_ + R"(":{"files":{)" +
                          (row.listed ? "\"" + std::to_string(InodeOf(path)) + R"(":"a")" : "") +
                          "}}}}");
        });
        EXPECT_EQ(result.status, row.status) << row.what << result.talk;
        EXPECT_EQ(result.out, mount_ + ": " + row.text) << row.what;
    }
}

TEST_F(FileVerbsTest, AnUnpinThatWasWaitedForIsJudgedWithWhatWasPinnedAgain) {
    const std::string leaving = MakeAt("leaving", 1, 2);
    const std::string staying = MakeAt("staying", 2, 1);
    const int queue = MakeQueue();
    const std::string stays = R"(,"volumes":{")" + mount_ + R"(":{"files":{")" +
                              std::to_string(InodeOf(staying)) + R"(":"staying")";
    WriteBitmap({1, 2});
    WriteFile(config_, R"({"nextRequestNum":5)" + stays + ",\"" + std::to_string(InodeOf(leaving)) +
                           R"(":"leaving"}}}})");
    const CallResult result = RunServed({"unpin", "--wait", leaving}, queue, 2, [&](int message) {
        WriteBitmap(message == 1 ? std::vector<uint64_t>{} : std::vector<uint64_t>{2});
        WriteFile(config_, R"({"nextRequestNum":)" + std::to_string(5 + message) + stays + "}}}}");
    });
    EXPECT_EQ(result.status, kExitDone) << result.talk;
    EXPECT_EQ(result.out, mount_ + ": unpinned 1 file, 128.0 KiB\n  units  1, set 0\n" + mount_ +
                              ": pinned again 1 file, 64.0 KiB\n  units  1, set 1\n");
}

TEST_F(FileVerbsTest, LinkIsOfferedAndPinsByALink) {
    const std::string path = MakeAt("my file", 3);
    MakeQueue();
    const auto service = Serve();
    CallResult result = Run({"pin", path});
    EXPECT_EQ(result.status, kExitRefused);
    EXPECT_NE(result.talk.find("--link pins 1 of these files by a hard link"), std::string::npos)
        << result.talk;
    EXPECT_EQ(Report({"pin", "--link", "--dry-run", path}, 0)["price"][0]["units"], 1);
    EXPECT_FALSE(HasLink(mount_, InodeOf(path))) << "it was a dry run";
    const Json::Value report = Report({"pin", "--link", path}, 0);
    EXPECT_EQ(report["files"][0]["path"], path);
    EXPECT_EQ(report["sent"], 1);
    EXPECT_TRUE(HasLink(mount_, InodeOf(path)));
    EXPECT_EQ(Report({"unpin", path}, 0)["notPinned"][0], path) << "it has its link now";
}

}  // namespace

}  // namespace client
