// SPDX-License-Identifier: MIT
#include "client/verbs/service_unit.h"

#include <errno.h>
#include <fcntl.h>
#include <spawn.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "util/scoped.h"

namespace client {

namespace {

// Runs systemctl with its standard output in a pipe. Returns whether it succeeded.
bool Systemctl(std::vector<std::string> words, std::string& output) {
    int ends[2] = {};
    if (pipe2(ends, O_CLOEXEC) != 0) {
        return false;
    }
    const ScopedFd from(ends[0]);
    auto to = std::make_unique<ScopedFd>(ends[1]);
    std::vector<char*> arguments;
    words.insert(words.begin(), "systemctl");
    arguments.reserve(words.size() + 1);
    for (std::string& word : words) {
        arguments.push_back(word.data());
    }
    arguments.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, to->get(), STDOUT_FILENO);
    pid_t child = 0;
    const int error =
        posix_spawnp(&child, "systemctl", &actions, nullptr, arguments.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (error != 0) {
        return false;
    }
    to.reset();  // so that the pipe ends with the child
    char piece[256];
    for (ssize_t done = 1; done != 0;) {
        done = read(from.get(), piece, sizeof(piece));
        if (done < 0 && errno != EINTR) {
            break;
        }
        output.append(piece, done > 0 ? static_cast<size_t>(done) : 0);
    }
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

}  // namespace

pid_t UnitMainProcess() {
    std::string output;
    return Systemctl({"show", "--property", "MainPID", "--value", kServiceUnit}, output)
               ? static_cast<pid_t>(strtol(output.c_str(), nullptr, 10))
               : 0;
}

bool StopUnit() {
    std::string output;
    return Systemctl({"stop", kServiceUnit}, output);
}

bool StartUnit() {
    std::string output;
    return Systemctl({"start", kServiceUnit}, output);
}

SignalsPutOff::SignalsPutOff() {
    sigset_t signals;
    sigemptyset(&signals);
    for (const int number : {SIGHUP, SIGINT, SIGQUIT, SIGTERM, SIGPIPE}) {
        sigaddset(&signals, number);
    }
    sigprocmask(SIG_BLOCK, &signals, &before_);
}

}  // namespace client
