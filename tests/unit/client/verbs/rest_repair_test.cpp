// SPDX-License-Identifier: MIT
// Repairing while no service runs: list, bitmap file and driver afterwards.
#include "client/verbs/repair.h"

#include <gtest/gtest.h>
#include <json/json.h>
#include <unistd.h>

#include <filesystem>

#include "client/service/stored_list.h"
#include "client/show/exit_status.h"
#include "platform/quorflashcache.h"
#include "tests/unit/client/client_test.h"
#include "tests/unit/support/fake_ioctl.h"
#include "tests/unit/support/fake_platform.h"
#include "util/json_file.h"

namespace client {

namespace {

// In an IPC namespace of its own, in which no service runs.
class RestRepairTest : public QueueClientTest {
  protected:
    using Texts = std::vector<std::string>;

    // Makes the configuration file with this list of the volume and one of a volume that is not
    // mounted.
    void List(const std::string& files) {
        WriteFile(dir_ / "conf",
                  R"({"nextRequestNum":8,"requestQueue":["7"],"requests":{"7":{"data":"q#9",)"
                  R"("mountPath":"/mnt/else","type":"pinFiles"}},"volumes":{")" +
                      mount_ + R"(":{"files":{)" + files +
                      R"(}},"/mnt/unmounted":{"files":{"5":"x"}}}})");
    }
    static std::string Entry(uint32_t inode, const std::string& relative) {
        return "\"" + std::to_string(inode) + "\":\"" + relative + "\"";
    }
    int RepairAll(const std::string& mountPath = "") {
        report_ = RepairReport();
        testing::internal::CaptureStderr();
        const int status = RepairAtRest(dir_ / "conf", mountPath, false, report_);
        talk_ = testing::internal::GetCapturedStderr();
        return status;
    }
    Json::Value Document() {
        Json::Value document;
        EXPECT_EQ(ReadFileToJson(dir_ / "conf", document), 0);
        return document;
    }
    std::string Bitmap() { return ReadFile(mount_ + "/quorcachepinfile.bitmap"); }
    // The bitmap file's content with these units set.
    std::string BitmapOf(const std::vector<uint64_t>& units) {
        const std::string path = mount_ + "/quorcachepinfile.bitmap";
        const std::string before = Exists(path) ? ReadFile(path) : "";
        WriteBitmap(units);
        const std::string content = ReadFile(path);
        WriteFile(path, before);
        return content;
    }
    // The bitmap that the driver was handed last, "" when none was.
    static std::string Handed() {
        std::string bytes;
        for (const IoctlRecord& sent : IoctlsSent()) {
            if (sent.request == FLASH_CACHE_SET_PIN_BITMAP) {
                bytes.assign(sent.bitmap.begin(), sent.bitmap.end());
            }
        }
        return bytes;
    }
    bool Left(const std::string& text) {
        for (const std::string& left : report_.left) {
            if (left.find(text) != std::string::npos) {
                return true;
            }
        }
        return false;
    }

