// SPDX-License-Identifier: MIT
// restore and keep-copy: what they tell, and what they leave alone.
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>

#include "client/show/exit_status.h"
#include "tests/unit/client/service/impostor.h"
#include "tests/unit/client/verbs/verbs_test.h"

namespace client {

namespace {

class RestoreVerbTest : public VerbsTest {
  protected:
    void SetUp() override {
        VerbsTest::SetUp();
        config_ = std::filesystem::canonical(dir_.path()).string() + "/conf";
        std::filesystem::create_symlink("/bin/sh", dir_ / "quorcachepinfiled");
        PinHalf();
        EXPECT_EQ(Report({"keep-copy"}, 0)["kept"], 1);
    }
};

TEST_F(RestoreVerbTest, ListsTheCopies) {
    const Json::Value report = Report({"restore"}, 0);
    EXPECT_EQ(Shape(report), "copies:a exitStatus:n schema:n verb:s");
    ASSERT_EQ(report["copies"].size(), 1U);
    EXPECT_EQ(Shape(report["copies"][0]), "files:n number:n path:s time:n volumes:n");
    EXPECT_EQ(report["copies"][0]["files"], 1);
    WriteFile(config_ + ".copy-2", "{");
    EXPECT_EQ(Shape(Report({"restore"}, 0)["copies"][0]),
              "files:0 number:n path:s time:n volumes:0");
    EXPECT_NE(Run({"restore"}).out.find("cannot be read"), std::string::npos);
}

TEST_F(RestoreVerbTest, PutsACopyBack) {
    const std::string before = ReadFile(config_);
    WriteFile(config_, "{}");
    const CallResult result = Run({"restore", "1"});
    EXPECT_EQ(result.status, 0) << result.talk;
    EXPECT_EQ(
        result.out,
        "the service lists the 1 file of copy 1 again; check --repair makes the bitmaps agree\n");
    EXPECT_EQ(Report({"list"}, 0)["volumes"][0]["files"].size(), 1U);
    WriteFile(config_, "{");
    const Json::Value report = Report({"restore", "1"}, 0);
    EXPECT_EQ(ReadFile(report["aside"].asString()), "{");
}

TEST_F(RestoreVerbTest, ACopyThatIsNotThereOrCannotBeReadIsRefused) {
    WriteFile(config_ + ".copy-2", "{");
    const std::string before = ReadFile(config_);
    EXPECT_NE(Report({"restore", "3"}, kExitRefused)["error"].asString().find("is not there"),
              std::string::npos);
    EXPECT_NE(Report({"restore", "2"}, kExitRefused)["error"].asString().find("cannot be read"),
              std::string::npos);
    EXPECT_EQ(Call({"restore", "--restart"}).status, kExitUsage) << "which copy?";
    EXPECT_EQ(Call({"restore", "0"}).status, kExitUsage);
    EXPECT_EQ(ReadFile(config_), before);
}

TEST_F(RestoreVerbTest, NothingIsReplacedUnderARunningService) {
    const Impostor service(dir_ / "quorcachepinfiled", {"-f", config_});
    WriteFile(config_, "{");
    CallResult result = Run({"restore", "1"});
    EXPECT_EQ(result.status, kExitRefused);
    EXPECT_NE(result.talk.find("the service runs; stop it, or give --restart"), std::string::npos);
    result = Run({"keep-copy"});
    EXPECT_EQ(result.status, kExitPartly);
    EXPECT_NE(result.talk.find("is damaged; it stays as it is, as a service runs"),
              std::string::npos);
    EXPECT_EQ(ReadFile(config_), "{");
    PinHalf();
    Make("b");
    List({"photos/a.jpg", "b"});
    EXPECT_EQ(Report({"keep-copy"}, 0)["kept"], 2) << "a copy harms nobody";
}

TEST_F(RestoreVerbTest, KeepCopyReplacesWhatIsDamagedAndNothingElse) {
    WriteFile(config_, "");
    const Json::Value report = Report({"keep-copy"}, kExitPartly);
    EXPECT_EQ(report["restored"], 1);
    EXPECT_EQ(ReadFile(report["aside"].asString()), "");
    EXPECT_EQ(Report({"list"}, 0)["volumes"][0]["files"].size(), 1U);

    unlink(config_.c_str());
    const CallResult missing = Run({"keep-copy"});
    EXPECT_EQ(missing.status, 0);
    EXPECT_NE(missing.talk.find("there are copies: quorcachepinctl restore"), std::string::npos);
    EXPECT_FALSE(std::filesystem::exists(config_));

    std::filesystem::create_directory(config_);
    const CallResult directory = Run({"keep-copy"});
    EXPECT_EQ(directory.status, kExitPartly);
    EXPECT_NE(directory.talk.find("stays as it is"), std::string::npos) << directory.talk;
    EXPECT_TRUE(std::filesystem::is_directory(config_));
}

TEST_F(RestoreVerbTest, KeepCopyTellsALossAndLeavesIt) {
    WriteFile(config_, "{}");
    const Json::Value report = Report({"keep-copy"}, 0);
    EXPECT_EQ(Shape(report), "exitStatus:n kept:n lost:s schema:n verb:s");
    EXPECT_EQ(ReadFile(config_), "{}");
    EXPECT_EQ(Shape(Report({"keep-copy"}, 0)), "exitStatus:n kept:0 lost:0 schema:n verb:s");
}

}  // namespace

}  // namespace client
