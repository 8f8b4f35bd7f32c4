// SPDX-License-Identifier: MIT
#include "client/verbs/doctor.h"

#include <errno.h>
#include <pwd.h>
#include <string.h>
#include <sys/ipc.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>

#include "client/service/config_state.h"
#include "client/service/queue_look.h"
#include "client/show/output.h"
#include "util/log.h"
#include "util/message_queue.h"
#include "util/request.h"

namespace client {

namespace {

constexpr int kKeyProjectId = 120;
constexpr size_t kWantedBytes = kMsgQueueNumRequests * sizeof(Request);
constexpr const char* kLibraries[] = {"libquorcore", "libquorstoragecore", "libquorflashcache",
                                      "libquordataverifier"};

class Examination {
  public:
    explicit Examination(const CommonOptions& options) : options_(options) {}

    Diagnosis Run() {
        KeyFile();
        Queue();
        Messages();
        KernelLimits();
        Services();
        Configuration();
        ExamineDebugSettings(kDebugSettingsPath, result_.findings);
        ExamineCopies(configPath_, state_, result_.findings);
        ExamineVolumes(state_, result_.findings);
        return std::move(result_);
    }

  private:
    void Add(const char* subject, Health health, const std::string& text,
             const std::string& remedy = "") {
        result_.findings.push_back({subject, health, text, remedy});
    }
    void KeyFile();
    void Queue();
    void Messages();
    void KernelLimits();
    void Services();
    void Service(const ServiceProcess& service);
    void Libraries(const ServiceProcess& service);
    void Configuration();

