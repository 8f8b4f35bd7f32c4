# SPDX-License-Identifier: MIT
"""What the target cares about, measured inside the virtual machine: measure.py [SECONDS].

Prints a table: size of the daemon as it is shipped, its resident memory idle and at its highest while
pinning on a device of 1 TiB, and how often its sleeping threads were switched in SECONDS (60).
Exits with 1 when a sleeping thread woke up by itself.
"""
import glob
import os
import sys
import time

sys.path.insert(0, os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__)))))
from lab import evidence, namespaces, queue  # noqa: E402  (found through the line above)
from lab.daemon import NAME, Daemon  # noqa: E402
from lab.volume import MIB, Volume  # noqa: E402

TIB = 1 << 40


def status(pid):
    """The fields of /proc/PID/status as {name: first word}."""
    with open(f"/proc/{pid}/status", encoding="ascii") as file:
        return {name: rest.split()[0] for name, _, rest in (line.partition(":") for line in file)
                if rest.strip()}


def memory(pid, name):
    return f"{int(status(pid)[name]):6} KiB"


def switches(pid):
    """How often the threads of the process were switched, by name of the counter."""
    total = {"voluntary_ctxt_switches": 0, "nonvoluntary_ctxt_switches": 0}
    for path in glob.glob(f"/proc/{pid}/task/*"):
        fields = status(f"{pid}/task/{os.path.basename(path)}")
        for name in total:
            total[name] += int(fields[name])
    return sum(total.values())


def main():
    seconds = int(sys.argv[1]) if len(sys.argv) > 1 else 60
    # Few inodes: of 1 TiB, only what is asked about is written.
    volume = Volume("big", size=TIB, mkfs=["-O", "^resize_inode", "-N", "65536"])
    path = volume.write("pinned", 4 * MIB)
    daemon = Daemon(flags=()).start(wait_for="Start Service")
    requests = queue.Queue.open()
    idle = memory(daemon.pid, "VmRSS")
    own = memory(daemon.pid, "RssAnon")

    time.sleep(1)  # the start is over
    before = switches(daemon.pid)
    time.sleep(seconds)
    woken = switches(daemon.pid) - before

    requests.pin(volume.mount_path, [path])
    daemon.until_done("pinFiles")
    highest = memory(daemon.pid, "VmHWM")
    after = memory(daemon.pid, "VmRSS")
    assert evidence.units([path]) == volume.cache.pinned(), "the file is not pinned"
    limit = requests.state().limit
    assert limit == namespaces.QUEUE_BYTES, f"the queue has {limit} bytes"
    bitmap = len(volume.cache.pinned_bytes())
    daemon.check()
    daemon.stop()
    volume.close()

    for what, value in (
            ("the daemon, stripped", f"{os.path.getsize(namespaces.program(NAME)) / 1024:6.1f} KiB"),
            ("resident, idle", idle),
            ("  of it its own (not shared with a file)", own),
            ("pin bitmap of 1 TiB", f"{bitmap / 1024:6.0f} KiB"),
            ("resident, at its highest while pinning", highest),
            ("resident, after pinning", after),
            (f"context switches in {seconds} idle seconds", f"{woken:6}")):
        print(f"measured {what:42} {value}")
    return 1 if woken else 0


if __name__ == "__main__":
    sys.exit(namespaces.run(main))
