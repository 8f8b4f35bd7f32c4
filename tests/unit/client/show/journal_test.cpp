// SPDX-License-Identifier: MIT
// Whether standard error is the journal's, and what the record then holds, with a program in
// logger's place.
#include "client/show/journal.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tests/unit/support/unit_test.h"
#include "util/scoped.h"

namespace client {

namespace {

class JournalTest : public UnitTest {
  protected:
    void SetUp() override {
        UnitTest::SetUp();
        path_ = getenv("PATH");
        setenv("PATH", (dir_.path() + ":" + path_).c_str(), 1);
        Answer("cat >" + (dir_ / "record"));
    }
    void TearDown() override {
        unsetenv("JOURNAL_STREAM");
        setenv("PATH", path_.c_str(), 1);
        UnitTest::TearDown();
    }
    // Puts a program in logger's place; it notes its arguments.
    void Answer(const std::string& script) {
        const std::string path = dir_ / "logger";
        WriteFile(path, "#!/bin/sh\necho \"$@\" >" + (dir_ / "arguments") + "\n" + script + "\n");
        chmod(path.c_str(), 0755);
    }
    // Writes a record while standard error is a file; the environment names that one, or another.
    bool Write(bool named) {
        const ScopedFd before(fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 0));
        const ScopedFd file(open((dir_ / "errors").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
        struct stat status = {};
        fstat(file.get(), &status);
        setenv(
            "JOURNAL_STREAM",
            (std::to_string(status.st_dev) + ":" + std::to_string(status.st_ino + !named)).c_str(),
            1);
        dup2(file.get(), STDERR_FILENO);
        const bool written = WriteToJournal({{"MESSAGE", "it = ended"}, {"PRIORITY", "3"}});
        dup2(before.get(), STDERR_FILENO);
        return written;
    }

    std::string path_;
};

TEST_F(JournalTest, TheRecordHasItsFieldsALineEach) {
    EXPECT_TRUE(Write(true));
    EXPECT_EQ(ReadFile(dir_ / "record"), "MESSAGE=it = ended\nPRIORITY=3\n");
    EXPECT_EQ(ReadFile(dir_ / "arguments"), "--journald\n");
    EXPECT_EQ(ReadFile(dir_ / "errors"), "");
}

TEST_F(JournalTest, WhereErrorsGoElsewhereNothingIsSaid) {
    EXPECT_FALSE(Write(false));
    unsetenv("JOURNAL_STREAM");
    EXPECT_FALSE(WriteToJournal({{"MESSAGE", "it ended"}}));
    EXPECT_FALSE(Exists(dir_ / "record"));
}

TEST_F(JournalTest, ARecordThatIsNotTakenWasNotWritten) {
    // The second ends without having read anything, which must not end this process.
    for (const char* const script : {"cat >/dev/null; exit 1", "exec <&-; exit 1", "kill -9 $$"}) {
        Answer(script);
        EXPECT_FALSE(Write(true)) << script;
    }
    setenv("PATH", (dir_ / "nowhere").c_str(), 1);
    EXPECT_FALSE(Write(true)) << "no logger";
}

}  // namespace

}  // namespace client
