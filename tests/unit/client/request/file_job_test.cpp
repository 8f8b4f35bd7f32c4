// SPDX-License-Identifier: MIT
// The files of one call: what is refused after they were collected, and what is packed.
#include "client/request/file_job.h"

#include <gtest/gtest.h>
#include <stdio.h>
#include <unistd.h>

#include "client/show/exit_status.h"
#include "client/volume/plain_links.h"
#include "tests/unit/client/client_test.h"
#include "tests/unit/support/fake_platform.h"

namespace client {

namespace {

class FileJobTest : public ClientTest {
  protected:
    std::string Placed(const std::string& relative) {
        const std::string path = Make(relative);
        Place(path, {{next_ += 128, 8}});
        return path;
    }
    int Collect(const std::vector<std::string>& paths) {
        FileListOptions options;
        options.paths = paths;
        return CollectJob(options, job_);
    }
    int Pack(bool keepGoing) {
        testing::internal::CaptureStderr();
        const int status = PackJob(keepGoing, job_);
        talk_ = testing::internal::GetCapturedStderr();
        return status;
    }

    FileJob job_;
    std::string talk_;
    uint64_t next_ = 0;
};

TEST_F(FileJobTest, FilesAreMappedAndPacked) {
    ASSERT_EQ(Collect({Placed("a"), Placed("b")}), kExitDone);
    ASSERT_EQ(job_.list.files.size(), 2U);
    EXPECT_EQ(job_.list.files[1].extents.size(), 1U);
    EXPECT_EQ(Pack(false), kExitDone);
    ASSERT_EQ(job_.messages.size(), 1U);
    EXPECT_EQ(job_.messages[0].data, mount_ + "/a;" + mount_ + "/b");
    EXPECT_EQ(talk_, "");
}

TEST_F(FileJobTest, WhatHasNoPlaceOnTheDeviceIsRefused) {
    const std::string hole = Make("hole");
    Place(hole, {});
    ASSERT_EQ(Collect({Placed("a"), hole}), kExitDone);
    ASSERT_EQ(job_.list.refusals.size(), 1U);
    EXPECT_EQ(job_.list.refusals[0].path, hole);
    EXPECT_EQ(job_.list.refusals[0].reason.find("has no place on the device"), 0U);
}

TEST_F(FileJobTest, WithoutACacheThatKeepsPinsAllIsRefused) {
    g_platform.stats["/dev/ssd1"].supportPin = 0;
    ASSERT_EQ(Collect({Placed("a")}), kExitDone);
    ASSERT_EQ(job_.list.refusals.size(), 1U);
    EXPECT_NE(job_.list.refusals[0].reason.find("has no cache that keeps pins now"),
              std::string::npos);
    EXPECT_EQ(Pack(true), kExitRefused) << "there are no others";
    EXPECT_NE(talk_.find("nothing was sent\n"), std::string::npos) << talk_;
}

TEST_F(FileJobTest, OneRefusalKeepsAllBackUnlessTheOthersAreWanted) {
    ASSERT_EQ(Collect({Placed("a"), mount_ + "/nothing"}), kExitDone);
    EXPECT_EQ(Pack(false), kExitRefused);
    EXPECT_NE(talk_.find("refused " + mount_ + "/nothing: No such file"), std::string::npos);
    EXPECT_NE(talk_.find("--keep-going sends the other files"), std::string::npos);
    EXPECT_EQ(Pack(true), kExitDone);
    EXPECT_EQ(job_.messages.size(), 1U);
}

// One that was pinned once can still be unpinned.
TEST_F(FileJobTest, TheBitmapFileIsNotPinned) {
    WriteBitmap({});
    const std::string bitmap = mount_ + "/quorcachepinfile.bitmap";
    Place(bitmap, {{0, 8}});
    ASSERT_EQ(Collect({bitmap, Placed("a")}), kExitDone);
    ASSERT_EQ(job_.list.refusals.size(), 1U);
    EXPECT_EQ(job_.list.refusals[0].path, bitmap);
    EXPECT_EQ(job_.list.refusals[0].reason,
              "is the bitmap file in which the service notes what is pinned");
    EXPECT_EQ(job_.list.files.size(), 1U);
    job_ = FileJob();
    job_.type = kRequestUnpinFiles;
    ASSERT_EQ(Collect({bitmap}), kExitDone);
    EXPECT_TRUE(job_.list.refusals.empty());
}

TEST_F(FileJobTest, WhatIsPinnedAlreadyIsNotedAndSentAllTheSame) {
    const std::vector<std::string> paths = {Placed("a"), Placed("b"), Placed("c"), Placed("d")};
    ConfigState state;
    state.pinned[mount_] = {{"a", InodeOf(paths[0])}, {"renamed since", InodeOf(paths[1])}};
    state.queue.push_back({"0", "pinFiles", mount_, "c#" + std::to_string(InodeOf(paths[2]))});
    ASSERT_EQ(Collect(paths), kExitDone);
    NotePinned(state, job_);
    EXPECT_EQ(job_.pinnedAlready, (std::vector<std::string>{paths[0], paths[1], paths[2]}));
    EXPECT_EQ(job_.list.files.size(), 4U);
    testing::internal::CaptureStderr();
    SayMatch(job_);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "quorcachepinctl: " + paths[0] +
                  " and 2 more are pinned already; pinning them again reads them into the cache "
                  "again\n");
}

TEST_F(FileJobTest, AListThatCannotBeReadIsAWrongCommandLine) {
    FileListOptions options;
    options.lists = {dir_ / "nothing"};
    testing::internal::CaptureStderr();
    EXPECT_EQ(CollectJob(options, job_), kExitUsage);
    EXPECT_NE(testing::internal::GetCapturedStderr().find("nothing"), std::string::npos);
}

TEST_F(FileJobTest, WhatIsPinnedAgainFollowsTheOthers) {
    job_.type = kRequestUnpinFiles;
    ASSERT_EQ(Collect({Placed("a")}), kExitDone);
    ASSERT_EQ(Pack(false), kExitDone);
    job_.repinned = {Examine(Placed("b"), job_.volumes)};
    PackRepinned(job_);
    ASSERT_EQ(job_.messages.size(), 2U);
    EXPECT_EQ(job_.messages[0].type, kRequestUnpinFiles);
    EXPECT_EQ(job_.messages[1].type, kRequestPinFiles);
    EXPECT_EQ(job_.messages[1].data, mount_ + "/b");
}

class UnpinMatchTest : public ClientTest {
  protected:
    std::string File(const std::string& relative, bool listed) {
        const std::string path = Make(relative);
        Place(path, {{next_ += kUnit, 8}});
        if (listed) {
            state_.pinned[mount_].push_back({relative, InodeOf(path)});
        }
        return path;
    }
    // Returns the relative paths of the files that stay to be sent.
    std::vector<std::string> Match(const std::vector<std::string>& paths) {
        FileListOptions options;
        options.paths = paths;
        job_ = FileJob();
        job_.type = kRequestUnpinFiles;
        EXPECT_EQ(CollectJob(options, job_), 0);
        MatchWithList(state_, listMayChange_, job_);
        std::vector<std::string> names;
        for (const FileRef& file : job_.list.files) {
            names.push_back(file.relative);
        }
        testing::internal::CaptureStderr();
        SayMatch(job_);
        talk_ = testing::internal::GetCapturedStderr();
        return names;
    }
    using Texts = std::vector<std::string>;

