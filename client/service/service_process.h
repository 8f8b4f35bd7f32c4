// SPDX-License-Identifier: MIT
// The service's process, looked at from outside through /proc.
#pragma once

#include <stdint.h>
#include <sys/types.h>

#include <string>
#include <vector>

namespace client {

struct ServiceProcess {
    pid_t pid = 0;
    pid_t thread = 0;          // one that lives; its directory in /proc can be read
    bool intakeAlive = false;  // the main thread
    bool workerAlive = false;  // any other thread
    bool stopped = false;      // by a signal: it does nothing until it is continued
    std::string configPath;    // as this process sees it; empty when it was not given
    std::string user;
};

// Stores the running services that share this process's IPC namespace, by process id.
std::vector<ServiceProcess> FindServices();

// What to say when there are none, in a few words.
const char* NoServiceText();

// Looks again. Returns false when the process has ended.
bool RefreshService(ServiceProcess& service);

// Stores the position, in bytes, of the service's descriptor on the device. Returns false when it
// has none open now.
bool ReadPosition(const ServiceProcess& service, const std::string& devicePath, uint64_t& position);

// Returns the paths of the platform's libraries that the process has mapped.
std::vector<std::string> PlatformLibraries(const ServiceProcess& service);

// Whether the service's configuration file is the one at `path`, which it may have yet to write.
bool IsConfigOf(const ServiceProcess& service, const std::string& path);

// Whether services run and none of them keeps its state in the file at `path`: what the file says
// is then not what they do.
bool IsAnothersConfig(const std::string& path);

// Finds the configuration file: the one given, else that of the running service, else, when none
// runs, the packaged service's where it is there. Returns false, with the reason in `why`. One that
// was given must be there, unless a running service has yet to write it: else a slip of the pen
// would read as nothing being pinned.
bool FindConfigPath(const std::string& given, std::string& path, std::string& why);

}  // namespace client
