// SPDX-License-Identifier: MIT
// The entry point: its source is compiled into this program with another name for main.
#include <errno.h>
#include <getopt.h>
#include <stdio.h>
#include <string.h>
#include <sys/msg.h>
#include <sys/wait.h>
#include <unistd.h>

#include <memory>
#include <regex>

#include "daemon/quorcachepinfiled.h"
#include "daemon/request_store.h"
#include "tests/unit/daemon/daemon_test.h"
#include "tests/unit/support/fake_files.h"
#include "tests/unit/support/fake_platform.h"
#include "tests/unit/support/fake_system.h"
#include "tests/unit/support/queue_space.h"
#include "util/message_queue.h"

extern const char kBuildStamp[];
int DaemonMain(int argc, char* argv[]);

namespace {

// What getopt_long returns the next time; 0 lets the real one answer.
int g_nextOption = 0;

int g_logOpenings = 0;  // of the system log

}  // namespace

// NOLINTBEGIN(bugprone-reserved-identifier): the linker's names
extern "C" {
int __real_getopt_long(int argc, char* const* argv, const char* shortOptions,
                       const struct option* longOptions, int* index);

int __wrap_getopt_long(int argc, char* const* argv, const char* shortOptions,
                       const struct option* longOptions, int* index) {
    if (g_nextOption != 0) {
        return g_nextOption;
    }
    return __real_getopt_long(argc, argv, shortOptions, longOptions, index);
}

void __wrap_openlog(const char* /*identity*/, int /*options*/, int /*facility*/) {
    ++g_logOpenings;
}
}
// NOLINTEND(bugprone-reserved-identifier)

namespace {

using Strings = std::vector<std::string>;

constexpr char kUsage[] =
    "Usage:\n"
    "\tStart service:\n"
    "\t\tpinTestProcess --config-path conf_path\n"
    "\tMisc:\n"
    "\t\t--stdout: Output to standard out (instead of syslog) \n"
    "\t\t--verbose: Output verbose information\n"
    "\t\t--debug: Output debug information\n";

constexpr char kMain[] = "DaemonMain";  // as it is called here
constexpr char kStart[] = "StartService";

// An argument vector as main gets it, the program's path before the rest. Options are read anew.
class Arguments {
  public:
    explicit Arguments(Strings rest) : texts_(std::move(rest)) {
        texts_.insert(texts_.begin(), "/usr/local/bin/pinTestProcess");
        for (std::string& text : texts_) {
            pointers_.push_back(text.data());
        }
        pointers_.push_back(nullptr);
        optind = 0;
    }

    int count() const { return static_cast<int>(texts_.size()); }
    char** vector() { return pointers_.data(); }

  private:
    Strings texts_;
    std::vector<char*> pointers_;
};

class EntryTest : public DaemonTest {
  protected:
    void SetUp() override {
        DaemonTest::SetUp();
        RedirectPath(kDebugSettingsPath, dir_ / "debug");
        RedirectPath(kMsgServerKeyPath, dir_ / "key");
    }

    void TearDown() override {
        for (int number : {SIGINT, SIGTERM, SIGQUIT}) {
            signal(number, SIG_DFL);
        }
        g_nextOption = 0;
        DaemonTest::TearDown();
    }

    // What getopt_long says goes to standard error; it is not this program's text.
    int Get(const Strings& rest, ServiceOptions& options) {
        Arguments arguments(rest);
        testing::internal::CaptureStderr();
        int result = GetOptions(arguments.count(), arguments.vector(), options);
        errors_ = testing::internal::GetCapturedStderr();
        // The path points into the vector.
        path_ = options.configPath == nullptr ? "" : options.configPath;
        return result;
    }

    // The vector outlives main's return: the process name points into it.
    int RunMain(const Strings& rest) {
        arguments_ = std::make_unique<Arguments>(rest);
        return DaemonMain(arguments_->count(), arguments_->vector());
    }

    ServiceOptions Options() const { return {config(), 0, 0}; }

    // For a process that is to end: its standard output goes where it is looked at, unbuffered
    // unless told otherwise (_IOFBF: what nobody flushes comes when the process exits).
    static void ShowStdout(int32_t level, int buffering = _IONBF) {
        dup2(STDERR_FILENO, STDOUT_FILENO);
        setvbuf(stdout, nullptr, buffering, 4096);
        g_printLevel = level;
        g_logToSyslog = 0;
        g_processName = kTestProcessName;
    }

