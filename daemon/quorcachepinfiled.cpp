// SPDX-License-Identifier: MIT
// quorcachepinfiled: keeps chosen files of a volume resident in the volume's SSD cache.
#include "daemon/quorcachepinfiled.h"

#include <errno.h>
#include <getopt.h>
#include <libgen.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <syslog.h>

#include "daemon/receiver.h"
#include "daemon/worker.h"
#include "util/log.h"

extern const char kBuildStamp[];

namespace {

constexpr int kServiceStarted = 2;

// clang-format off
constexpr struct option kLongOptions[] = {
    {"config-path", required_argument, nullptr, 'f'},
    {"stdout",      no_argument,       nullptr, 'l'},
    {"help",        no_argument,       nullptr, 'h'},
    {"verbose",     no_argument,       nullptr, 'y'},
    {"debug",       no_argument,       nullptr, 'z'},
    {nullptr,       0,                 nullptr, 0},
};
// clang-format on

// The debug settings file comes last: it overrides the options.
void SetPrintLevel(const ServiceOptions& options) {
    if (options.debug != 0) {
        g_printLevel = 3;
    } else if (options.verbose != 0) {
        g_printLevel = 2;
    }
    UpdatePrintLevelByFile(&g_printLevel);
    InitDebugFlags();
}

namespace get_options {

constexpr const char* kLogFunction = "GetOptions";

void TakeOption(int option, ServiceOptions& options) {
    switch (option) {
        case 'f':
            options.configPath = optarg;
            break;
        case 'l':
            g_logToSyslog = 0;
            break;
        case 'h':
            PrintUsage();
            exit(0);
        case 'y':
            LogNotice("Verbose mode is enable");
            options.verbose = 1;
            break;
        case 'z':
            LogNotice("Debug mode is enable");
            options.debug = 1;
            break;
        case '?':
            break;  // getopt_long has reported it
        default:
            LogError("Get unhandled option = %c", option);
            abort();
    }
}

}  // namespace get_options

namespace start_service {

constexpr const char* kLogFunction = "StartService";

int InitSharedState() {
    g_service.state = kServiceStarted;
    if (pthread_mutex_init(&g_service.mutex, nullptr) != 0) {
        LogError("Initialize mutex failed");
        return -1;
    }
    // All zero is what PTHREAD_COND_INITIALIZER gives, too.
    memset(&g_service.cond, 0, sizeof(g_service.cond));
    return 0;
}

int StartWorker(ServiceOptions& options) {
    pthread_t worker = {};

    if (pthread_create(&worker, nullptr, DoRequests, &options) != 0) {
        LogError("Can't create thread: %s", strerror(errno));
        return -1;
    }
    return 0;
}

}  // namespace start_service

}  // namespace

int main(int argc, char* argv[]) {
    // The worker reads them, and may not have run yet when the receiver ends this thread.
    static ServiceOptions options;

    options = {};
    g_processName = basename(argv[0]);
    LogVerbose("Process name = %s", g_processName);
    if (GetOptions(argc, argv, options) != 0) {
        PrintUsage();
        return -1;
    }
    SetPrintLevel(options);
    LogEnter();
    if (StartService(options) != 0) {
        LogError("Can't start service");
        return -1;
    }
    return 0;
}

int GetOptions(int argc, char* argv[], ServiceOptions& options) {
    int option = 0;

    while ((option = getopt_long(argc, argv, "f:lhyz", kLongOptions, nullptr)) != -1) {
        get_options::TakeOption(option, options);
    }
    if (options.configPath == nullptr) {
        LogError("config path is not set");
        return -1;
    }
    return 0;
}

void PrintUsage() {
    printf("Usage:\n");
    printf("\tStart service:\n");
    printf("\t\t%s --config-path conf_path\n", g_processName);
    printf("\tMisc:\n");
    printf("\t\t--stdout: Output to standard out (instead of syslog) \n");
    printf("\t\t--verbose: Output verbose information\n");
    printf("\t\t--debug: Output debug information\n");
}

int StartService(ServiceOptions& options) {
    LogEnter();
    syslog(LOG_WARNING, "%s:%d Start Service (Build time: %s)", LOG_SOURCE, __LINE__, kBuildStamp);
    if (SetSignalHandler() != nullptr) {
        LogError("Can't get signal handler");
        LogLeave();
        return -1;
    }
    if (start_service::InitSharedState() != 0 || start_service::StartWorker(options) != 0) {
        LogLeave();
        return -1;
    }
    GetRequests(options.configPath);
}

SignalFunction SetSignalHandler() {
    for (int number : {SIGINT, SIGTERM, SIGQUIT}) {
        if (signal(number, SignalHandler) == SIG_ERR) {
            LogError("Can't set handler");
            return SIG_ERR;
        }
    }
    return nullptr;
}

void SignalHandler(int sig) {
    LogVerbose("Get signal = %d", sig);
    exit(0);
}
