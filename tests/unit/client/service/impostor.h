// SPDX-License-Identifier: MIT
// Processes that look as the service does from outside.
#pragma once

#include <stdint.h>
#include <sys/types.h>

#include <functional>
#include <string>
#include <vector>

namespace client {

// A process that is called as the service is and does nothing; it ends with the test. It has an
// intake and no worker.
class Impostor {
  public:
    // `program` is a link to the shell; the arguments are what the service would get. `prepare`
    // runs in the process before it takes the name.
    Impostor(
        const std::string& program, const std::vector<std::string>& arguments,
        const std::function<bool()>& prepare = [] { return true; });
    ~Impostor();
    Impostor(const Impostor&) = delete;
    Impostor& operator=(const Impostor&) = delete;
    pid_t pid() const { return pid_; }

  private:
    friend class BusyImpostor;
    Impostor() = default;
    void Start(const std::string& program, std::vector<std::string> arguments,
               const std::function<bool()>& prepare);

    pid_t pid_ = -1;
};

// One that has a worker too, and a device open.
class BusyImpostor {
  public:
    // `program` is a link to python3. `device` is open at this position in bytes; "" = none is. The
    // arguments are what the service would get.
    BusyImpostor(const std::string& program, const std::string& device, uint64_t position,
                 const std::vector<std::string>& arguments = {});
    pid_t pid() const { return process_.pid(); }

  private:
    Impostor process_;
};

}  // namespace client