    ConfigState state_;
    bool listMayChange_ = false;
    FileJob job_;
    std::string talk_;
    uint64_t next_ = 0;
};

TEST_F(UnpinMatchTest, WhatIsPinnedIsSent) {
    const std::string a = File("a", true);
    const std::string b = File("b", false);
    state_.queue.push_back({"0", "pinFiles", mount_, "b#" + std::to_string(InodeOf(b))});
    EXPECT_EQ(Match({a, b}), (Texts{"a", "b"})) << "what is queued to be pinned, too";
    EXPECT_TRUE(job_.entries.empty() && job_.passedOver.empty() && job_.notPinned.empty());
    EXPECT_EQ(talk_, "");
}

TEST_F(UnpinMatchTest, WhatWasNotPinnedIsSentAllTheSameAndNoted) {
    Texts paths;
    for (int i = 0; i < 12; ++i) {
        paths.push_back(File("f" + std::to_string(i), false));
    }
    EXPECT_EQ(Match(paths).size(), 12U);
    EXPECT_EQ(job_.notPinned, paths);
    EXPECT_NE(talk_.find(paths[9] + " was not pinned"), std::string::npos) << talk_;
    EXPECT_EQ(talk_.find(paths[10]), std::string::npos);
    EXPECT_NE(talk_.find("and 2 more were not pinned"), std::string::npos);
}

TEST_F(UnpinMatchTest, AListedFileThatIsGoneIsRefusedWithTheRemedy) {
    const std::string gone = File("gone", true);
    unlink(gone.c_str());
    EXPECT_EQ(Match({gone, mount_ + "/nothing"}), Texts());
    ASSERT_EQ(job_.list.refusals.size(), 2U);
    EXPECT_EQ(job_.list.refusals[0].reason,
              "is on the service's list and gone; check --repair takes it off");
    EXPECT_EQ(job_.list.refusals[1].reason, "No such file or directory") << "not on the list";
    ASSERT_EQ(job_.entries.size(), 1U);
    EXPECT_EQ(job_.entries[0].fate, Fate::kGone);
}

TEST_F(UnpinMatchTest, AFileInThePlaceOfAListedOneIsPassedOver) {
    const std::string path = File("a", true);
    const std::string other = File("b", true);
    ASSERT_EQ(rename(File("new", false).c_str(), path.c_str()), 0);
    EXPECT_EQ(Match({path, other}), (Texts{"b"}));
    ASSERT_EQ(job_.passedOver.size(), 1U);
    EXPECT_EQ(job_.passedOver[0].path, path);
    EXPECT_NE(talk_.find("not sent " + path + ": is on the service's list and replaced"),
              std::string::npos)
        << talk_;
    EXPECT_NE(talk_.find("check --repair follows it"), std::string::npos) << talk_;
    EXPECT_EQ(job_.entries.size(), 1U);
    EXPECT_TRUE(job_.notPinned.empty() && job_.list.refusals.empty());
}

TEST_F(UnpinMatchTest, OneThatIsPinnedItselfIsSentWhateverItReplaced) {
    const std::string path = File("a", true);
    ASSERT_EQ(rename(File("b", true).c_str(), path.c_str()), 0);
    EXPECT_EQ(Match({path}), (Texts{"a"}));
    EXPECT_TRUE(job_.passedOver.empty());
    ASSERT_EQ(job_.entries.size(), 1U) << "the other entry is named all the same";
    EXPECT_EQ(job_.entries[0].fate, Fate::kReplaced);
}

TEST_F(UnpinMatchTest, ARenamedFileIsSentByItsNewNameAndRefusedByItsOldOne) {
    const std::string path = File("a", true);
    const std::string now = mount_ + "/b";
    ASSERT_EQ(rename(path.c_str(), now.c_str()), 0);
    EXPECT_EQ(Match({path, now}), (Texts{"b"}));
    ASSERT_EQ(job_.list.refusals.size(), 1U);
    EXPECT_EQ(job_.list.refusals[0].reason, "is on the service's list and renamed: lies at " + now);
    EXPECT_TRUE(job_.notPinned.empty());
}

TEST_F(UnpinMatchTest, AnEmptyListedFileIsRefusedUntilTheListMayChange) {
    const std::string path = File("a", true);
    const std::string other = File("b", false);
    WriteFile(path, "");
    WriteFile(other, "");
    EXPECT_EQ(Match({path, path, other}), Texts());
    ASSERT_EQ(job_.list.refusals.size(), 3U);
    EXPECT_NE(job_.list.refusals[0].reason.find("unpin takes it off while no service runs"),
              std::string::npos);
    EXPECT_EQ(job_.list.refusals[1].reason, job_.list.refusals[0].reason);
    EXPECT_EQ(job_.list.refusals[2].reason.find("is empty: the service would wait"), 0U)
        << "it is not on the list";
    EXPECT_EQ(job_.entries.size(), 1U);
    EXPECT_TRUE(job_.emptied.empty());

    listMayChange_ = true;
    const std::string gone = File("gone", true);
    unlink(gone.c_str());
    EXPECT_EQ(Match({path, path, other, gone}), Texts());
    ASSERT_EQ(job_.emptied.size(), 1U);
    EXPECT_EQ(job_.emptied[0].entry.relative, "a");
    ASSERT_EQ(job_.list.refusals.size(), 2U)
        << "what is gone is check's, what is not listed nobody's";
    EXPECT_EQ(job_.list.refusals[0].path, other);
    EXPECT_EQ(job_.list.refusals[1].path, gone);
}

TEST_F(UnpinMatchTest, AnEntryIsNamedOnceHoweverOftenItsPathIsGiven) {
    const std::string gone = File("d/gone", true);
    unlink(gone.c_str());
    Match({gone, mount_ + "/d/../d/gone"});
    EXPECT_EQ(job_.list.refusals.size(), 2U);
    EXPECT_EQ(job_.list.refusals[1].reason, job_.list.refusals[0].reason);
    EXPECT_EQ(job_.entries.size(), 1U);
}

Message Of(RequestType type, const std::string& mountPath, size_t numFiles) {
    return {type, mountPath, "", "", numFiles, {}};
}

std::string SentText(const FileJob& job, const char* verb) {
    Record report;
    AddSent(job, verb, report);
    testing::internal::CaptureStdout();
    report.Print();
    return testing::internal::GetCapturedStdout();
}

struct SentRow {
    const char* what;
    std::vector<Message> messages;
    size_t sent;
    size_t repinned;  // files
    std::string text;
};

TEST(FileReportTest, WhatWasSentIsCountedByVolume) {
    const Message unpinA = Of(kRequestUnpinFiles, "/a", 3);
    const Message unpinB = Of(kRequestUnpinFiles, "/b", 1);
    const Message again = Of(kRequestPinFiles, "/a", 2);
    const SentRow rows[] = {
        {"nothing to do", {}, 0, 0, "no files, nothing sent\n"},
        {"nothing went out", {unpinA}, 0, 0, ""},
        {"one volume", {unpinA}, 1, 0, "/a: unpin of 3 files sent in 1 request\n"},
        {"requests add up", {unpinA, unpinA}, 2, 0, "/a: unpin of 6 files sent in 2 requests\n"},
        {"volumes do not",
         {unpinB, unpinA},
         2,
         0,
         "/a: unpin of 3 files sent in 1 request\n/b: unpin of 1 file sent in 1 request\n"},
        {"those not sent do not count",
         {unpinA, unpinB},
         1,
         0,
         "/a: unpin of 3 files sent in 1 request\n"},
        {"pinned again",
         {unpinB, again},
         2,
         2,
         "/b: unpin of 1 file sent in 1 request\n"
         "2 pinned files share units with them; pinned again by 1 request\n"},
        {"pinned again in part only: the caller says so",
         {unpinB, again, again},
         2,
         4,
         "/b: unpin of 1 file sent in 1 request\n"},
    };
    for (const SentRow& row : rows) {
        FileJob job;
        job.type = kRequestUnpinFiles;
        job.messages = row.messages;
        job.sent = row.sent;
        job.repinned.resize(row.repinned);
        EXPECT_EQ(SentText(job, "unpin"), row.text) << row.what;
    }
}

TEST(FileReportTest, AVolumesNameCannotWriteToTheTerminal) {
    FileJob job;
    job.messages = {Of(kRequestPinFiles, "/a\033[2J", 1)};
    job.sent = 1;
    EXPECT_EQ(SentText(job, "pin"), "/a\\x1b[2J: pin of 1 file sent in 1 request\n");
}

TEST(FileReportTest, TheRecordHasFilesRefusalsAndEntries) {
    const Volume volume = {"/a", "uuid"};
    FileRef file;
    file.volume = &volume;
    file.path = "/a/x";
    file.inode = 7;
    file.size = 5000;
    PinnedFile gone;
    gone.mountPath = "/a";
    gone.entry = {"y", 8};
    gone.fate = Fate::kGone;
    gone.why = "is nowhere on its volume";
    FileJob job;
    job.list.files = {file};
    job.list.refusals = {{"/z", "no such file"}};
    job.passedOver = {{"/a/w", "replaced"}};
    job.entries = {gone};
    job.notPinned = {"/a/x"};
    job.messages = {Of(kRequestPinFiles, "/a", 1), Of(kRequestPinFiles, "/a", 1)};
    job.sent = 1;
    Record report;
    AddJob(job, report);
    const Json::Value json = report.ToJson();
    EXPECT_EQ(json["files"][0]["path"], "/a/x");
    EXPECT_EQ(json["files"][0]["inode"], 7U);
    EXPECT_EQ(json["files"][0]["size"], 5000U);
    EXPECT_EQ(json["refused"].size(), 2U) << "what is passed over is refused";
    EXPECT_EQ(json["refused"][1]["reason"], "replaced");
    EXPECT_EQ(json["entries"][0]["fate"], "gone");
    EXPECT_EQ(json["notPinned"][0], "/a/x");
    EXPECT_EQ(json["requests"], 2U);
    EXPECT_EQ(json["sent"], 1U);
    EXPECT_EQ(json["repinned"].size(), 0U);
    testing::internal::CaptureStdout();
    report.Print();
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "") << "the text form has AddSent";
}