    const CommonOptions& options_;
    Diagnosis result_;
    QueueFacts queue_;
    std::string configPath_;
    ConfigState state_;
};

void Examination::KeyFile() {
    key_t key = 0;
    std::string why;
    if (!ReadKeyFile(kMsgServerKeyPath, key, why)) {
        Add("key file", Health::kBad, why,
            access(kMsgServerKeyPath, F_OK) == 0
                ? "stop the service, remove the file and the queue (ipcrm), start the service"
                : "start the service");
        result_.serviceMissing = true;
        return;
    }
    const std::string text = std::string(kMsgServerKeyPath) + " holds key " + std::to_string(key);
    // A copied or restored file has another inode, and so another key. Senders use the one in it.
    if (ftok(kMsgServerKeyPath, kKeyProjectId) != key) {
        Add("key file", Health::kDoubtful,
            text + ", which is not the key that the file itself gives",
            "none while it works; the next start of the service makes another queue");
        return;
    }
    Add("key file", Health::kGood, text);
}

void Examination::Queue() {
    std::string why;
    if (!ReadQueueFacts(queue_, why)) {
        Add("queue", Health::kBad, why, "start the service");
        result_.serviceMissing = true;
        return;
    }
    result_.queue = queue_.id;
    const struct passwd* const user = getpwuid(queue_.owner);
    char mode[8];  // as chmod and ipcs write it
    snprintf(mode, sizeof(mode), "%04o", queue_.mode);
    const std::string text = "id " + std::to_string(queue_.id) + ", owner " +
                             (user != nullptr ? user->pw_name : std::to_string(queue_.owner)) +
                             ", mode " + mode + ", " + Counted(queue_.messages, "message") +
                             " waiting, room for " + std::to_string(queue_.limit / sizeof(Request));
    // The service asks for this room at its start, and works with less.
    result_.smallQueue = queue_.limit < kWantedBytes;
    if (result_.smallQueue) {
        Add("queue", Health::kDoubtful,
            text + " instead of " + std::to_string(kMsgQueueNumRequests),
            "doctor --fix, which needs CAP_SYS_RESOURCE or a kernel.msgmnb of " +
                std::to_string(kWantedBytes));
    } else if ((queue_.mode & 0022U) != 0) {
        // Whoever may send may have any file pinned and unpinned.
        Add("queue", Health::kDoubtful, text + ": others than its owner may send",
            "stop the service, remove the queue (ipcrm -q " + std::to_string(queue_.id) +
                "), start the service");
    } else if ((queue_.mode & 0600U) != 0600U) {
        Add("queue", Health::kBad, text, "its owner must be able to read and write it (mode 0644)");
    } else {
        Add("queue", Health::kGood, text);
    }
}

void Examination::Messages() {
    std::vector<WaitingMessage> messages;
    std::string why;
    if (result_.queue == -1) {
        return;
    }
    if (!LookAtMessages(result_.queue, messages, why)) {
        Add("messages", Health::kDoubtful, why);
        return;
    }
    bool bad = false;
    for (size_t i = 0; i < messages.size(); ++i) {
        const WaitingMessage& message = messages[i];
        if (message.problem.empty()) {
            continue;
        }
        // Only what goes first can be taken away without a good message in between.
        result_.badMessages = result_.badMessages || message.removable;
        Add("messages", Health::kBad,
            "message " + std::to_string(i + 1) + " of " + std::to_string(messages.size()) + " (" +
                message.what + ") " + message.problem,
            message.removable    ? "doctor --fix takes it away, then start the service again"
            : message.endsIntake ? "doctor --fix takes it away once it is the first"
                                 : "none: the service takes it, whatever comes of it");
        bad = true;
    }
    if (!bad) {
        Add("messages", Health::kGood, "none that the service could not take");
    }
}

void Examination::KernelLimits() {
    size_t msgmnb = 0;
    size_t msgmax = 0;
    std::ifstream("/proc/sys/kernel/msgmnb") >> msgmnb;
    std::ifstream("/proc/sys/kernel/msgmax") >> msgmax;
    // Too small a message size stops every request, too small a queue only makes senders wait.
    if (msgmax < sizeof(Request)) {
        Add("kernel.msgmax", Health::kBad, std::to_string(msgmax) + " bytes",
            "sysctl kernel.msgmax=8192: a request has " + std::to_string(sizeof(Request)));
    }
    const std::string text = std::to_string(msgmnb) + " bytes";
    if (msgmnb < kWantedBytes) {
        Add("kernel.msgmnb", Health::kDoubtful, text,
            "sysctl kernel.msgmnb=" + std::to_string(kWantedBytes) +
                ", unless the service has CAP_SYS_RESOURCE");
    } else {
        Add("kernel.msgmnb", Health::kGood, text);
    }
}

void Examination::Services() {
    const std::vector<ServiceProcess> services = FindServices();
    if (services.empty()) {
        Add("service", Health::kBad, NoServiceText(),
            geteuid() == 0 ? "start quorcachepinfiled" : "run this as root");
        result_.serviceMissing = true;
    }
    // Each message goes to one of them, whichever asks first.
    if (services.size() > 1) {
        Add("service", Health::kBad, std::to_string(services.size()) + " run at once",
            "stop all but one: they take each other's requests");
    }
    for (const ServiceProcess& service : services) {
        Service(service);
        Libraries(service);
    }
}

void Examination::Service(const ServiceProcess& service) {
    const std::string text = "process " + std::to_string(service.pid) + " of " + service.user + " ";
    result_.serviceMissing = result_.serviceMissing || !service.intakeAlive || !service.workerAlive;
    // It lives and takes nothing: stopped by a signal, or hanging in a system call.
    const bool standsStill = service.stopped || (service.intakeAlive && result_.queue != -1 &&
                                                 MessagesStandStill(result_.queue));
    if (standsStill) {
        result_.serviceMissing = true;
        Add("service", Health::kBad, text + "takes no messages: it hangs, or was stopped",
            "continue it (kill -CONT), or start it again");
    } else if (service.intakeAlive && service.workerAlive) {
        Add("service", Health::kGood, text + "takes requests and carries them out");
    }
    // One thread's end leaves the other at work, and the process looks alive.
    if (!service.intakeAlive) {
        Add("service", Health::kBad,
            text +
                "takes no more requests: a message that it could not take or store has ended "
                "its intake",
            "its log names the reason; start it again");
    }
    if (!service.workerAlive) {
        Add("service", Health::kBad,
            text + "carries out no more requests: its configuration file could not be used",
            "its log names the reason; mend the configuration file, start it again");
    }
}

void Examination::Libraries(const ServiceProcess& service) {
    // What the process has mapped, not what a new one would find: an update may lie between.
    const std::vector<std::string> mapped = PlatformLibraries(service);
    std::string list;
    bool all = true;
    bool replaced = false;
    for (const char* const name : kLibraries) {
        const auto found = std::find_if(mapped.begin(), mapped.end(), [name](const auto& path) {
            return path.find(std::string("/") + name + ".so") != std::string::npos;
        });
        all = all && found != mapped.end();
        if (found != mapped.end()) {
            list += (list.empty() ? "" : ", ") + Printable(*found);
            // The kernel's word for a file that has another one in its place.
            replaced = replaced || found->find(" (deleted)") != std::string::npos;
        }
    }
    if (mapped.empty()) {
        Add("libraries", Health::kDoubtful, "those that the service uses cannot be read");
    } else if (!all || replaced) {
        Add("libraries", Health::kBad, list,
            replaced ? "start the service again: libraries were replaced since its start"
                     : "all four of the platform's libraries should be there");
    } else {
        Add("libraries", Health::kGood, list);
    }
}

void Examination::Configuration() {
    std::string why;
    if (!FindConfigPath(options_.configPath, configPath_, why)) {
        configPath_.clear();  // the volumes are examined all the same
        Add("configuration", Health::kDoubtful, why);
        return;
    }
    if (!ReadConfigState(configPath_, state_, why)) {
        Add("configuration", Health::kBad, why,
            "stop the service, mend or remove the file, start the service and pin again");
        return;
    }
    // Each is one that the service stumbles over, or never gets past.
    for (const std::string& defect : state_.defects) {
        Add("configuration", Health::kBad, defect,
            "stop the service, take the entry out of " + Printable(configPath_) + ", start it");
    }
    size_t files = 0;
    for (const auto& [mountPath, list] : state_.pinned) {
        files += list.size();
    }
    Add("configuration", state_.defects.empty() ? Health::kGood : Health::kBad,
        Printable(configPath_) + ": " + Counted(state_.queue.size(), "request") + " queued, " +
            Counted(files, "file") + " pinned");
}

}  // namespace

Diagnosis Examine(const CommonOptions& options) {
    return Examination(options).Run();
}

}  // namespace client
