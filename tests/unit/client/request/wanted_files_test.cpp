// SPDX-License-Identifier: MIT
// What the lines come to: files, refusals, and lines whose volume is not there.
#include "client/request/wanted_files.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "tests/unit/client/client_test.h"

namespace client {

namespace {

using Texts = std::vector<std::string>;

class WantedFilesTest : public ClientTest {
  protected:
    // Relative paths of what these lines want.
    Texts Find(const std::string& lines, const Texts& mountPoints = {}) {
        std::filesystem::create_directories(dir_ / "conf.d");
        WriteFile(dir_ / "conf.d/a.conf", lines);
        PinConf conf;
        EXPECT_EQ(ReadPinConf(dir_ / "conf.d", conf), 0);
        volumes_ = Volumes();
        wanted_ = FindWanted(conf, mountPoints, volumes_);
        Texts names;
        for (const FileRef& file : wanted_.files) {
            names.push_back(file.relative);
        }
        return names;
    }
    std::string Origin(int line) { return (dir_ / "conf.d/a.conf:") + std::to_string(line); }
    // "LINE path" of each.
    Texts Told(const std::vector<ConfFault>& faults) const {
        Texts told;
        for (const ConfFault& fault : faults) {
            told.push_back(fault.origin.substr(fault.origin.rfind(':') + 1) + " " + fault.path +
                           ": " + fault.reason);
        }
        return told;
    }

    std::vector<Volume> volumes_;
    WantedFiles wanted_;
};

TEST_F(WantedFilesTest, FilesDirectoriesAndPatternsNoneTwice) {
    for (const char* const name : {"a", "d/b", "d/c.tmp", "d/raw/e", "p1", "p2"}) {
        Make(name);
    }
    Make("d/empty", "");
    Make("p3", "");
    WriteBitmap({});
    std::filesystem::create_symlink(mount_ + "/a", mount_ + "/p4");
    EXPECT_EQ(Find(mount_ + "/d\n" + mount_ + "/p?\n" + mount_ + "/a\n" + mount_ + "/p2\n" +
                   mount_ + "/*.bitmap\n!*.tmp\n!" + mount_ + "/d/raw\n"),
              (Texts{"d/b", "p1", "p2", "a"}));
    EXPECT_EQ(Told(wanted_.refused), Texts());
    EXPECT_EQ(wanted_.origins.at(mount_ + "/p2"), Origin(2)) << "the line that names it first";
    EXPECT_EQ(wanted_.origins.size(), 4U);
}

TEST_F(WantedFilesTest, WhatCannotBePinnedIsRefusedWithItsLine) {
    Make("d/my file");
    Make("d/other file.tmp");
    EXPECT_EQ(Find("#\n" + mount_ + "/nothing\n" + mount_ + "/d\n!*.tmp\n" + mount_ + "/x*\n"),
              Texts());
    EXPECT_EQ(Told(wanted_.refused),
              (Texts{"2 " + mount_ + "/nothing: No such file or directory",
                     "3 " + mount_ + "/d/my file: its name holds white space, at which the " +
                         "service would cut it"}));
    EXPECT_EQ(wanted_.notes, Texts{Origin(5) + ": " + mount_ + "/x* matches nothing"});
}

TEST_F(WantedFilesTest, WhereALineAllowsLinksNoNameIsRefused) {
    Make("d/my file");
    Make("d/plain");
    Make("e/your file");
    EXPECT_EQ(Find("link " + mount_ + "/d\n" + mount_ + "/e\nlink " + mount_ + "/f\n"),
              (Texts{"d/my file", "d/plain"}));
    EXPECT_EQ(Told(wanted_.refused),
              (Texts{"2 " + mount_ + "/e/your file: its name holds white space, at which the " +
                         "service would cut it",
                     "3 " + mount_ + "/f: No such file or directory"}));
}

TEST_F(WantedFilesTest, ALineWhoseVolumeIsNotMountedIsLeftAlone) {
    Make("sub/a");
    Make("b");
    std::filesystem::create_symlink(mount_ + "/sub", dir_ / "link");
    const std::string link = std::filesystem::canonical(dir_.path()).string() + "/link/a";
    EXPECT_EQ(Find(mount_ + "/sub/a\n" + mount_ + "/b\n" + link + "\n" + mount_ + "/s*/a",
                   {mount_ + "/sub"}),
              (Texts{"b", "sub/a"}))
        << "a wildcard in the place of a mount point is expanded";
    const std::string reason = ": its volume " + mount_ + "/sub is not mounted";
    EXPECT_EQ(Told(wanted_.notMounted),
              (Texts{"1 " + mount_ + "/sub/a" + reason, "3 " + link + reason}));
}

}  // namespace

}  // namespace client
