// SPDX-License-Identifier: MIT
// The lines of a configuration: what they name, what they exclude, what is wrong with them.
#include "client/request/pin_conf.h"

#include <errno.h>
#include <gtest/gtest.h>
#include <string.h>
#include <sys/stat.h>

#include <filesystem>

#include "tests/unit/support/unit_test.h"

namespace client {

namespace {

using Texts = std::vector<std::string>;

class PinConfTest : public UnitTest {
  protected:
    void SetUp() override {
        UnitTest::SetUp();
        top_ = std::filesystem::canonical(dir_.path()).string();
        std::filesystem::create_directory(top_ + "/conf.d");
    }
    void Write(const std::string& name, const std::string& text) {
        WriteFile(top_ + "/conf.d/" + name, text);
    }
    PinConf Read() {
        PinConf conf;
        EXPECT_EQ(ReadPinConf(top_ + "/conf.d", conf), 0);
        return conf;
    }
    // "FILE:LINE path" of each line; an exclusion's path begins with "!".
    Texts Lines(const PinConf& conf) const {
        Texts lines;
        for (const ConfLine& line : conf.lines) {
            lines.push_back(line.origin.substr(top_.size() + strlen("/conf.d/")) + " " +
                            (line.exclusion ? "!" : "") + line.path);
        }
        return lines;
    }
    Texts Faults(const PinConf& conf) const {
        Texts faults;
        for (const ConfFault& fault : conf.faults) {
            faults.push_back(fault.origin.substr(top_.size() + strlen("/conf.d/")) + " " +
                             fault.path + fault.reason);
        }
        return faults;
    }

