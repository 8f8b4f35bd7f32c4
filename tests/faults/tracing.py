# SPDX-License-Identifier: MIT
"""System calls counted and made to fail, by strace. It counts the calls of each thread for itself."""
import collections
import os
import re
import subprocess

from lab import journal

# The calls that are made to fail, and the errors that each can have. Left out: those of the system log, by which
# the outcome is judged, and those by which threads wait for one another, which have no errors.
ERRORS = {
    "access": ("EACCES", "ENOENT"), "brk": ("ENOMEM",), "clone3": ("EAGAIN",), "close": ("EIO", "EINTR"),
    "faccessat2": ("EACCES", "ENOENT"), "fadvise64": ("EINVAL",), "flock": ("EINTR", "ENOLCK"),
    "fsync": ("EIO", "ENOSPC"), "getdents64": ("EIO", "ENOENT"), "ioctl": ("EIO", "ENOTTY", "EINTR", "ENOMEM"),
    "lseek": ("EINVAL",), "mmap": ("ENOMEM",), "msgctl": ("EPERM", "EIDRM"),
    "msgget": ("EACCES", "ENOENT", "ENOSPC"), "msgrcv": ("EINTR", "EIDRM"),
    "newfstatat": ("EACCES", "EIO", "ENOENT", "ENOMEM"), "openat": ("EACCES", "EIO", "EMFILE", "ENFILE", "ENOENT"),
    "pread64": ("EIO",), "read": ("EIO", "EINTR"), "readlink": ("EACCES", "ENOENT"), "statfs": ("EIO",),
    "statx": ("EACCES", "EIO"), "write": ("EIO", "ENOSPC", "EINTR"),
}
_CALL = re.compile(r"^(\d+) +(\w+)\(")


class Tracer:
    """strace on a running process, from construction until the process has ended."""

    def __init__(self, pid, *options):
        self.output = f"/run/lab/trace.{pid}"
        self._process = subprocess.Popen(["strace", "-f", "-qq", "-o", self.output, *options, "-p", str(pid)],
                                         stdin=subprocess.DEVNULL, stderr=subprocess.PIPE)
        journal.until(lambda: _traced(pid) or self._process.poll() is not None, "strace does not begin")
        assert self._process.poll() is None, self._process.stderr.read()

    def finish(self):
        """Waits for its end; returns the lines that it wrote."""
        self._process.communicate(timeout=journal.PATIENCE)
        return lines(self.output)


def lines(path):
    with open(path, encoding="utf-8", errors="replace") as file:
        return file.readlines()


def _traced(pid):
    for thread in os.listdir(f"/proc/{pid}/task"):
        with open(f"/proc/{pid}/task/{thread}/status", encoding="utf-8") as file:
            if "TracerPid:\t0\n" in file.read():
                return False
    return True


def failing(call, error, number, always):
    """The option that lets `call` fail: its `number`-th time in each thread, or from then on."""
    return "-e", f"inject={call}:error={error}:when={number}{'+' if always else ''}"


def most(trace):
    """{call: the most times that one thread made it} of a trace's lines."""
    counts = collections.Counter(found.groups() for found in filter(None, map(_CALL.match, trace)))
    by_call = collections.Counter()
    for (_, call), count in counts.items():
        by_call[call] = max(by_call[call], count)
    return by_call


def points(before, counts):
    """All (call, number, always) of which strace can let one fail, those of `before` passed over."""
    return [(call, number, always) for call in sorted(ERRORS)
            for number in range(before.get(call, 0) + 1, counts.get(call, 0) + 1) for always in (False, True)]
