// SPDX-License-Identifier: MIT
// The shapes of --json, verb by verb, as the manual gives them.
#include <gtest/gtest.h>
#include <json/json.h>

#include <memory>

#include "client/command_line.h"
#include "tests/unit/client/client_test.h"

namespace client {

namespace {

constexpr uint64_t kUnit = 128;  // sectors

// Of a verb that can do nothing with the path it was given.
constexpr char kRefusedShape[] = "error:s exitStatus:n refused:a schema:n verb:s";

class JsonTest : public QueueClientTest {
  protected:
    void SetUp() override {
        QueueClientTest::SetUp();
        config_ = dir_ / "conf";
        WriteFile(config_, "{}");
    }

    // Runs the command with --json and --config-path; the report must parse and carry the verb and
    // the exit status that came back.
    Json::Value Report(std::vector<std::string> arguments, int expectedStatus) {
        const std::string verb = arguments[0];
        arguments.insert(arguments.begin(), "quorcachepinctl");
        arguments.insert(arguments.end(), {"--json", "--config-path", config_});
        std::vector<char*> pointers;
        for (std::string& argument : arguments) {
            pointers.push_back(argument.data());
        }
        testing::internal::CaptureStdout();
        testing::internal::CaptureStderr();
        const int status = RunCommandLine(static_cast<int>(pointers.size()), pointers.data());
        const std::string text = testing::internal::GetCapturedStdout();
        const std::string talk = testing::internal::GetCapturedStderr();
        EXPECT_EQ(status, expectedStatus) << verb << "\n" << text << talk;
        const std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
        Json::Value report;
        std::string errors;
        EXPECT_TRUE(reader->parse(text.data(), text.data() + text.size(), &report, &errors))
            << errors << text;
        EXPECT_EQ(report["schema"], 1);
        EXPECT_EQ(report["verb"], verb);
        EXPECT_EQ(report["exitStatus"], status);
        return report;
    }

