# SPDX-License-Identifier: MIT
"""The cache is killed at random moments, with reads and writes under way: nothing stale is ever read.

QUOR_KILLS=200 kills it so many times instead of ten.
"""
# timeout: 3600
import mmap
import os
import random
import signal
import time

from lab import evidence, processes, volume
from lab.cache import Cache
from lab.fire import Disk

KILLS = int(os.environ.get("QUOR_KILLS", "10"))
SIZE, CACHE = 64 * volume.MIB, 32 * volume.MIB
UNITS, SLOTS = SIZE // evidence.UNIT, CACHE // evidence.UNIT
PINNED = set(range(100, 150))


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
    disk = Disk(cache, SIZE)
    cache.pin(PINNED)
    read_units(cache, sorted(PINNED))
    read_units(cache, range(UNITS))
    assert len(cache.resident()) == SLOTS
    least = 1.0

    for kill in range(KILLS):
        with disk.under_fire():
            time.sleep(random.uniform(0.0, 0.5))  # the moment may be any
            cache.process.send_signal(signal.SIGKILL)
            cache.process.wait()
        assert not disk.wrong
        cache.start()
        resident = cache.resident()
        least = min(least, len(resident) / SLOTS)
        assert len(resident) >= 0.95 * SLOTS and cache.pinned() == PINNED
        read_units(cache, sorted(PINNED))
        read_units(cache, range(UNITS))  # full again
        if kill % 10 == 9 or kill == KILLS - 1:
            assert not disk.check_everything()
            before = cache.resident()
            assert cache.stop() == 0
            cache.start()
            assert cache.resident() == before and PINNED <= before and cache.pinned() == PINNED
            assert read_units(cache, sorted(PINNED)) == (len(PINNED), len(PINNED))

    assert cache.stats()["ssdErrors"] == 0
    assert cache.stop() == 0
    print(f"{KILLS} kills, no stale read; at least {least:.1%} resident after one")
    assert not processes.take_reports()
