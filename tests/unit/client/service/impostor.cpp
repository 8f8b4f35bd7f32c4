// SPDX-License-Identifier: MIT
#include "tests/unit/client/service/impostor.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace client {

namespace {

// Arguments: device, position. Says when it stands as it should.
constexpr char kBusy[] =
    "import os, sys, threading\n"
    "if sys.argv[1]:\n"
    "    os.lseek(os.open(sys.argv[1], os.O_RDONLY), int(sys.argv[2]), os.SEEK_SET)\n"
    "threading.Thread(target=threading.Event().wait, daemon=True).start()\n"
    "os.write(1, b'x')\n"
    "sys.stdin.read()\n";

}  // namespace

Impostor::Impostor(const std::string& program, const std::vector<std::string>& arguments,
                   const std::function<bool()>& prepare) {
    std::vector<std::string> all = {"-c", "read line", "sh"};
    all.insert(all.end(), arguments.begin(), arguments.end());
    Start(program, all, prepare);
}

void Impostor::Start(const std::string& program, std::vector<std::string> arguments,
                     const std::function<bool()>& prepare) {
    int ready[2] = {};
    EXPECT_EQ(pipe2(ready, O_CLOEXEC), 0);
    pid_ = fork();
    if (pid_ == 0) {
        arguments.insert(arguments.begin(), program);
        std::vector<char*> pointers;
        for (std::string& argument : arguments) {
            pointers.push_back(argument.data());
        }
        pointers.push_back(nullptr);
        int input[2] = {};
        if (prctl(PR_SET_PDEATHSIG, SIGKILL) == 0 && pipe(input) == 0 &&
            dup2(input[0], STDIN_FILENO) == 0 && prepare()) {
            execv(program.c_str(), pointers.data());
        }
        _exit(127);
    }
    close(ready[1]);
    char byte = 0;
    // The pipe's other end closes when the program is running.
    EXPECT_EQ(read(ready[0], &byte, 1), 0);
    close(ready[0]);
}

Impostor::~Impostor() {
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
}

BusyImpostor::BusyImpostor(const std::string& program, const std::string& device, uint64_t position,
                           const std::vector<std::string>& arguments) {
    std::vector<std::string> all = {"-I", "-S", "-c", kBusy, device, std::to_string(position)};
    all.insert(all.end(), arguments.begin(), arguments.end());
    int said[2] = {};
    char byte = 0;
    EXPECT_EQ(pipe2(said, O_CLOEXEC), 0);
    process_.Start(program, all, [&said] { return dup2(said[1], STDOUT_FILENO) == STDOUT_FILENO; });
    close(said[1]);
    EXPECT_EQ(read(said[0], &byte, 1), 1) << "it did not start";
    close(said[0]);
}

}  // namespace client
