# SPDX-License-Identifier: MIT
"""The cache under fire: read and written by several while it is killed and its SSD and backing fail."""
import fcntl
import os
import signal
import struct
import time

from lab import libc, loops, processes
from lab.cache import Cache
from lab.fire import Disk
from lab.volume import MIB

ABOUT = "the cache under fire"
SHORT, FULL = 8, 300
SIZE, CACHE = 32 * MIB, 16 * MIB
PINNED = set(range(100, 150))
PLACE = "/tmp/fire"
KEPT = 1 << 20  # bytes that a cut leaves: without head and pins it is nobody's SSD
LONGEST = 0.2   # seconds until something fails, and until it works again
_BLKROSET = 0x125D


class Field:
    """A backing on a file system that can be full, and an SSD: a file, or a block device before one."""

    def __init__(self, ground, node):
        self.ground, self.outcome, self.random = ground, ground.outcome, ground.random
        self.node, self.ssd = node, f"{PLACE}/ssd"
        os.makedirs(PLACE)
        libc.mount("tmpfs", PLACE, "tmpfs", 0, f"size={SIZE + CACHE + 8 * MIB}")
        if node:
            os.symlink(node, self.ssd)
        with open(f"{PLACE}/backing", "wb") as file:
            file.truncate(SIZE)
        self.cache = Cache("fire", f"{PLACE}/backing", PLACE, CACHE)
        self.cache.pin(PINNED)
        self.disk = Disk(self.cache, SIZE)
        self.said = 0

    def pause(self):
        time.sleep(self.random.uniform(0, LONGEST))  # the moment is what is tried out

    def killed(self):
        self.cache.process.send_signal(signal.SIGKILL)
        self.cache.process.wait()

    def ssd_cut(self):
        os.truncate(self.ssd, self.random.randrange(KEPT, CACHE, 512))

    def ssd_cut_and_grown(self):
        size = os.path.getsize(self.ssd)
        self.ssd_cut()
        self.pause()
        os.truncate(self.ssd, size)

    def ssd_read_only(self):
        with open(self.node, "rb") as device:
            fcntl.ioctl(device, _BLKROSET, struct.pack("i", 1))

    def backing_full(self):
        """What the backing has not got yet it cannot get any more."""
        with open(f"{PLACE}/filling", "wb", buffering=0) as file:
            try:
                while True:
                    file.write(bytes(4096))
            except OSError:
                pass

    def heal(self):
        """Everything works again, and the cache is there again."""
        if self.node:
            with open(self.node, "rb") as device:
                fcntl.ioctl(device, _BLKROSET, struct.pack("i", 0))
        if os.path.exists(f"{PLACE}/filling"):
            os.unlink(f"{PLACE}/filling")
        for line in processes.text_of(self.cache.output)[self.said:].splitlines():
            if "nothing is cached until the next start" in line or "starts cold" in line:
                self.outcome.note("times " + line.split(": ", 1)[1].replace(self.ssd, ""))
        self.said = len(processes.text_of(self.cache.output))
        self.cache.start()

    def point(self, fault, index):
        point = f"{index}: {fault.__name__} ({'block device' if self.node else 'file'})"
        self.outcome.points += 1
        try:
            with self.disk.under_fire():
                self.pause()
                fault()
                self.pause()
        except TimeoutError as error:
            self.outcome.add("hangs", point, str(error))
        if fault != self.killed:
            status = self.cache.stop()
            if status != 0:
                self.outcome.add("crashes", point, f"ended with {status}: {processes.text_of(self.cache.output)[-300:]}")
        self.heal()
        if self.disk.failed and fault in (self.ssd_cut, self.ssd_cut_and_grown, self.ssd_read_only):
            self.outcome.add("losses", point, f"{self.disk.failed} reads and writes failed for the SSD's sake")
        self.disk.failed = 0
        if wrong := self.disk.check_everything():
            self.outcome.add("losses", point, f"{len(wrong)} of {len(self.disk.stripes)} pieces are not what was written")
        if self.cache.pinned() != PINNED:
            self.outcome.add("losses", point, f"other units are pinned: {sorted(self.cache.pinned() ^ PINNED)[:8]}")
        for report in processes.take_reports():
            self.outcome.add("reports", point, report)

    def close(self):
        self.cache.stop()
        libc.unmount(PLACE)
        os.rmdir(PLACE)


def attack(ground, points, node=None):
    field = Field(ground, node)
    faults = [field.killed, field.backing_full, field.ssd_read_only if node else field.ssd_cut]
    if not node:
        faults.append(field.ssd_cut_and_grown)
    for index in range(points):
        field.point(faults[index % len(faults)], index)
    field.close()


def run(ground):
    attack(ground, (ground.wanted + 1) // 2)
    with open("/tmp/flash", "wb") as file:
        file.truncate(CACHE + 4 * MIB)
    with loops.attached("/tmp/flash") as node:
        attack(ground, ground.wanted // 2, node)
