# SPDX-License-Identifier: MIT
# not sanitized: an end out of a signal handler may wait for good on the sanitizer's own allocator
"""Two at once, and late: a signal at every step, a thread held up at every step, and a receiver that ends first."""
import signal

from lab import daemon as daemons
from lab import evidence, journal, queue as queues

import attack_calls
import attack_store
import ground as grounds
import tracing

ABOUT = "signals, delays and an early end of intake, at any step"
SHORT, FULL = 12, None
SIGNALS = ("SIGINT", "SIGTERM", "SIGQUIT")
HELD_UP, TIMES = 50_000, 6  # microseconds, and how often in a row


def injected(call, what, first, last):
    """The option that makes something happen to `call`, from one to another of its times in each thread."""
    return "-e", f"inject={call}:{what}:when={first}..{last}"


class Signals(attack_store.Kills):
    """Stops at a system call instead of at a moment, at the normal level; requests wait already at the start."""

    def point_at(self, call, number, name):
        point = f"{name} at {call} {number}"
        self.ground.clear_log()
        self._done = self.model.done
        self.send_some()
        path = "/run/lab/trace.late"
        daemon = self.ground.daemon(wait_for=None, flags=(), prefix=(
            "strace", "-D", "-f", "-qq", "-o", path, *injected(call, f"signal={name}", number, number)))
        journal.until(lambda: not daemon.alive() or grounds.resting(daemon) or daemon.logged(daemons.STARTING), point)
        self.ground.rest(daemon, point)
        status = self.ground.end(daemon, point, lambda: daemon.process.returncode == -signal.Signals[name])
        if status == -signal.Signals[name]:
            self.outcome.note("signals that met the start before it handles them")
        self.compare(daemon, point, by_force=False)
        self.outcome.points += 1


class Delays(attack_calls.Scene):
    """A day's requests with a thread held up at one of its calls, each time from some number on."""

    def point_at(self, call, number, side):
        point = f"held up at {side} of {call} {number}"
        daemon = self.ground.daemon()
        tracer = tracing.Tracer(daemon.pid, *injected(call, f"delay_{side}={HELD_UP}", number, number + TIMES))
        self.send(queues.Queue.open())
        self.ground.rest(daemon, point)
        self.ground.end(daemon, point)
        tracer.finish()
        self.judge_day(daemon, point)
        self.recover(point)
        self.ground.outcome.points += 1

    def judge_day(self, daemon, point):
        """What the day leaves: the three plain files pinned but the one that was released."""
        self.judge_files(daemon, point, evidence.units(self.files[1:]) - evidence.units([self.files[0], self.pieces]))

    def judge_files(self, daemon, point, wanted, errors=()):
        """Nothing is queued, these units are set in bitmap and driver, and no other errors were logged."""
        document = evidence.configuration(self.configuration)
        others = [line for line in daemon.errors() if not any(text in line for text in errors)]
        for what, found, right in (("errors", others, []), ("queued", document["requestQueue"] or [], []),
                                   ("the bitmap", evidence.pinned_bits(self.mount), wanted),
                                   ("the driver", self.volume.cache.pinned(), wanted)):
            if found != right:
                self.ground.outcome.add("losses", point, f"{what}: {found}, not {right}")

    def early_end(self, index):
        """Intake ends on a message that it refuses, at a random place among the day's; the rest waits."""
        point = f"{index}: an early end of intake"
        daemon = self.ground.daemon()
        queue = queues.Queue.open()
        before = self.ground.random.randint(1, 3)
        for path in self.files[:before]:
            queue.pin(self.mount, [path])
        queue.send(queues.PIN, self.mount, "")
        queue.pin(self.mount, [self.pieces])
        journal.until(lambda: not grounds.receives(daemon), f"{point}: intake does not end")
        self.ground.rest(daemon, point)
        waiting = queue.state().messages
        self.ground.end(daemon, point)
        if waiting != 1:
            self.ground.outcome.add("losses", point, f"{waiting} wait that nobody receives, not 1")
        self.judge_files(daemon, point, evidence.units(self.files[:before]), ("Should provide file paths", "Get wrong"))
        queues.remove_all()
        self.recover(point)
        self.ground.outcome.points += 1


def steps(trace):
    """(call, number) of every time that a thread made a call."""
    return [(call, number) for call, most in sorted(tracing.most(trace).items()) for number in range(1, most + 1)]


def chosen(ground, points, part):
    """All points, or a part of as many as are wanted, each call as often."""
    if not ground.wanted:
        return points
    calls = sorted({point[0] for point in points})
    return [ground.random.choice([point for point in points if point[0] == calls[index % len(calls)]])
            for index in ground.random.sample(range(max(ground.wanted, len(calls))), max(1, ground.wanted // part))]


def run(ground):
    delays = Delays(ground)
    trace = attack_calls.work(delays, "without a delay")
    delays.recover("without a delay")
    for call, number in chosen(ground, steps(trace), 3):
        delays.point_at(call, number, ground.random.choice(("enter", "exit")))
    for index in range((ground.wanted or 100) // 3):
        delays.early_end(index)
    signals = Signals(ground, delays.volume)
    for call, number in chosen(ground, steps(trace), 3):
        signals.point_at(call, number, ground.random.choice(SIGNALS))
    signals.work_off()
