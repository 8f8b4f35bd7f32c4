// SPDX-License-Identifier: MIT
// What the doctor finds at the service, its queue and its configuration file.
#include "client/verbs/doctor.h"

#include <gtest/gtest.h>
#include <sys/msg.h>

#include <filesystem>
#include <functional>

#include "client/request/packing.h"
#include "tests/unit/client/service/impostor.h"
#include "tests/unit/client/verbs/verbs_test.h"

namespace client {

namespace {

class DoctorTest : public VerbsTest {
  protected:
    Diagnosis Look() {
        CommonOptions options;
        options.configPath = config_;
        return client::Examine(options);
    }

    // The findings about a subject, a line each: "good: text; remedy".
    static std::string About(const Diagnosis& diagnosis, const std::string& subject) {
        std::string text;
        for (const Finding& finding : diagnosis.findings) {
            if (finding.subject == subject) {
                text += (finding.health == Health::kGood  ? "good: "
                         : finding.health == Health::kBad ? "bad: "
                                                          : "doubtful: ") +
                        finding.text + (finding.remedy.empty() ? "" : "; " + finding.remedy) + "\n";
            }
        }
        return text;
    }

    static void SendOfType(int queue, long mtype) {
        const long message[4] = {mtype, 0, 0, 0};
        ASSERT_EQ(msgsnd(queue, message, sizeof(message) - sizeof(long), IPC_NOWAIT), 0);
    }
};

TEST_F(DoctorTest, NothingThereMeansStartTheService) {
    const Diagnosis diagnosis = Look();
    EXPECT_TRUE(diagnosis.serviceMissing);
    EXPECT_EQ(diagnosis.queue, -1);
    for (const char* const subject : {"key file", "queue", "service"}) {
        const std::string text = About(diagnosis, subject);
        EXPECT_EQ(text.substr(0, 5), "bad: ") << subject << ": " << text;
        EXPECT_NE(text.find("; start "), std::string::npos) << subject << ": " << text;
    }
    EXPECT_EQ(About(diagnosis, "messages"), "");
}

struct QueueRow {
    const char* what;
    size_t room;  // requests
    unsigned short mode;
    std::string text;  // begins so
    std::string remedy;
    bool small;
};

TEST_F(DoctorTest, TheQueuesRoomAndModeAreLookedAt) {
    const int queue = MakeQueue();
    const QueueRow rows[] = {
        {"as the service makes it", 1024, 0644, "good: ", "room for 1024\n", false},
        {"too small", 10, 0644, "doubtful: ", "room for 10 instead of 1024; doctor --fix", true},
        {"others may send", 1024, 0666, "doubtful: ", ": others than its owner may send; stop",
         false},
        {"its group may send", 1024, 0664, "doubtful: ", ": others than its owner may send; stop",
         false},
        {"its owner may not send", 1024, 0444, "bad: ", "; its owner must be able to read and",
         false},
    };
    for (const QueueRow& row : rows) {
        struct msqid_ds record = {};
        ASSERT_EQ(msgctl(queue, IPC_STAT, &record), 0);
        record.msg_qbytes = row.room * sizeof(Request);
        record.msg_perm.mode = row.mode;
        ASSERT_EQ(msgctl(queue, IPC_SET, &record), 0) << row.what;
        const Diagnosis diagnosis = Look();
        const std::string text = About(diagnosis, "queue");
        EXPECT_EQ(text.substr(0, row.text.size()), row.text) << row.what << ": " << text;
        EXPECT_NE(text.find(row.remedy), std::string::npos) << row.what << ": " << text;
        EXPECT_EQ(diagnosis.smallQueue, row.small) << row.what;
        EXPECT_EQ(diagnosis.queue, queue) << row.what;
    }
}

TEST_F(DoctorTest, AKeyThatTheFileDoesNotGiveIsDoubtful) {
    MakeQueue();
    EXPECT_EQ(About(Look(), "key file").substr(0, 6), "good: ");
    WriteFile(dir_ / "key", "12345");
    EXPECT_EQ(About(Look(), "key file").substr(0, 10), "doubtful: ");
    WriteFile(dir_ / "key", "nonsense");
    EXPECT_NE(About(Look(), "key file").find("; stop the service, remove the file"),
              std::string::npos)
        << About(Look(), "key file");
}

TEST_F(DoctorTest, OnlyMessagesThatCanGoAreOfferedToTheFix) {
    const int queue = MakeQueue();
    const RequestMsg good = ToRequestMsg(VolumeMessage(kRequestReloadPinBlocks, mount_));
    const RequestMsg bad = ToRequestMsg(VolumeMessage(kRequestReloadPinBlocks, ""));
    EXPECT_EQ(About(Look(), "messages"), "good: none that the service could not take\n");
    ASSERT_EQ(msgsnd(queue, &good, sizeof(Request), IPC_NOWAIT), 0);
    ASSERT_EQ(msgsnd(queue, &bad, sizeof(Request), IPC_NOWAIT), 0);
    const Diagnosis second = Look();
    EXPECT_FALSE(second.badMessages) << "taking it would take the good one first";
    EXPECT_NE(About(second, "messages").find("bad: message 2 of 2 ("), std::string::npos);
    EXPECT_NE(About(second, "messages").find("; doctor --fix takes it away once it is the first"),
              std::string::npos);
    SendOfType(queue, 7);
    const Diagnosis third = Look();
    EXPECT_TRUE(third.badMessages);
    EXPECT_NE(About(third, "messages").find("bad: message 3 of 3 ("), std::string::npos);
}

struct ConfigRow {
    const char* what;
    std::string content;
    std::string text;
};

TEST_F(DoctorTest, TheConfigurationFilesDefectsAreNamed) {
    const ConfigRow rows[] = {
        {"empty", "{}", "good: " + config_ + ": 0 requests queued, 0 files pinned\n"},
        {"queued and not stored", R"({"requestQueue":["7"],"requests":{}})",
         "bad: request 7 is queued and not stored: it ends the worker; stop the service"},
        {"no JSON", "{", "; stop the service, mend or remove the file"},
    };
    for (const ConfigRow& row : rows) {
        WriteFile(config_, row.content);
        const std::string text = About(Look(), "configuration");
        EXPECT_NE(text.find(row.text), std::string::npos) << row.what << ": " << text;
    }
    config_ = dir_ / "missing";
    EXPECT_EQ(About(Look(), "configuration").substr(0, 10), "doubtful: ");
}

TEST_F(DoctorTest, AServiceThatCarriesOutNothingIsMissing) {
    const std::string program = dir_ / "quorcachepinfiled";
    std::filesystem::create_symlink("/bin/sh", program);
    MakeQueue();
    const Impostor service(program, {"-f", config_});
    const Diagnosis one = Look();
    EXPECT_TRUE(one.serviceMissing);
    EXPECT_NE(About(one, "service").find("carries out no more requests"), std::string::npos);
    EXPECT_EQ(About(one, "service").find("run at once"), std::string::npos);
    const Impostor second(program, {"-f", config_});
    EXPECT_NE(About(Look(), "service").find("bad: 2 run at once; stop all but one"),
              std::string::npos);
}

TEST_F(DoctorTest, AServiceThatWorksIsFound) {
    const std::string program = dir_ / "quorcachepinfiled";
    std::filesystem::create_symlink("/usr/bin/python3", program);
    const int queue = MakeQueue();
    const BusyImpostor service(program, "", 0);
    const Diagnosis well = Look();
    EXPECT_FALSE(well.serviceMissing);
    EXPECT_NE(About(well, "service").find(" takes requests and carries them out\n"),
              std::string::npos);
    const RequestMsg good = ToRequestMsg(VolumeMessage(kRequestReloadPinBlocks, mount_));
    ASSERT_EQ(msgsnd(queue, &good, sizeof(Request), IPC_NOWAIT), 0);
    const Diagnosis hanging = Look();
    EXPECT_TRUE(hanging.serviceMissing);
    EXPECT_NE(About(hanging, "service").find("takes no messages: it hangs"), std::string::npos);
}

}  // namespace

}  // namespace client
