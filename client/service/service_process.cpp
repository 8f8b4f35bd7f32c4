// SPDX-License-Identifier: MIT
#include "client/service/service_process.h"

#include <ctype.h>
#include <errno.h>
#include <getopt.h>
#include <pwd.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <set>
#include <sstream>

#include "client/show/output.h"
#include "client/show/text.h"
#include "client/volume/directory_walk.h"
#include "client/volume/volume_view.h"

namespace client {

namespace {

constexpr char kProgramName[] = "quorcachepinfiled";
constexpr char kPackagedConfig[] = "/var/lib/quorcachepinfiled/quorcachepinfile.conf";
constexpr size_t kCommLength = 15;  // the kernel keeps so many characters of a program's name

// What a file or a link of /proc holds; empty when it cannot be read.
std::string ReadAll(const std::string& path) {
    std::string text;
    ReadText(path, text);
    return text;
}

std::string ReadLink(const std::string& path) {
    std::error_code error;
    return std::filesystem::read_symlink(path, error).string();
}

// Returns the numbers that name entries of a directory of /proc, sorted.
std::vector<pid_t> NumbersIn(const std::string& directory) {
    std::vector<std::string> names;
    std::vector<pid_t> numbers;
    ListNames(directory, names);
    for (const std::string& name : names) {
        if (isdigit(static_cast<unsigned char>(name[0])) != 0) {
            numbers.push_back(static_cast<pid_t>(strtol(name.c_str(), nullptr, 10)));
        }
    }
    std::sort(numbers.begin(), numbers.end());
    return numbers;
}

std::string TaskPath(pid_t pid, pid_t thread) {
    return "/proc/" + std::to_string(pid) + "/task/" + std::to_string(thread);
}

// The kernel's letter for what the thread does; 0 when there is none.
char StateOf(pid_t pid, pid_t thread) {
    // The name stands in brackets and may hold brackets itself; the state follows the last one.
    const std::string status = ReadAll(TaskPath(pid, thread) + "/stat");
    const size_t name = status.rfind(')');
    return name != std::string::npos && name + 2 < status.size() ? status[name + 2] : '\0';
}

std::vector<std::string> Arguments(const std::string& task) {
    std::vector<std::string> arguments;
    std::istringstream text(ReadAll(task + "/cmdline"));
    for (std::string argument; std::getline(text, argument, '\0');) {
        arguments.push_back(argument);
    }
    return arguments;
}

// Reads the options as the service itself does. Returns what --config-path gives, or "".
std::string ConfigArgument(std::vector<std::string> arguments) {
    const option options[] = {{"config-path", required_argument, nullptr, 'f'},
                              {"stdout", no_argument, nullptr, 'l'},
                              {"help", no_argument, nullptr, 'h'},
                              {"verbose", no_argument, nullptr, 'y'},
                              {"debug", no_argument, nullptr, 'z'},
                              {nullptr, 0, nullptr, 0}};
    std::vector<char*> pointers;
    pointers.reserve(arguments.size() + 1);
    for (std::string& argument : arguments) {
        pointers.push_back(argument.data());
    }
    // getopt_long takes an argument vector as main has it.
    pointers.push_back(nullptr);
    std::string path;
    optind = 0;  // begin anew
    opterr = 0;
    for (int found = 0; found != -1;) {
        found = getopt_long(static_cast<int>(arguments.size()), pointers.data(), "f:lhyz", options,
                            nullptr);
        if (found == 'f') {
            path = optarg;  // of several the service takes the last
        }
    }
    return path;
}

bool IsMissing(const std::string& path) {
    struct stat status = {};
    return stat(path.c_str(), &status) != 0 && errno == ENOENT;
}

// Turns a path of the service into one of this process, which sees other mounts when the service is
// confined: through its root only where the path leads elsewhere.
std::string PathFromHere(const std::string& task, const std::string& path) {
    if (path.empty()) {
        return "";
    }
    // A service that was started by hand may name its file from where it was started.
    const std::string absolute = path[0] == '/' ? path : ReadLink(task + "/cwd") + "/" + path;
    const std::string through = task + "/root" + absolute;
    // Another user's root is not to be seen, and mostly this one. The file need not be there yet.
    const bool seen = geteuid() == 0 || access((task + "/root").c_str(), R_OK) == 0;
    return !seen || AreOneFile(DirectoryOf(absolute), DirectoryOf(through)) ? absolute : through;
}

std::string UserOf(const std::string& task) {
    struct stat status = {};
    if (stat(task.c_str(), &status) != 0) {
        return "";
    }
    // A user of a container has a number and no name here.
    const struct passwd* const user = getpwuid(status.st_uid);
    return user != nullptr ? user->pw_name : std::to_string(status.st_uid);
}

bool IsConfigOfAny(const std::vector<ServiceProcess>& services, const std::string& path) {
    return std::any_of(services.begin(), services.end(), [&path](const ServiceProcess& service) {
        return IsConfigOf(service, path);
    });
}

// Returns in how many PID namespaces the process is, one within the other.
ptrdiff_t NestingOf(const std::string& task) {
    const std::string status = ReadAll(task + "/status") + "NSpid:\n";
    const std::string numbers = status.substr(status.find("NSpid:"));
    return std::count(numbers.begin(), std::find(numbers.begin(), numbers.end(), '\n'), '\t');
}

// Whether the process has this IPC namespace, and so this queue. Only root sees that of another
// user's process: for others it is enough that it is in no container below.
bool SharesQueue(const std::string& task, const std::string& ipc) {
    const std::string its = ReadLink(task + "/ns/ipc");
    return its.empty() && geteuid() != 0 ? NestingOf(task) == NestingOf("/proc/self") : its == ipc;
}

}  // namespace

bool RefreshService(ServiceProcess& service) {
    service.intakeAlive = service.workerAlive = service.stopped = false;
    service.thread = 0;
    // Either thread may end without the other; both are needed.
    for (const pid_t thread : NumbersIn("/proc/" + std::to_string(service.pid) + "/task")) {
        const char state = StateOf(service.pid, thread);
        // Ended, and not yet collected.
        if (state != '\0' && state != 'Z' && state != 'X') {
            service.stopped = service.stopped || state == 'T';
            // The main one, if it lives: the worker is the one that ends by itself.
            service.thread = service.thread == 0 ? thread : service.thread;
            (thread == service.pid ? service.intakeAlive : service.workerAlive) = true;
        }
    }
    return service.thread != 0;
}

std::vector<ServiceProcess> FindServices() {
    std::vector<ServiceProcess> services;
    const std::string ipc = ReadLink("/proc/self/ns/ipc");
    const std::string comm = std::string(kProgramName).substr(0, kCommLength) + "\n";
    for (const pid_t pid : NumbersIn("/proc")) {
        ServiceProcess service;
        service.pid = pid;
        // A process whose main thread has ended has a name and little else: ask a living thread.
        if (ReadAll("/proc/" + std::to_string(pid) + "/comm") != comm || !RefreshService(service)) {
            continue;
        }
        std::vector<std::string> arguments = Arguments(TaskPath(pid, service.thread));
        if (arguments.empty() && RefreshService(service)) {
            arguments = Arguments(TaskPath(pid, service.thread));  // the one asked has just ended
        }
        const std::string task = TaskPath(pid, service.thread);
        // One in another namespace has another queue: a container's, say.
        if (arguments.empty() || NameOf(arguments[0]) != kProgramName || !SharesQueue(task, ipc)) {
            continue;
        }
        service.configPath = PathFromHere(task, ConfigArgument(arguments));
        service.user = UserOf(task);
        services.push_back(service);
    }
    return services;
}

const char* NoServiceText() {
    return geteuid() == 0 ? "does not run here" : "is not seen: only root sees where it runs";
}

bool ReadPosition(const ServiceProcess& service, const std::string& devicePath,
                  uint64_t& position) {
    const std::string task = TaskPath(service.pid, service.thread);
    for (const pid_t fd : NumbersIn(task + "/fd")) {
        // Not by name: in a confined service's namespace the file may have another one.
        if (!AreOneFile(task + "/fd/" + std::to_string(fd), devicePath)) {
            continue;
        }
        const std::string info = ReadAll(task + "/fdinfo/" + std::to_string(fd));
        const size_t mark = info.find("pos:");
        if (mark != std::string::npos) {
            position = strtoull(info.c_str() + mark + 4, nullptr, 10);
            return true;
        }
    }
    return false;
}

std::vector<std::string> PlatformLibraries(const ServiceProcess& service) {
    std::set<std::string> paths;
    std::istringstream maps(ReadAll(TaskPath(service.pid, service.thread) + "/maps"));
    for (std::string line; std::getline(maps, line);) {
        const size_t path = line.find('/');
        // Each library is mapped in several pieces.
        if (path != std::string::npos && line.find("/libquor") != std::string::npos) {
            paths.insert(line.substr(path));
        }
    }
    return {paths.begin(), paths.end()};
}

bool IsConfigOf(const ServiceProcess& service, const std::string& path) {
    // By the file, not by its name: a confined service sees it under another one.
    if (service.configPath == path || AreOneFile(service.configPath, path)) {
        return true;
    }
    // Before its first request it has yet to write it.
    return IsMissing(path) && IsMissing(service.configPath) &&
           NameOf(path) == NameOf(service.configPath) &&
           AreOneFile(DirectoryOf(path), DirectoryOf(service.configPath));
}

bool IsAnothersConfig(const std::string& path) {
    const std::vector<ServiceProcess> services = FindServices();
    return !services.empty() && !IsConfigOfAny(services, path);
}

bool FindConfigPath(const std::string& given, std::string& path, std::string& why) {
    if (!given.empty()) {
        if (IsMissing(given) && !IsConfigOfAny(FindServices(), given)) {
            why = "configuration file " + Printable(given) + ": " + strerror(ENOENT);
            return false;
        }
        path = given;
        return true;
    }
    const std::vector<ServiceProcess> services = FindServices();
    // At rest the packaged service's file is the likeliest; anything else has to be named.
    path = services.empty() && !IsMissing(kPackagedConfig) ? kPackagedConfig : "";
    for (const ServiceProcess& service : services) {
        // Which of them is meant is the operator's to say.
        if (!path.empty() && service.configPath != path) {
            why =
                "several services run with different configuration files; --config-path names one";
            return false;
        }
        path = service.configPath;
    }
    if (path.empty()) {
        why = "the service " + std::string(NoServiceText()) +
              ", so its configuration file is not known; --config-path names it";
    }
    return !path.empty();
}

}  // namespace client