    RepairReport report_;
    std::string talk_;
};

TEST_F(RestRepairTest, ListBitmapAndDriverBecomeWhatIsThere) {
    const std::string there = MakeAt("there", 8, 2);
    const std::string fresh = MakeAt("replaced", 11);
    const std::string moved = MakeAt("d/moved", 12);
    WriteBitmap({1, 8, 100});
    List(Entry(InodeOf(there), "there") + "," + Entry(5, "gone") + "," + Entry(6, "replaced") +
         "," + Entry(InodeOf(moved), "old"));
    const Json::Value before = Document();
    EXPECT_EQ(RepairAll(), kExitDone) << talk_;

    Json::Value expected = before;
    Json::Value& files = expected["volumes"][mount_]["files"] = Json::Value();
    files[std::to_string(InodeOf(there))] = "there";
    files[std::to_string(InodeOf(fresh))] = "replaced";
    files[std::to_string(InodeOf(moved))] = "d/moved";
    EXPECT_EQ(Document(), expected) << "queue and other volumes as they were";
    EXPECT_EQ(Bitmap(), BitmapOf({8, 9, 11, 12}));
    EXPECT_EQ(Handed(), Bitmap());
    EXPECT_EQ(report_.unitsSet, 3U);
    EXPECT_EQ(report_.unitsCleared, 2U);
    EXPECT_EQ(report_.requests, 0U);
    EXPECT_EQ(report_.actions.size(), 6U);
    EXPECT_EQ(report_.left, Texts{"/mnt/unmounted: not mounted, left as it is with its 1 file"});

    const size_t sent = IoctlsSent().size();
    const std::string list = ReadFile(dir_ / "conf");
    EXPECT_EQ(RepairAll(), kExitDone) << talk_;
    EXPECT_EQ(report_.actions, Texts()) << "nothing is left to do";
    EXPECT_EQ(ReadFile(dir_ / "conf"), list);
    EXPECT_EQ(Handed(), Bitmap());
    EXPECT_GE(IoctlsSent().size(), sent);
}

TEST_F(RestRepairTest, TheLastEntryTakesTheVolumeOffTheList) {
    WriteBitmap({1});
    List(Entry(5, "gone"));
    EXPECT_EQ(RepairAll(mount_), kExitDone) << talk_;
    EXPECT_EQ(Document()["volumes"].getMemberNames(), Texts{"/mnt/unmounted"});
    EXPECT_EQ(Bitmap(), BitmapOf({}));
    EXPECT_EQ(report_.left, Texts()) << "another volume was not asked for";
}

TEST_F(RestRepairTest, WhileAFileCannotBeLookedAtNothingIsCleared) {
    const std::string path = MakeAt("a", 8);
    const std::string other = MakeAt("b", 9);
    WriteBitmap({1});
    List(Entry(InodeOf(path), "a") + "," + Entry(InodeOf(other), "b"));
    g_platform.mappings[InodeOf(path)][0].result = -1;
    const std::string list = ReadFile(dir_ / "conf");
    EXPECT_EQ(RepairAll(), kExitDone) << talk_;
    EXPECT_EQ(Bitmap(), BitmapOf({1, 9})) << "b's unit is set all the same";
    EXPECT_EQ(report_.unitsCleared, 0U);
    EXPECT_EQ(ReadFile(dir_ / "conf"), list);
    EXPECT_TRUE(Left("1 unit not cleared")) << report_.left.size();
}

TEST_F(RestRepairTest, AFileThatIsTooLongIsCut) {
    const std::string path = MakeAt("a", 8);
    WriteBitmap({8});
    WriteFile(mount_ + "/quorcachepinfile.bitmap", Bitmap() + "surplus");
    List(Entry(InodeOf(path), "a"));
    EXPECT_EQ(RepairAll(), kExitDone) << talk_;
    EXPECT_EQ(Bitmap(), BitmapOf({8}));
    EXPECT_EQ(report_.actions[0], mount_ + ": the bitmap file has its right length now");
}

TEST_F(RestRepairTest, ASecondRepairIsKeptOut) {
    List(Entry(5, "gone"));
    StoredList first;
    std::string why;
    ASSERT_TRUE(first.Lock(dir_ / "conf", why)) << why;
    const std::string list = ReadFile(dir_ / "conf");
    EXPECT_EQ(RepairAll(), kExitRefused);
    EXPECT_NE(talk_.find("another repair is at work"), std::string::npos) << talk_;
    EXPECT_EQ(ReadFile(dir_ / "conf"), list);
}

TEST_F(RestRepairTest, WhereTheListCannotBeChangedTheBitmapIsNot) {
    WriteBitmap({1});
    List(Entry(5, "gone"));
    std::filesystem::create_directory(dir_ / "conf.new");
    EXPECT_EQ(RepairAll(), kExitDone) << talk_;
    EXPECT_EQ(Bitmap(), BitmapOf({1}));
    EXPECT_EQ(Handed(), "");
    EXPECT_TRUE(Left("conf.new: Is a directory"));
    EXPECT_EQ(report_.actions, Texts());
}

TEST_F(RestRepairTest, ABitmapThatCannotBeWrittenIsNotHandedToTheDriver) {
    const std::string path = mount_ + "/quorcachepinfile.bitmap";
    WriteBitmap({1});
    std::filesystem::rename(path, dir_ / "elsewhere");
    std::filesystem::create_symlink(dir_ / "elsewhere", path);
    List(Entry(5, "gone"));
    EXPECT_EQ(RepairAll(), kExitDone) << talk_;
    EXPECT_EQ(Handed(), "");
    EXPECT_EQ(report_.unitsCleared, 0U);
    EXPECT_TRUE(Left("is a symbolic link"));
}

TEST_F(RestRepairTest, ADriverThatRefusesIsNamed) {
    WriteBitmap({1});
    List(Entry(5, "gone"));
    FailIoctl(FLASH_CACHE_SET_PIN_BITMAP, 1, EIO);
    EXPECT_EQ(RepairAll(), kExitDone) << talk_;
    EXPECT_EQ(Bitmap(), BitmapOf({}));
    EXPECT_TRUE(Left("the driver did not take the bitmap"));
}

TEST_F(RestRepairTest, AVolumeWithoutACacheStaysAsItIs) {
    WriteBitmap({1});
    List(Entry(5, "gone"));
    g_platform.configs.clear();
    const std::string list = ReadFile(dir_ / "conf");
    EXPECT_EQ(RepairAll(), kExitDone) << talk_;
    EXPECT_EQ(ReadFile(dir_ / "conf"), list);
    EXPECT_EQ(Bitmap(), BitmapOf({1}));
    EXPECT_TRUE(Left("it has no cache now"));
}

TEST_F(RestRepairTest, AListThatCannotBeReadChangesNothing) {
    WriteBitmap({1});
    for (const char* const text : {"", "null", R"({"volumes":[]})"}) {
        WriteFile(dir_ / "conf", text);
        EXPECT_EQ(RepairAll(), kExitRefused) << text;
        EXPECT_EQ(Bitmap(), BitmapOf({1})) << text;
    }
}

}  // namespace

}  // namespace client
