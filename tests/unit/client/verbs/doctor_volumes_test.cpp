// SPDX-License-Identifier: MIT
// What the doctor finds at volumes and their caches.
#include <gtest/gtest.h>
#include <unistd.h>

#include <functional>
#include <sstream>

#include "client/verbs/doctor.h"
#include "tests/unit/client/client_test.h"
#include "tests/unit/support/fake_ioctl.h"
#include "tests/unit/support/fake_platform.h"

namespace client {

namespace {

class DoctorVolumesTest : public ClientTest {
  protected:
    void SetUp() override {
        ClientTest::SetUp();
        WriteFile(dir_ / "conf", "{}");
    }

    // Lists a file of this mount path.
    void List(const std::string& mountPath) {
        WriteFile(dir_ / "conf",
                  R"({"volumes":{")" + mountPath + R"(":{"files":{"5":"x","6":"y"}}}})");
    }

    // The findings, a line each: "subject: health: text; remedy".
    std::string Found() {
        std::vector<Finding> findings;
        std::string text;
        ConfigState state;
        std::string why;
        EXPECT_TRUE(ReadConfigState(dir_ / "conf", state, why)) << why;
        ExamineVolumes(state, findings);
        for (const Finding& finding : findings) {
            text += finding.subject +
                    (finding.health == Health::kGood  ? ": good: "
                     : finding.health == Health::kBad ? ": bad: "
                                                      : ": doubtful: ") +
                    finding.text + (finding.remedy.empty() ? "" : "; " + finding.remedy) + "\n";
        }
        return text;
    }
};

struct VolumeRow {
    const char* what;
    std::function<void()> spoil;
    std::vector<std::string> lines;  // what each line holds; no other lines
};

TEST_F(DoctorVolumesTest, EachTroubleIsNamedWithItsRemedy) {
    const std::string bitmap = mount_ + "/quorcachepinfile.bitmap";
    const std::string bare = dir_ / "bare";
    WriteFile(bare, "");
    const VolumeRow rows[] = {
        {"nothing pinned",
         [] {},
         {": good: cached device " + device_ + ", 0 units pinned: nothing"}},
        {"all well",
         [&] {
             Place(Make("x"), {{4 * kUnit, kUnit}});
             WriteFile(dir_ / "conf", R"({"volumes":{")" + mount_ + R"(":{"files":{")" +
                                          std::to_string(InodeOf(mount_ + "/x")) + R"(":"x"}}}})");
             WriteBitmap({4});
         },
         {mount_ + ": good: cached device " + device_ + ", 1 unit pinned: pinned"}},
        {"bits that nobody needs",
         [&] {
             WriteBitmap({4, 7});
         },
         {mount_ + ": bad: cached device " + device_ +
          ", 2 units pinned: list and bitmap differ; quorcachepinctl check --repair"}},
        {"a bitmap file that is too long",
         [&] { WriteFile(bitmap, std::string(129, '\1')); },
         {": bad: " + bitmap + " has 129 bytes, the bitmap 128: every request fails; remove"}},
        {"one that is too short will grow",
         [&] { WriteFile(bitmap, std::string(1, '\0')); },
         {": good: "}},
        {"a cache that does not serve",
         [] { g_platform.stats["/dev/ssd1"].state = 0; },
         {": bad: cached device " + device_ + ": it does not serve now"}},
        {"a cache that keeps no pins",
         [] { g_platform.stats["/dev/ssd1"].supportPin = 0; },
         {": bad: cached device " + device_ + ": it does not serve now, or does not keep pins"}},
        {"a device that has no size",
         [&] { g_platform.cachePaths["/dev/ssd1"].path = bare; },
         {": bad: the size of " + bare}},
        {"pinned files and no cache",
         [&] {
             List(mount_);
             g_platform.configs.clear();
         },
         {": bad: no cache is configured for it; attach one", "volumes: doubtful: none"}},
        {"a bitmap file and no cache",
         [&] {
             WriteBitmap({});
             g_platform.configs.clear();
         },
         {": bad: no cache is configured for it", "volumes: doubtful: none"}},
        {"nothing to do with pins",
         [] { g_platform.configs.clear(); },
         {"volumes: doubtful: none of them has a cache; attach one to a volume: quorsoftcache(1)"}},
        {"one without a cache beside one with",
         [] {
             g_platform.spaces.push_back({"/bare", "uuid-2"});
         },
         {": good: ", "volumes: good: 1 other without a cache"}},
        {"pinned files that are not mounted",
         [&] { List("/mnt/away"); },
         {": good: ", "volume /mnt/away: bad: 2 files pinned, and it is not mounted; mount it"}},
        {"volumes that are not listed",
         [] { g_platform.enumResult = -1; },
         {"volumes: bad: cannot be listed"}},
        {"a mount path that no request can name",
         [&] { g_platform.spaces[0].referencePath = mount_ + ";"; },
         {": bad: its mount path holds \";\", which separates files in a request; mount it "
          "elsewhere"}},
    };
    for (const VolumeRow& row : rows) {
        FakePlatformReset();
        g_platform.AddVolume(mount_, "uuid-1", "/dev/ssd1", device_);
        WriteFile(dir_ / "conf", "{}");
        unlink(bitmap.c_str());
        row.spoil();
        std::istringstream found(Found());
        std::vector<std::string> lines;
        for (std::string line; std::getline(found, line);) {
            lines.push_back(line);
        }
        ASSERT_EQ(lines.size(), row.lines.size()) << row.what << testing::PrintToString(lines);
        for (size_t i = 0; i < lines.size(); ++i) {
            EXPECT_NE(lines[i].find(row.lines[i]), std::string::npos)
                << row.what << ": " << lines[i];
        }
    }
}

TEST_F(DoctorVolumesTest, WithoutAConfigurationFileVolumesAreExaminedAllTheSame) {
    std::vector<Finding> findings;
    ExamineVolumes({}, findings);
    ASSERT_EQ(findings.size(), 1U);
    EXPECT_EQ(findings[0].health, Health::kGood);
}

}  // namespace

}  // namespace client
