// SPDX-License-Identifier: MIT
// quorsoftcache: one flash cache in user space, in the foreground from start to signal.
#include <malloc.h>
#include <signal.h>
#include <stdio.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <functional>
#include <memory>

#include "softcache/core/checkpoints.h"
#include "softcache/options.h"
#include "softcache/serve/device_tag.h"
#include "softcache/serve/fuse_device.h"
#include "softcache/serve/loop_device.h"
#include "softcache/serve/readiness.h"
#include "softcache/serve/served_cache.h"
#include "softcache/store/cache_files.h"
#include "softcache/store/distrust.h"
#include "softcache/store/inspection.h"
#include "softcache/store/storage.h"

using namespace softcache;

namespace {

// Returns whether the text is empty; otherwise it says what went wrong, and is printed.
bool Succeeded(const std::string& wrong) {
    if (!wrong.empty()) {
        fprintf(stderr, "quorsoftcache: %s\n", wrong.c_str());
    }
    return wrong.empty();
}

sigset_t EndSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGTERM);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGHUP);
    return signals;
}

void PrepareProcess() {
    // Waited for in main; every thread inherits the mask.
    const sigset_t signals = EndSignals();
    sigprocmask(SIG_BLOCK, &signals, nullptr);
    // A full pipe's end or a file size limit is an error to report, no reason to die.
    signal(SIGPIPE, SIG_IGN);
    signal(SIGXFSZ, SIG_IGN);
#ifdef PR_SET_IO_FLUSHER
    // Writing back dirty pages of the volume goes through here, so memory that is asked for here
    // must not wait for that. Without the right to say so it works as well, only less surely when
    // memory is short.
    prctl(PR_SET_IO_FLUSHER, 1, 0, 0, 0);
#endif
    // What a large text took is given back when the text goes, and not kept for the next one.
    mallopt(M_MMAP_THRESHOLD, 256 << 10);
    umask(022);
}

void WaitForEndSignal() {
    const sigset_t signals = EndSignals();
    int which = 0;
    sigwait(&signals, &which);
}

// Waits for such a signal; for 50 ms at most.
bool EndSignalComes() {
    const sigset_t signals = EndSignals();
    const timespec pause = {0, 50'000'000};
    return sigtimedwait(&signals, nullptr, &pause) > 0;
}

// Finds out what the command line left open.
bool Complete(Options& options) {
    if (!Succeeded(WhyNotServe(options.registryDirectory, options.name)) ||
        !Succeeded(ResolveTag(options.backing)) || !Succeeded(ResolveTag(options.ssd))) {
        return false;
    }
    if (options.mountPoint.empty()) {
        std::error_code error;  // a directory that is not there is told when it is mounted on
        options.mountPoint = DefaultMountPoint(options.name);
        std::filesystem::create_directories(options.mountPoint, error);
    }
    return true;
}

// What is open for as long as the cache lives.
struct Storage {
    CacheFiles files;
    std::string mountPoint;  // absolute
};

bool OpenStorage(const Options& options, Storage& storage) {
    const CacheFilesWanted wanted = {options.name,    options.backing, options.ssd,
                                     options.ssdSize, options.format,  options.distrustDirectory};
    const bool opened =
        (options.ssdSize == 0 || Succeeded(WhyNotCacheSize(options.ssdSize))) &&
        Succeeded(CheckMountPoint(options.mountPoint, options.name, storage.mountPoint)) &&
        Succeeded(OpenCacheFiles(wanted, storage.files));
    for (const std::string& remark : storage.files.remarks) {
        Succeeded(remark);
    }
    return opened;
}

