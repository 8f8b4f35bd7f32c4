// SPDX-License-Identifier: MIT
#include "daemon/pinned_files.h"

#include "tests/unit/daemon/daemon_test.h"

namespace {

constexpr char kFunction[] = "JsonUpdatePinFileInfo";

class PinnedFilesTest : public DaemonTest {};

struct Row {
    const char* what;
    int type;
    const char* data;
    const char* before;
    const char* after;
};

const Row kRows[] = {
    {"the first file of the first volume", kRequestPinFiles, "a#5", "{}",
     "{'volumes':{'/v':{'files':{'5':'a'}}}}"},
    {"two files", kRequestPinFiles, "b#6;a#5", "{'volumes':null}",
     "{'volumes':{'/v':{'files':{'5':'a','6':'b'}}}}"},
    {"beside others", kRequestPinFiles, "b#6",
     "{'volumes':{'/u':{'files':{'6':'x'}},'/v':{'files':{'5':'a'}}}}",
     "{'volumes':{'/u':{'files':{'6':'x'}},'/v':{'files':{'5':'a','6':'b'}}}}"},
    {"the first recorded path wins", kRequestPinFiles, "new-name#5",
     "{'volumes':{'/v':{'files':{'5':'a'}}}}", "{'volumes':{'/v':{'files':{'5':'a'}}}}"},
    {"an entry that is null is an entry", kRequestPinFiles, "a#5",
     "{'volumes':{'/v':{'files':{'5':null}}}}", "{'volumes':{'/v':{'files':{'5':null}}}}"},
    {"one inode twice in a request", kRequestPinFiles, "a#5;b#5", "{}",
     "{'volumes':{'/v':{'files':{'5':'a'}}}}"},
    {"the largest inode number", kRequestPinFiles, "a#4294967295", "{}",
     "{'volumes':{'/v':{'files':{'4294967295':'a'}}}}"},
    {"no files, no volume before", kRequestPinFiles, "", "{}", "{'volumes':{}}"},
    {"no files, files before", kRequestPinFiles, "", "{'volumes':{'/v':{'files':{'5':'a'}}}}",
     "{'volumes':{'/v':{'files':{'5':'a'}}}}"},
    {"no files, an empty list before", kRequestPinFiles, "", "{'volumes':{'/v':{'files':{}}}}",
     "{'volumes':{}}"},
    {"no files, a volume with more than files", kRequestPinFiles, "",
     "{'volumes':{'/v':{'other':1}}}", "{'volumes':{}}"},
    {"one of two goes", kRequestUnpinFiles, "a#5", "{'volumes':{'/v':{'files':{'5':'a','6':'b'}}}}",
     "{'volumes':{'/v':{'files':{'6':'b'}}}}"},
    {"the last one takes the volume with it", kRequestUnpinFiles, "a#5",
     "{'volumes':{'/u':{'files':{'5':'x'}},'/v':{'files':{'5':'a'}}}}",
     "{'volumes':{'/u':{'files':{'5':'x'}}}}"},
    {"the last volume leaves an empty object", kRequestUnpinFiles, "b#6;a#5",
     "{'volumes':{'/v':{'files':{'5':'a','6':'b'}}}}", "{'volumes':{}}"},
    {"by inode, whatever the path", kRequestUnpinFiles, "another#5",
     "{'volumes':{'/v':{'files':{'5':'a','6':'b'}}}}", "{'volumes':{'/v':{'files':{'6':'b'}}}}"},
    {"not listed", kRequestUnpinFiles, "c#7", "{'volumes':{'/v':{'files':{'5':'a'}}}}",
     "{'volumes':{'/v':{'files':{'5':'a'}}}}"},
    {"no such volume", kRequestUnpinFiles, "c#7", "{}", "{'volumes':{}}"},
    {"a mount path with a slash is another volume", kRequestUnpinFiles, "a#5",
     "{'volumes':{'/v/':{'files':{'5':'a'}}}}", "{'volumes':{'/v/':{'files':{'5':'a'}}}}"},
};

TEST_F(PinnedFilesTest, TheListFollowsTheRequest) {
    for (const Row& row : kRows) {
        Json::Value document = Document(row.before);
        LogCapture log;
        EXPECT_EQ(JsonUpdatePinFileInfo(document, MakeRequest(row.type, "/v", row.data)), 0)
            << row.what;
        EXPECT_EQ(Styled(document), Styled(Document(row.after))) << row.what;
        EXPECT_TRUE(log.Shows({})) << row.what;
    }
}

// Volumes that differ in their last character alone, and paths as long as an entry holds them.
TEST_F(PinnedFilesTest, LongPathsAreListedWhole) {
    Json::Value document;
    std::string mountPath = "/" + Text(509);
    std::string name = Text(511);

    for (const char* end : {"1", "2"}) {
        ASSERT_EQ(JsonUpdatePinFileInfo(document, MakeRequest(kRequestPinFiles, mountPath + end,
                                                              name + "#4294967295")),
                  0);
    }
    EXPECT_EQ(document["volumes"].size(), 2U);
    for (const char* end : {"1", "2"}) {
        EXPECT_EQ(document["volumes"][mountPath + end]["files"]["4294967295"].asString(), name);
    }
}

TEST_F(PinnedFilesTest, OtherRequestsLeaveTheDocumentAlone) {
    AtEveryLogSetting([](LogCapture& log) {
        for (int type : {kRequestUnknown, kRequestAck, kRequestAddPendingSpace,
                         kRequestRemovePendingSpace, kRequestReloadPinBlocks}) {
            Json::Value document;
            Request request = MakeRequest(type, "/v", "a#5");
            std::string name = RequestTypeToString(type);
            EXPECT_EQ(JsonUpdatePinFileInfo(document, request), 0);
            EXPECT_TRUE(document.isNull()) << "not even looked at";
            EXPECT_TRUE(log.Shows({
                kDaemonLog.Enter(kFunction),
                kDaemonLog.Verbose(kFunction, "mount path = /v request = Request type=" + name +
                                                  " mountPath=/v data=a#5"),
                kDaemonLog.Verbose(kFunction, "No need to update pin file list"),
            }));
        }
    });
}

// What parsing the data `a#5;b#6` leaves in the log.
Lines ParsedLines() {
    constexpr char kParser[] = "RequestDataGetFileInfos";
    return {
        kDaemonLog.Enter(kParser),
        kDaemonLog.Verbose(kParser, "info.szRelativePath=a info.inodeNum=5"),
        kDaemonLog.Verbose(kParser, "info.szRelativePath=b info.inodeNum=6"),
        kDaemonLog.Leave(kParser),
    };
}

TEST_F(PinnedFilesTest, AddingIsTraced) {
    AtEveryLogSetting([](LogCapture& log) {
        Json::Value document = Document("{'volumes':{'/v':{'files':{'6':'b'}}}}");
        ASSERT_EQ(JsonUpdatePinFileInfo(document, MakeRequest(kRequestPinFiles, "/v", "a#5;b#6")),
                  0);
        EXPECT_TRUE(log.Shows(
            Lines{kDaemonLog.Enter(kFunction),
                  kDaemonLog.Verbose(kFunction,
                                     "mount path = /v request = Request type=pinFiles mountPath=/v "
                                     "data=a#5;b#6")} +
            ParsedLines() +
            Lines{
                kDaemonLog.Verbose("JsonUpdatePinFileInfo", "Add file (a) to pin file list"),
                kDaemonLog.Verbose("JsonUpdatePinFileInfo",
                                   "No need to add file (b) to pin file list"),
                kDaemonLog.Leave(kFunction),
            }));
    });
}

TEST_F(PinnedFilesTest, RemovingIsTraced) {
    AtEveryLogSetting([](LogCapture& log) {
        Json::Value document = Document("{'volumes':{'/v':{'files':{'6':'b'}}}}");
        ASSERT_EQ(JsonUpdatePinFileInfo(document, MakeRequest(kRequestUnpinFiles, "/v", "a#5;b#6")),
                  0);
        EXPECT_TRUE(log.Shows(
            Lines{kDaemonLog.Enter(kFunction),
                  kDaemonLog.Verbose(kFunction,
                                     "mount path = /v request = Request type=unpinFiles "
                                     "mountPath=/v data=a#5;b#6")} +
            ParsedLines() +
            Lines{
                kDaemonLog.Verbose("JsonUpdatePinFileInfo",
                                   "No need to remove file (a) from pin file list"),
                kDaemonLog.Verbose("JsonUpdatePinFileInfo", "Remove file (b) from pin file list"),
                kDaemonLog.Verbose(kFunction, "Remove volume (/v)"),
                kDaemonLog.Leave(kFunction),
            }));
    });
}

// The levels of the document are made before the data is looked at, and stay.
TEST_F(PinnedFilesTest, MalformedDataIsAnError) {
    AtEveryLogSetting([](LogCapture& log) {
        for (int type : {kRequestPinFiles, kRequestUnpinFiles}) {
            Json::Value document;
            std::string name = RequestTypeToString(type);
            EXPECT_EQ(JsonUpdatePinFileInfo(document, MakeRequest(type, "/v", "a#5;b")), -1);
            EXPECT_EQ(Styled(document), Styled(Document("{'volumes':{'/v':{'files':null}}}")));
            EXPECT_TRUE(log.Shows({
                kDaemonLog.Enter(kFunction),
                kDaemonLog.Verbose(kFunction, "mount path = /v request = Request type=" + name +
                                                  " mountPath=/v data=a#5;b"),
                kDaemonLog.Enter("RequestDataGetFileInfos"),
                kDaemonLog.Verbose("RequestDataGetFileInfos",
                                   "info.szRelativePath=a info.inodeNum=5"),
                kDaemonLog.Error("RequestDataGetFileInfos",
                                 "Parse file inode from string (b) failed"),
                kDaemonLog.Leave("RequestDataGetFileInfos"),
                kDaemonLog.Error(kFunction, "Can't get file infos"),
            }));
        }
    });
}

// A list must not be taken off file by file before the whole of it has been understood.
TEST_F(PinnedFilesTest, MalformedDataChangesNoFile) {
    for (int type : {kRequestPinFiles, kRequestUnpinFiles}) {
        const char* before = "{'volumes':{'/v':{'files':{'5':'a','6':'b'}}}}";
        Json::Value document = Document(before);
        EXPECT_EQ(JsonUpdatePinFileInfo(document, MakeRequest(type, "/v", "a#5;c#7;b")), -1);
        EXPECT_EQ(Styled(document), Styled(Document(before)));
    }
}

}  // namespace
