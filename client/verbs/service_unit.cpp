// SPDX-License-Identifier: MIT
#include "client/verbs/service_unit.h"

#include <stdio.h>
#include <stdlib.h>

#include <string>

namespace client {

namespace {

// Runs systemctl with these words and stores what it prints. Returns whether it succeeded.
bool Systemctl(const std::string& words, std::string& output) {
    // In the shell's own place, so that a signal that ends systemctl is no exit status of a shell.
    // An operator's terminal is none of its business.
    FILE* const stream = popen(("exec systemctl " + words + " </dev/null").c_str(), "re");
    if (stream == nullptr) {
        return false;
    }
    char piece[256];
    while (fgets(piece, sizeof(piece), stream) != nullptr) {
        output += piece;
    }
    return pclose(stream) == 0;
}

bool TellUnit(const char* verb) {
    std::string output;
    return Systemctl(std::string(verb) + " " + kServiceUnit, output);
}

}  // namespace

pid_t UnitMainProcess() {
    std::string output;
    // Where there is no systemd, the answer is no, and nobody wants to read why.
    return Systemctl(
               std::string("show --property MainPID --value ") + kServiceUnit + " 2>/dev/null",
               output)
               ? static_cast<pid_t>(strtol(output.c_str(), nullptr, 10))
               : 0;
}

bool StopUnit() {
    return TellUnit("stop");
}

bool StartUnit() {
    return TellUnit("start");
}

bool RestartUnit() {
    return TellUnit("restart");
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