    // A pinned file of two units, one of them set.
    std::string PinHalf() {
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

    std::string config_;
};

// "name:kind" of the members of an object, kinds being n number, s text, b boolean, a array,
// o object, 0 null.
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

TEST_F(JsonTest, PinTellsFilesAndRefusals) {
    const std::string path = Make("a");
    Place(path, {{0, kUnit}});
    MakeQueue();
    const Json::Value report = Report({"pin", path}, 0);
    EXPECT_EQ(Shape(report),
              "dryRun:b entries:a exitStatus:n files:a notPinned:a refused:a repinned:a requests:n "
              "schema:n sent:n verb:s");
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

TEST_F(JsonTest, ADryRunTellsThePriceAndSendsNothing) {
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

TEST_F(JsonTest, UnpinTellsWhatWasNotPinnedAndWhatIsListedAndNotThere) {
    const std::string gone = PinHalf();
    const std::string other = Make("b");
    Place(other, {{9 * kUnit, 8}});
    unlink(gone.c_str());
    MakeQueue();
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

TEST_F(JsonTest, UnpinNamesAFileInThePlaceOfAListedOneAndSendsTheOthers) {
    const std::string path = PinHalf();
    const std::string other = Make("b");
    Place(other, {{9 * kUnit, 8}});
    const std::string fresh = Make("new");
    Place(fresh, {{11 * kUnit, 8}});
    rename(fresh.c_str(), path.c_str());
    MakeQueue();
    const Json::Value report = Report({"unpin", path, other}, 1);
    EXPECT_EQ(report["sent"], 1);
    ASSERT_EQ(report["refused"].size(), 1U);
    EXPECT_EQ(report["refused"][0]["path"], path);
    EXPECT_EQ(report["entries"][0]["fate"], "replaced");
}

TEST_F(JsonTest, ListTellsFilesByVolume) {
    const std::string path = PinHalf();
    const Json::Value report = Report({"list"}, 0);
    EXPECT_EQ(Shape(report), "exitStatus:n schema:n verb:s volumes:a");
    EXPECT_EQ(Shape(report["volumes"][0]), "files:a mounted:b volume:s");
    const Json::Value& file = report["volumes"][0]["files"][0];
    EXPECT_EQ(Shape(file), "fate:s inode:n path:s reason:0 relativePath:s size:n volume:s");
    EXPECT_EQ(file["path"], path);
    EXPECT_EQ(file["fate"], "there");
    unlink(path.c_str());
    const Json::Value gone = Report({"list"}, 0)["volumes"][0]["files"][0];
    EXPECT_EQ(gone["fate"], "gone");
    EXPECT_TRUE(gone["reason"].isString());
    EXPECT_TRUE(gone["size"].isNull());
    EXPECT_EQ(Shape(Report({"list", "/nowhere"}, 5)), kRefusedShape);
    config_ = dir_.path();  // cannot be read
    EXPECT_EQ(Shape(Report({"list"}, 3)), "error:s exitStatus:n schema:n verb:s");
}

TEST_F(JsonTest, StatusTellsWhatIsThereAlsoWithoutAService) {
    PinHalf();
    const Json::Value report = Report({"status"}, 3);
    EXPECT_EQ(Shape(report),
              "configPath:s defects:a exitStatus:n queue:o requests:a schema:n services:a verb:s "
              "volumes:a");
    EXPECT_EQ(Shape(report["queue"]), "error:s");
    EXPECT_EQ(report["services"].size(), 0U);
    EXPECT_EQ(Shape(report["requests"][0]), "files:n number:s state:s type:s volume:s");
    EXPECT_EQ(Shape(report["volumes"][0]),
              "cacheBytes:0 files:n unitsResident:0 unitsSet:n unitsWithDriver:0 volume:s");
    MakeQueue();
    EXPECT_EQ(Shape(Report({"status"}, 3)["queue"]), "bytes:n id:n key:n limitBytes:n messages:n");
}

TEST_F(JsonTest, CheckTellsFatesAndCounts) {
    PinHalf();
    const Json::Value report = Report({"check"}, 1);
    EXPECT_EQ(Shape(report), "exitStatus:n schema:n verb:s volumes:a");
    const Json::Value& volume = report["volumes"][0];
    EXPECT_EQ(Shape(volume),
              "agrees:b bitmapFileTooLong:b files:a mountPaths:a mounted:b requestsQueued:n "
              "uncertain:0 unitsDriverLacks:0 unitsDriverSurplus:0 unitsMissing:n unitsNeeded:n "
              "unitsSet:n unitsSurplus:n unitsWithoutBit:n volume:s");
    EXPECT_EQ(Shape(volume["files"][0]),
              "fate:s inode:n path:s reason:0 units:n unitsMissing:n volume:s");
    EXPECT_EQ(volume["volume"], mount_);
    EXPECT_EQ(volume["mountPaths"][0], mount_);
    EXPECT_EQ(volume["files"][0]["fate"], "there");
    EXPECT_EQ(volume["files"][0]["unitsMissing"], 1);
    EXPECT_EQ(volume["requestsQueued"], 1);
    WriteBitmap({4, 5});
    EXPECT_EQ(Report({"check"}, 0)["volumes"][0]["agrees"], true);
    EXPECT_EQ(Shape(Report({"check", "/nowhere"}, 5)), kRefusedShape);
}

TEST_F(JsonTest, RepairTellsWhatItDid) {
    PinHalf();
    const Json::Value report = Report({"check", "--repair"}, 0);
    EXPECT_EQ(Shape(report["repair"]), "actions:a left:a requests:n unitsCleared:n unitsSet:n");
    EXPECT_EQ(report["repair"]["requests"], 0);
    EXPECT_EQ(report["repair"]["unitsSet"], 1);
    EXPECT_EQ(Shape(report["volumes"][0]), Shape(report["volumesAfterRepair"][0]));
}

TEST_F(JsonTest, ExplainTellsExtentsUnitsAndNeighbours) {
    const std::string path = PinHalf();
    const std::string other = Make("b");
    Place(other, {{5 * kUnit, 8}});
    const Json::Value file = Report({"explain", other}, 0)["file"];
    EXPECT_EQ(Shape(file),
              "extents:a fate:0 inode:n path:s pathReplaced:b pinned:b queued:a shares:a size:n "
              "unitRuns:a units:n unitsResident:0 unitsSet:n unitsWithDriver:0 volume:s "
              "whyNotResident:s");
    EXPECT_EQ(file["pinned"], false);
    EXPECT_EQ(Shape(file["extents"][0]), "deviceSector:n fileSector:n sectors:n written:b");
    EXPECT_EQ(file["unitRuns"][0][0], 5);
    EXPECT_EQ(file["unitRuns"][0][1], 5);
    EXPECT_EQ(Shape(file["shares"][0]), "path:s units:n");
    EXPECT_EQ(file["shares"][0]["path"], path);
    const Json::Value itself = Report({"explain", path}, 0)["file"];
    EXPECT_EQ(itself["pinned"], true);
    EXPECT_EQ(itself["fate"], "there");
    const Json::Value refused = Report({"explain", mount_ + "/nothing"}, 5);
    EXPECT_EQ(refused["refused"].size(), 1U);
    EXPECT_EQ(refused["entries"].size(), 0U);
    unlink(path.c_str());
    const Json::Value gone = Report({"explain", path}, 5);
    ASSERT_EQ(gone["entries"].size(), 1U) << "it is on the list all the same";
    EXPECT_EQ(Shape(gone["entries"][0]), "fate:s inode:n path:s reason:s volume:s");
    EXPECT_EQ(gone["entries"][0]["fate"], "gone");
}

TEST_F(JsonTest, MapTellsRuns) {
    WriteBitmap({1, 2, 3, 9});
    const Json::Value report = Report({"map", mount_}, 0);
    EXPECT_EQ(Shape(report),
              "cacheBytes:0 exitStatus:n residentRuns:0 schema:n setRuns:a unitBytes:n units:n "
              "unitsSet:n verb:s volume:s");
    EXPECT_EQ(report["units"], 1024);
    ASSERT_EQ(report["setRuns"].size(), 2U);
    EXPECT_EQ(report["setRuns"][0][0], 1);
    EXPECT_EQ(report["setRuns"][0][1], 3);
    EXPECT_EQ(report["setRuns"][1][0], 9);
    EXPECT_EQ(Shape(Report({"map", "/nowhere"}, 5)), kRefusedShape);
}

TEST_F(JsonTest, VolumeVerbsTellTheVolume) {
    MakeQueue();
    for (const char* const verb : {"reload", "pend", "release"}) {
        const Json::Value report = Report({verb, mount_ + "//"}, 0);
        EXPECT_EQ(Shape(report), "exitStatus:n schema:n sent:n verb:s volume:s");
        EXPECT_EQ(report["volume"], mount_);
        EXPECT_EQ(report["sent"], 1);
        EXPECT_EQ(Shape(Report({verb, "/nowhere"}, 5)),
                  "error:s exitStatus:n refused:a schema:n sent:n verb:s");
    }
}

TEST_F(JsonTest, DoctorTellsFindingsAndWhatItDid) {
    const Json::Value report = Report({"doctor"}, 3);
    EXPECT_EQ(Shape(report), "done:a exitStatus:n findings:a schema:n verb:s");
    for (const Json::Value& finding : report["findings"]) {
        const std::string shape = Shape(finding);
        EXPECT_TRUE(shape == "health:s remedy:s subject:s text:s" ||
                    shape == "health:s remedy:0 subject:s text:s")
            << shape;
    }
}

// Besides the words on standard error.
TEST_F(JsonTest, AWrongCommandLineIsAReportToo) {
    const std::vector<std::string> lines[] = {
        {"pin"}, {"pin", "--nonsense", "a"}, {"map"}, {"map", "a", "-o", "a.png"}, {"nonsense"}};
    for (const std::vector<std::string>& line : lines) {
        const Json::Value report = Report(line, 2);
        EXPECT_EQ(Shape(report), "error:s exitStatus:n schema:n verb:s") << line[0];
        EXPECT_NE(report["error"], "") << line[0];
    }
}

}  // namespace

}  // namespace client
