# SPDX-License-Identifier: MIT
"""A running quorsoftcache, and what it tells: the driver's side of the evidence."""
import ctypes
import fcntl
import json
import os
import struct

from lab import evidence, journal, namespaces, processes

_SET_PIN_BITMAP = 0xFECF


class Cache:
    """A cache of `cache_size` bytes before the file `backing`, serving from construction to `stop`.

    directory: where its SSD file, its output and the directory that it mounts are kept.
    """

    def __init__(self, name, backing, directory, cache_size):
        self.name, self.size = name, cache_size
        self.mount = os.path.join(directory, "cache")
        self.output = os.path.join(directory, "cache.out")
        self.device = os.path.join(self.mount, "device")
        self._arguments = [namespaces.program("quorsoftcache"), "--name", name, "--backing", backing,
                           "--ssd", os.path.join(directory, "ssd"), "--ssd-size", str(cache_size),
                           "--mount", self.mount, "--distrust", os.path.join(directory, "distrust"),
                           "--test-doors"]
        os.makedirs(self.mount, exist_ok=True)
        self.start()

    def start(self, cache_size=None):
        """Starts it (again, after `stop` or a kill) and waits until it serves.

        cache_size: another size than it had; then it is cold, and knows its pins still.
        """
        if cache_size is not None:
            self.size = cache_size
            self._arguments[self._arguments.index("--ssd-size") + 1] = str(cache_size)
        ready = f"quorsoftcache: {self.name} ready\n"
        before = processes.text_of(self.output).count(ready)
        self.process = processes.start(self._arguments, self.output)
        journal.until(lambda: processes.text_of(self.output).count(ready) > before
                      or self.process.poll() is not None, f"{self.name}: the cache is not ready")
        if self.process.poll() is not None:
            raise RuntimeError(f"{self.name}: {processes.text_of(self.output)}")

    def stop(self):
        """Ends it in order; returns its exit status."""
        return processes.stop(self.process)

    def stats(self):
        """Its counters, as a dictionary."""
        with open(os.path.join(self.mount, "stats.json"), encoding="utf-8") as file:
            return json.load(file)

    def control(self, command):
        """Asks for a fault or a change of state, such as "refuse-control 1" or "fail-read 0 4096"."""
        with open(os.path.join(self.mount, "control"), "w", encoding="utf-8") as file:
            file.write(command + "\n")

    def pin(self, units):
        """Hands it a bitmap in which these units are set, as the service does."""
        bitmap = bytearray(self.stats()["units"] // 8)
        for unit in units:
            bitmap[unit // 8] |= 1 << unit % 8
        bytes_of = (ctypes.c_char * len(bitmap)).from_buffer(bitmap)
        with open(self.device, "rb", buffering=0) as device:
            fcntl.ioctl(device, _SET_PIN_BITMAP, struct.pack("@PI4x", ctypes.addressof(bytes_of), len(bitmap)))

    def resident(self):
        """The set of units that are in the cache now."""
        return self._bits("resident")

    def pinned(self):
        """The set of units that are set in the last bitmap it was given."""
        return self._bits("pinned")

    def pinned_bytes(self):
        """The last bitmap it was given, byte for byte."""
        return self._raw("pinned")

    def requests(self, since=0):
        """The control requests received, as [request, result, count], those with seq above `since`.

        request: "bitmap" or "unpin"; result: 0 or -errno; count: the bitmap's bytes or the ranges.
        """
        return [[row["request"], row["result"], row.get("bytes", row.get("ranges"))]
                for row in self.stats()["requests"] if row["seq"] > since]

    def _raw(self, name):
        with open(os.path.join(self.mount, name), "rb") as file:
            return file.read()

    def _bits(self, name):
        return evidence.bits(self._raw(name))
