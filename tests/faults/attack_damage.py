# SPDX-License-Identifier: MIT
# only sanitized: it looks for reports
"""Whatever stands in its files and messages, the service neither crashes nor hangs, and what it pins is in file and driver."""
import ctypes
import os

from lab import daemon as daemons
from lab import evidence, journal, libc, queue as queues

import ground as grounds
from mutations import damaged

ABOUT = "damaged files and random messages"
BUILD = "asan"
SHORT, FULL = 8, 10_000  # of each kind
REGISTRY = "/run/quorsoftcache/vol1.json"
SETTINGS = "/tmp/quorcachepinfiletool.debug"
NO_NUMBER = "stoi"  # what a key file that holds none ends the service with, on purpose
LONGEST = 8000      # bytes of a message; the system takes 8192
PER_LOG = 50        # cases after which the system log is emptied


def content(path):
    with open(path, "rb") as file:
        return file.read()


def write(path, raw):
    """Into the file that is there, if one is: it stays the same file."""
    with open(path, "wb") as file:
        file.write(raw)


def published():
    """The queue, as a client would find it; None when its key cannot be had."""
    try:
        return queues.Queue(libc.call("msgget", queues.published_key(), 0))
    except (OSError, ctypes.ArgumentError, ValueError, TypeError):
        return None


class Kind:
    """Damage of one file, or of messages. fresh: the service reads it at its start only."""

    def __init__(self, scene, name, path, raws, fresh):
        self.scene, self.name, self.path, self.raws, self.fresh = scene, name, path, raws, fresh
        self.ground, self.outcome = scene.ground, scene.ground.outcome

    def run(self):
        daemon = self.begin() if self.name == "key" else None
        for index in range(self.ground.wanted):
            raw = damaged(self.ground.random, self.ground.random.choice(self.raws))
            point = f"{self.name} {index}: {raw[:120]!r}"
            if daemon and (self.fresh or not grounds.whole(daemon) or index % PER_LOG == 0):
                daemon = self.finish(daemon, point)
            self.outcome.points += 1
            daemon = self.attempt(daemon, raw, point)
        if daemon:
            self.finish(daemon, self.name)
        self.scene.restore()

    def attempt(self, daemon, raw, point):
        """One damaged input; returns the daemon that got it."""
        cache = self.scene.volume.cache
        cache.control("reset-counters")
        errors = len(daemon.errors()) if daemon else 0
        if self.path and self.fresh:
            write(self.path, raw)
        daemon = daemon or self.begin()
        if self.path and not self.fresh:
            write(self.path, raw)
        queue = published() if grounds.whole(daemon) else None
        if queue:
            self.send(queue, raw)
        if not self.ground.rest(daemon, point):
            daemon.process.kill()
        self.outcome.note(f"of {self.name} were {'answered with an error line' if len(daemon.errors()) > errors else 'taken'}")
        differ = cache.requests() and grounds.disagreement(self.scene.volume)
        if differ and len(daemon.errors()) == errors:
            self.outcome.add("losses", point, f"bitmap and driver differ in {sorted(differ)[:8]} without an error")
        return daemon

    def send(self, queue, raw):
        if self.path is None:
            queue.send_raw(raw[:LONGEST])
        else:
            queue.pin(self.scene.volume.mount_path, [self.scene.photo])
            queue.send(queues.RELOAD, self.scene.volume.mount_path)

    def begin(self):
        daemon = self.ground.daemon(wait_for=None)
        journal.until(lambda: not daemon.alive() or daemon.logged(daemons.STARTING), "it does not start")
        journal.until(lambda: not daemon.alive() or grounds.resting(daemon), "it is never at rest")
        return daemon

    def finish(self, daemon, point):
        key = self.name == "key"
        self.ground.end(daemon, point, lambda: key and NO_NUMBER in self.ground.said(daemon))
        self.scene.restore(keep_queue=key)  # a key is read where there is a queue already
        self.ground.clear_log()


class Scene:
    """A volume with a pinned file, and what is real of each kind."""

    def __init__(self, ground):
        self.ground, self.volume = ground, ground.volume()
        self.photo = self.volume.write("photos/a.jpg", 70_000)
        daemon, queue = ground.daemon(), queues.Queue.open()
        queue.pin(self.volume.mount_path, [self.photo])
        daemon.until_done("pinFiles")
        ground.rest(daemon, "the beginning")
        self.bitmap = self.volume.path(evidence.BITMAP_FILE)
        self.real = {path: content(path) for path in
                     (daemons.CONFIGURATION, self.bitmap, queues.KEY_FILE, REGISTRY)}
        queue.send(queues.ADD_PENDING, self.volume.mount_path)
        queue.unpin(self.volume.mount_path, [self.photo])
        queue.send(queues.RELOAD, self.volume.mount_path)
        daemon.wait_for("Signal a new request is added", 3)
        self.queued = content(daemons.CONFIGURATION)
        ground.end(daemon, "the beginning")
        self.restore()

    def restore(self, keep_queue=False):
        """Everything as it was, for the next start."""
        if not keep_queue:
            queues.remove_all()
        grounds.forget(SETTINGS)
        for path in (daemons.CONFIGURATION, self.bitmap, REGISTRY):
            write(path, self.real[path])

    def kinds(self):
        mount, photo = self.volume.mount_path, self.photo
        messages = [queues.body(kind, mount, data) for kind, data in (
            (queues.PIN, photo), (queues.UNPIN, photo), (queues.PIN, f"{photo};{photo}"), (queues.RELOAD, ""),
            (queues.ADD_PENDING, ""), (queues.REMOVE_PENDING, ""))]
        yield Kind(self, "configuration", daemons.CONFIGURATION, [self.real[daemons.CONFIGURATION], self.queued], True)
        yield Kind(self, "bitmap", self.bitmap, [self.real[self.bitmap], b"\xff" * 2000], False)
        yield Kind(self, "key", queues.KEY_FILE, [self.real[queues.KEY_FILE], b"-5", b"12\n"], True)
        yield Kind(self, "registry", REGISTRY, [self.real[REGISTRY]], False)
        yield Kind(self, "settings", SETTINGS, [b"print_level=debug\n", b"print_level=\"verbose\"\n# x\na = b\n",
                                                os.fsencode(photo) + b"\n"], True)
        yield Kind(self, "messages", None, messages, False)


def run(ground):
    for kind in Scene(ground).kinds():
        kind.run()
