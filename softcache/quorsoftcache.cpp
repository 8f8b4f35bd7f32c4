// SPDX-License-Identifier: MIT
// quorsoftcache: one flash cache in user space, in the foreground from start to signal.
#include <malloc.h>
#include <signal.h>
#include <stdio.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <memory>

#include "softcache/fuse_device.h"
#include "softcache/options.h"
#include "softcache/pin_store.h"
#include "softcache/served_cache.h"
#include "softcache/storage.h"

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

// What is open for as long as the cache lives.
struct Storage {
    OwnedFd backing;
    OwnedFd ssd;
    uint64_t deviceSize = 0;  // bytes
    std::string mountPoint;   // absolute
};

bool OpenStorage(const Options& options, Storage& storage) {
    return Succeeded(WhyNotServe(options.registryDirectory, options.name)) &&
           Succeeded(WhyNotCacheSize(options.ssdSize)) &&
           Succeeded(CheckMountPoint(options.mountPoint, storage.mountPoint)) &&
           Succeeded(OpenBacking(options.backing, storage.backing, storage.deviceSize)) &&
           Succeeded(OpenSsd(options.ssd, options.ssdSize, storage.ssd));
}

std::unique_ptr<ServedCache> MakeCache(const Options& options, const Storage& storage) {
    RegistryRecord record;
    record.name = options.name;
    record.ssd = AbsolutePath(options.ssd);
    record.mountPoint = storage.mountPoint;
    record.state = options.state;
    record.supportPin = options.supportPin;
    record.deviceSize = storage.deviceSize;
    record.cacheSize = options.ssdSize;
    const std::string pinStore = PinStorePath(record.ssd);
    const std::string lost =
        "ssd " + record.ssd + " was cut or lost space: nothing is cached until the next start";
    auto served =
        std::make_unique<ServedCache>(storage.backing.get(), storage.ssd.get(), storage.deviceSize,
                                      static_cast<uint32_t>(options.ssdSize / kUnitSize), pinStore,
                                      options.registryDirectory, std::move(record));
    served->cache.WhenSsdIsLost([lost] { Succeeded(lost); });
    Succeeded(served->RestorePins());  // a bitmap that does not fit is reported and left out
    return served;
}

bool Serve(FuseDevice& device, ServedCache& served, const std::string& name) {
    // Somebody else may take the mount away; main then wakes as for a signal.
    if (!device.Start([] { kill(getpid(), SIGTERM); })) {
        return Succeeded("the mount went away before it was served");
    }
    if (!Succeeded(served.registry.Publish())) {
        return false;
    }
    printf("quorsoftcache: %s ready\n", name.c_str());
    fflush(stdout);
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    Options options;
    if (const std::optional<int> status = ParseOptions(argc, argv, options)) {
        return *status;
    }
    PrepareProcess();
    Storage storage;
    if (!OpenStorage(options, storage)) {
        return 1;
    }
    const std::unique_ptr<ServedCache> served = MakeCache(options, storage);
    FuseDevice device(*served);
    if (!Succeeded(device.Mount(options.name, storage.mountPoint)) ||
        !Serve(device, *served, options.name)) {
        return 1;
    }
    WaitForEndSignal();
    served->registry.Remove();
    device.Stop();
    device.Unmount();
    return 0;
}
