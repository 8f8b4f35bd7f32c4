# SPDX-License-Identifier: MIT
"""Readers and writers of a cached device, and a model of what must be on it whatever becomes of the cache."""
import contextlib
import mmap
import os
import random
import threading

from lab import journal, loops

STRIPE = 4096  # bytes; each unit has stripes of every worker
WORKERS = 4


class Disk:
    """A cached device of `size` bytes by a loop device, past the page cache, and what must be on it.

    A stripe whose write failed or was cut off holds the old or the new bytes, until it is read for the
    first time.
    """

    def __init__(self, cache, size):
        self.cache = cache
        self.stripes = [bytes(STRIPE)] * (size // STRIPE)
        self.unsure = {}  # stripe: what else it may hold
        self.wrong = []
        self.failed = 0   # reads and writes

    @contextlib.contextmanager
    def under_fire(self):
        """Everybody reads and writes within the `with`. It ends with an error if somebody does not come back."""
        ended = threading.Event()
        with loops.attached(self.cache.device) as node:
            workers = [threading.Thread(target=self._work, args=(worker, node, ended), daemon=True)
                       for worker in range(WORKERS)]
            for worker in workers:
                worker.start()
            try:
                yield
            finally:
                ended.set()
                for worker in workers:
                    worker.join(journal.PATIENCE)
        if any(worker.is_alive() for worker in workers):
            raise TimeoutError("a read or write of the device does not come back")

    def _work(self, worker, node, ended):
        """Reads and writes this worker's stripes."""
        choice = random.Random(f"{worker} {os.urandom(8)}")
        device = os.open(node, os.O_RDWR | os.O_DIRECT)
        with mmap.mmap(-1, STRIPE) as room:
            while not ended.is_set():
                stripe = choice.randrange(len(self.stripes) // WORKERS) * WORKERS + worker
                try:
                    if choice.random() < 0.6:
                        self._read(device, room, stripe)
                    else:
                        self._write(device, room, stripe, choice.randbytes(STRIPE))
                except OSError:
                    self.failed += 1
                    ended.wait(0.001)  # the cache may have gone
        os.close(device)

    def _read(self, device, room, stripe):
        os.preadv(device, [room], stripe * STRIPE)
        found = bytes(room)
        if found == self.unsure.pop(stripe, None):
            self.stripes[stripe] = found
        if found != self.stripes[stripe]:
            self.wrong.append(stripe)

    def _write(self, device, room, stripe, content):
        if stripe in self.unsure:
            self._read(device, room, stripe)
        room[:] = content
        self.unsure[stripe] = content
        os.pwritev(device, [room], stripe * STRIPE)
        del self.unsure[stripe]
        self.stripes[stripe] = content

    def check_everything(self):
        """Reads all of it. Returns the stripes that were ever wrong; each is told once."""
        with loops.attached(self.cache.device) as node, mmap.mmap(-1, STRIPE) as room:
            device = os.open(node, os.O_RDONLY | os.O_DIRECT)
            for stripe in range(len(self.stripes)):
                self._read(device, room, stripe)
            os.close(device)
        assert not self.unsure
        wrong, self.wrong = self.wrong, []
        return wrong