    std::string path_;
    std::string errors_;

  private:
    std::unique_ptr<Arguments> arguments_;
};

// --- options

TEST_F(EntryTest, OptionsAreTakenFromTheCommandLine) {
    struct Row {
        Strings arguments;
        std::string path;
        int debug;
        int verbose;
        int toSyslog;
        bool reported;  // by getopt_long, on standard error
    };
    const Row rows[] = {
        {{"--config-path", "X"}, "X", 0, 0, 1, false},
        {{"--config-path=X"}, "X", 0, 0, 1, false},
        {{"-f", "X"}, "X", 0, 0, 1, false},
        {{"-fX"}, "X", 0, 0, 1, false},
        {{"-f", "X", "--config-path", "Y"}, "Y", 0, 0, 1, false},
        {{"--config-path", "X", "--stdout"}, "X", 0, 0, 0, false},
        {{"-l", "-f", "X"}, "X", 0, 0, 0, false},
        {{"--config-path", "X", "--verbose"}, "X", 0, 1, 1, false},
        {{"-yf", "X"}, "X", 0, 1, 1, false},
        {{"--config-path", "X", "--debug"}, "X", 1, 0, 1, false},
        {{"-z", "-f", "X"}, "X", 1, 0, 1, false},
        {{"-lyzf", "X"}, "X", 1, 1, 0, false},
        {{"extra", "-f", "X", "more"}, "X", 0, 0, 1, false},
        {{"-f", "X", "--", "-z", "--stdout"}, "X", 0, 0, 1, false},
        {{"--unknown", "-f", "X"}, "X", 0, 0, 1, true},
        {{"-q", "-f", "X", "-q"}, "X", 0, 0, 1, true},
        {{"--verbose=1", "-f", "X"}, "X", 0, 0, 1, true},
        {{"-f", ""}, "", 0, 0, 1, false},
        {{"-f", "--stdout"}, "--stdout", 0, 0, 1, false},
    };

    for (const Row& row : rows) {
        LogCapture log(1, LogTarget::kStdout);
        ServiceOptions options = {};
        g_logToSyslog = 1;
        EXPECT_EQ(Get(row.arguments, options), 0);
        EXPECT_EQ(path_, row.path) << testing::PrintToString(row.arguments);
        EXPECT_EQ(options.debug, row.debug) << testing::PrintToString(row.arguments);
        EXPECT_EQ(options.verbose, row.verbose) << testing::PrintToString(row.arguments);
        EXPECT_EQ(g_logToSyslog, row.toSyslog) << testing::PrintToString(row.arguments);
        EXPECT_EQ(errors_.empty(), !row.reported) << errors_;
        log.Clear();
    }
}

TEST_F(EntryTest, WithoutAConfigPathOptionsAreWrong) {
    for (const Strings& arguments :
         {Strings{}, Strings{"--debug"}, Strings{"path"}, Strings{"--config-path"}, Strings{"-f"},
          Strings{"--", "-f", "X"}}) {
        AtEveryLogSetting([&](LogCapture& log) {
            ServiceOptions options = {};
            EXPECT_EQ(Get(arguments, options), -1);
            EXPECT_EQ(options.configPath, nullptr);
            Lines debug = {kDaemonLog.Notice("GetOptions", "Debug mode is enable")};
            EXPECT_TRUE(log.Shows((options.debug == 1 ? debug : Lines()) +
                                  Lines{kDaemonLog.Error("GetOptions", "config path is not set")}));
        });
    }
}

TEST_F(EntryTest, NoticesGoWhereTheLogGoesWhenTheirOptionIsMet) {
    struct Row {
        Strings arguments;
        Strings system;
        std::string standardOutput;
    };
    const std::string verbose = "Verbose mode is enable";
    const std::string debug = "Debug mode is enable";
    const std::string system = "<3>quorcachepinfiled.cpp:# ";
    const Row rows[] = {
        {{"--verbose", "--stdout", "-f", "X"}, {system + verbose}, ""},
        {{"--stdout", "--verbose", "-f", "X"}, {}, "pinTestProcess: " + verbose + "\n"},
        {{"--debug", "--stdout", "--verbose", "-f", "X"},
         {system + debug},
         "pinTestProcess: " + verbose + "\n"},
        {{"--debug", "--debug", "-f", "X"}, {system + debug, system + debug}, ""},
    };

    for (const Row& row : rows) {
        LogCapture log(1, LogTarget::kStdout);
        ServiceOptions options = {};
        g_logToSyslog = 1;
        EXPECT_EQ(Get(row.arguments, options), 0);
        EXPECT_EQ(log.SystemLines(), row.system);
        EXPECT_EQ(log.StdoutText(), row.standardOutput);
        log.Clear();
    }
}

// Cannot happen with the table of options; kept all the same.
TEST_F(EntryTest, AnOptionThatNobodyHandlesAborts) {
    EXPECT_EXIT(
        {
            ServiceOptions options = {};
            Arguments arguments({"-f", "X"});
            ShowStdout(1);
            g_nextOption = 'q';
            GetOptions(arguments.count(), arguments.vector(), options);
        },
        testing::KilledBySignal(SIGABRT), "^pinTestProcess: Get unhandled option = q\n");
}

// --- usage and help

TEST_F(EntryTest, TheUsageGoesToStandardOutputWhereverTheLogGoes) {
    LogCapture log(2, LogTarget::kStdout);

    g_logToSyslog = 1;
    PrintUsage();
    EXPECT_EQ(log.StdoutText(), kUsage);
    EXPECT_EQ(log.SystemLines(), Strings());
    log.Clear();
}

TEST_F(EntryTest, HelpEndsTheProcessWhereItIsMet) {
    for (const char* help : {"--help", "-h"}) {
        EXPECT_EXIT(
            {
                ShowStdout(1);
                RunMain({"--verbose", help, "--debug", "-f", "X"});
            },
            testing::ExitedWithCode(0),
            "^pinTestProcess: Verbose mode is enable\nUsage:\n\tStart service:\n\t\tpinTestProcess "
            "--config-path conf_path\n(.*\n)*\t\t--debug: Output debug information\n$");
    }
}

TEST_F(EntryTest, WithoutAConfigPathMainShowsTheUsageAndFails) {
    LogCapture log(1, LogTarget::kStdout);

    EXPECT_EQ(RunMain({}), -1);
    EXPECT_EQ(log.StdoutText(), std::string("pinTestProcess: config path is not set\n") + kUsage);
    EXPECT_TRUE(SignalsSet().empty());
    EXPECT_EQ(g_platform.calls, Strings()) << "no settings are read";
    log.Clear();
}

// --- the print level

TEST_F(EntryTest, OptionsSetThePrintLevelAndTheDebugFileHasTheLastWord) {
    struct Row {
        Strings options;
        const char* fileLevel;  // null: no debug file
        int level;
    };
    const Row rows[] = {
        {{}, nullptr, 1},
        {{"--verbose"}, nullptr, 2},
        {{"--debug"}, nullptr, 3},
        {{"--debug", "--verbose"}, nullptr, 3},
        {{"--verbose", "--debug"}, nullptr, 3},
        {{}, "debug", 3},
        {{}, "verbose", 2},
        {{"--debug"}, "verbose", 2},
        {{"--verbose"}, "debug", 3},
        {{"--debug"}, "Debug", 3},
        {{"--verbose"}, "1", 2},
    };

    for (const Row& row : rows) {
        LogCapture log(1);
        Strings arguments = row.options;
        FakePlatformReset();
        if (row.fileLevel != nullptr) {
            WriteFile(dir_ / "debug", "");
            g_platform.settings[std::string(kDebugSettingsPath) + ":print_level"] = {row.fileLevel};
        }
        arguments.insert(arguments.end(), {"-f", config()});
        FailCall(Call::kSignal, 1, EINVAL);
        EXPECT_EQ(RunMain(arguments), -1);
        EXPECT_EQ(g_printLevel, row.level) << testing::PrintToString(arguments);
        EXPECT_EQ(g_platform.Count("QLIBCFileGetKeyValue"), row.fileLevel == nullptr ? 1 : 2)
            << "the debug flags are read in any case";
        unlink((dir_ / "debug").c_str());
    }
}

// The level that the debug file names is in force for the line about the flags.
TEST_F(EntryTest, TheDebugFileIsReadBeforeTheDebugFlags) {
    LogCapture log(1);

    WriteFile(dir_ / "debug", "");
    g_platform.settings[std::string(kDebugSettingsPath) + ":print_level"] = {"verbose"};
    g_platform.settings["/etc/quorinfo.conf:cache_pin_debug_flags"] = {"6"};
    FailCall(Call::kSignal, 1, EINVAL);
    EXPECT_EQ(RunMain({"-f", config()}), -1);
    std::vector<std::string> lines = log.SystemLines();
    ASSERT_GE(lines.size(), 2U);
    EXPECT_EQ(lines[0],
              "<3>quorcachepinfileutil.cpp:# UpdatePrintLevelByFile() [#] : Detect "
              "/tmp/quorcachepinfiletool.debug, update print level to 2");
    EXPECT_EQ(lines[1],
              "<3>quorcachepinfileutil.cpp:# InitDebugFlags() [#] : Detect cache_pin_debug_flags "
              "key in /etc/quorinfo.conf, debug flag = 6");
    log.Clear();
}

TEST_F(EntryTest, MainIsTraced) {
    for (int level : {1, 2}) {
        LogCapture log(level);
        g_processName = nullptr;
        FailCall(Call::kSignal, 1, EINVAL);
        EXPECT_EQ(RunMain({"-f", config()}), -1);
        EXPECT_STREQ(g_processName, "pinTestProcess");
        EXPECT_TRUE(log.Shows({
            kDaemonLog.Verbose(kMain, "Process name = pinTestProcess"),
            kDaemonLog.Enter(kMain),
            kDaemonLog.Enter(kStart),
            kDaemonLog.StartUp(std::string("Start Service (Build time: ") + kBuildStamp + ")"),
            kDaemonLog.Error("SetSignalHandler", "Can't set handler"),
            kDaemonLog.Error(kStart, "Can't get signal handler"),
            kDaemonLog.Leave(kStart),
            kDaemonLog.Error(kMain, "Can't start service"),
        }));
    }
}

TEST_F(EntryTest, TheBuildStampHasItsForm) {
    EXPECT_TRUE(std::regex_match(
        kBuildStamp, std::regex(R"(\d{4}/(0[1-9]|1[0-2])/(0[1-9]|[12]\d|3[01])-[0-2]\d:[0-5]\d)")))
        << kBuildStamp;
}

// --- signals

TEST_F(EntryTest, ThreeSignalsAreHandled) {
    LogCapture log(3);

    EXPECT_EQ(SetSignalHandler(), nullptr);
    std::vector<SignalRecord> set = SignalsSet();
    ASSERT_EQ(set.size(), 3U);
    const int numbers[] = {SIGINT, SIGTERM, SIGQUIT};
    for (size_t i = 0; i < 3; ++i) {
        EXPECT_EQ(set[i].number, numbers[i]);
        EXPECT_EQ(set[i].handler, SignalHandler);
    }
    EXPECT_TRUE(log.Shows({}));
}

TEST_F(EntryTest, TheFirstSignalThatCannotBeHandledEndsIt) {
    for (int nth : {1, 2, 3}) {
        AtEveryLogSetting([&](LogCapture& log) {
            FakeSystemReset();
            FailCall(Call::kSignal, nth, EINVAL);
            EXPECT_EQ(SetSignalHandler(), SIG_ERR);
            EXPECT_EQ(CallCount(Call::kSignal), nth) << "those behind it are not tried";
            EXPECT_TRUE(log.Shows({kDaemonLog.Error("SetSignalHandler", "Can't set handler")}));
        });
    }
}

TEST_F(EntryTest, ASignalEndsTheProcessWithStatusZero) {
    for (int number : {SIGINT, SIGTERM, SIGQUIT}) {
        EXPECT_EXIT(
            {
                ShowStdout(1);
                SetSignalHandler();
                raise(number);
                _exit(7);
            },
            testing::ExitedWithCode(0), "^$");
    }
    EXPECT_EXIT(
        {
            ShowStdout(2);
            SignalHandler(SIGTERM);
        },
        testing::ExitedWithCode(0),
        "^pinTestProcess: SignalHandler\\(\\) \\[[0-9]+\\]: Get signal = 15\n$");
}

// Not at once: what stands in buffers is written, and what is to run at the end runs.
TEST_F(EntryTest, ASignalAndHelpEndTheProcessByAnOrderlyExit) {
    EXPECT_EXIT(
        {
            ShowStdout(2, _IOFBF);
            atexit([] { fprintf(stderr, "at the end; "); });
            SignalHandler(SIGTERM);
        },
        testing::ExitedWithCode(0),
        "^at the end; pinTestProcess: SignalHandler\\(\\) \\[[0-9]+\\]: Get signal = 15\n$");
    EXPECT_EXIT(
        {
            ShowStdout(1, _IOFBF);
            RunMain({"--help"});
        },
        testing::ExitedWithCode(0), "^Usage:\n(.*\n)*\t\t--debug: Output debug information\n$");
}

TEST_F(EntryTest, NobodyFlushesStandardOutputOrOpensTheSystemLog) {
    LogCapture log(3, LogTarget::kStdout);
    int flushes = CallCount(Call::kFflush);

    FailCall(Call::kSignal, 1, EINVAL);
    EXPECT_EQ(RunMain({"--stdout", "--debug", "-f", config()}), -1);
    EXPECT_EQ(RunMain({}), -1);
    EXPECT_EQ(CallCount(Call::kFflush), flushes);
    EXPECT_EQ(CallCount(Call::kSetvbuf), 0);
    EXPECT_EQ(g_logOpenings, 0);
    log.Clear();
}

TEST_F(EntryTest, OtherSignalsKeepTheirDefaults) {
    for (int number : {SIGHUP, SIGPIPE, SIGUSR1}) {
        EXPECT_EXIT(
            {
                signal(number, SIG_DFL);
                SetSignalHandler();
                raise(number);
                _exit(7);
            },
            testing::KilledBySignal(number), "");
    }
}

// --- starting

TEST_F(EntryTest, AStartThatFailsComesBack) {
    struct Row {
        const char* what;
        std::function<void()> arrange;
        int signals;
        int mutexes;
        int threads;
        Lines errors;
    };
    const ExpectedLine noHandler = kDaemonLog.Error("SetSignalHandler", "Can't set handler");
    const ExpectedLine noSignals = kDaemonLog.Error(kStart, "Can't get signal handler");
    const Row rows[] = {
        {"first signal",
         [] { FailCall(Call::kSignal, 1, EINVAL); },
         1,
         0,
         0,
         {noHandler, noSignals}},
        {"last signal",
         [] { FailCall(Call::kSignal, 3, EINVAL); },
         3,
         0,
         0,
         {noHandler, noSignals}},
        {"mutex",
         [] { FailCall(Call::kMutexInit, 1, ENOMEM); },
         3,
         1,
         0,
         {kDaemonLog.Error("StartService", "Initialize mutex failed")}},
        {"thread; errno is told, not the result",
         [] {
             FailCall(Call::kThreadCreate, 1, EAGAIN);
             OnCall(Call::kThreadCreate, [](int) { errno = EDOM; });
         },
         3,
         1,
         1,
         {kDaemonLog.Error("StartService", std::string("Can't create thread: ") + strerror(EDOM))}},
        {"all of them",
         [] {
             FailCall(Call::kSignal, 1, EINVAL);
             FailCall(Call::kMutexInit, 1, ENOMEM);
             FailCall(Call::kThreadCreate, 1, EAGAIN);
         },
         1,
         0,
         0,
         {noHandler, noSignals}},
    };

    AtEveryLogSetting([&](LogCapture& log) {
        for (const Row& row : rows) {
            ServiceOptions options = {config(), 0, 0};
            FakeSystemReset();
            row.arrange();
            EXPECT_EQ(StartService(options), -1) << row.what;
            EXPECT_EQ(CallCount(Call::kSignal), row.signals) << row.what;
            EXPECT_EQ(CallCount(Call::kMutexInit), row.mutexes) << row.what;
            EXPECT_EQ(CallCount(Call::kThreadCreate), row.threads) << row.what;
            EXPECT_EQ(CallCount(Call::kMsgget), 0) << row.what;
            EXPECT_TRUE(
                log.Shows(Lines{kDaemonLog.Enter(kStart),
                                kDaemonLog.StartUp(std::string("Start Service (Build time: ") +
                                                   kBuildStamp + ")")} +
                          row.errors + Lines{kDaemonLog.Leave(kStart)}))
                << row.what;
        }
    });
}

TEST_F(EntryTest, AStartInitialisesWhatTheThreadsShare) {
    ServiceOptions options = {config(), 0, 0};
    const Service before = {};

    for (Call call : {Call::kMutexInit, Call::kThreadCreate}) {
        LogCapture log;
        g_service.state = 0;
        memset(&g_service.cond, 0xff, sizeof(g_service.cond));
        FailCall(call, 1, EAGAIN);
        EXPECT_EQ(StartService(options), -1);
        EXPECT_EQ(g_service.state, 2);
        bool zero = memcmp(&g_service.cond, &before.cond, sizeof(before.cond)) == 0;
        EXPECT_EQ(zero, call == Call::kThreadCreate) << "after the mutex, before the thread";
    }
    EXPECT_FALSE(ServiceMutexIsHeld());
}

// The worker is one thread of its own, with the options; the caller's becomes the receiver. Both
// end by themselves here: there is no queue, and the queue of requests has a stale number.
TEST_F(EntryTest, AStartBecomesTheReceiverBesideOneWorker) {
    EXPECT_EXIT(
        {
            LogCapture log;
            SetConfig("{'requestQueue':['stale']}");
            FailCall(Call::kFtok, 1, EACCES);
            WriteFile(dir_ / "key", "");
            ServiceOptions options = Options();
            Background caller([&] { StartService(options); });
            bool right = caller.Ends() && !caller.hasReturned() && g_service.state == 2;
            while (!log.Has(kDaemonLog.Error("DoRequests", "Get request error"))) {
                std::this_thread::yield();
            }
            right = right && CallCount(Call::kThreadCreate) == 1;
            right = right &&
                    log.Has(kDaemonLog.Error("GetRequests",
                                             "Create server messsage queue by file "
                                             "(/var/run/quorcachepinfile-msg-server.key) failed"));
            _exit(right ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
}

// The worker may first run when the receiver, and with it main's frame, has ended.
TEST_F(EntryTest, TheOptionsLiveAsLongAsTheProcess) {
    EXPECT_EXIT(
        {
            pthread_attr_t attributes = {};
            void* stack = nullptr;
            size_t size = 0;
            FailCall(Call::kFtok, 1, EACCES);
            WriteFile(dir_ / "key", "");
            Background caller([&] {
                pthread_getattr_np(pthread_self(), &attributes);
                pthread_attr_getstack(&attributes, &stack, &size);
                RunMain({"-f", config()});
            });
            bool right = caller.Ends() && ThreadArguments().size() == 1;
            auto* options = static_cast<ServiceOptions*>(ThreadArguments()[0]);
            auto offset = reinterpret_cast<uintptr_t>(options) - reinterpret_cast<uintptr_t>(stack);
            right = right && offset >= size && options->configPath == std::string(config());
            _exit(right ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
}

TEST_F(EntryTest, EveryStartBeginsWithFreshOptions) {
    LogCapture log(1);

    FailCall(Call::kSignal, 1, EINVAL);
    EXPECT_EQ(RunMain({"--debug", "-f", config()}), -1);
    g_printLevel = 1;
    EXPECT_EQ(RunMain({}), -1);
    EXPECT_EQ(g_printLevel, 1);
    log.Clear();
}

TEST_F(EntryTest, TheReceiverEndsAndTheWorkerGoesOn) {
    EXPECT_EXIT(
        {
            Signpost waits;
            LogCapture log;
            OnCall(Call::kCondWait, [&](int) { waits.Reach(); });
            FailCall(Call::kFtok, 1, EACCES);
            WriteFile(dir_ / "key", "");
            ServiceOptions options = Options();
            Background caller([&] { StartService(options); });
            bool right = caller.Ends() && waits.Wait(1);
            ConfigAddRequest(config(), MakeRequest(kRequestAck, "/gone"));
            pthread_cond_signal(&g_service.cond);
            right = right && waits.Wait(2) && ConfigDocument()["requests"].empty();
            _exit(right ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
}

// Whatever both threads are at, the process ends at once, and what was stored stays.
TEST_F(EntryTest, ASignalInMidRequestLeavesTheRequestStored) {
    Volume volume = AddVolume();
    unsigned long inode = AddFile(volume, "a", {{0, 8}});

    SetConfig("{'requestQueue':['4'],'requests':{'4':{'type':'pinFiles','mountPath':'" +
              volume.mountPath + "','data':'a#" + std::to_string(inode) + "'}}}");
    std::string before = ConfigText();
    for (int number : {SIGINT, SIGTERM, SIGQUIT}) {
        EXPECT_EXIT(
            {
                Signpost receives;
                EnterQueueSpace(true);
                ServiceAddPendingSpaceAtomic("/other");
                OnCall(Call::kMsgrcv, [&](int) { receives.Reach(); });
                OnCall(Call::kRead, [&](int) {
                    receives.Wait();
                    kill(getpid(), number);
                    pause();
                });
                ServiceOptions options = Options();
                StartService(options);
            },
            testing::ExitedWithCode(0), "");
        EXPECT_EQ(ConfigText(), before);
    }
}

}  // namespace
