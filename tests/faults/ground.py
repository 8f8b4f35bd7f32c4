# SPDX-License-Identifier: MIT
"""What an attack stands on: a volume behind a cache, and daemons whose pauses are a hundredth of theirs."""
import os
import random
import re
import shutil
import signal

from lab import daemon as daemons
from lab import evidence, journal, namespaces, processes, queue, volume

SHORT_PAUSES = "lib/short_pauses.so"
PATIENCE = 100.0  # seconds: more than all prescribed waits of one request, shortened, on a busy machine
_MSGRCV, _FUTEX, _NANOSLEEP = "70", "202", "230"  # of x86-64; attacks run on the machine itself
_ENDED_REQUEST = re.compile(r"Handle request (?P<again>interruped )?\(num = (?P<number>\d+)")


class Ground:
    """points: how many are wanted, None for all. Everything random comes from `random`."""

    def __init__(self, outcome, points, seed):
        self.outcome, self.wanted, self.random = outcome, points, random.Random(seed)
        self._volumes, self._daemons = [], []

    def volume(self, name="vol1", **options):
        self._volumes.append(volume.Volume(name, **options))
        return self._volumes[-1]

    def daemon(self, wait_for=daemons.RECEIVING, prefix=(), **options):
        """A started daemon; `prefix` is a command that runs it. Its arguments are lab.daemon.Daemon's."""
        environment = {"LD_PRELOAD": os.path.join(namespaces.build_directory(), SHORT_PAUSES)}
        made = daemons.Daemon(environment={} if prefix else environment, **options)
        if prefix:
            made.arguments = [*prefix, "-E", f"LD_PRELOAD={environment['LD_PRELOAD']}", *made.arguments]
        self._daemons.append(made)
        return made.start(wait_for)

    def end(self, daemon, point, aborts=lambda: False, number=signal.SIGTERM):
        """Stops a daemon that may have ended, and judges its end and its sanitizer's reports."""
        try:
            status = daemon.stop(number)
        except TimeoutError as error:
            self.outcome.add("hangs", point, str(error))
            status = 0
        if status < 0 and status not in (-number, -signal.SIGKILL) and not aborts():
            self.outcome.add("crashes", point, f"ended by signal {-status}: {self.said(daemon)}")
        for report in processes.take_reports():
            self.outcome.add("reports", point, report)
        self._daemons.remove(daemon)
        return status

    def said(self, daemon):
        return " | ".join([*processes.text_of(daemon.output).splitlines()[-2:], *daemon.log()[-3:]])

    def clear_log(self):
        """Empties the system log, which would otherwise outgrow the memory. No daemon may be running."""
        assert not self._daemons
        os.truncate(journal.FILE, 0)

    def rest(self, daemon, point):
        """Waits until it has ended or has nothing to do any more. Returns False, noted, when it never has."""
        seen = []

        def quiet():
            if not daemon.alive():
                return True
            look = resting(daemon)
            seen.append(look)
            return look is not None and len(seen) > 1 and look == seen[-2]
        try:
            journal.until(quiet, "", PATIENCE)
            return True
        except TimeoutError:
            self.outcome.add("hangs", point, self.said(daemon))
            return False

    def close(self):
        for daemon in list(self._daemons):
            self.end(daemon, "at the end")
        for one in reversed(self._volumes):
            one.close()
        for report in processes.take_reports():
            self.outcome.add("reports", "at the end", report)
        queue.remove_all()
        shutil.rmtree(volume.DIRECTORY, ignore_errors=True)


def _of_thread(pid, thread, name):
    with open(f"/proc/{pid}/task/{thread}/{name}", encoding="utf-8") as file:
        return file.read()


def resting(daemon):
    """What two looks at a daemon that does nothing have in common; None while it does something."""
    look = []
    try:
        states = daemon.threads()
        for thread, state in sorted(states.items()):
            if state == "Z":
                continue
            if state != "S":
                return None
            call = _of_thread(daemon.pid, thread, "syscall").split(" ", 1)[0]
            if call == _NANOSLEEP and states.get(daemon.pid) == "Z" and daemon.log()[-1:] and any(
                    "is pending" in line for line in daemon.log()[-12:]):
                return "waits for a release that nobody receives"
            if call not in (_MSGRCV, _FUTEX):
                return None
            switches = re.search(r"^voluntary_ctxt_switches:\s*(\d+)", _of_thread(daemon.pid, thread, "status"), re.M)
            look.append((thread, call, switches[1]))
    except (FileNotFoundError, ProcessLookupError):
        return None
    return look


def receives(daemon):
    """Whether its receiver is there; asked of one that may be ending just now."""
    try:
        return daemon.receiver_alive()
    except (FileNotFoundError, ProcessLookupError):
        return False


def whole(daemon):
    """Whether both its threads are there."""
    try:
        return daemon.alive() and len(daemon.threads()) > 1 and "Z" not in daemon.threads().values()
    except (FileNotFoundError, ProcessLookupError):
        return False


def handled(daemon):
    """The numbers of the requests that it has begun, and not left in the queue for later."""
    numbers = set()
    for found in filter(None, map(_ENDED_REQUEST.search, daemon.log())):
        (numbers.discard if found["again"] else numbers.add)(found["number"])
    return numbers


def disagreement(volume_):
    """The units in which bitmap file and driver differ."""
    return evidence.pinned_bits(volume_.mount_path) ^ volume_.cache.pinned()


def forget(*paths):
    for path in paths:
        if os.path.lexists(path):
            os.unlink(path)
