// SPDX-License-Identifier: MIT
#include "daemon/request_store.h"

#include <errno.h>
#include <sys/stat.h>

#include "daemon/service.h"
#include "tests/unit/daemon/daemon_test.h"
#include "tests/unit/support/fake_system.h"

namespace {

struct Leaving;

class RequestStoreTest : public DaemonTest {
  protected:
    void FailEveryStep(const Leaving& leaving);

    // Makes a file below the mount path and returns its entry of a data text.
    std::string Make(const std::string& name) const {
        struct stat status = {};
        std::string path = dir_ / name;
        WriteFile(path, "");
        EXPECT_EQ(stat(path.c_str(), &status), 0);
        return name + "#" + std::to_string(static_cast<uint32_t>(status.st_ino));
    }

    Request Pin(const std::string& names) const {
        return MakeRequest(kRequestPinFiles, dir_.path(), names);
    }

    static ExpectedLine WrongKind(const std::string& member) {
        return kDaemonLog.Error("ConfigCheckKind",
                                "Config has a member of a wrong kind (" + member + ")");
    }

    std::string InConfig(const char* before, const char* after = ")") const {
        return before + std::string(config()) + after;
    }
};

// --- adding to a document

TEST_F(RequestStoreTest, TheFirstRequestHasNumberZero) {
    Json::Value document;
    std::string a = Make("a");

    EXPECT_EQ(JsonAddRequest(document, Pin(dir_ / "a")), 0);
    EXPECT_EQ(Styled(document),
              Styled(Document("{'nextRequestNum':1,'requestQueue':['0'],'requests':{'0':{'type':"
                              "'pinFiles','mountPath':'" +
                              dir_.path() + "','data':'" + a + "'}}}")));
}

TEST_F(RequestStoreTest, NumbersRunUpToTheModulus) {
    struct Row {
        const char* what;
        const char* before;
        const char* number;
        int after;
    };
    const Row rows[] = {
        {"no counter", "{}", "0", 1},
        {"null", "{'nextRequestNum':null}", "0", 1},
        {"0", "{'nextRequestNum':0}", "0", 1},
        {"7", "{'nextRequestNum':7}", "7", 8},
        {"the last but one", "{'nextRequestNum':2147483644}", "2147483644", 2147483645},
        {"the modulus is 2147483646", "{'nextRequestNum':2147483645}", "2147483645", 0},
        {"one beyond, by hand", "{'nextRequestNum':2147483646}", "2147483646", 1},
        {"the largest, by hand, wraps", "{'nextRequestNum':2147483647}", "2147483647", -2},
        {"negative, by hand", "{'nextRequestNum':-5}", "-5", -4},
        {"the smallest, by hand", "{'nextRequestNum':-2147483648}", "-2147483648", -1},
        {"the remainder keeps its sign", "{'nextRequestNum':-2147483647}", "-2147483647", 0},
        {"a real number, by hand", "{'nextRequestNum':3.9}", "3", 4},
        {"true, by hand", "{'nextRequestNum':true}", "1", 2},
    };

    for (const Row& row : rows) {
        Json::Value document = Document(row.before);
        LogCapture log;
        EXPECT_EQ(JsonAddRequest(document, MakeRequest(kRequestReloadPinBlocks, "/v")), 0)
            << row.what;
        EXPECT_EQ(document["requestQueue"][0].asString(), row.number) << row.what;
        EXPECT_TRUE(document["requests"].isMember(row.number)) << row.what;
        EXPECT_EQ(document["nextRequestNum"].asInt(), row.after) << row.what;
        EXPECT_TRUE(log.Shows({})) << row.what;
    }
}

TEST_F(RequestStoreTest, RequestsQueueInTheirOrder) {
    Json::Value document;

    for (const char* volume : {"/a", "/b", "/c"}) {
        ASSERT_EQ(JsonAddRequest(document, MakeRequest(kRequestReloadPinBlocks, volume)), 0);
    }
    EXPECT_EQ(Styled(document),
              Styled(Document("{'nextRequestNum':3,'requestQueue':['0','1','2'],'requests':{"
                              "'0':{'type':'reloadPinBlocks','mountPath':'/a','data':null},"
                              "'1':{'type':'reloadPinBlocks','mountPath':'/b','data':null},"
                              "'2':{'type':'reloadPinBlocks','mountPath':'/c','data':null}}}")));
}

// Meant: the test for a duplicate never matches.
TEST_F(RequestStoreTest, ANumberThatIsQueuedAlreadyIsQueuedAgain) {
    Json::Value document = Document(
        "{'nextRequestNum':4,'requestQueue':['4','5'],'requests':{'4':{'type':'unpinFiles',"
        "'mountPath':'/old','data':'a#1','more':1}}}");
    LogCapture log;

    EXPECT_EQ(JsonAddRequest(document, MakeRequest(kRequestReloadPinBlocks, "/new")), 0);
    EXPECT_EQ(
        Styled(document),
        Styled(Document("{'nextRequestNum':5,'requestQueue':['4','5','4'],'requests':{'4':{"
                        "'type':'reloadPinBlocks','mountPath':'/new','data':null,'more':1}}}")));
    EXPECT_TRUE(log.Shows({}));

    // The price: it cannot be removed any more.
    EXPECT_EQ(JsonRemoveRequest(document, "4"), -1);
    EXPECT_TRUE(
        log.Shows({kDaemonLog.Error("JsonArrayRemoveString", "Remove string error, count =2"),
                   kDaemonLog.Error("JsonRemoveRequest",
                                    "Can't remove request num (4) from request queue")}));
}

TEST_F(RequestStoreTest, OnlyPinAndUnpinStoreTheirData) {
    struct Row {
        int type;
        const char* name;
        bool hasData;
    };
    const Row rows[] = {
        {0, "unknown", false},         {1, "pinFiles", true},
        {2, "unpinFiles", true},       {3, "ack", false},
        {4, "addPendingSpace", false}, {5, "removePendigSpace", false},
        {6, "reloadPinBlocks", false},
    };
    std::string entry = Make("a");

    for (const Row& row : rows) {
        Json::Value document;
        EXPECT_EQ(JsonAddRequest(document, MakeRequest(row.type, dir_.path(), dir_ / "a")), 0)
            << row.name;
        const Json::Value& stored = document["requests"]["0"];
        EXPECT_EQ(stored["type"].asString(), row.name);
        EXPECT_EQ(stored["mountPath"].asString(), dir_.path()) << row.name;
        EXPECT_TRUE(stored.isMember("data")) << row.name;
        EXPECT_EQ(stored["data"], row.hasData ? Json::Value(entry) : Json::Value()) << row.name;
    }
}

TEST_F(RequestStoreTest, AListWithoutAFileIsStoredEmpty) {
    std::string entry = Make("a");
    Json::Value document;

    ASSERT_EQ(JsonAddRequest(document, MakeRequest(1, dir_.path(), dir_ / "a")), 0);
    ASSERT_EQ(JsonAddRequest(document, MakeRequest(1, dir_.path(), ";")), 0);
    EXPECT_EQ(document["requests"]["0"]["data"].asString(), entry);
    EXPECT_EQ(document["requests"]["1"]["data"].asString(), "");
}

TEST_F(RequestStoreTest, ATypeWithoutANameIsRefused) {
    for (int type : {7, 1000, INT32_MAX, -1, INT32_MIN}) {
        Json::Value document;
        LogCapture log;
        EXPECT_EQ(JsonAddRequest(document, MakeRequest(type, "/v")), -1) << type;
        EXPECT_FALSE(document.isMember("requests")) << type;
        EXPECT_TRUE(log.Shows(
            {kUtilLog.Error("RequestTypeToString", "Convert request type to string errror")}));
    }
}

// The caller throws the document away.
TEST_F(RequestStoreTest, PathsThatCannotBeConvertedLeaveTheDocumentHalfChanged) {
    std::string missing = dir_ / "missing";

    AtEveryLogSetting([&](LogCapture& log) {
        Json::Value document;
        log.MaskAddresses();
        EXPECT_EQ(JsonAddRequest(document, Pin(missing)), -1);
        EXPECT_EQ(Styled(document),
                  Styled(Document("{'nextRequestNum':1,'requestQueue':['0'],'requests':{'0':{"
                                  "'type':'pinFiles','mountPath':'" +
                                  dir_.path() + "'}}}")));
        EXPECT_TRUE(log.Shows({
            kDaemonLog.Enter("JsonAddRequest"),
            kDaemonLog.Enter("AbsolutePathsToFileInodeList"),
            kDaemonLog.Verbose("FileGetRelativePathByMountPath",
                               "Get relative path = missing (addr=0x#)"),
            kUtilLog.Error("FileGetInodeNumber", "Stat file " + missing + " error"),
            kDaemonLog.Error("AbsolutePathsToFileInodeList",
                             "Cant' get inode number of file (" + missing + ")"),
            kDaemonLog.Error("JsonAddRequest", "Get relative paths failed"),
        }));
    });
}

TEST_F(RequestStoreTest, AddingIsTracedWithTheWholeDocument) {
    AtEveryLogSetting([](LogCapture& log) {
        Json::Value document;
        ASSERT_EQ(JsonAddRequest(document, MakeRequest(kRequestReloadPinBlocks, "/v")), 0);
        EXPECT_TRUE(log.Shows({
            kDaemonLog.Enter("JsonAddRequest"),
            kDaemonLog.Verbose("JsonAddRequest",
                               "After request is added: jsConf:" + Styled(document)),
        }));
    });
}

// A name need not be UTF-8: no byte of it is swallowed, nor the separator behind it.
TEST_F(RequestStoreTest, ANameIsStoredAndTracedByteForByte) {
    const std::string entry = Make("caf\xe9");
    LogCapture log(2);

    SetConfig("{}");
    ASSERT_EQ(ConfigAddRequest(config(), Pin(dir_ / "caf\xe9")), 0);
    EXPECT_NE(ConfigText().find('"' + entry + '"'), std::string::npos) << ConfigText();
    EXPECT_EQ(ConfigDocument()["requests"]["0"]["data"].asString(), entry);
    EXPECT_TRUE(log.Has(
        kDaemonLog.Verbose("JsonAddRequest", "After request is added: jsConf:" + ConfigText())));
    log.Clear();
}

// --- removing from a document

TEST_F(RequestStoreTest, ARequestIsRemovedFromQueueAndRequests) {
    AtEveryLogSetting([](LogCapture& log) {
        Json::Value document =
            Document("{'requestQueue':['3','5','7'],'requests':{'3':{},'5':{'type':'x'},'7':{}}}");
        EXPECT_EQ(JsonRemoveRequest(document, "5"), 0);
        EXPECT_EQ(Styled(document),
                  Styled(Document("{'requestQueue':['3','7'],'requests':{'3':{},'7':{}}}")));
        EXPECT_TRUE(log.Shows({
            kDaemonLog.Enter("JsonRemoveRequest"),
            kDaemonLog.Verbose("JsonRemoveRequest", "Remove request num = 5"),
            kDaemonLog.Leave("JsonRemoveRequest"),
        }));
    });
}

// Meant: not an empty array.
TEST_F(RequestStoreTest, TheQueueBecomesNullWhenTheLastRequestGoes) {
    Json::Value document = Document("{'requestQueue':['5'],'requests':{'5':{}}}");

    EXPECT_EQ(JsonRemoveRequest(document, "5"), 0);
    EXPECT_EQ(Styled(document), Styled(Document("{'requestQueue':null,'requests':{}}")));
}

TEST_F(RequestStoreTest, WhatCannotBeRemoved) {
    struct Row {
        const char* what;
        const char* before;
        const char* after;
        Lines errors;
    };
    const Lines notOnce = {
        kDaemonLog.Error("JsonRemoveRequest", "Can't remove request num (5) from request queue")};
    auto count = [](const char* number) {
        return Lines{kDaemonLog.Error("JsonArrayRemoveString",
                                      std::string("Remove string error, count =") + number)};
    };
    const Row rows[] = {
        {"no queue",
         "{'requests':{'5':{}}}",
         "{'requestQueue':null,'requests':{'5':{}}}",
         {kDaemonLog.Error("JsonRemoveRequest", "Can't read request queue")}},
        {"null queue",
         "{'requestQueue':null,'requests':{'5':{}}}",
         "{'requestQueue':null,'requests':{'5':{}}}",
         {kDaemonLog.Error("JsonRemoveRequest", "Can't read request queue")}},
        {"empty queue", "{'requestQueue':[],'requests':{'5':{}}}",
         "{'requestQueue':[],'requests':{'5':{}}}", count("0") + notOnce},
        {"not queued", "{'requestQueue':['4','55'],'requests':{'5':{}}}",
         "{'requestQueue':['4','55'],'requests':{'5':{}}}", count("0") + notOnce},
        {"queued twice", "{'requestQueue':['5','4','5'],'requests':{'5':{}}}",
         "{'requestQueue':['5','4','5'],'requests':{'5':{}}}", count("2") + notOnce},
        {"queued three times", "{'requestQueue':['5','5','5'],'requests':{'5':{}}}",
         "{'requestQueue':['5','5','5'],'requests':{'5':{}}}", count("3") + notOnce},
        {"no requests; the queue stays changed",
         "{'requestQueue':['5']}",
         "{'requestQueue':null,'requests':null}",
         {kDaemonLog.Error("JsonRemoveRequest", "Can't find request number (5) in config")}},
        {"not among the requests; the queue stays changed",
         "{'requestQueue':['4','5'],'requests':{'4':{}}}",
         "{'requestQueue':['4'],'requests':{'4':{}}}",
         {kDaemonLog.Error("JsonRemoveRequest", "Can't find request number (5) in config")}},
        {"stored as null; both stay changed",
         "{'requestQueue':['5'],'requests':{'5':null}}",
         "{'requestQueue':null,'requests':{}}",
         {kDaemonLog.Error("JsonRemoveRequest", "Remove request (5) from requests failed")}},
    };

    AtEveryLogSetting([&](LogCapture& log) {
        for (const Row& row : rows) {
            Json::Value document = Document(row.before);
            EXPECT_EQ(JsonRemoveRequest(document, "5"), -1) << row.what;
            EXPECT_EQ(Styled(document), Styled(Document(row.after))) << row.what;
            EXPECT_TRUE(
                log.Shows(Lines{kDaemonLog.Enter("JsonRemoveRequest"),
                                kDaemonLog.Verbose("JsonRemoveRequest", "Remove request num = 5")} +
                          row.errors))
                << row.what;
        }
    });
}

// --- arrays of texts

TEST_F(RequestStoreTest, ATextIsTakenOutOfAnArray) {
    struct Row {
        const char* what;
        const char* before;
        const char* after;  // null: refused
    };
    const Row rows[] = {
        {"first", "['5','6','7']", "['6','7']"},
        {"middle", "['6','5','7']", "['6','7']"},
        {"last", "['6','7','5']", "['6','7']"},
        {"the only one leaves null", "['5']", "null"},
        {"a number is its text", "[5,6]", "['6']"},
        {"what stays becomes text", "['5',6,true,null]", "['6','true','']"},
        {"not there", "['6','7']", nullptr},
        {"only part of one", "['55','5 ',' 5']", nullptr},
        {"twice", "['5','5']", nullptr},
        {"empty", "[]", nullptr},
        {"null", "null", nullptr},
    };

    AtEveryLogSetting([&](LogCapture& log) {
        for (const Row& row : rows) {
            Json::Value array = Document(std::string("{'a':") + row.before + "}")["a"];
            Json::Value before = array;
            EXPECT_EQ(JsonArrayRemoveString(array, "5"), row.after == nullptr ? -1 : 0) << row.what;
            if (row.after != nullptr) {
                EXPECT_EQ(array, Document(std::string("{'a':") + row.after + "}")["a"]) << row.what;
                EXPECT_TRUE(log.Shows({})) << row.what;
            } else {
                EXPECT_EQ(array, before) << row.what;
                std::string count = row.what == std::string("twice") ? "2" : "0";
                EXPECT_TRUE(log.Shows({kDaemonLog.Error("JsonArrayRemoveString",
                                                        "Remove string error, count =" + count)}))
                    << row.what;
            }
        }
    });
}

TEST_F(RequestStoreTest, ArraysOfMoreThan255Elements) {
    LogCapture log;
    Json::Value array;

    for (int i = 0; i < 300; ++i) {
        array.append(std::to_string(i));
    }
    EXPECT_EQ(JsonArrayHasString(array, "299"), 1);
    EXPECT_EQ(JsonArrayRemoveString(array, "299"), 0);
    EXPECT_EQ(array.size(), 299U);
    Json::Value alike;
    for (int i = 0; i < 257; ++i) {
        alike.append("7");
    }
    EXPECT_EQ(JsonArrayRemoveString(alike, "7"), -1);
    EXPECT_EQ(alike.size(), 257U);
    EXPECT_TRUE(
        log.Shows({kDaemonLog.Error("JsonArrayRemoveString", "Remove string error, count =257")}));
}

TEST_F(RequestStoreTest, JsonArrayHasString) {
    struct Row {
        const char* array;
        const char* text;
        int has;
    };
    const Row rows[] = {
        {"['5']", "5", 1},  {"['4','5','6']", "5", 1}, {"['4','5','5']", "5", 1}, {"['6']", "5", 0},
        {"['55']", "5", 0}, {"[5]", "5", 1},           {"['']", "", 1},           {"[null]", "", 1},
        {"[]", "5", 0},     {"null", "5", 0},          {"true", "true", 0},       {"'5'", "5", 0},
        {"5", "5", 0},      {"{'5':'5'}", "5", 0},
    };

    for (const Row& row : rows) {
        Json::Value array = Document(std::string("{'a':") + row.array + "}")["a"];
        LogCapture log(3);
        EXPECT_EQ(JsonArrayHasString(array, row.text), row.has) << row.array;
        EXPECT_TRUE(log.Shows({})) << row.array;
    }
}

// --- one line of a request

// --- adding to the file

TEST_F(RequestStoreTest, AddingToAMissingFileCreatesIt) {
    EXPECT_EQ(ConfigAddRequest(config(), MakeRequest(kRequestReloadPinBlocks, "/v", "ignored")), 0);
    EXPECT_EQ(Styled(ConfigDocument()),
              Styled(Document("{'nextRequestNum':1,'requestQueue':['0'],'requests':{'0':{'type':"
                              "'reloadPinBlocks','mountPath':'/v','data':null}}}")));
}

TEST_F(RequestStoreTest, AddingKeepsWhatTheFileHolds) {
    std::string a = Make("a");

    SetConfig(
        "{'nextRequestNum':7,'requestQueue':['3'],'requests':{'3':{'type':'ack'}},"
        "'volumes':{'/u':{'files':{'1':'x'}}},'another':[1,{'b':2}]}");
    EXPECT_EQ(ConfigAddRequest(config(), Pin(dir_ / "a")), 0);
    EXPECT_EQ(Styled(ConfigDocument()),
              Styled(Document("{'nextRequestNum':8,'requestQueue':['3','7'],'requests':{'3':{'type'"
                              ":'ack'},'7':{'type':'pinFiles','mountPath':'" +
                              dir_.path() + "','data':'" + a +
                              "'}},'volumes':{'/u':{'files':{'1':'x'}}},'another':[1,{'b':2}]}")));
}

TEST_F(RequestStoreTest, AddingIsTraced) {
    AtEveryLogSetting([&](LogCapture& log) {
        SetConfig("{}");
        ASSERT_EQ(ConfigAddRequest(config(), MakeRequest(kRequestReloadPinBlocks, "/v")), 0);
        EXPECT_TRUE(
            log.Shows(Lines{kDaemonLog.Enter("ConfigAddRequest")} + ReadJsonLines() +
                      Lines{kDaemonLog.Enter("JsonAddRequest"),
                            kDaemonLog.Verbose("JsonAddRequest", "After request is added: jsConf:" +
                                                                     Styled(ConfigDocument()))} +
                      WriteJsonLines() + Lines{kDaemonLog.Leave("ConfigAddRequest")}));
        EXPECT_FALSE(ServiceMutexIsHeld());
    });
}

TEST_F(RequestStoreTest, AddingToAFileThatCannotBeReadIsRefused) {
    struct Row {
        const char* content;
        Lines cause;
    };
    const Row rows[] = {
        {"{'requestQueue':",
         {kUtilLog.Enter("ReadFileToJson"),
          kUtilLog.Error("ReadFileToJson", InConfig("Prase file ", " error"))}},
        {"[]", ReadJsonLines() + Lines{WrongKind("top level")}},
    };

    AtEveryLogSetting([&](LogCapture& log) {
        for (const Row& row : rows) {
            SetConfig(row.content);
            std::string before = ConfigText();
            EXPECT_EQ(ConfigAddRequest(config(), MakeRequest(kRequestReloadPinBlocks, "/v")), -1);
            EXPECT_EQ(ConfigText(), before);
            EXPECT_FALSE(ServiceMutexIsHeld());
            EXPECT_TRUE(
                log.Shows(Lines{kDaemonLog.Enter("ConfigAddRequest")} + row.cause +
                          Lines{kDaemonLog.Error("ConfigAddRequest",
                                                 InConfig("Can't read data from config file (")),
                                kDaemonLog.Leave("ConfigAddRequest")}))
                << row.content;
        }
    });
}

TEST_F(RequestStoreTest, AMemberThatAnAddUsesMustHaveItsKind) {
    struct Row {
        const char* content;
        const char* member;
    };
    const Row rows[] = {
        {"{'nextRequestNum':'3'}", "nextRequestNum"},
        {"{'nextRequestNum':{}}", "nextRequestNum"},
        {"{'nextRequestNum':2147483648}", "nextRequestNum"},
        {"{'requestQueue':{}}", "requestQueue"},
        {"{'requestQueue':'0'}", "requestQueue"},
        {"{'requests':[]}", "requests"},
        {"{'requests':7}", "requests"},
    };

    for (const Row& row : rows) {
        LogCapture log;
        SetConfig(row.content);
        std::string before = ConfigText();
        EXPECT_EQ(ConfigAddRequest(config(), MakeRequest(kRequestReloadPinBlocks, "/v")), -1);
        EXPECT_EQ(ConfigText(), before);
        EXPECT_TRUE(log.Shows({WrongKind(row.member),
                               kDaemonLog.Error("ConfigAddRequest", "Can't add request to json")}))
            << row.content;
    }
}

// One odd member concerns nobody but its users.
TEST_F(RequestStoreTest, WhatAnAddDoesNotUseMayBeAnything) {
    struct Row {
        const char* rest;      // of the document, beside what an add uses
        const char* requests;  // before it
        const char* queue;
    };
    const Row rows[] = {
        {",'volumes':7", "", ""},
        {",'volumes':{'/v':[]}", "", ""},
        {",'volumes':{'/v':{'files':'a'}}", "", ""},
        {",'another':[[]]", "", ""},
        {"", "'1':7,", "'1',"},
        {"", "'1':{'type':[],'mountPath':{},'data':[]},", "'1',"},
        {"", "", "{},[],"},
    };
    const std::string added = "'4':{'type':'reloadPinBlocks','mountPath':'/v','data':null}";

    for (const Row& row : rows) {
        LogCapture log;
        std::string queue = row.queue;
        std::string requests = row.requests;
        auto document = [&](const std::string& number, const std::string& newQueue,
                            const std::string& newRequests) {
            return "{'nextRequestNum':" + number + ",'requestQueue':[" + newQueue +
                   "],'requests':{" + newRequests + "}" + row.rest + "}";
        };
        SetConfig(document("4", queue.substr(0, queue.size() - (queue.empty() ? 0 : 1)),
                           requests.substr(0, requests.size() - (requests.empty() ? 0 : 1))));
        EXPECT_EQ(ConfigAddRequest(config(), MakeRequest(kRequestReloadPinBlocks, "/v")), 0);
        EXPECT_EQ(Styled(ConfigDocument()),
                  Styled(Document(document("5", queue + "'4'", requests + added))));
        EXPECT_TRUE(log.Shows({}));
    }
}

TEST_F(RequestStoreTest, WhatStandsUnderTheNumberIsOverwritten) {
    for (const char* before : {"7", "[]", "'pinFiles'", "null", "{'type':[],'mountPath':7}"}) {
        LogCapture log;
        SetConfig(std::string("{'nextRequestNum':4,'requests':{'4':") + before + "}}");
        EXPECT_EQ(ConfigAddRequest(config(), MakeRequest(kRequestReloadPinBlocks, "/v")), 0);
        EXPECT_EQ(
            Styled(ConfigDocument()["requests"]),
            Styled(Document("{'4':{'type':'reloadPinBlocks','mountPath':'/v','data':null}}")));
        EXPECT_TRUE(log.Shows({}));
    }
}

// A pin needs the volume's list; what has failed leaves whatever the list is.
TEST_F(RequestStoreTest, OnlyWhoUsesTheVolumesIsConcernedByThem) {
    struct Row {
        const char* volumes;
        const char* member;
    };
    const Row rows[] = {
        {"7", "volumes"},
        {"[]", "volumes"},
        {"{'/v':'files'}", "/v"},
        {"{'/v':{'files':5}}", "files"},
    };
    const ExpectedLine takesOff = kDaemonLog.Error(
        "ConfigDropErrorRequest", "Remove pinned files from the config file if possible");

    for (const Row& row : rows) {
        LogCapture log;
        const std::string content =
            std::string("{'requestQueue':['7',{}],'requests':{'7':{}},'volumes':") + row.volumes +
            "}";
        const Request pin = MakeRequest(kRequestPinFiles, "/v", "a#5");
        SetConfig(content);
        EXPECT_EQ(ConfigUpdatedByFinishedRequest(config(), pin, "7"), -1);
        EXPECT_EQ(Styled(ConfigDocument()), Styled(Document(content)));
        EXPECT_TRUE(
            log.Shows({WrongKind(row.member), kDaemonLog.Error("ConfigUpdatedByFinishedRequest",
                                                               "Can't update pin file list")}));
        EXPECT_EQ(ConfigDropErrorRequest(config(), pin, "7"), 0);
        EXPECT_TRUE(log.Shows({}));
        SetConfig(content);
        EXPECT_EQ(
            ConfigDropErrorRequest(config(), MakeRequest(kRequestUnpinFiles, "/v", "a#5"), "7"), 0);
        EXPECT_TRUE(log.Shows({takesOff, WrongKind(row.member)}));
        SetConfig(content);
        EXPECT_EQ(ConfigUpdatedByFinishedRequest(config(),
                                                 MakeRequest(kRequestReloadPinBlocks, "/v"), "7"),
                  0);
        EXPECT_EQ(Styled(ConfigDocument()),
                  Styled(Document(std::string("{'requestQueue':[{}],'requests':{},'volumes':") +
                                  row.volumes + "}")));
        EXPECT_TRUE(log.Shows({}));
    }
}

TEST_F(RequestStoreTest, ARequestThatCannotBeConvertedLeavesTheFileAlone) {
    const char* before = "{ 'nextRequestNum' : 7 }";

    for (const std::string& path : {dir_ / "missing", std::string("/elsewhere/a")}) {
        LogCapture log;
        SetConfig(before);
        std::string text = ConfigText();
        EXPECT_EQ(ConfigAddRequest(config(), Pin(path)), -1);
        EXPECT_EQ(ConfigText(), text) << "the counter has not advanced";
        EXPECT_FALSE(ServiceMutexIsHeld());
        EXPECT_TRUE(log.Has(kDaemonLog.Error("JsonAddRequest", "Get relative paths failed")));
        EXPECT_TRUE(log.Has(kDaemonLog.Error("ConfigAddRequest", "Can't add request to json")));
    }
}

TEST_F(RequestStoreTest, ATypeWithoutANameLeavesNoFile) {
    LogCapture log(2);

    EXPECT_EQ(ConfigAddRequest(config(), MakeRequest(77, "/v")), -1);
    EXPECT_FALSE(Exists(config()));
    EXPECT_FALSE(ServiceMutexIsHeld());
    EXPECT_TRUE(log.Shows({
        kDaemonLog.Enter("ConfigAddRequest"),
        kDaemonLog.Enter("JsonAddRequest"),
        kUtilLog.Error("RequestTypeToString", "Convert request type to string errror"),
        kDaemonLog.Error("ConfigAddRequest", "Can't add request to json"),
        kDaemonLog.Leave("ConfigAddRequest"),
    }));
}

TEST_F(RequestStoreTest, AFileThatCannotBeWrittenRefusesTheRequest) {
    std::string path = dir_ / "no-such-directory/config.json";

    AtEveryLogSetting([&](LogCapture& log) {
        EXPECT_EQ(ConfigAddRequest(path.c_str(), MakeRequest(kRequestReloadPinBlocks, "/v")), -1);
        EXPECT_FALSE(ServiceMutexIsHeld());
        EXPECT_TRUE(log.Shows({
            kDaemonLog.Enter("ConfigAddRequest"),
            kDaemonLog.Enter("JsonAddRequest"),
            kDaemonLog.Verbose(
                "JsonAddRequest",
                "After request is added: jsConf:" +
                    Styled(Document("{'nextRequestNum':1,'requestQueue':['0'],'requests':{'0':{"
                                    "'type':'reloadPinBlocks','mountPath':'/v','data':null}}}"))),
            kUtilLog.Enter("WriteJsonToFile"),
            kUtilLog.Error("WriteJsonToFile", "Can't open config file (" + path + ")"),
            kDaemonLog.Error("ConfigAddRequest", "Can't write to files"),
            kDaemonLog.Leave("ConfigAddRequest"),
        }));
    });
}

// --- finishing and dropping

constexpr char kStored[] =
    "{'nextRequestNum':9,'requestQueue':['7','8'],"
    "'requests':{'7':{'type':'x','mountPath':'/v','data':'a#5;c#6'},'8':{'type':'ack'}},"
    "'volumes':{'/v':{'files':{'5':'first'}}}}";

TEST_F(RequestStoreTest, AFinishedRequestLeavesTheFileAndTheListFollows) {
    struct Row {
        const char* what;
        int type;
        const char* data;
        const char* volumes;
    };
    const Row rows[] = {
        {"pin: the first recorded path wins", kRequestPinFiles, "a#5;c#6",
         "{'/v':{'files':{'5':'first','6':'c'}}}"},
        {"pin without files", kRequestPinFiles, "", "{'/v':{'files':{'5':'first'}}}"},
        {"unpin of the volume's last file", kRequestUnpinFiles, "a#5", "{}"},
        {"unpin of another file", kRequestUnpinFiles, "c#6", "{'/v':{'files':{'5':'first'}}}"},
        {"reload", kRequestReloadPinBlocks, "a#5;c#6", "{'/v':{'files':{'5':'first'}}}"},
    };

    for (const Row& row : rows) {
        LogCapture log;
        SetConfig(kStored);
        EXPECT_EQ(
            ConfigUpdatedByFinishedRequest(config(), MakeRequest(row.type, "/v", row.data), "7"), 0)
            << row.what;
        EXPECT_EQ(Styled(ConfigDocument()),
                  Styled(Document(std::string("{'nextRequestNum':9,'requestQueue':['8'],'requests'"
                                              ":{'8':{'type':'ack'}},'volumes':") +
                                  row.volumes + "}")))
            << row.what;
        EXPECT_FALSE(ServiceMutexIsHeld());
        EXPECT_TRUE(log.Shows({})) << row.what;
    }
}

TEST_F(RequestStoreTest, AFinishedPinWithoutFilesLeavesNoVolumeBehind) {
    SetConfig("{'requestQueue':['7'],'requests':{'7':{}}}");
    EXPECT_EQ(ConfigUpdatedByFinishedRequest(config(), MakeRequest(kRequestPinFiles, "/v"), "7"),
              0);
    EXPECT_EQ(Styled(ConfigDocument()),
              Styled(Document("{'requestQueue':null,'requests':{},'volumes':{}}")));
}

TEST_F(RequestStoreTest, AFinishedReloadMakesNoMember) {
    SetConfig("{'requestQueue':['7'],'requests':{'7':{}}}");
    EXPECT_EQ(
        ConfigUpdatedByFinishedRequest(config(), MakeRequest(kRequestReloadPinBlocks, "/v"), "7"),
        0);
    EXPECT_EQ(Styled(ConfigDocument()), Styled(Document("{'requestQueue':null,'requests':{}}")));
}

TEST_F(RequestStoreTest, ADroppedRequestLeavesTheFile) {
    struct Row {
        const char* what;
        int type;
        const char* data;
        const char* volumes;
    };
    const Row rows[] = {
        {"a failed pin adds nothing", kRequestPinFiles, "a#5;c#6",
         "{'/v':{'files':{'5':'first'}}}"},
        {"a failed unpin takes its files off the list", kRequestUnpinFiles, "a#5", "{}"},
        {"a failed unpin of malformed data changes no list", kRequestUnpinFiles, "a#5;x",
         "{'/v':{'files':{'5':'first'}}}"},
        {"a failed reload", kRequestReloadPinBlocks, "", "{'/v':{'files':{'5':'first'}}}"},
        {"a type that nobody runs", kRequestAck, "", "{'/v':{'files':{'5':'first'}}}"},
    };

    for (const Row& row : rows) {
        SetConfig(kStored);
        EXPECT_EQ(ConfigDropErrorRequest(config(), MakeRequest(row.type, "/v", row.data), "7"), 0)
            << row.what;
        EXPECT_EQ(Styled(ConfigDocument()),
                  Styled(Document(std::string("{'nextRequestNum':9,'requestQueue':['8'],'requests'"
                                              ":{'8':{'type':'ack'}},'volumes':") +
                                  row.volumes + "}")))
            << row.what;
        EXPECT_FALSE(ServiceMutexIsHeld());
    }
}

Lines RemoveLines(const char* number) {
    return {kDaemonLog.Enter("JsonRemoveRequest"),
            kDaemonLog.Verbose("JsonRemoveRequest", std::string("Remove request num = ") + number),
            kDaemonLog.Leave("JsonRemoveRequest")};
}

Lines NothingToUpdateLines() {
    constexpr char kFunction[] = "JsonUpdatePinFileInfo";
    return {kDaemonLog.Enter(kFunction),
            kDaemonLog.Verbose(kFunction,
                               "mount path = /v request = Request type=reloadPinBlocks "
                               "mountPath=/v data="),
            kDaemonLog.Verbose(kFunction, "No need to update pin file list")};
}

TEST_F(RequestStoreTest, FinishingIsTraced) {
    AtEveryLogSetting([&](LogCapture& log) {
        SetConfig(kStored);
        ASSERT_EQ(ConfigUpdatedByFinishedRequest(config(),
                                                 MakeRequest(kRequestReloadPinBlocks, "/v"), "7"),
                  0);
        EXPECT_TRUE(log.Shows(Lines{kDaemonLog.Enter("ConfigUpdatedByFinishedRequest")} +
                              ReadJsonLines() + NothingToUpdateLines() + RemoveLines("7") +
                              WriteJsonLines() +
                              Lines{kDaemonLog.Leave("ConfigUpdatedByFinishedRequest")}));
    });
}

// Dropping has no markers of its own.
TEST_F(RequestStoreTest, DroppingIsSilentButForWhatItCalls) {
    AtEveryLogSetting([&](LogCapture& log) {
        SetConfig(kStored);
        ASSERT_EQ(ConfigDropErrorRequest(config(), MakeRequest(kRequestPinFiles, "/v", "a#5"), "7"),
                  0);
        EXPECT_TRUE(log.Shows(ReadJsonLines() + RemoveLines("7") + WriteJsonLines()));
    });
}

// The notice that a failed unpin takes files off has the mark of an error.
TEST_F(RequestStoreTest, ADroppedUnpinSaysThatItTakesFilesOff) {
    const ExpectedLine takesOff = kDaemonLog.Error(
        "ConfigDropErrorRequest", "Remove pinned files from the config file if possible");

    LogCapture log;
    SetConfig(kStored);
    ASSERT_EQ(ConfigDropErrorRequest(config(), MakeRequest(kRequestUnpinFiles, "/v", "a#5"), "7"),
              0);
    EXPECT_TRUE(log.Shows({takesOff}));

    SetConfig(kStored);
    ASSERT_EQ(ConfigDropErrorRequest(config(), MakeRequest(kRequestUnpinFiles, "/v", "x"), "7"), 0);
    EXPECT_TRUE(log.Shows(
        {takesOff,
         kDaemonLog.Error("RequestDataGetFileInfos", "Parse file inode from string (x) failed"),
         kDaemonLog.Error("JsonUpdatePinFileInfo", "Can't get file infos")}));
}

TEST_F(RequestStoreTest, TheListIsUpdatedBeforeTheRequestIsRemoved) {
    for (auto* leave : {ConfigUpdatedByFinishedRequest, ConfigDropErrorRequest}) {
        LogCapture log(2);
        SetConfig(kStored);
        ASSERT_EQ(leave(config(), MakeRequest(kRequestUnpinFiles, "/v", "a#5"), "7"), 0);
        std::string text = testing::PrintToString(log.SystemLines());
        size_t listed = text.find("JsonUpdatePinFileInfo() [#] : -----");
        EXPECT_NE(listed, std::string::npos) << text;
        EXPECT_LT(listed, text.find("JsonRemoveRequest() [#] : +++++")) << text;
        log.Clear();
    }
}

// The two ways in which a request leaves the file, each with the name that its lines give.
struct Leaving {
    const char* name;
    int (*function)(const char* path, const Request& request, const std::string& number);
};

constexpr Leaving kLeavings[] = {
    {"ConfigUpdatedByFinishedRequest", ConfigUpdatedByFinishedRequest},
    {"ConfigDropErrorRequest", ConfigDropErrorRequest},
};

// What both do when a step fails. Nothing of the file changes.
void RequestStoreTest::FailEveryStep(const Leaving& leaving) {
    struct Row {
        const char* what;
        const char* content;  // null: no file
        Lines errors;
    };
    const ExpectedLine notRead =
        kDaemonLog.Error(leaving.name, InConfig("Can't read data from config file ("));
    const ExpectedLine notRemoved = kDaemonLog.Error(leaving.name, "Can't remove request");
    const Row rows[] = {
        {"no file",
         nullptr,
         {kDaemonLog.Error(leaving.name, InConfig("Can't find config file ("))}},
        {"no JSON",
         "{'a':",
         {kUtilLog.Error("ReadFileToJson", InConfig("Prase file ", " error")), notRead}},
        {"of a wrong shape", "[]", {WrongKind("top level"), notRead}},
        {"the queue no array",
         "{'requestQueue':{'7':'7'},'requests':{'7':{}}}",
         {WrongKind("requestQueue"), notRemoved}},
        {"the requests no object",
         "{'requestQueue':['7'],'requests':['7']}",
         {WrongKind("requests"), notRemoved}},
        {"queue null",
         "{'requestQueue':null,'requests':{'7':{}}}",
         {kDaemonLog.Error("JsonRemoveRequest", "Can't read request queue"), notRemoved}},
        {"not queued",
         "{'requestQueue':['8'],'requests':{'7':{}}}",
         {kDaemonLog.Error("JsonArrayRemoveString", "Remove string error, count =0"),
          kDaemonLog.Error("JsonRemoveRequest", "Can't remove request num (7) from request queue"),
          notRemoved}},
        {"queued twice",
         "{'requestQueue':['7','7'],'requests':{'7':{}}}",
         {kDaemonLog.Error("JsonArrayRemoveString", "Remove string error, count =2"),
          kDaemonLog.Error("JsonRemoveRequest", "Can't remove request num (7) from request queue"),
          notRemoved}},
        {"not stored",
         "{'requestQueue':['7'],'requests':{'8':{}}}",
         {kDaemonLog.Error("JsonRemoveRequest", "Can't find request number (7) in config"),
          notRemoved}},
        {"stored as null",
         "{'requestQueue':['7'],'requests':{'7':null}}",
         {kDaemonLog.Error("JsonRemoveRequest", "Remove request (7) from requests failed"),
          notRemoved}},
    };

    for (const Row& row : rows) {
        LogCapture log;
        if (row.content != nullptr) {
            SetConfig(row.content);
        }
        std::string before = row.content == nullptr ? "" : ConfigText();
        EXPECT_EQ(leaving.function(config(), MakeRequest(kRequestPinFiles, "/v", "a#5"), "7"), -1)
            << row.what;
        EXPECT_EQ(Exists(config()), row.content != nullptr) << row.what;
        EXPECT_EQ(row.content == nullptr ? "" : ConfigText(), before) << row.what;
        EXPECT_FALSE(ServiceMutexIsHeld()) << row.what;
        EXPECT_TRUE(log.Shows(row.errors)) << row.what;
    }
    ASSERT_EQ(unlink(config()), 0);
}

TEST_F(RequestStoreTest, AFailedStepOfFinishingOrDroppingLeavesTheFileAlone) {
    for (const Leaving& leaving : kLeavings) {
        FailEveryStep(leaving);
    }
}

TEST_F(RequestStoreTest, MalformedDataKeepsAFinishedRequestQueued) {
    LogCapture log(2);

    SetConfig(kStored);
    std::string before = ConfigText();
    EXPECT_EQ(
        ConfigUpdatedByFinishedRequest(config(), MakeRequest(kRequestUnpinFiles, "/v", "x"), "7"),
        -1);
    EXPECT_EQ(ConfigText(), before);
    EXPECT_FALSE(ServiceMutexIsHeld());
    EXPECT_TRUE(ShowsOwn(
        log,
        {
            kDaemonLog.Enter("ConfigUpdatedByFinishedRequest"),
            kDaemonLog.Enter("JsonUpdatePinFileInfo"),
            kDaemonLog.Verbose("JsonUpdatePinFileInfo",
                               "mount path = /v request = Request type=unpinFiles "
                               "mountPath=/v data=x"),
            kDaemonLog.Enter("RequestDataGetFileInfos"),
            kDaemonLog.Error("RequestDataGetFileInfos", "Parse file inode from string (x) failed"),
            kDaemonLog.Leave("RequestDataGetFileInfos"),
            kDaemonLog.Error("JsonUpdatePinFileInfo", "Can't get file infos"),
            kDaemonLog.Error("ConfigUpdatedByFinishedRequest", "Can't update pin file list"),
            kDaemonLog.Leave("ConfigUpdatedByFinishedRequest"),
        }));
}

TEST_F(RequestStoreTest, AFileThatCannotBeWrittenIsReported) {
    SealedFile file(kStored);

    for (const Leaving& leaving : kLeavings) {
        LogCapture log;
        EXPECT_EQ(leaving.function(file.path(), MakeRequest(kRequestReloadPinBlocks, "/v"), "7"),
                  -1);
        EXPECT_FALSE(ServiceMutexIsHeld());
        EXPECT_TRUE(
            log.Shows({kUtilLog.Error("WriteJsonToFile",
                                      std::string("Can't open config file (") + file.path() + ")"),
                       kDaemonLog.Error(leaving.name, std::string("Write json data to config (") +
                                                          file.path() + ") failed")}));
    }
}

TEST_F(RequestStoreTest, ADirectoryInThePlaceOfTheFileIsRefused) {
    Request request = MakeRequest(kRequestReloadPinBlocks, "/v");

    ASSERT_EQ(mkdir(config(), 0755), 0);
    EXPECT_EQ(ConfigAddRequest(config(), request), -1);
    EXPECT_EQ(ConfigUpdatedByFinishedRequest(config(), request, "7"), -1);
    EXPECT_EQ(ConfigDropErrorRequest(config(), request, "7"), -1);
    EXPECT_FALSE(ServiceMutexIsHeld());
}

TEST_F(RequestStoreTest, EverySequenceReadsAfterItHasTheMutex) {
    Request request = MakeRequest(kRequestReloadPinBlocks, "/v");
    const std::function<int()> sequences[] = {
        [&] { return ConfigAddRequest(config(), request); },
        [&] { return ConfigUpdatedByFinishedRequest(config(), request, "7"); },
        [&] { return ConfigDropErrorRequest(config(), request, "7"); },
    };

    for (const auto& sequence : sequences) {
        SetConfig(kStored);
        std::string before = ConfigText();
        pthread_mutex_lock(&g_service.mutex);
        Background thread([&] { EXPECT_EQ(sequence(), 0); });
        EXPECT_TRUE(WaitUntilBlockedOnServiceMutex(thread));
        EXPECT_EQ(ConfigText(), before);
        // Changed meanwhile: what is read must be what stands there once the mutex is had.
        SetConfig("{'mark':1,'requestQueue':['7'],'requests':{'7':{'type':'x'}}}");
        pthread_mutex_unlock(&g_service.mutex);
        EXPECT_TRUE(thread.Ends());
        EXPECT_TRUE(ConfigDocument().isMember("mark"));
    }
}

}  // namespace
