# SPDX-License-Identifier: MIT
# not sanitized: the leak check cannot run in a process that is traced
"""Every system call of a day in the service's life fails once, and from then on."""
import os

from lab import daemon as daemons
from lab import evidence, journal, queue as queues

import ground as grounds
import tracing

ABOUT = "failed system calls"
SHORT, FULL = 14, None
PIECES = 530  # extents: more than the 512 of a batch
BLOCK = 4096
UNREADABLE = ("Prase file", "Can't read data from config file", "Can't open config file", "Can't write to files",
              "Write json data to config", "Can't find config file")
NO_MEMORY = ("std::bad_alloc", "std::system_error")


class Scene:
    """A volume with three plain files and one in more pieces than a batch holds."""

    def __init__(self, ground):
        self.ground, self.volume = ground, ground.volume()
        self.mount = self.volume.mount_path
        self.files = [self.volume.write(f"photos/{n}.jpg", 90_000 + n) for n in range(3)]
        self.pieces = self.volume.path("pieces")
        with open(self.pieces, "wb") as file:
            for piece in range(PIECES):
                os.pwrite(file.fileno(), bytes([piece % 251]) * BLOCK, 2 * piece * BLOCK)
            os.fsync(file.fileno())
        self.configuration = daemons.CONFIGURATION

    def send(self, queue):
        """A day's requests: two pins, an unpin over a batch border, a pin that waits for a release, a reload."""
        queue.pin(self.mount, self.files[:2])
        queue.unpin(self.mount, [self.pieces, self.files[0]])
        queue.send(queues.ADD_PENDING, self.mount)
        queue.pin(self.mount, [self.files[2]])
        queue.send(queues.REMOVE_PENDING, self.mount)
        queue.send(queues.RELOAD, self.mount)

    def lost(self, daemon):
        """The stored requests that are neither queued nor were begun; None when the file cannot be read."""
        stored = {str(number) for number in range(len(daemon.logged("Signal a new request is added")))}
        try:
            document = evidence.configuration(self.configuration) or {}
        except ValueError:
            return None
        dropped = {line.rsplit("(", 1)[1].rstrip(")") for line in daemon.logged(": Remove request (")}
        return stored - grounds.handled(daemon) - dropped - set(document.get("requestQueue") or [])

    def judge(self, daemon, point):
        outcome = self.ground.outcome
        errors = daemon.errors()
        lost = self.lost(daemon)
        if lost is None or lost and any(text in line for line in errors for text in UNREADABLE):
            outcome.note("files that a failed rewriting has cut, with an error line")
        elif lost:
            outcome.add("losses", point, f"requests {sorted(lost)}; {errors}")
        differ = grounds.disagreement(self.volume)
        if differ and not errors:
            outcome.add("losses", point, f"bitmap and driver differ in {sorted(differ)[:8]} without an error")

    def recover(self, point):
        """A start without a fault, which works off what is queued; then everything is pinned and released."""
        for fresh in (False, True):
            if fresh:
                grounds.forget(self.configuration)
            daemon = self.ground.daemon(wait_for=None)
            journal.until(lambda: not grounds.receives(daemon) or daemon.logged(daemons.RECEIVING), "it does not start")
            if grounds.receives(daemon) and queues.published_key() is not None:
                queue = queues.Queue.open()
                for send in (queue.pin, queue.unpin):
                    send(self.mount, [*self.files, self.pieces])
            clean = self.ground.rest(daemon, point) and grounds.whole(daemon)
            self.ground.end(daemon, point)
            if clean:
                break
            queues.remove_all()  # the second start finds no queue, and no file: it must do
        else:
            self.ground.outcome.add("reports", point, f"no start helps: {self.ground.said(daemon)}")
        left = grounds.disagreement(self.volume) | self.volume.cache.pinned()
        if left:
            self.ground.outcome.add("losses", point, f"after all were released {sorted(left)[:8]} are set")
        grounds.forget(self.configuration)


def work(scene, point, *options):
    """The day's requests, served while strace has its way. Returns strace's lines."""
    daemon = scene.ground.daemon()
    queue = queues.Queue.open()
    tracer = tracing.Tracer(daemon.pid, *options)
    scene.send(queue)
    if not scene.ground.rest(daemon, point):
        daemon.process.kill()
    scene.ground.end(daemon, point, lambda: out_of_memory(scene, daemon, options))
    trace = tracer.finish()
    scene.judge(daemon, point)
    return trace


def begin(scene, point, *options):
    """A start with a request that waits already, under strace from the program's first instruction on."""
    path = "/run/lab/trace.start"
    daemon = scene.ground.daemon(wait_for=None, prefix=("strace", "-D", "-f", "-qq", "-o", path, *options))
    journal.until(lambda: not daemon.alive() or daemon.logged(daemons.STARTING), "it does not start")
    rested = scene.ground.rest(daemon, point)
    if rested and daemon.alive() and queues.published_key() is not None and grounds.receives(daemon):
        queues.Queue.open().send(queues.RELOAD, scene.mount)
        scene.ground.rest(daemon, point)
    scene.ground.end(daemon, point, lambda: out_of_memory(scene, daemon, options))
    scene.judge(daemon, point)
    return tracing.lines(path)


def out_of_memory(scene, daemon, options):
    """Whether it ended because it was refused memory, as it says. There is nothing that it could do."""
    told = any(name in scene.ground.said(daemon) for name in NO_MEMORY)
    if told and "ENOMEM" in options[-1]:
        scene.ground.outcome.note("ends for want of memory")
    return told and "ENOMEM" in options[-1]


def until_started(trace):
    """The lines before the first of the service's own log."""
    return trace[:next(index for index, line in enumerate(trace) if "sendto(" in line)]


def run(ground):
    scene = Scene(ground)
    trace = begin(scene, "a start without a fault")
    starts = [("start", begin, *point) for point in tracing.points(tracing.most(until_started(trace)),
                                                                  tracing.most(trace))]
    scene.recover("a start without a fault")
    trace = work(scene, "without a fault")
    works = [("work", work, *point) for point in tracing.points({}, tracing.most(trace))]
    scene.recover("without a fault")
    assert ground.outcome.meant == {}, "something failed without a fault"
    points = starts + works
    if ground.wanted:  # as many of each call, however often it is made
        calls = sorted({point[2] for point in points})
        points = [ground.random.choice([point for point in points if point[2] == calls[index % len(calls)]])
                  for index in ground.random.sample(range(max(ground.wanted, len(calls))), ground.wanted)]
    for name, action, call, number, always in points:
        error = ground.random.choice([error for error in tracing.ERRORS[call] if not always or error != "EINTR"])
        point = f"{name}: {call} {error} at {number}{' and on' if always else ''}"
        ground.outcome.points += 1
        if name == "start" and number % 2:
            queues.remove_all()
        action(scene, point, *tracing.failing(call, error, number, always))
        scene.recover(point)
