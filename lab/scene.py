# SPDX-License-Identifier: MIT
"""The scene of the demo: a volume with real files of the machine on it, and the daemon."""
import os
import shutil
import stat

from lab import libc
from lab.daemon import STARTING, Daemon
from lab.queue import Queue
from lab.volume import MIB, Volume

MOUNT_PATH = "/mnt/media"
KEEP, REST = "keep", "rest"  # the directories of the two sets of files
SET_BYTES = 101 * MIB        # a set's size at least, so that both together are over 200 MiB
CACHE_BYTES = 256 * MIB
VOLUME_BYTES = 4096 * MIB

_SOURCE = "/usr"


_SMALLEST = 256 << 10
_LARGEST = (3 * MIB, 12 * MIB, 48 * MIB)  # many files rather than a few giants, if there are enough


def _candidates():
    """(size, path) of the machine's regular files but the smallest, largest first, no file twice."""
    seen, found = set(), []
    for directory, _, names in os.walk(_SOURCE):
        for name in names:
            path = os.path.join(directory, name)
            status = os.lstat(path)
            key = status.st_dev, status.st_ino
            fits = stat.S_ISREG(status.st_mode) and status.st_size >= _SMALLEST
            if fits and key not in seen and name.isascii() and not set(name) & set(" ;#"):
                seen.add(key)
                found.append((status.st_size, path))
    return sorted(found, reverse=True)


def _divide(candidates):
    """Two lists of as many paths, SET_BYTES each or a little more, nearly equal in size; or None.

    Of each two neighbours by size the larger goes to the set that is behind.
    """
    sets, sizes = ([], []), [0, 0]
    for pair in zip(candidates[::2], candidates[1::2]):
        behind = sizes.index(min(sizes))
        for which, (size, path) in zip((behind, 1 - behind), pair):
            sets[which].append(path)
            sizes[which] += size
        if min(sizes) >= SET_BYTES:
            return sets
    return None


def choose():
    """Two equal sets of the machine's files."""
    candidates = _candidates()
    for largest in _LARGEST:
        sets = _divide([row for row in candidates if row[0] <= largest])
        if sets:
            return sets
    raise SystemExit(f"run: fewer than {2 * SET_BYTES // MIB} MiB of files of a fitting size in {_SOURCE}")


class Scene:
    """The volume with both sets on it and the daemon, running, from construction to `close`."""

    def __init__(self):
        chosen = choose()
        self.volume = Volume("media", MOUNT_PATH, size=VOLUME_BYTES, cache_size=CACHE_BYTES)
        self.keep, self.rest = (self._copy(paths, name) for paths, name in zip(chosen, (KEEP, REST)))
        top = os.open(MOUNT_PATH, os.O_RDONLY)
        libc.call("syncfs", top)
        os.close(top)
        self.daemon = Daemon(flags=()).start(wait_for=STARTING)
        self.queue = Queue.open()

    def _copy(self, paths, directory):
        """Copies files into a directory of the volume under names that tell them apart."""
        os.mkdir(self.volume.path(directory))
        copies, used = [], set()
        for path in paths:
            name = os.path.basename(path)
            if name in used:
                name = f"{len(copies)}-{name}"
            used.add(name)
            copies.append(shutil.copyfile(path, self.volume.path(f"{directory}/{name}")))
        return copies

    def end(self):
        """Ends the daemon, unmounts the volume, ends the cache; returns the exit status of daemon and cache."""
        return self.daemon.stop(), self.volume.close()

    def close(self):
        """Ends all of it; both must end with 0, and the daemon must have logged no error."""
        ended = self.end()
        assert ended == (0, 0), f"exit status of the daemon and of the cache: {ended}"
        self.daemon.check()
