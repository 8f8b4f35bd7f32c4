// SPDX-License-Identifier: MIT
// The service as a unit of systemd, stopped and started around a repair.
#pragma once

#include <signal.h>
#include <sys/types.h>

namespace client {

constexpr char kServiceUnit[] = "quorcachepinfiled.service";

// Returns the unit's main process, 0 when it has none or nobody answers.
pid_t UnitMainProcess();

// Stop, start or restart the unit and wait until that is done. Return false when it failed.
bool StopUnit();
bool StartUnit();
bool RestartUnit();

// Puts off the signals that end a command, so that none of them leaves the service stopped. One
// that comes meanwhile takes effect at the end of the scope.
class SignalsPutOff {
  public:
    SignalsPutOff();
    ~SignalsPutOff() { sigprocmask(SIG_SETMASK, &before_, nullptr); }
    SignalsPutOff(const SignalsPutOff&) = delete;
    SignalsPutOff& operator=(const SignalsPutOff&) = delete;

  private:
    sigset_t before_;
};

}  // namespace client
