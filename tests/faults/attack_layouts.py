# SPDX-License-Identifier: MIT
"""Files of random layouts are pinned and released in random order; filefrag tells which bits that must set."""
import fcntl
import os
import re
import subprocess
import threading

from lab import evidence, libc, queue as queues

import ground as grounds

ABOUT = "random layouts on ext4 and XFS"
SHORT, FULL = 6, 200  # layouts, half of them on either file system
BLOCK = 4096
FILES, STEPS = 6, 10  # of each layout
_FICLONE = 0x40049409
_PUNCH = ["fallocate", "--punch-hole", "--keep-size"]
_EXTENT = re.compile(r"^\s*\d+:\s*\d+\.\.\s*\d+:\s*(\d+)\.\.\s*(\d+):", re.M)


def units_told(path):
    """The units of a file, as filefrag tells its extents in sectors."""
    told = subprocess.run(["filefrag", "-e", "-s", f"-b{evidence.SECTOR}", path], check=True, text=True,
                          errors="surrogateescape", stdout=subprocess.PIPE).stdout
    return {unit for first, last in _EXTENT.findall(told)
            for unit in range(int(first) // evidence.UNIT_SECTORS, int(last) // evidence.UNIT_SECTORS + 1)}


class Layout:
    """Some files of one volume, each made in one of the ways below."""

    def __init__(self, random, volume, number):
        self.random, self.volume, self.number = random, volume, number
        ways = [self.plain, self.sparse, self.preallocated, self.punched, self.interleaved]
        self.paths = []
        for index in range(FILES):
            path = volume.path(f"{number}/{index}")
            os.makedirs(os.path.dirname(path), exist_ok=True)
            clone = volume.kind == "xfs" and self.paths and random.random() < 0.3
            (self.reflinked if clone else random.choice(ways))(path)
            self.paths.append(path)
        libc.sync(volume.mount_path)

    def _write(self, path, places, room=BLOCK):
        with open(path, "ab") as file:
            for place in places:
                os.pwrite(file.fileno(), os.urandom(room), place)
            if self.random.random() < 0.5:
                os.fsync(file.fileno())

    def _size(self):
        return self.random.randint(1, self.random.choice((3, 40, 400))) * BLOCK

    def plain(self, path):
        self._write(path, [0], self._size() - self.random.randrange(BLOCK))

    def sparse(self, path):
        blocks = self.random.sample(range(2000), self.random.randint(1, 120))
        self._write(path, [block * BLOCK for block in blocks])

    def preallocated(self, path):
        with open(path, "wb") as file:
            os.posix_fallocate(file.fileno(), 0, self._size())
        if self.random.random() < 0.5:
            self._write(path, [self.random.randrange(20) * BLOCK])

    def punched(self, path):
        size = self._size() + 20 * BLOCK
        self._write(path, [0], size)
        for _ in range(self.random.randint(1, 5)):
            place = self.random.randrange(1, size // BLOCK) * BLOCK
            subprocess.run([*_PUNCH, "--offset", str(place), "--length", str(BLOCK), path], check=True)

    def interleaved(self, path):
        """In step with another file, so that neither lies in one piece."""
        for place in range(self.random.randint(1, 30)):
            for one in (path, path + ".other"):
                self._write(one, [place * BLOCK * self.random.choice((1, 1, 3))])

    def reflinked(self, path):
        with open(self.random.choice(self.paths), "rb") as source, open(path, "wb") as target:
            fcntl.ioctl(target.fileno(), _FICLONE, source.fileno())
        if self.random.random() < 0.5:
            self._write(path, [self.random.randrange(10) * BLOCK])  # its own copy of that block


def judge(ground, point, volume, at_least, at_most):
    file, driver = evidence.pinned_bits(volume.mount_path), volume.cache.pinned()
    if file != driver:
        ground.outcome.add("losses", point, f"bitmap and driver differ in {sorted(file ^ driver)[:8]}")
    if not at_least <= file <= at_most:
        ground.outcome.add("losses", point, f"missing {sorted(at_least - file)[:8]}, "
                                            f"too many {sorted(file - at_most)[:8]}")


class Attack:
    """One volume, its daemon, and the bits that must be set."""

    def __init__(self, ground, kind):
        self.ground, self.random = ground, ground.random
        self.volume = ground.volume(kind, kind=kind)
        self.set = set()

    def layout(self, number):
        self.layout_ = Layout(self.random, self.volume, number)
        self.ground.clear_log()
        self.daemon, self.queue = self.ground.daemon(), queues.Queue.open()
        point = f"{self.volume.kind} {number}"
        for step in range(STEPS):
            self.step(f"{point} step {step}")
        self.ask(queues.UNPIN, self.layout_.paths, f"{point} at the end")
        self.ground.end(self.daemon, point)
        if self.daemon.errors():
            self.ground.outcome.add("reports", point, str(self.daemon.errors()[:3]))
        queues.remove_all()
        self.ground.outcome.points += 1

    def step(self, point):
        chosen = self.random.sample(self.layout_.paths, self.random.randint(1, 3))
        if self.random.random() < 0.2:
            self.grow(chosen[0], point)
        else:
            self.ask(self.random.choice((queues.PIN, queues.PIN, queues.UNPIN)), chosen, point)

    def ask(self, kind, paths, point):
        """A request, and the oracle: a pin sets what the files have, a release clears it, shared or not."""
        units = set().union(*map(units_told, paths))
        self.set = self.set | units if kind == queues.PIN else self.set - units
        self.queue.send(kind, self.volume.mount_path, ";".join(paths))
        self.ground.rest(self.daemon, point)
        judge(self.ground, point, self.volume, self.set, self.set)

    def grow(self, path, point):
        """A file is pinned while it grows: all that it had is set, and nothing that it never had.

        XFS allocates ahead of a growing file and takes back what was not needed; a pin may have met that.
        """
        before, ended = units_told(path), threading.Event()
        met = set(before)

        def append():
            with open(path, "ab") as file:
                while not ended.wait(0.001) and len(met) < 200:
                    file.write(os.urandom(3 * BLOCK))
                    file.flush()
                    met.update(units_told(path))
                os.fsync(file.fileno())
        writer = threading.Thread(target=append)
        writer.start()
        self.queue.pin(self.volume.mount_path, [path])
        self.ground.rest(self.daemon, point)
        ended.set()
        writer.join()
        judge(self.ground, point, self.volume, self.set | before, self.set | met | units_told(path))
        self.set = evidence.pinned_bits(self.volume.mount_path)
        self.ask(queues.PIN, [path], point)


def run(ground):
    for kind in ("ext4", "xfs"):
        attack = Attack(ground, kind)
        for number in range(max(1, ground.wanted // 2)):
            attack.layout(number)
            for path in (*attack.layout_.paths, *(path + ".other" for path in attack.layout_.paths)):
                grounds.forget(path)
