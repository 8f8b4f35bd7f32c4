# SPDX-License-Identifier: MIT
"""The system log of an environment: a datagram socket at /dev/log, kept in a file a record a line.

A record stands as it arrived, priority first ("<11>Nov 21 03:24:00 quorcachepinfiled: ..."); a
newline within it is written as \\n and a backslash as \\\\, so that a line is always one record.
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
    mark = f"settled {os.getpid()} {time.monotonic_ns()}"
    with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as endpoint:
        endpoint.connect(SOCKET)
        endpoint.send(mark.encode())

    def collected():
        with open(FILE, "rb") as log:
            return mark.encode() + b"\n" in log.read()
    until(collected, "the system log is not collected")


def position():
    """Where the next record will be; the `since` of `records`."""
    return os.path.getsize(FILE)


def records(since=0):
    """The records that arrived at or after `since`, oldest first."""
    with open(FILE, "rb") as log:
        log.seek(since)
        whole = log.read()
    return [_parse(line) for line in whole.split(b"\n")[:-1]]


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
