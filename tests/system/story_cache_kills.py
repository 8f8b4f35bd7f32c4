# SPDX-License-Identifier: MIT
"""The cache is killed at random moments, with reads and writes under way: nothing stale is ever read.

QUOR_KILLS=200 kills it so many times instead of ten.
"""
# timeout: 3600
import ctypes
import fcntl
import mmap
import os
import random
import signal
import struct
import threading

from lab import evidence, loops, processes, volume
from lab.cache import Cache

KILLS = int(os.environ.get("QUOR_KILLS", "10"))
SIZE, CACHE = 64 * volume.MIB, 32 * volume.MIB
UNITS, SLOTS = SIZE // evidence.UNIT, CACHE // evidence.UNIT
STRIPE = 4096  # each unit has stripes of every worker
WORKERS = 4
PINNED = set(range(100, 150))
SET_PIN_BITMAP = 0xFECF


class Disk:
    """The cached device by a loop device, past the page cache, and what must be on it.

    A stripe whose write was cut off holds the old or the new bytes, until it is read for the first time.
    """

    def __init__(self, cache):
        self.cache = cache
        self.stripes = [bytes(STRIPE)] * (SIZE // STRIPE)
        self.unsure = {}  # stripe: what else it may hold
        self.wrong = []

    def work(self, worker, node, dead):
        """Reads and writes this worker's stripes until the device fails."""
        choice = random.Random(f"{worker} {len(self.unsure)} {os.urandom(4)}")
        device = os.open(node, os.O_RDWR | os.O_DIRECT)
        with mmap.mmap(-1, STRIPE) as room:
            try:
                while not dead.is_set():
                    stripe = choice.randrange(len(self.stripes) // WORKERS) * WORKERS + worker
                    if choice.random() < 0.6:
                        self.read(device, room, stripe)
                    else:
                        self.write(device, room, stripe, choice.randbytes(STRIPE))
            except OSError:
                pass  # the cache has gone
            finally:
                os.close(device)

    def read(self, device, room, stripe):
        os.preadv(device, [room], stripe * STRIPE)
        found = bytes(room)
        if found == self.unsure.pop(stripe, None):
            self.stripes[stripe] = found
        if found != self.stripes[stripe]:
            self.wrong.append(stripe)

    def write(self, device, room, stripe, content):
        if stripe in self.unsure:
            self.read(device, room, stripe)
        room[:] = content
        self.unsure[stripe] = content
        os.pwritev(device, [room], stripe * STRIPE)
        del self.unsure[stripe]
        self.stripes[stripe] = content

    def check_everything(self, node):
        device = os.open(node, os.O_RDONLY | os.O_DIRECT)
        with mmap.mmap(-1, STRIPE) as room:
            for stripe in range(len(self.stripes)):
                self.read(device, room, stripe)
        os.close(device)
        assert not self.wrong and not self.unsure

    def until_killed(self, after):
        """Lets everybody work, kills the cache `after` seconds later."""
        dead = threading.Event()
        with loops.attached(self.cache.device) as node:
            workers = [threading.Thread(target=self.work, args=(worker, node, dead)) for worker in range(WORKERS)]
            for worker in workers:
                worker.start()
            dead.wait(after)  # nobody sets it: the moment may be any
            self.cache.process.send_signal(signal.SIGKILL)
            self.cache.process.wait()
            dead.set()
            for worker in workers:
                worker.join()
        assert not self.wrong


def pin(cache, units):
    bitmap = bytearray(UNITS // 8)
    for unit in units:
        bitmap[unit // 8] |= 1 << unit % 8
    bytes_of = (ctypes.c_char * len(bitmap)).from_buffer(bitmap)
    with open(cache.device, "rb", buffering=0) as device:
        fcntl.ioctl(device, SET_PIN_BITMAP, struct.pack("@PI4x", ctypes.addressof(bytes_of), len(bitmap)))


def read_units(cache, units):
    """Reads whole units; returns (hits, units)."""
    before = cache.stats()["hits"]
    device = os.open(cache.device, os.O_RDONLY | os.O_DIRECT)
    with mmap.mmap(-1, evidence.UNIT) as room:
        for unit in units:
            os.preadv(device, [room], unit * evidence.UNIT)
    os.close(device)
    return cache.stats()["hits"] - before, len(units)


def test_a_cache_that_is_killed_again_and_again():
    directory = os.path.join(volume.DIRECTORY, "kills")
    os.makedirs(directory)
    backing = os.path.join(directory, "backing")
    with open(backing, "wb") as file:
        file.truncate(SIZE)
    cache = Cache("kills", backing, directory, CACHE)
    disk = Disk(cache)
    pin(cache, PINNED)
    read_units(cache, sorted(PINNED))
    read_units(cache, range(UNITS))
    assert len(cache.resident()) == SLOTS
    least = 1.0

    for kill in range(KILLS):
        disk.until_killed(random.uniform(0.0, 0.5))
        cache.start()
        resident = cache.resident()
        least = min(least, len(resident) / SLOTS)
        assert len(resident) >= 0.95 * SLOTS and cache.pinned() == PINNED
        read_units(cache, sorted(PINNED))
        read_units(cache, range(UNITS))  # full again
        if kill % 10 == 9 or kill == KILLS - 1:
            with loops.attached(cache.device) as node:
                disk.check_everything(node)
            before = cache.resident()
            assert cache.stop() == 0
            cache.start()
            assert cache.resident() == before and PINNED <= before and cache.pinned() == PINNED
            assert read_units(cache, sorted(PINNED)) == (len(PINNED), len(PINNED))

    assert cache.stats()["ssdErrors"] == 0
    assert cache.stop() == 0
    print(f"{KILLS} kills, no stale read; at least {least:.1%} resident after one")
    assert not processes.take_reports()
