# SPDX-License-Identifier: MIT
# not sanitized: an end out of a signal handler may wait for good on the sanitizer's own allocator
"""The service is killed, stopped and left without room while it stores, and its file held against a model."""
import json
import os
import signal
import time

from lab import daemon as daemons
from lab import evidence, libc, queue as queues

import ground as grounds

ABOUT = "kills, stops and a full disk while requests are stored"
SHORT, FULL = 25, 1000
LONGEST = 0.15  # seconds from the start to the kill
MOST = 12       # requests sent to one start
FILLED = "/tmp/filled"


class Model:
    """What the configuration file must hold, from what was sent and received.

    stored: the requests that have a number, by that number; done: how many of them have left the queue.
    arriving: those that were sent and have no number yet.
    """

    def __init__(self, mount_path):
        self.mount_path = mount_path
        self.arriving = []
        self.forget()

    def forget(self):
        self.stored, self.done = [], 0

    def listed(self):
        files = {}
        for kind, names in self.stored[:self.done]:
            for name in names:
                inode = str(os.stat(f"{self.mount_path}/{name}").st_ino % 2**32)
                files.pop(inode, None)
                if kind == queues.PIN:
                    files[inode] = name
        return files

    def request(self, number):
        kind, names = self.stored[number]
        data = ";".join(f"{name}#{os.stat(f'{self.mount_path}/{name}').st_ino % 2**32}" for name in names)
        return {"type": "pinFiles" if kind == queues.PIN else "unpinFiles", "mountPath": self.mount_path,
                "data": data}

    def document(self):
        """Of the members that count; the queue is null once it was emptied, and absent at first."""
        waiting = range(self.done, len(self.stored))
        return {"nextRequestNum": len(self.stored), "requestQueue": [str(number) for number in waiting],
                "requests": {str(number): self.request(number) for number in waiting},
                "files": self.listed()}


def found(path, mount_path):
    """The same of the file; None when it is empty or cut."""
    try:
        with open(path, encoding="utf-8") as file:
            text = json.load(file)
    except FileNotFoundError:
        text = {}
    except ValueError:
        return None
    files = ((text.get("volumes") or {}).get(mount_path) or {}).get("files") or {}
    return {"nextRequestNum": text.get("nextRequestNum") or 0, "requestQueue": text.get("requestQueue") or [],
            "requests": text.get("requests") or {}, "files": files}


class Kills:
    def __init__(self, ground, volume):
        self.ground, self.outcome, self.volume = ground, ground.outcome, volume
        self.mount = self.volume.mount_path
        self.names = [f"photos/{n}.jpg" for n in range(6)]
        self.paths = [volume.write(name, 70_000) for name in self.names]
        self.model, self._done = Model(self.mount), 0
        self.start_over()

    def start_over(self):
        queues.remove_all()
        daemon = self.ground.daemon()
        self.queue = queues.Queue.open()
        self.ground.end(daemon, "a start of its own")

    def send_some(self):
        for _ in range(self.ground.random.randint(0, MOST)):
            kind = self.ground.random.choice((queues.PIN, queues.PIN, queues.UNPIN))
            names = self.ground.random.sample(self.names, self.ground.random.randint(1, 2))
            self.queue.send(kind, self.mount, ";".join(f"{self.mount}/{name}" for name in names))
            self.model.arriving.append((kind, names))

    def kill(self, point, number):
        """One start, and its end by the signal `number` at a random moment.

        Stops in order meet the normal level: the handler logs at the others, and a signal that comes while its
        thread logs then waits for its own lock for good. That is how the service behaves.
        """
        self.ground.clear_log()
        flags = ("--verbose",) if number == signal.SIGKILL else ()
        daemon = self.ground.daemon(wait_for=daemons.STARTING, flags=flags)
        self.send_some()
        time.sleep(self.ground.random.uniform(0, LONGEST))  # the moment is what is tried out
        self.ground.end(daemon, point, number=number)
        self.compare(daemon, point, number == signal.SIGKILL)

    def compare(self, daemon, point, by_force):
        model, document = self.model, found(daemons.CONFIGURATION, self.mount)
        if document is None:
            if by_force:
                self.outcome.note("of the kills fell between truncation and write and left the file empty or cut")
            else:
                self.outcome.add("losses", point, "a stop in order left the file empty or cut")
            grounds.forget(daemons.CONFIGURATION)
            model.forget()
            model.arriving = model.arriving[len(model.arriving) - self.queue.state().messages:]
            return
        received = len(model.arriving) - self.queue.state().messages
        stored = document["nextRequestNum"] - len(model.stored)
        if received - stored == 1:
            self.outcome.note("requests were received and not yet stored")
        elif received != stored:
            self.outcome.add("losses", point, f"{received} received, {stored} stored")
        signalled = len(daemon.logged("Signal a new request is added")) if by_force else stored
        done = len(daemon.logged("Handle request (type="))
        model.stored += model.arriving[:stored]
        model.arriving = model.arriving[received:]
        model.done = len(model.stored) - len(document["requestQueue"])
        if model.document() != document:
            self.outcome.add("losses", point, f"{document}, not {model.document()}")
        if not 0 <= stored - signalled <= 1 or not 0 <= model.done - self._done - done <= 1:
            self.outcome.add("losses", point, f"told of {signalled} stored and {done} done, not of {stored} and "
                                              f"{model.done - self._done}")

    def point(self, index):
        self._done = self.model.done
        number = signal.SIGKILL if self.ground.random.random() < 0.7 else signal.SIGTERM
        self.kill(f"{index}: {signal.Signals(number).name}", number)
        self.outcome.points += 1

    def work_off(self):
        """A start that nobody kills leaves nothing queued, and file and driver as the list has it."""
        daemon = self.ground.daemon()
        self.queue.pin(self.mount, self.paths)
        self.queue.unpin(self.mount, self.paths[:3])
        self.ground.rest(daemon, "working off")
        self.ground.end(daemon, "working off")
        pinned = evidence.units(self.paths[3:]) - evidence.units(self.paths[:3])
        document = found(daemons.CONFIGURATION, self.mount)
        for what, is_there, wanted in (
                ("listed", document["files"], evidence.listing(self.mount, self.paths[3:])),
                ("queued", document["requestQueue"], []),
                ("in the bitmap", evidence.pinned_bits(self.mount), pinned),
                ("with the driver", self.volume.cache.pinned(), pinned)):
            if is_there != wanted:
                self.outcome.add("losses", "working off", f"{what}: {is_there}, not {wanted}")


