# SPDX-License-Identifier: MIT
"""A volume: a file system on a loop device on the cached device that a cache presents.

Files are read with O_DIRECT throughout, so that no page cache answers in the flash cache's place.
"""
import contextlib
import itertools
import mmap
import os
import random
import shutil
import subprocess

from lab import evidence, libc, loops
from lab.cache import Cache

MIB = 1 << 20
DIRECTORY = "/tmp/lab"  # what the volumes are made of; within the environment, so gone with it

_MKFS = {  # nothing discarded, nothing written later in the background, and a small journal
    "ext4": ["-q", "-F", "-b", "4096", "-m", "0", "-J", "size=4", "-E", "nodiscard,lazy_itable_init=1"],
    "xfs": ["-q", "-f", "-K"],
    "btrfs": ["-q", "-f", "-K"],
}
_MOUNT = {"ext4": "noinit_itable"}


@contextlib.contextmanager
def on_one_processor():
    """Keeps this thread on one processor: ext4 gives the small files that each writes a group of
    blocks of their own, so a thread that is moved scatters them.
    """
    allowed = os.sched_getaffinity(0)
    os.sched_setaffinity(0, {min(allowed)})
    try:
        yield
    finally:
        os.sched_setaffinity(0, allowed)


class Volume:
    """A mounted volume, from construction to `close`.

    size, cache_size: bytes; the files behind them are sparse. XFS needs 300 MiB at least.
    cached: whether there is a cache; without one the loop device is on the backing file itself.
    mkfs: further arguments for mkfs.
    place: the directory for its files; without one they lie in memory.
    """

    def __init__(self, name="vol1", mount_path=None, kind="ext4", size=512 * MIB,
                 cache_size=64 * MIB, cached=True, mkfs=(), place=DIRECTORY):
        self.name, self.kind, self.size = name, kind, size
        self.mount_path = mount_path or f"/mnt/{name}"
        self.directory = os.path.join(place, name)
        self.backing = os.path.join(self.directory, "backing")
        os.makedirs(self.directory)
        with open(self.backing, "wb") as file:
            file.truncate(size)
        self.cache = Cache(name, self.backing, self.directory, cache_size) if cached else None
        self.block_device = None  # the loop device, while mounted
        self.mount(list(mkfs))

    def mount(self, mkfs=None):
        """Mounts it (again, after `unmount`). With `mkfs`, a list of arguments, the file system is made."""
        os.makedirs(self.mount_path, exist_ok=True)
        with loops.attached(self.cache.device if self.cache else self.backing) as device:
            if mkfs is not None:
                subprocess.run([f"mkfs.{self.kind}", *_MKFS[self.kind], *mkfs, device], check=True)
            libc.mount(device, self.mount_path, self.kind, options=_MOUNT.get(self.kind))
            self.block_device = device

    def unmount(self):
        libc.unmount(self.mount_path)
        self.block_device = None

    def close(self):
        """Unmounts it, ends its cache and removes its files. Returns the cache's exit status, or 0."""
        if self.block_device:
            self.unmount()
        status = self.cache.stop() if self.cache else 0
        shutil.rmtree(self.directory, ignore_errors=True)
        return status

    def path(self, name):
        """The absolute path of a file of the volume."""
        return f"{self.mount_path}/{name}"

    def write(self, name, size, sync=True):
        """Makes a file of `size` bytes that cannot be mistaken for another; returns its path. Small
        files that are written one after the other, and synced, lie one behind the other.
        """
        path = self.path(name)
        os.makedirs(os.path.dirname(path), exist_ok=True)
        bytes_of = random.Random(os.fsencode(f"{name}:{size}")).randbytes
        with on_one_processor(), open(path, "wb") as file:
            for start in range(0, size, MIB):
                file.write(bytes_of(min(MIB, size - start)))
            if sync:
                file.flush()
                os.fsync(file.fileno())
        return path

    def read(self, paths, spare=frozenset()):
        """Reads the files at `paths` through the cache, each unit once and none of those in `spare`.

        Returns (hits, units asked for) of that reading.
        """
        before = self.cache.stats()
        seen = set(spare)
        for path in paths:
            read_direct(path, seen)
        after = self.cache.stats()
        hits, misses, bypasses = (after[name] - before[name] for name in ("hits", "misses", "bypasses"))
        return hits, hits + misses + bypasses

    def flood(self, spare=frozenset(), size=None, progress=lambda done: None):
        """Reads other units of the device than those in `spare`, `size` bytes (ten times the cache) of them.

        progress: called with the number of bytes read so far. Returns the number read.
        """
        size = 10 * self.cache.size if size is None else size
        step = MIB // evidence.UNIT
        firsts = [first for first in range(0, self.size // evidence.UNIT - step + 1, step)
                  if spare.isdisjoint(range(first, first + step))]
        assert firsts, "no other data to read"
        done = 0
        with mmap.mmap(-1, MIB) as room:
            device = os.open(self.block_device, os.O_RDONLY | os.O_DIRECT)
            try:
                for first in itertools.cycle(firsts):
                    if done >= size:
                        break
                    done += os.preadv(device, [room], first * evidence.UNIT)
                    progress(done)
            finally:
                os.close(device)
        return done


def read_direct(path, seen):
    """Reads what a file has on the device, past the page cache, a unit of the device at a time.

    seen: units not to be read again, such as one that two files share; those read are added. So the
    counters of the cache count units.
    """
    file = os.open(path, os.O_RDONLY | os.O_DIRECT)
    try:
        os.posix_fadvise(file, 0, 0, os.POSIX_FADV_DONTNEED)
        with mmap.mmap(-1, evidence.UNIT) as room:
            for extent in evidence.extents(path):
                begin = extent.device_sector * evidence.SECTOR
                end = begin + extent.sectors * evidence.SECTOR
                shift = extent.file_sector * evidence.SECTOR - begin
                while begin < end:
                    unit = begin // evidence.UNIT
                    stop = min(end, (unit + 1) * evidence.UNIT)
                    if unit not in seen:
                        os.preadv(file, [memoryview(room)[:stop - begin]], begin + shift)
                        seen.add(unit)
                    begin = stop
    finally:
        os.close(file)
