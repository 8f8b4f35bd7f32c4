# SPDX-License-Identifier: MIT
"""How many instructions the 32-bit daemon takes for a pin request: instructions.py SYSROOT.

The daemon is that of QUOR_BUILD.
Runs it on this machine under user-mode emulation, every instruction a block of its own that the
emulator reports. Two runs that differ only in the number of requests give the instructions of one.
The volume is a real one; its cache is a registry entry alone, as what the driver does is not counted.
"""
import fcntl
import json
import os
import subprocess
import sys
import threading

sys.path.insert(0, os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__)))))
from lab import namespaces, queue  # noqa: E402  (found through the line above)
from lab.daemon import CONFIGURATION, NAME, Daemon  # noqa: E402
from lab.volume import Volume  # noqa: E402

SYSROOT = os.path.abspath(sys.argv[1])
SHIM, TRACE = "/tmp/emulator_gaps.so", "/tmp/trace"
FILE_BYTES = 3_000_000
EXTRA = 2  # requests by which the runs differ


def register(volume):
    """A registry entry for the volume's own device, locked as a living cache's. Returns the lock's file."""
    os.makedirs("/run/quorsoftcache", exist_ok=True)
    lock = open("/run/quorsoftcache/count.lock", "w", encoding="utf-8")
    fcntl.flock(lock, fcntl.LOCK_EX)
    with open("/run/quorsoftcache/count.json", "w", encoding="utf-8") as entry:
        json.dump({"version": 1, "name": "count", "pid": os.getpid(), "ssd": "/tmp/ssd",
                   "device": volume.block_device, "state": 1, "supportPin": 1, "unitSize": 65536,
                   "deviceSize": volume.size, "cacheSize": volume.size, "stats": "", "control": "",
                   "resident": "", "pinned": ""}, entry)
    return lock


def run(volume, paths):
    """Instructions of the daemon from its start to its end, one request a path."""
    lines = [0]

    def count():
        with open(TRACE, "rb", buffering=0) as trace:
            while chunk := trace.read(1 << 20):
                lines[0] += chunk.count(b"\n")
    os.mkfifo(TRACE)
    counter = threading.Thread(target=count)
    counter.start()
    daemon = Daemon(flags=())
    daemon.arguments = ["qemu-arm-static", "-L", SYSROOT, "-singlestep", "-d", "exec,nochain", "-D", TRACE,
                        "-E", f"LD_PRELOAD={SHIM}", namespaces.program(NAME), "--config-path", CONFIGURATION]
    daemon.start(wait_for="Start Service")
    requests = queue.Queue.open()
    for number, path in enumerate(paths, 1):
        requests.pin(volume.mount_path, [path])
        daemon.until_done("pinFiles", number)
    daemon.check()
    assert daemon.stop() == 0
    counter.join()
    os.unlink(TRACE)
    os.unlink(CONFIGURATION)
    queue.remove_all()
    return lines[0]


def main():
    source = os.path.join(os.path.dirname(os.path.abspath(__file__)), "emulator_gaps.c")
    subprocess.run(["arm-linux-gnueabihf-gcc", f"--sysroot={SYSROOT}", "-O2", "-shared", "-fPIC",
                    "-D_FILE_OFFSET_BITS=64", "-o", SHIM, source], check=True)
    volume = Volume(cached=False)
    paths = [volume.write(f"f{number}", FILE_BYTES) for number in range(1 + EXTRA)]
    with register(volume):
        few, many = run(volume, paths[:1]), run(volume, paths)
    volume.close()
    each = (many - few) // EXTRA
    print(f"measured {'instructions, start to end, one request':42} {few:9,}")
    print(f"measured {'instructions a pin request of 46 units':42} {each:9,}")
    return 0


if __name__ == "__main__":
    sys.exit(namespaces.run(main))