    std::string top_;
};

TEST_F(PinConfTest, PathsCommentsAndExclusionsInOrder) {
    Write("b.conf", "/mnt/a//b/../c/\n");
    Write("a.conf", "# comment\n\n  /mnt/x y#1 \t\r\n!*.tmp\n! /mnt/x/raw\n  # /mnt/no\n/mnt/last");
    Write("c.conf.bak", "/mnt/no");
    Write(".hidden.conf", "/mnt/no");
    const PinConf conf = Read();
    EXPECT_EQ(Lines(conf), (Texts{"a.conf:3 /mnt/x y#1", "a.conf:4 !*.tmp", "a.conf:5 !/mnt/x/raw",
                                  "a.conf:7 /mnt/last", "b.conf:1 /mnt/a/c"}));
    EXPECT_EQ(Faults(conf), Texts());
}

TEST_F(PinConfTest, WhatIsWrongIsNamedAndTheRestIsTaken) {
    Write("a.conf", std::string("relative\n/mnt/a\n!\n!sub/dir\n/mnt/n\0l\n", 34));
    Write("b.conf", "/mnt/b");
    mkfifo((top_ + "/conf.d/p.conf").c_str(), 0600);
    std::filesystem::create_symlink(top_ + "/nothing", top_ + "/conf.d/s.conf");
    const PinConf conf = Read();
    EXPECT_EQ(Lines(conf), (Texts{"a.conf:2 /mnt/a", "b.conf:1 /mnt/b"}));
    EXPECT_EQ(Faults(conf),
              (Texts{"a.conf:1 is no absolute path", "a.conf:3 \"!\" excludes nothing",
                     "a.conf:4 is no absolute path", "a.conf:5 holds NUL",
                     "p.conf is not a regular file", "s.conf No such file or directory"}));
}

TEST_F(PinConfTest, TheWordLinkBeforeAPathAllowsLinks) {
    Write("a.conf", "link /mnt/a b\n\tlink\t /mnt/*\n/mnt/c\n/mnt/link d\n");
    Write("b.conf", "link\nlinks /mnt/a\nlink mnt\nlink !/mnt/a\n! link /mnt/a\nlink/mnt/a\n");
    const PinConf conf = Read();
    EXPECT_EQ(Lines(conf), (Texts{"a.conf:1 /mnt/a b", "a.conf:2 /mnt/*", "a.conf:3 /mnt/c",
                                  "a.conf:4 /mnt/link d"}));
    ASSERT_EQ(conf.lines.size(), 4U);
    EXPECT_TRUE(conf.lines[0].link && conf.lines[1].link);
    EXPECT_FALSE(conf.lines[2].link || conf.lines[3].link);
    Texts wrong;
    for (int line = 1; line <= 6; ++line) {
        wrong.push_back("b.conf:" + std::to_string(line) + " is no absolute path");
    }
    EXPECT_EQ(Faults(conf), wrong);
}

TEST_F(PinConfTest, ADirectoryThatCannotBeReadIsTold) {
    PinConf conf;
    EXPECT_EQ(ReadPinConf(top_ + "/missing", conf), ENOENT);
    WriteFile(top_ + "/file", "");
    EXPECT_EQ(ReadPinConf(top_ + "/file", conf), ENOTDIR);
    Write("a.conf", "/mnt/a");
    std::filesystem::create_symlink(top_ + "/conf.d", top_ + "/link");
    EXPECT_EQ(ReadPinConf(top_ + "/link", conf), 0);
    EXPECT_EQ(conf.lines.size(), 1U);
}

TEST_F(PinConfTest, WhatALineWants) {
    Write("a.conf",
          "/mnt/dir\n/mnt/*.db\n/mnt/deep/*/x\n!*.tmp\n!/mnt/dir/raw\n!/mnt/dir/a*/old\n");
    Write("b.conf", "/mnt/dir/b.tmp\n");
    const PinConf conf = Read();
    const struct {
        const char* path;
        bool wanted;
        const char* why;
    } kRows[] = {
        {"/mnt/dir", true, "the line itself"},
        {"/mnt/dir/a/b", true, "below a directory"},
        {"/mnt/directory", false, "a name that only begins so"},
        {"/mnt/one.db", true, "a pattern"},
        {"/mnt/sub/one.db", false, "a wildcard stops at a slash"},
        {"/mnt/deep/1/x/y", true, "below a directory that a pattern matches"},
        {"/mnt/dir/a.tmp", false, "excluded by name"},
        {"/mnt/dir/b.tmp", true, "an exclusion holds in its own file"},
        {"/mnt/dir/tmp", true, "the whole name counts"},
        {"/mnt/dir/raw", false, "excluded by path"},
        {"/mnt/dir/raw/x", false, "below what is excluded"},
        {"/mnt/dir/abc/old/x", false, "below what a pattern excludes"},
        {"/", false, "above all lines"},
    };
    for (const auto& row : kRows) {
        EXPECT_EQ(IsWanted(conf, row.path), row.wanted) << row.path << ": " << row.why;
    }
}

TEST_F(PinConfTest, LinksInFixedDirectoriesAreFollowedAndNamesStandForThemselves) {
    std::filesystem::create_directories(top_ + "/real[1]");
    WriteFile(top_ + "/real[1]/a*", "x");
    std::filesystem::create_symlink(top_ + "/real[1]", top_ + "/link");
    Write("a.conf", top_ + "/link/a*\n" + top_ + "/link/b*\n!" + top_ + "/link/bc\n");
    const PinConf conf = Read();
    EXPECT_TRUE(conf.lines[0].literal) << "exists as it stands";
    EXPECT_TRUE(IsWanted(conf, top_ + "/real[1]/a*"));
    EXPECT_FALSE(IsWanted(conf, top_ + "/real[1]/ab"));
    EXPECT_TRUE(IsWanted(conf, top_ + "/real[1]/bd"));
    EXPECT_FALSE(IsWanted(conf, top_ + "/real[1]/bc"));
    EXPECT_FALSE(IsWanted(conf, top_ + "/real1/bd"));
}

}  // namespace

}  // namespace client
