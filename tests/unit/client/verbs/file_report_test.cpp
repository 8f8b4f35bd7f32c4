// SPDX-License-Identifier: MIT
// What was sent, in words and as a record.
#include "client/verbs/file_report.h"

#include <gtest/gtest.h>

namespace client {

namespace {

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

}  // namespace

}  // namespace client
