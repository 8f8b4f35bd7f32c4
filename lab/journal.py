# SPDX-License-Identifier: MIT
"""The system log of an environment: a datagram socket at /dev/log, kept in a file a record a line.

A record stands as it arrived, priority first ("<11>Nov 21 03:24:00 quorcachepinfiled: ..."); a
newline within it is written as \\n and a backslash as \\\\, so that a line is always one record.

A program may have ended, or be seen to have done something, before the collector has read what it
logged. So `records` and `position` first wait for whatever was sent before them.
"""
import os
import re
import socket
import threading
import time
from typing import NamedTuple

SOCKET = "/dev/log"
FILE = "/run/lab/syslog"
PATIENCE = 90.0  # seconds; a deadline only for what will never come, so it may be generous

_RECORD = re.compile(rb"<(\d+)>(\w{3} [ \d]\d \d\d:\d\d:\d\d) ([^:\[\s]+)(?:\[\d+\])?: ?(.*)", re.S)
_MARK = b"settled "  # what `settle` sends; no record of a program begins like this
_ESCAPES = {b"\\n": b"\n", b"\\\\": b"\\"}


class Record(NamedTuple):
    priority: int  # 0 emergency .. 3 error, 4 warning .. 7 debug
    facility: int  # 1 = user
    ident: str     # the program's name
    text: str      # the message, with any newline it has


def listen():
    """Binds /dev/log and empties the file. Returns the socket for `serve`."""
    os.makedirs(os.path.dirname(FILE), exist_ok=True)
    open(FILE, "wb").close()
    endpoint = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
    endpoint.bind(SOCKET)
    os.chmod(SOCKET, 0o666)
    return endpoint


def serve(endpoint):
    """Collects records from the socket for as long as this process lives."""
    def collect():
        with open(FILE, "ab", buffering=0) as log:
            while True:
                record = endpoint.recv(65536).rstrip(b"\0")
                log.write(record.replace(b"\\", b"\\\\").replace(b"\n", b"\\n") + b"\n")
    threading.Thread(target=collect, daemon=True).start()


def _parse(line):
    raw = re.sub(rb"\\[n\\]", lambda found: _ESCAPES[found.group()], line)
    found = _RECORD.fullmatch(raw)
    if not found:
        return Record(-1, -1, "", raw.decode(errors="replace"))
    code = int(found[1])
    return Record(code & 7, code >> 3, found[3].decode(), found[4].decode(errors="replace"))


def settle():
    """Waits until everything sent before this call has been collected: records arrive in order."""
    since = os.path.getsize(FILE)
    mark = _MARK + f"{os.getpid()} {time.monotonic_ns()}".encode()
    with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as endpoint:
        endpoint.connect(SOCKET)
        endpoint.send(mark)
    until(lambda: mark in _lines(since), "the system log is not collected")


def _lines(since):
    """The whole lines of the file from `since` on."""
    with open(FILE, "rb") as log:
        log.seek(since)
        return log.read().split(b"\n")[:-1]


def position():
    """Where what is sent from now on will be; the `since` of `records`."""
    settle()
    return os.path.getsize(FILE)


def collected(since=0):
    """The records from `since` on that have been collected so far, oldest first: for who asks again."""
    return [_parse(line) for line in _lines(since) if not line.startswith(_MARK)]


def records(since=0):
    """All records from `since` on that were sent before this call, oldest first."""
    settle()
    return collected(since)


def until(condition, what, patience=PATIENCE):
    """Asks `condition()` again and again; returns its first true answer.

    Raises TimeoutError naming `what` (a text, or a function that makes one) after `patience` seconds.
    """
    deadline = time.monotonic() + patience
    pause = 0.002
    while True:
        answer = condition()
        if answer:
            return answer
        if time.monotonic() > deadline:
            raise TimeoutError(what() if callable(what) else what)
        time.sleep(pause)
        pause = min(pause * 1.5, 0.05)
