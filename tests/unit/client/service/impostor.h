// SPDX-License-Identifier: MIT
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>
#include <string>
#include <vector>

namespace client {

// A process that is called as the service is and does nothing; it ends with the test.
class Impostor {
  public:
    // `prepare` runs in the process before it takes the name.
    Impostor(
        const std::string& program, std::vector<std::string> arguments,
        const std::function<bool()>& prepare = [] { return true; }) {
        int ready[2] = {};
        EXPECT_EQ(pipe2(ready, O_CLOEXEC), 0);
        pid_ = fork();
        if (pid_ == 0) {
            arguments.insert(arguments.begin(), {program, "-c", "read line", "sh"});
            std::vector<char*> pointers;
            for (std::string& argument : arguments) {
                pointers.push_back(argument.data());
            }
            pointers.push_back(nullptr);
            int input[2] = {};
            if (pipe(input) == 0 && dup2(input[0], STDIN_FILENO) == 0 && prepare()) {
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
    ~Impostor() {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
    Impostor(const Impostor&) = delete;
    Impostor& operator=(const Impostor&) = delete;
    pid_t pid() const { return pid_; }

  private:
    pid_t pid_ = -1;
};

}  // namespace client
