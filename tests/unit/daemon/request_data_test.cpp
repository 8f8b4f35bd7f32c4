// SPDX-License-Identifier: MIT
#include "daemon/request_data.h"

#include <string.h>
#include <sys/stat.h>

#include "tests/unit/daemon/daemon_test.h"
#include "tests/unit/support/fake_files.h"
#include "tests/unit/support/fake_system.h"
#include "util/scoped.h"

namespace {

using Strings = std::vector<std::string>;

class RequestDataTest : public DaemonTest {
  protected:
    void SetUp() override {
        DaemonTest::SetUp();
        mountPath_ = dir_ / "volume1";
        ASSERT_EQ(mkdir(mountPath_.c_str(), 0755), 0);
    }

    // Makes the file and returns its absolute path.
    std::string Make(const std::string& name) const {
        std::string path = mountPath_ + "/" + name;
        WriteFile(path, "");
        return path;
    }

    static std::string InodeText(const std::string& path) {
        struct stat status = {};
        EXPECT_EQ(stat(path.c_str(), &status), 0) << path;
        return std::to_string(static_cast<uint32_t>(status.st_ino));
    }

    std::string mountPath_;
    char list_[1024] = {};
};

// --- the path below the mount path

struct PathRow {
    const char* what;
    std::string mountPath;
    std::string filePath;
    std::string relativePath;  // empty: none
};

const PathRow kPathRows[] = {
    {"in the volume", "/volume1", "/volume1/c.txt", "c.txt"},
    {"deeper", "/volume1", "/volume1/a/b.txt", "a/b.txt"},
    {"the mount path alone", "/volume1", "/volume1", ""},
    {"nothing behind the slash", "/volume1", "/volume1/", ""},
    {"white space behind the slash", "/volume1", "/volume1/ \t\n", ""},
    {"another volume", "/volume1", "/volume2/c.txt", ""},
    {"a longer volume name", "/volume1", "/volume12/c.txt", ""},
    {"a shorter volume name", "/volume12", "/volume1/c.txt", ""},
    {"another case", "/volume1", "/Volume1/c.txt", ""},
    {"relative", "/volume1", "volume1/c.txt", ""},
    {"no file path", "/volume1", "", ""},
    {"no mount path", "", "/c.txt", "c.txt"},
    {"mount path with a slash at its end", "/volume1/", "/volume1/c.txt", ""},
    {"two slashes leave one", "/volume1", "/volume1//c.txt", "/c.txt"},
    {"cut at the blank", "/volume1", "/volume1/my file.txt", "my"},
    {"cut at a tab", "/volume1", "/volume1/my\tfile", "my"},
    {"cut at a newline", "/volume1", "/volume1/my\nfile", "my"},
    {"cut at a vertical tab", "/volume1", "/volume1/my\vfile", "my"},
    {"cut at a form feed", "/volume1", "/volume1/my\ffile", "my"},
    {"cut at a carriage return", "/volume1", "/volume1/my\rfile", "my"},
    {"leading blanks are skipped", "/volume1", "/volume1/ \t\nmy", "my"},
    {"a byte above 127 is no white space", "/volume1", "/volume1/a\xa0\x85z", "a\xa0\x85z"},
    {"a blank in the mount path", "/my volume", "/my volume/a", "a"},
    {"the mount path's blank is one blank", "/my volume", "/my  volume/a", ""},
    {"the mount path's blank is a blank", "/my volume", "/my\tvolume/a", ""},
    {"the mount path's blank is there", "/my volume", "/myvolume/a", ""},
    {"%n in the mount path", "/vol%n", "/vol%n/a", "a"},
    {"%n in the mount path matches itself only", "/vol%n", "/vol/a", ""},
    {"%s in the mount path", "/v%s%s", "/v%s%s/a", "a"},
    {"%s in the mount path is no conversion", "/v%s", "/vxy/a", ""},
    {"%% in the mount path", "/v%%", "/v%%/a", "a"},
    {"%% in the mount path is not one %", "/v%%", "/v%/a", ""},
    {"% at its end", "/v%", "/v%/a", "a"},
    {"%1000000s in the mount path", "/v%1000000s", "/v%1000000s/a", "a"},
    {"conversions in the file path", "/volume1", "/volume1/%n%s%d", "%n%s%d"},
    {"brackets and stars", "/[a]*%*s", "/[a]*%*s/b", "b"},
    {"longest mount path", "/" + Text(507), "/" + Text(507) + "/a", "a"},
    {"one longer: the pattern is cut", "/" + Text(508), "/" + Text(508) + "/a", ""},
    {"longest that a message holds", "/" + Text(510), "/" + Text(510) + "/a", ""},
    {"relative path of 511 characters", "/v", "/v/" + Text(511), Text(511)},
    {"relative path of 1023 characters", "/v", "/v/" + Text(1023), Text(1023)},
    {"relative path of 1024 characters is cut", "/v", "/v/" + Text(1024), Text(1023)},
    {"relative path of 5000 characters is cut", "/v", "/v/" + Text(5000), Text(1023)},
};

// Mount paths that differ in their last character alone, wherever it stands.
TEST_F(RequestDataTest, LongMountPathsAreComparedToTheirEnd) {
    LogCapture quiet;

    for (size_t length : {255U, 256U, 257U, 508U}) {
        std::string mountPath = "/" + Text(length - 2);
        CString path(
            FileGetRelativePathByMountPath((mountPath + "1").c_str(), (mountPath + "1/a").c_str()));
        EXPECT_STREQ(path.get(), "a") << length;
        EXPECT_EQ(
            FileGetRelativePathByMountPath((mountPath + "1").c_str(), (mountPath + "2/a").c_str()),
            nullptr)
            << length;
    }
}

TEST_F(RequestDataTest, RelativePath) {
    AtEveryLogSetting([](LogCapture& log) {
        log.MaskAddresses();
        for (const PathRow& row : kPathRows) {
            CString path(
                FileGetRelativePathByMountPath(row.mountPath.c_str(), row.filePath.c_str()));
            if (row.relativePath.empty()) {
                EXPECT_EQ(path, nullptr) << row.what << ": " << path.get();
                // The address of a null result has no digits.
                EXPECT_TRUE(log.Shows(
                    {kDaemonLog.Error("FileGetRelativePathByMountPath",
                                      "Failed to Get relative path (Volume path=" + row.mountPath +
                                          " File path=" + row.filePath),
                     kDaemonLog.Verbose("FileGetRelativePathByMountPath",
                                        "Get relative path = (null) (addr=(nil))")}))
                    << row.what;
            } else {
                ASSERT_NE(path, nullptr) << row.what;
                EXPECT_EQ(path.get(), row.relativePath) << row.what;
                EXPECT_TRUE(log.Shows({kDaemonLog.Verbose(
                    "FileGetRelativePathByMountPath",
                    "Get relative path = " + row.relativePath + " (addr=0x#)")}))
                    << row.what;
            }
        }
    });
}

// --- from absolute paths to the data text

TEST_F(RequestDataTest, PathsBecomeRelativePathsAndInodes) {
    ASSERT_EQ(mkdir((mountPath_ + "/a").c_str(), 0755), 0);
    std::string first = Make("a/b.txt");
    std::string second = Make("c.txt");
    std::string expected = "a/b.txt#" + InodeText(first) + ";c.txt#" + InodeText(second);

    EXPECT_EQ(AbsolutePathsToFileInodeList(mountPath_.c_str(), (first + ";" + second).c_str(),
                                           list_, sizeof(list_)),
              0);
    EXPECT_EQ(list_, expected);
}

TEST_F(RequestDataTest, EveryStepOfTheListIsTraced) {
    std::string first = Make("a");
    std::string second = Make("b");

    AtEveryLogSetting([&](LogCapture& log) {
        log.MaskAddresses();
        memset(list_, 0, sizeof(list_));
        ASSERT_EQ(AbsolutePathsToFileInodeList(mountPath_.c_str(), (first + ";" + second).c_str(),
                                               list_, sizeof(list_)),
                  0);
        std::string length = std::to_string(strlen(("a#" + InodeText(first)).c_str()));
        EXPECT_TRUE(log.Shows({
            kDaemonLog.Enter("AbsolutePathsToFileInodeList"),
            kDaemonLog.Verbose("FileGetRelativePathByMountPath",
                               "Get relative path = a (addr=0x#)"),
            kDaemonLog.Verbose("AbsolutePathsToFileInodeList",
                               "szFormat=%s%s#%lu pszRelativePath=a szFileInodeList=0x# size=1024 "
                               "len=0"),
            kDaemonLog.Verbose("FileGetRelativePathByMountPath",
                               "Get relative path = b (addr=0x#)"),
            kDaemonLog.Verbose("AbsolutePathsToFileInodeList",
                               "szFormat=%s%s#%lu pszRelativePath=b szFileInodeList=0x# size=1024 "
                               "len=" +
                                   length),
            kDaemonLog.Verbose("AbsolutePathsToFileInodeList",
                               std::string("Get relativePaths = ") + list_),
            kDaemonLog.Leave("AbsolutePathsToFileInodeList"),
        }));
    });
}

TEST_F(RequestDataTest, ListsWithoutAFileAreEmptyAndFine) {
    AtEveryLogSetting([&](LogCapture& log) {
        for (const char* paths : {"", ";", ";;;;"}) {
            EXPECT_EQ(AbsolutePathsToFileInodeList(mountPath_.c_str(), paths, list_, sizeof(list_)),
                      0);
            EXPECT_STREQ(list_, "");
            EXPECT_TRUE(log.Shows({
                kDaemonLog.Enter("AbsolutePathsToFileInodeList"),
                kDaemonLog.Verbose("AbsolutePathsToFileInodeList", "Get relativePaths = "),
                kDaemonLog.Leave("AbsolutePathsToFileInodeList"),
            }));
        }
    });
}

TEST_F(RequestDataTest, EmptyPiecesOfAListAreSkipped) {
    std::string path = Make("a");

    EXPECT_EQ(
        AbsolutePathsToFileInodeList(mountPath_.c_str(), (";;" + path + ";;;" + path + ";").c_str(),
                                     list_, sizeof(list_)),
        0);
    EXPECT_EQ(list_, "a#" + InodeText(path) + ";a#" + InodeText(path));
}

// The stored path is cut, the inode is that of the file that was meant.
TEST_F(RequestDataTest, ABlankCutsThePathButNotTheFile) {
    std::string cut = Make("my");
    std::string whole = Make("my file.txt");

    ASSERT_NE(InodeText(cut), InodeText(whole));
    EXPECT_EQ(AbsolutePathsToFileInodeList(mountPath_.c_str(), whole.c_str(), list_, sizeof(list_)),
              0);
    EXPECT_EQ(list_, "my#" + InodeText(whole));
}

TEST_F(RequestDataTest, APathOutsideTheVolumeEndsTheList) {
    std::string inside = Make("a");

    for (const std::string& outside :
         {std::string("/elsewhere/b"), mountPath_ + "/", mountPath_, mountPath_ + "2/b"}) {
        LogCapture log(2);
        memset(list_, 0, sizeof(list_));
        log.MaskAddresses();
        EXPECT_EQ(AbsolutePathsToFileInodeList(mountPath_.c_str(),
                                               (inside + ";" + outside + ";" + inside).c_str(),
                                               list_, sizeof(list_)),
                  -1);
        EXPECT_EQ(list_, "a#" + InodeText(inside)) << "what was written before stays";
        EXPECT_TRUE(log.Shows({
            kDaemonLog.Enter("AbsolutePathsToFileInodeList"),
            kDaemonLog.Verbose("FileGetRelativePathByMountPath",
                               "Get relative path = a (addr=0x#)"),
            kDaemonLog.Verbose("AbsolutePathsToFileInodeList",
                               "szFormat=%s%s#%lu pszRelativePath=a szFileInodeList=0x# size=1024 "
                               "len=0"),
            kDaemonLog.Error(
                "FileGetRelativePathByMountPath",
                "Failed to Get relative path (Volume path=" + mountPath_ + " File path=" + outside),
            kDaemonLog.Verbose("FileGetRelativePathByMountPath",
                               "Get relative path = (null) (addr=(nil))"),
        }));
    }
}

TEST_F(RequestDataTest, AFileThatIsNotThereEndsTheList) {
    std::string missing = mountPath_ + "/missing";

    AtEveryLogSetting([&](LogCapture& log) {
        log.MaskAddresses();
        EXPECT_EQ(
            AbsolutePathsToFileInodeList(mountPath_.c_str(), missing.c_str(), list_, sizeof(list_)),
            -1);
        EXPECT_STREQ(list_, "");
        EXPECT_TRUE(log.Shows({
            kDaemonLog.Enter("AbsolutePathsToFileInodeList"),
            kDaemonLog.Verbose("FileGetRelativePathByMountPath",
                               "Get relative path = missing (addr=0x#)"),
            kUtilLog.Error("FileGetInodeNumber", "Stat file " + missing + " error"),
            kDaemonLog.Error("AbsolutePathsToFileInodeList",
                             "Cant' get inode number of file (" + missing + ")"),
        }));
    });
}

TEST_F(RequestDataTest, APathIsRefusedBeforeItsFileIsLookedAt) {
    EXPECT_EQ(AbsolutePathsToFileInodeList(mountPath_.c_str(), "/elsewhere/missing", list_,
                                           sizeof(list_)),
              -1);
    EXPECT_EQ(CallCount(Call::kStat), 0);
}

TEST_F(RequestDataTest, OnlyTheFirst1023CharactersOfAListCount) {
    std::string path = Make("a");
    std::string filler = Text(1023 - path.size(), ';');

    EXPECT_EQ(AbsolutePathsToFileInodeList(mountPath_.c_str(), (filler + path).c_str(), list_,
                                           sizeof(list_)),
              0);
    EXPECT_EQ(list_, "a#" + InodeText(path));

    // One character on, the path's only letter is cut off and nothing is left behind the slash.
    memset(list_, 0, sizeof(list_));
    LogCapture log;
    EXPECT_EQ(AbsolutePathsToFileInodeList(mountPath_.c_str(), (filler + ";" + path).c_str(), list_,
                                           sizeof(list_)),
              -1);
    EXPECT_TRUE(log.Shows({kDaemonLog.Error(
        "FileGetRelativePathByMountPath", "Failed to Get relative path (Volume path=" + mountPath_ +
                                              " File path=" + mountPath_ + "/")}));
    EXPECT_STREQ(list_, "");
}

// Written into a buffer that ends where `size` says, so that a step beyond it shows.
TEST_F(RequestDataTest, AListThatDoesNotFitEndsBeforeTheFirstEntryThatDoesNot) {
    std::string path = Make("a");
    std::string entry = "a#" + InodeText(path);
    std::string two = entry + ";" + entry;

    for (size_t size = 1; size <= two.size() + 2; ++size) {
        LogCapture log;
        std::vector<char> list(size);
        size_t fits = two.size() < size ? 2 : entry.size() < size ? 1 : 0;
        int result = AbsolutePathsToFileInodeList(mountPath_.c_str(), (path + ";" + path).c_str(),
                                                  list.data(), size);
        EXPECT_EQ(result, 0) << size;
        EXPECT_STREQ(list.data(), fits == 2 ? two.c_str() : fits == 1 ? entry.c_str() : "") << size;
        Lines refused = {
            kDaemonLog.Error("AbsolutePathsToFileInodeList",
                             "File list is too long to store, it ends before file (" + path + ")")};
        EXPECT_TRUE(log.Shows(fits == 2 ? Lines() : refused)) << size;
    }
}

// Short paths grow when they are stored, by their inode numbers: what a message holds may exceed
// what the store holds.
TEST_F(RequestDataTest, ManyShortNamesOverflowTheStoredForm) {
    struct Row {
        const char* what;
        uint64_t inode;
        bool fits;
        size_t length;
    };
    // 204 paths of 4 characters.
    const Row rows[] = {
        {"204 entries of 4 characters, and their separators", 12, true, 204 * 5 - 1},
        {"204 entries of 5 characters: 170 fit", 123, false, 170 * 6 - 1},
        {"204 entries of 12 characters: 78 fit", 4294967295, false, 78 * 13 - 1},
    };
    std::string paths;

    WriteFile(dir_ / "a", "");
    RedirectPath("/v/a", dir_ / "a");
    for (int i = 0; i < 204; ++i) {
        paths += "/v/a;";
    }
    for (const Row& row : rows) {
        LogCapture log;
        memset(list_, 0, sizeof(list_));
        SetInodeNumber("/v/a", row.inode);
        EXPECT_EQ(AbsolutePathsToFileInodeList("/v", paths.c_str(), list_, sizeof(list_)), 0)
            << row.what;
        EXPECT_EQ(strlen(list_), row.length) << row.what;
        Lines refused = {
            kDaemonLog.Error("AbsolutePathsToFileInodeList",
                             "File list is too long to store, it ends before file (/v/a)")};
        EXPECT_TRUE(log.Shows(row.fits ? Lines() : refused)) << row.what;
    }
}

TEST_F(RequestDataTest, InodeNumbersAreStoredModulo2To32) {
    struct Row {
        uint64_t inode;
        const char* stored;
    };
    const Row rows[] = {
        {1, "a#1"},
        {4294967295, "a#4294967295"},
        {4294967296, "a#0"},
        {4294967301, "a#5"},
        {UINT64_MAX, "a#4294967295"},
        {UINT64_C(0x123456789abcdef0), "a#2596069104"},
    };
    std::string path = Make("a");

    for (const Row& row : rows) {
        memset(list_, 0, sizeof(list_));
        SetInodeNumber(path, row.inode);
        EXPECT_EQ(
            AbsolutePathsToFileInodeList(mountPath_.c_str(), path.c_str(), list_, sizeof(list_)),
            0);
        EXPECT_STREQ(list_, row.stored) << row.inode;
    }
}

// --- splitting

TEST_F(RequestDataTest, StringSplit) {
    struct Row {
        const char* what;
        std::string text;
        const char* delimiters;
        Strings tokens;
    };
    const Row rows[] = {
        {"nothing", "", ";", {}},
        {"delimiters only", ";;;", ";", {}},
        {"one", "a", ";", {"a"}},
        {"two", "a;b", ";", {"a", "b"}},
        {"empty pieces", ";;a;;b;;", ";", {"a", "b"}},
        {"blanks stay", " a ; b ", ";", {" a ", " b "}},
        {"several delimiters", "a;b,c", ",;", {"a", "b", "c"}},
        {"no delimiters", "a;b", "", {"a;b"}},
        {"1023 characters", Text(1023), ";", {Text(1023)}},
        {"1024 characters are cut", Text(1024), ";", {Text(1023)}},
        {"a piece behind the cut", Text(1023) + ";b", ";", {Text(1023)}},
        {"ends at a null byte", std::string("a;b\0;c", 6), ";", {"a", "b"}},
    };

    for (const Row& row : rows) {
        LogCapture log(3);
        Strings tokens = {"left over"};
        StringSplit(row.text, row.delimiters, tokens);
        EXPECT_EQ(tokens, row.tokens) << row.what;
        EXPECT_TRUE(log.Shows({})) << row.what;
    }
}

// --- from the data text to records

Strings AsTexts(const std::vector<FileInfo>& infos) {
    Strings texts;

    for (const FileInfo& info : infos) {
        texts.push_back(std::string(info.szRelativePath) + " " + std::to_string(info.inodeNum));
    }
    return texts;
}

TEST_F(RequestDataTest, DataIsParsedInItsOrder) {
    struct Row {
        const char* what;
        std::string data;
        Strings records;
    };
    const Row rows[] = {
        {"none", "", {}},
        {"semicolons only", ";;", {}},
        {"one", "photos/a.jpg#1234", {"photos/a.jpg 1234"}},
        {"two", "photos/a.jpg#1234;photos/b.jpg#1235", {"photos/a.jpg 1234", "photos/b.jpg 1235"}},
        {"empty entries", ";;a#5;;", {"a 5"}},
        {"not sorted, not made unique", "b#2;a#1;b#2", {"b 2", "a 1", "b 2"}},
        {"blanks in the path", "my file#7", {"my file 7"}},
        {"a leading blank in the path", " a#7", {" a 7"}},
        {"blanks before the number", "a# \t7", {"a 7"}},
        {"text behind the number", "a#7x", {"a 7"}},
        {"a second # ends the number", "a#7#8", {"a 7"}},
        {"a plus sign", "a#+7", {"a 7"}},
        {"leading zeros", "a#007", {"a 7"}},
        {"zero", "a#0", {"a 0"}},
        {"largest", "a#4294967295", {"a 4294967295"}},
        {"2^32, as a 32-bit number scans", "a#4294967296", {"a 4294967295"}},
        {"2^32 + 1", "a#4294967297", {"a 4294967295"}},
        {"2^63", "a#9223372036854775808", {"a 4294967295"}},
        {"2^64 - 5", "a#18446744073709551611", {"a 4294967295"}},
        {"2^64", "a#18446744073709551616", {"a 4294967295"}},
        {"far beyond 64 bits", "a#99999999999999999999999", {"a 4294967295"}},
        {"-1", "a#-1", {"a 4294967295"}},
        {"-5", "a# -5", {"a 4294967291"}},
        {"-(2^32 - 1)", "a#-4294967295", {"a 1"}},
        {"-2^32", "a#-4294967296", {"a 4294967295"}},
        {"-(2^64 - 5)", "a#-18446744073709551611", {"a 4294967295"}},
        {"far below", "a#-99999999999999999999999", {"a 4294967295"}},
        {"a path of 511 characters", Text(511) + "#7", {Text(511) + " 7"}},
        {"bytes that are no text", "\xff\xfe#7", {"\xff\xfe 7"}},
        {"conversions", "%n%s#7", {"%n%s 7"}},
    };

    for (const Row& row : rows) {
        LogCapture log;
        std::vector<FileInfo> infos;
        EXPECT_EQ(RequestDataGetFileInfos(row.data.c_str(), infos), 0) << row.what;
        EXPECT_EQ(AsTexts(infos), row.records) << row.what;
        EXPECT_TRUE(log.Shows({})) << row.what;
    }
}

TEST_F(RequestDataTest, ParsingIsTraced) {
    AtEveryLogSetting([](LogCapture& log) {
        std::vector<FileInfo> infos;
        EXPECT_EQ(RequestDataGetFileInfos("a#5;b#6", infos), 0);
        EXPECT_TRUE(log.Shows({
            kDaemonLog.Enter("RequestDataGetFileInfos"),
            kDaemonLog.Verbose("RequestDataGetFileInfos", "info.szRelativePath=a info.inodeNum=5"),
            kDaemonLog.Verbose("RequestDataGetFileInfos", "info.szRelativePath=b info.inodeNum=6"),
            kDaemonLog.Leave("RequestDataGetFileInfos"),
        }));
    });
}

TEST_F(RequestDataTest, TheLargestInodeNumberIsReadAndTold) {
    std::vector<FileInfo> infos;
    LogCapture log(2);

    EXPECT_EQ(RequestDataGetFileInfos("a#4294967295;b#2147483648", infos), 0);
    ASSERT_EQ(infos.size(), 2U);
    EXPECT_EQ(infos[0].inodeNum, 4294967295UL);
    EXPECT_EQ(infos[1].inodeNum, 2147483648UL);
    EXPECT_TRUE(log.Has(kDaemonLog.Verbose("RequestDataGetFileInfos",
                                           "info.szRelativePath=a info.inodeNum=4294967295")));
    log.Clear();
}

TEST_F(RequestDataTest, AMalformedEntryStopsParsingAndIsQuoted) {
    const std::string entries[] = {
        "a",        "a#", "a#x", "a# ", "#5", "#", "##", "a#-x", "a##5", "a##", Text(512) + "#7",
        Text(1000),
    };

    AtEveryLogSetting([&](LogCapture& log) {
        for (const std::string& entry : entries) {
            std::vector<FileInfo> infos;
            EXPECT_EQ(RequestDataGetFileInfos(("first#1;" + entry + ";last#2").c_str(), infos), -1)
                << entry;
            EXPECT_EQ(AsTexts(infos), Strings({"first 1"})) << "records before it stay: " << entry;
            EXPECT_TRUE(log.Shows({
                kDaemonLog.Enter("RequestDataGetFileInfos"),
                kDaemonLog.Verbose("RequestDataGetFileInfos",
                                   "info.szRelativePath=first info.inodeNum=1"),
                kDaemonLog.Error("RequestDataGetFileInfos",
                                 "Parse file inode from string (" + entry + ") failed"),
                kDaemonLog.Leave("RequestDataGetFileInfos"),
            })) << entry;
        }
    });
}

TEST_F(RequestDataTest, RecordsAreAppended) {
    std::vector<FileInfo> infos;

    ASSERT_EQ(RequestDataGetFileInfos("a#1", infos), 0);
    ASSERT_EQ(RequestDataGetFileInfos("b#2", infos), 0);
    ASSERT_EQ(RequestDataGetFileInfos("", infos), 0);
    EXPECT_EQ(AsTexts(infos), Strings({"a 1", "b 2"}));
}

TEST_F(RequestDataTest, TheBytesBehindAPathAreZero) {
    std::vector<FileInfo> infos;

    ASSERT_EQ(RequestDataGetFileInfos("a-long-name#1;b#2", infos), 0);
    ASSERT_EQ(infos.size(), 2U);
    EXPECT_EQ(std::string(infos[1].szRelativePath, sizeof(infos[1].szRelativePath)),
              "b" + std::string(511, '\0'));
}

TEST_F(RequestDataTest, OnlyTheFirst1023CharactersOfDataCount) {
    std::vector<FileInfo> infos;
    std::string data = Text(1019, ';') + "a#12";

    ASSERT_EQ(data.size(), 1023U);
    EXPECT_EQ(RequestDataGetFileInfos(data.c_str(), infos), 0);
    EXPECT_EQ(AsTexts(infos), Strings({"a 12"}));
    infos.clear();
    EXPECT_EQ(RequestDataGetFileInfos((";" + data).c_str(), infos), 0);
    EXPECT_EQ(AsTexts(infos), Strings({"a 1"})) << "the number is cut";
}

// --- for the log

TEST_F(RequestDataTest, RequestToString) {
    Request request = MakeRequest(kRequestUnpinFiles, "/v", "a#5;b#6");

    EXPECT_EQ(RequestToString(request), "Request type=unpinFiles mountPath=/v data=a#5;b#6");
    EXPECT_EQ(RequestToString(Request{}), "Request type=unknown mountPath= data=");
    EXPECT_EQ(RequestToString(MakeRequest(kRequestPinFiles, "%n%s", "%s")),
              "Request type=pinFiles mountPath=%n%s data=%s");
}

TEST_F(RequestDataTest, ATypeWithoutANameIsTheLibrarysNullMarker) {
    LogCapture log;

    EXPECT_EQ(RequestToString(MakeRequest(7, "/v", "a")),
              "Request type=(null) mountPath=/v data=a");
    EXPECT_EQ(RequestToString(MakeRequest(-1, "/v")), "Request type=(null) mountPath=/v data=");
    EXPECT_TRUE(log.Shows(
        {kUtilLog.Error("RequestTypeToString", "Convert request type to string errror"),
         kUtilLog.Error("RequestTypeToString", "Convert request type to string errror")}));
}

// Meant: 1024 characters exactly, and only they, are traced.
TEST_F(RequestDataTest, OnlyALineOf1024CharactersIsTracedAsFull) {
    const std::string head = "Request type=pinFiles mountPath= data=";

    AtEveryLogSetting([&](LogCapture& log) {
        for (size_t length : {1022U, 1023U, 1024U, 1025U, 1100U}) {
            std::string mountPath = Text(length - head.size() - 700, 'm');
            std::string text =
                RequestToString(MakeRequest(kRequestPinFiles, mountPath, Text(700, 'd')));
            std::string whole =
                "Request type=pinFiles mountPath=" + mountPath + " data=" + Text(700, 'd');
            ASSERT_EQ(whole.size(), length);
            EXPECT_EQ(text, whole.substr(0, 1023)) << length;
            Lines full = {kDaemonLog.Verbose("RequestToString", "String is full")};
            EXPECT_TRUE(log.Shows(length == 1024 ? full : Lines())) << length;
        }
    });
}

}  // namespace
