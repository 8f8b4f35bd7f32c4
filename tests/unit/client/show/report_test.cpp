// SPDX-License-Identifier: MIT
// One description of what a verb knows, as text and as JSON.
#include "client/show/report.h"

#include <gtest/gtest.h>

#include <memory>

#include "client/show/exit_status.h"
#include "client/show/output.h"
#include "tests/unit/client/show/printed.h"

namespace client {

namespace {

std::string JsonOf(const Record& record) {
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "";
    return Json::writeString(builder, record.ToJson());
}

struct Row {
    const char* why;
    Record record;
    std::string text;
    std::string json;
};

Record File(const char* path, const Json::Value& size, const char* fate) {
    return Record()
        .Add("size", size, "size", Unit::kBytes)
        .Add("path", path, "path")
        .Shown("fate", fate, "", std::string(fate) == "there" ? "" : fate);
}

TEST(Report, OneDescriptionComesOutTwice) {
    const std::vector<Record> files = {File("a", 1024, "there"),
                                       File("b c", Json::Value(), "gone")};
    const std::string filesJson = R"("files":[{"fate":"there","path":"a","size":1024},)"
                                  R"({"fate":"gone","path":"b c","size":null}])";
    const Row rows[] = {
        {"nothing", Record(), "", "{}"},
        {"for programs alone", Record().Add("key", 7), "", R"({"key":7})"},
        {"for people alone", Record().Row("volume", "none").Line("sorry"), "volume  none\nsorry\n",
         "{}"},
        {"a null is unknown", Record().Add("n", Json::Value(), "count").Add("m", 1, "m"), "m  1\n",
         R"({"m":1,"n":null})"},
        {"units of measure",
         Record().Add("b", 2048, "bytes", Unit::kBytes).Add("y", true, "yes?").Add("c", 3, "count"),
         "bytes  2.0 KiB\nyes?   yes\ncount  3\n", R"({"b":2048,"c":3,"y":true})"},
        {"a name that writes to the terminal", Record().Add("path", "a\033[2J", "path"),
         "path  a\\x1b[2J\n", "{\"path\":\"a\\u001b[2J\"}"},
        {"lines below a headline", Record().Headline("/m: 1 file").Add("n", 1, "n").Line("end"),
         "/m: 1 file\n  n  1\n  end\n", R"({"n":1})"},
        {"a text of its own", Record().Shown("state", "bad", "state", "bad, and why"),
         "state  bad, and why\n", R"({"state":"bad"})"},
        {"a text says why a value is unknown",
         Record().Shown("cache", Json::Value(), "cache", "of no known size"),
         "cache  of no known size\n", R"({"cache":null})"},
        {"a list for programs", Record().List("files", files), "", "{" + filesJson + "}"},
        {"an empty list", Record().List("files", {}, Layout::kHeadedRows), "", R"({"files":[]})"},
        {"columns, numbers right, unknown as -", Record().List("files", files, Layout::kRows),
         "1.0 KiB  a\n      -  b c  gone\n", "{" + filesJson + "}"},
        {"columns with headings", Record().List("files", files, Layout::kHeadedRows),
         "   size  path\n1.0 KiB  a\n      -  b c   gone\n", "{" + filesJson + "}"},
        {"columns below rows", Record().Row("files", "2").List("files", files, Layout::kRows),
         "files  2\n  1.0 KiB  a\n        -  b c  gone\n", "{" + filesJson + "}"},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(TextOf(row.record), row.text) << row.why;
        EXPECT_EQ(JsonOf(row.record), row.json) << row.why;
    }
}

TEST(Report, ACopyGoesItsOwnWay) {
    Record first = Record().Add("a", 1, "a");
    Record second = first;
    second.Headline("second").Add("b", 2, "b").Line("more");
    first.Add("a", 3, "a");
    EXPECT_EQ(JsonOf(first), R"({"a":3})");
    EXPECT_EQ(TextOf(first), "a  1\na  3\n");
    EXPECT_EQ(JsonOf(second), R"({"a":1,"b":2})");
    EXPECT_EQ(TextOf(second), "second\n  a  1\n  b  2\n  more\n");
}

Json::Value Finished(Record report, int exitStatus) {
    testing::internal::CaptureStdout();
    EXPECT_EQ(Finish("list", report, true, exitStatus), exitStatus);
    const std::string text = testing::internal::GetCapturedStdout();
    const std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
    Json::Value document;
    EXPECT_TRUE(reader->parse(text.data(), text.data() + text.size(), &document, nullptr)) << text;
    return document;
}

void SayUnheard(const char* text) {
    testing::internal::CaptureStderr();
    Say(text);
    testing::internal::GetCapturedStderr();
}

TEST(Report, AFailureNamesItsReason) {
    struct {
        const char* why;
        int exitStatus;
        const char* error;  // of the document, null when there is none
    } const rows[] = {
        {"a note on success is no failure", kExitDone, nullptr},
        {"what holds in part says so itself", kExitPartly, nullptr},
        {"usage", kExitUsage, "nobody is there"},
        {"no service", kExitNoService, "nobody is there"},
        {"the time is over", kExitTimedOut, "nobody is there"},
        {"refused", kExitRefused, "nobody is there"},
        {"a signal", 130, "nobody is there"},
    };
    for (const auto& row : rows) {
        SayUnheard("nobody is there");
        const Json::Value document = Finished(Record(), row.exitStatus);
        EXPECT_EQ(document["schema"], 1) << row.why;
        EXPECT_EQ(document["verb"], "list") << row.why;
        EXPECT_EQ(document["exitStatus"], row.exitStatus) << row.why;
        EXPECT_EQ(document["error"], row.error == nullptr ? Json::Value() : row.error) << row.why;
    }
    EXPECT_FALSE(Finished(Record(), kExitNoService).isMember("error")) << "said for another report";
}

TEST(Report, AVerbGivesItsReasonItself) {
    Record report;
    testing::internal::CaptureStderr();
    EXPECT_EQ(Fail(report, kExitPartly, "the disk is full"), kExitPartly);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "quorcachepinctl: the disk is full\n");
    SayUnheard("by the way");
    EXPECT_EQ(Finished(report, kExitPartly)["error"], "the disk is full");
}

TEST(Report, ARefusalNamesItsPath) {
    Record report;
    testing::internal::CaptureStderr();
    EXPECT_EQ(Refuse(report, "/m/\033", "no volume is there"), kExitRefused);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "quorcachepinctl: refused /m/\\x1b: no volume is there\n");
    const Json::Value document = Finished(report, kExitRefused);
    EXPECT_EQ(document["error"], "/m/\\x1b: no volume is there");
    ASSERT_EQ(document["refused"].size(), 1U);
    EXPECT_EQ(document["refused"][0]["path"], "/m/\033");
    EXPECT_EQ(document["refused"][0]["reason"], "no volume is there");
}

TEST(Report, JsonIsUtf8) {
    Record report;
    report.List("files", {Record().Add("path", "/m/\xe4")});
    report.Add("names", TextsToJson({"\xff", "b\xc3\xa4r"}));
    const Json::Value document = Finished(report, kExitDone);
    EXPECT_EQ(document["files"][0]["path"], "/m/\\xe4");
    EXPECT_EQ(document["names"][0], "\\xff");
    EXPECT_EQ(document["names"][1], "b\xc3\xa4r");
}

TEST(Report, TheTextFormHasNoWrapping) {
    Record report;
    testing::internal::CaptureStdout();
    EXPECT_EQ(Finish("list", report.Add("n", 1, "n"), false, kExitRefused), kExitRefused);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "n  1\n");
}

TEST(Report, AnUnknownNumberIsNull) {
    EXPECT_EQ(IfKnown(true, 0), Json::Value(Json::UInt64{0}));
    EXPECT_TRUE(IfKnown(false, 5).isNull());
}

}  // namespace

}  // namespace client