TEST_F(FileJobTest, LinksAreMadeForWhatNoRequestCanName) {
    const std::string path = Placed("my file");
    FileListOptions options;
    options.link = true;
    options.paths = {path, Placed("b")};
    ASSERT_EQ(CollectJob(options, job_), kExitDone);
    LinkFiles(false, job_);
    ASSERT_EQ(Pack(false), kExitDone);
    ASSERT_EQ(job_.messages.size(), 1U);
    EXPECT_EQ(job_.messages[0].data, mount_ + "/" + LinkName(InodeOf(path)) + ";" + mount_ + "/b");
    EXPECT_EQ(job_.list.files[0].path, path);
}

TEST_F(FileJobTest, NothingIsLinkedBesideARefusalUnlessTheOthersGo) {
    const std::string path = Placed("my file");
    FileListOptions options;
    options.link = true;
    options.paths = {path, mount_ + "/nothing"};
    ASSERT_EQ(CollectJob(options, job_), kExitDone);
    LinkFiles(false, job_);
    EXPECT_FALSE(HasLink(mount_, InodeOf(path)));
    LinkFiles(true, job_);
    EXPECT_TRUE(HasLink(mount_, InodeOf(path)));
}

TEST_F(FileJobTest, AFileThatCannotBeLinkedIsRefused) {
    const std::string path = Placed("my file");
    WriteFile(mount_ + "/.quorcachepin", "in the way");
    FileListOptions options;
    options.link = true;
    options.paths = {path};
    ASSERT_EQ(CollectJob(options, job_), kExitDone);
    LinkFiles(false, job_);
    ASSERT_EQ(job_.list.refusals.size(), 1U);
    EXPECT_EQ(job_.list.refusals[0].reason, mount_ + "/.quorcachepin: Not a directory");
    EXPECT_TRUE(job_.list.files.empty());
}

}  // namespace

}  // namespace client