def expect(ground, daemon, point, *texts):
    """Ends the daemon and demands these error lines of it."""
    ground.rest(daemon, point)
    ground.end(daemon, point)
    errors = daemon.errors()
    for text in texts:
        if not any(text in line for line in errors):
            ground.outcome.add("losses", point, f"no line {text!r}: {errors}")
    ground.outcome.points += 1


def fill(path):
    with open(path, "wb") as file:
        try:
            for size in (1 << 20, 4096, 1):
                while True:
                    try:
                        os.write(file.fileno(), bytes(size))
                        os.fsync(file.fileno())
                    except OSError:
                        break
        finally:
            file.flush()


def without_room(ground, volume):
    """The store, and then the volume, without room."""
    queues.remove_all()
    path = f"{FILLED}/quorcachepinfile.conf"
    os.makedirs(FILLED)
    libc.mount("tmpfs", FILLED, "tmpfs", 0, "size=64k")
    photo = volume.write("last.jpg", 70_000)
    for point, first, then in (("a full disk from the start", 0, "Get request error"),
                               ("a disk that fills up", 60, "Prase file")):
        fill(f"{FILLED}/filling")
        os.truncate(f"{FILLED}/filling", os.path.getsize(f"{FILLED}/filling") - (4096 if first else 0))
        daemon = ground.daemon(configuration=path)
        queue = queues.Queue.open()
        queue.send(queues.ADD_PENDING, volume.mount_path)
        for _ in range(first + 2):
            queue.pin(volume.mount_path, [photo])
        expect(ground, daemon, point, then, f"Can't read data from config file ({path})", "Can't add request to config")
        if found(path, volume.mount_path) is None:
            ground.outcome.note("files that a full disk has cut, with error lines")
        queues.remove_all()
        grounds.forget(path, f"{FILLED}/filling")
    libc.unmount(FILLED)
    grounds.forget(volume.path(evidence.BITMAP_FILE), daemons.CONFIGURATION)
    fill(volume.path("filling"))
    before = volume.cache.pinned_bytes()
    daemon = ground.daemon()
    queues.Queue.open().pin(volume.mount_path, [photo])
    expect(ground, daemon, "a full volume", "Write bitmap failed", "drop it.")
    if volume.cache.pinned_bytes() != before:
        ground.outcome.add("losses", "a full volume", "the driver was given what is not in the file")
    grounds.forget(volume.path("filling"))


def run(ground):
    kills = Kills(ground, ground.volume())
    for index in range(ground.wanted):
        kills.point(index)
    kills.work_off()
    without_room(ground, kills.volume)