std::unique_ptr<ServedCache> MakeCache(const Options& options, const Storage& storage) {
    SsdStore& store = *storage.files.store;
    RegistryRecord record;
    record.name = options.name;
    record.ssd = AbsolutePath(options.ssd);
    record.mountPoint = storage.mountPoint;
    record.state = options.state;
    record.supportPin = options.supportPin;
    record.deviceSize = store.Head().deviceSize;
    record.cacheSize = uint64_t{store.Head().slots} * kUnitSize;
    const std::string ssd = "ssd " + record.ssd + " ";
    auto served = std::make_unique<ServedCache>(*storage.files.backing, store, storage.files.warm,
                                                options.registryDirectory, std::move(record));
    served->testDoors = options.testDoors;
    // The head as the SSD has it, and will go on having it where it can be written no more.
    const Distrust distrust(options.distrustDirectory);
    const SsdHead head = store.Head();
    served->cache.WhenSsdIsLost([=](const std::string& why, bool tableIsInvalid) {
        const bool isKnown = tableIsInvalid || distrust.Note(head) == 0;
        Succeeded(ssd + why + ": nothing is cached until the next start" +
                  (isKnown ? "" : ", which must be with --format"));
    });
    const std::string wrong = served->RestorePins();
    Succeeded(wrong.empty() ? "" : ssd + wrong);
    return served;
}

int Inspect(const std::string& ssd) {
    std::string lines;
    const bool is = Succeeded(InspectSsd(ssd, lines));
    fputs(lines.c_str(), stdout);
    return is ? 0 : 1;
}

// Brings to the SSD what requests leave behind, and at the end everything.
class Settling {
  public:
    explicit Settling(ServedCache& served)
        : served_(served),
          checkpoints_(
              std::make_unique<Checkpoints>(served.cache, [&served] { served.volume.Settle(); })) {}
    ~Settling() {
        checkpoints_.reset();
        served_.volume.Settle();
        served_.cache.Close();
    }
    Settling(const Settling&) = delete;
    Settling& operator=(const Settling&) = delete;

  private:
    ServedCache& served_;
    std::unique_ptr<Checkpoints> checkpoints_;
};

// The cache as others meet it: the mount, the entry in the registry, the loop device.
struct Served {
    explicit Served(ServedCache& cache) : device(cache), registry(cache.registry) {}

    FuseDevice device;
    RegistryEntry& registry;
    LoopDevice loop;
    std::atomic<bool> ended{false};  // nothing is answered any more
};

bool Serve(const Options& options, const Storage& storage, Served& served) {
    if (!Succeeded(served.device.Mount(options.name, storage.mountPoint))) {
        return false;
    }
    // Somebody else may take the mount away; main then wakes as for a signal.
    const auto onEnd = [&served] {
        served.ended = true;
        kill(getpid(), SIGTERM);
    };
    if (!served.device.Start(onEnd)) {
        return Succeeded("the mount went away before it was served");
    }
    if (!Succeeded(served.registry.Publish())) {
        return false;
    }
    if (options.device) {
        const std::string wrong = served.loop.Attach(storage.mountPoint + "/device",
                                                     SectorSizeOf(storage.files.backing->Fd()),
                                                     DefaultNameDirectory(), options.name);
        if (!Succeeded(wrong)) {
            served.registry.Remove();
            return false;
        }
    }
    const std::string state =
        options.name + " ready" + (options.device ? " on " + served.loop.Node() : "");
    printf("quorsoftcache: %s\n", state.c_str());
    fflush(stdout);
    TellReady(state);
    return true;
}

// In the reverse order. A volume that is still mounted is served until it is not, or until a second
// signal: what its file system has yet to write would be lost.
void TakeDown(const std::string& name, Served& served) {
    served.loop.Release();
    if (!served.ended && served.loop.IsInUse()) {
        const std::string state = name + ": " + served.loop.Node() + " is still in use";
        Succeeded(state + "; served until it is let go, or another signal");
        TellStopping(state);
        while (!served.ended && served.loop.IsInUse() && !EndSignalComes()) {
        }
    }
    served.registry.Remove();
    served.device.Stop();
    served.device.Unmount();
}

}  // namespace

int main(int argc, char** argv) {
    Options options;
    if (const std::optional<int> status = ParseOptions(argc, argv, options)) {
        return *status;
    }
    if (!options.inspect.empty()) {
        return Inspect(options.inspect);
    }
    PrepareProcess();
    Storage storage;
    if (!Complete(options) || !OpenStorage(options, storage)) {
        return 1;
    }
    const std::unique_ptr<ServedCache> cache = MakeCache(options, storage);
    const Settling settling(*cache);
    Served served(*cache);
    if (!Serve(options, storage, served)) {
        return 1;
    }
    WaitForEndSignal();
    TakeDown(options.name, served);
    return 0;
}
