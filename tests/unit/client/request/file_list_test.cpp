// SPDX-License-Identifier: MIT
// Which files are meant: arguments, lists, patterns, directories.
#include "client/request/file_list.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "tests/unit/client/client_test.h"

namespace client {

namespace {

class FileListTest : public ClientTest {
  protected:
    using Names = std::vector<std::string>;

    // Relative paths of the files taken.
    Names Collect(const FileListOptions& options) {
        volumes_ = Volumes();
        list_ = FileList();
        std::string why;
        EXPECT_TRUE(CollectFiles(options, volumes_, list_, why)) << why;
        Names names;
        for (const FileRef& file : list_.files) {
            names.push_back(file.relative);
        }
        return names;
    }
    Names Refused() const {
        Names names;
        for (const Refusal& refusal : list_.refusals) {
            names.push_back(refusal.path);
        }
        return names;
    }

    std::vector<Volume> volumes_;
    FileList list_;
};

TEST_F(FileListTest, ArgumentsInOrderNoneTwice) {
    const std::string a = Make("a");
    const std::string b = Make("b");
    FileListOptions options;
    options.paths = {b, a, mount_ + "/./b", mount_ + "/nothing"};
    EXPECT_EQ(Collect(options), (Names{"b", "a"}));
    EXPECT_EQ(Refused(), (Names{mount_ + "/nothing"}));
}

TEST_F(FileListTest, ADirectoryIsRefusedUnlessItIsToBeWalked) {
    Make("d/b");
    Make("d/a");
    Make("d/sub/c");
    FileListOptions options;
    options.paths = {mount_ + "/d"};
    EXPECT_EQ(Collect(options), Names());
    EXPECT_EQ(Refused(), (Names{mount_ + "/d"}));
    options.recursive = true;
    EXPECT_EQ(Collect(options), (Names{"d/a", "d/b", "d/sub/c"}));
    EXPECT_EQ(Refused(), Names());
}

TEST_F(FileListTest, WhatAWalkPassesOverIsSaidAndWhatItCannotStoreIsRefused) {
    Make("d/a");
    Make("d/empty", "");
    Make("d/bad name");
    std::filesystem::create_symlink("a", mount_ + "/d/link");
    WriteBitmap({});
    FileListOptions options;
    options.recursive = true;
    options.paths = {mount_};
    EXPECT_EQ(Collect(options), (Names{"d/a"}));
    EXPECT_EQ(Refused(), (Names{mount_ + "/d/bad name"}));
    EXPECT_EQ(list_.notes, (Names{"passed over below " + mount_ +
                                  ": 1 empty file, 1 entry that is no regular file"}));
}

TEST_F(FileListTest, AnEmptyFileThatIsNamedIsRefused) {
    FileListOptions options;
    options.paths = {Make("empty", "")};
    EXPECT_EQ(Collect(options), Names());
    ASSERT_EQ(list_.refusals.size(), 1U);
    EXPECT_NE(list_.refusals[0].reason.find("empty"), std::string::npos);
}

TEST_F(FileListTest, TheBitmapFileIsTakenOnlyWhenItIsNamed) {
    WriteBitmap({1});
    FileListOptions options;
    options.paths = {mount_ + "/quorcachepinfile.bitmap"};
    EXPECT_EQ(Collect(options), (Names{"quorcachepinfile.bitmap"}));
    options.paths = {mount_};
    options.recursive = true;
    EXPECT_EQ(Collect(options), Names());
}

TEST_F(FileListTest, ListsHoldAPathALineOrEndedWithNul) {
    const std::string a = Make("a");
    const std::string b = Make("b\xc3\xa4");
    FileListOptions options;
    options.lists = {dir_ / "list"};
    WriteFile(dir_ / "list", a + "\n\n" + b);
    EXPECT_EQ(Collect(options), (Names{"a", "b\xc3\xa4"}));
    options.nulSeparated = true;
    WriteFile(dir_ / "list", b + std::string(1, '\0') + a + std::string(1, '\0'));
    EXPECT_EQ(Collect(options), (Names{"b\xc3\xa4", "a"}));
    WriteFile(dir_ / "list", a + "\n" + b);  // one name that holds a newline, and is not there
    EXPECT_EQ(Collect(options), Names());
    EXPECT_EQ(list_.refusals.size(), 1U);
}

TEST_F(FileListTest, ListsOfLinesHaveCommentsAndMayEndLinesWithCrlf) {
    const std::string before = std::filesystem::current_path();
    Make("a");
    Make("#b");
    Make("c\r");
    const std::string text = "# all of it\r\na\r\n\r\n./#b\n#b\n" + mount_ + "/nothing # \n";
    WriteFile(dir_ / "list", text);
    FileListOptions options;
    options.lists = {dir_ / "list"};
    std::filesystem::current_path(mount_);
    const Names taken = Collect(options);
    const Names refused = Refused();
    options.nulSeparated = true;
    WriteFile(dir_ / "list", std::string("#b") + '\0' + "c\r" + '\0');
    Collect(options);
    const Names refusedByNul = Refused();
    std::filesystem::current_path(before);
    // Its name is for no request; it is taken for a name, which is what counts here.
    EXPECT_EQ(taken, Names{"a"});
    EXPECT_EQ(refused, (Names{"./#b", mount_ + "/nothing # "})) << "a # further on is no comment";
    EXPECT_EQ(refusedByNul, (Names{"#b", "c\r"}));
}

TEST_F(FileListTest, AListThatCannotBeReadIsAnError) {
    FileListOptions options;
    options.lists = {dir_ / "nothing"};
    FileList list;
    std::string why;
    EXPECT_FALSE(CollectFiles(options, Volumes(), list, why));
    EXPECT_NE(why.find("nothing"), std::string::npos);
}

TEST_F(FileListTest, NulInAListOfLinesIsAnError) {
    const std::string a = Make("a");
    const std::string b = Make("b");
    FileListOptions options;
    options.lists = {dir_ / "list"};
    WriteFile(dir_ / "list", a + std::string(1, '\0') + b + std::string(1, '\0'));
    FileList list;
    std::string why;
    EXPECT_FALSE(CollectFiles(options, Volumes(), list, why));
    EXPECT_NE(why.find("use -0"), std::string::npos) << why;
    EXPECT_TRUE(list.files.empty());
}

TEST_F(FileListTest, PatternsAreExpandedHereWhenAskedFor) {
    Make("x1.jpg");
    Make("x2.jpg");
    Make("y.png");
    FileListOptions options;
    options.paths = {mount_ + "/x?.jpg", mount_ + "/z*"};
    options.patterns = true;
    EXPECT_EQ(Collect(options), (Names{"x1.jpg", "x2.jpg"}));
    EXPECT_EQ(Refused(), (Names{mount_ + "/z*"}));
    options.patterns = false;
    EXPECT_EQ(Collect(options), Names());
    EXPECT_EQ(list_.refusals.size(), 2U);
}

TEST_F(FileListTest, LinkableFilesAreCountedAndTakenWhenTheyAreToBeLinked) {
    const std::string path = Make("d/my file");
    FileListOptions options;
    options.recursive = true;
    options.paths = {mount_ + "/d", mount_ + "/nothing"};
    EXPECT_EQ(Collect(options), Names());
    EXPECT_EQ(list_.linkable, 1U);
    options.link = true;
    EXPECT_EQ(Collect(options), Names{"d/my file"});
    EXPECT_EQ(Refused(), Names{mount_ + "/nothing"});
    EXPECT_EQ(list_.linkable, 0U);
}

TEST_F(FileListTest, LinksBelowADirectoryArePassedOver) {
    const std::string link = Make(".quorcachepin/12");
    Make(".quorcachepin/other");
    FileListOptions options;
    options.recursive = true;
    options.paths = {mount_};
    EXPECT_EQ(Collect(options), Names{".quorcachepin/other"});
    options.paths = {link};
    EXPECT_EQ(Collect(options), Names{".quorcachepin/12"}) << "it was named";
}

}  // namespace

}  // namespace client
