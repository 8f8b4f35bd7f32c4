# SPDX-License-Identifier: MIT
"""The service's message queue, as a client sees it, written and looked at byte by byte.

A message is the native long `mtype` (1), then the body: a signed 32-bit request type, 512 bytes of
mount path and 1024 bytes of data, both padded with zeros.
"""
import ctypes
import errno
import os
import struct
from typing import NamedTuple

from lab import journal, libc

KEY_FILE = "/run/quorcachepinfile-msg-server.key"
BODY_BYTES = 1540
PIN, UNPIN, ACK, ADD_PENDING, REMOVE_PENDING, RELOAD = 1, 2, 3, 4, 5, 6

_IPC_CREAT, _IPC_EXCL, _IPC_RMID, _IPC_STAT, _IPC_NOWAIT = 0o1000, 0o2000, 0, 2, 0o4000


class _QueueState(ctypes.Structure):
    """The C library's struct msqid_ds."""
    _fields_ = [("key", ctypes.c_int), ("owner", ctypes.c_uint * 4), ("mode", ctypes.c_uint),
                ("reserved", ctypes.c_char * (24 if ctypes.sizeof(ctypes.c_long) == 8 else 12)),
                ("times", ctypes.c_char * 24),
                ("bytes", ctypes.c_ulong), ("messages", ctypes.c_ulong), ("limit", ctypes.c_ulong),
                ("lastSend", ctypes.c_int), ("lastReceive", ctypes.c_int),
                ("reserved1", ctypes.c_ulong * 2)]


class State(NamedTuple):
    messages: int  # waiting in the queue
    bytes: int     # of their bodies
    limit: int     # msg_qbytes
    mode: int      # permission bits
    key: int


def body(kind, mount_path=b"", data=b""):
    """A whole body. Texts may be str or bytes, up to their field's length (then without a terminator)."""
    mount_path, data = os.fsencode(mount_path), os.fsencode(data)
    assert len(mount_path) <= 512 and len(data) <= 1024
    return struct.pack("=i512s1024s", kind, mount_path, data)


def make_key():
    """The key that the key file's inode gives (the service's `ftok`, project id 120)."""
    return libc.call("ftok", os.fsencode(KEY_FILE), 120)


def published_key():
    """The key that stands in the key file, or None while there is no such file or nothing in it."""
    try:
        with open(KEY_FILE, encoding="ascii") as text:
            return int(text.read() or "x")
    except (FileNotFoundError, ValueError):
        return None


class Queue:
    """A message queue by its id."""

    def __init__(self, identifier):
        self.identifier = identifier

    @classmethod
    def open(cls):
        """The queue whose key the service has published; waits until it is there."""
        def find():
            key = published_key()
            try:
                return None if key is None else cls(libc.call("msgget", key, 0))
            except OSError as error:
                if error.errno != errno.ENOENT:
                    raise
                return None
        return journal.until(find, f"no queue is published in {KEY_FILE}")

    @classmethod
    def create(cls, key, mode=0o644):
        """A new queue of that key, as another program may have left it."""
        return cls(libc.call("msgget", key, _IPC_CREAT | _IPC_EXCL | mode))

    def send(self, kind, mount_path=b"", data=b"", mtype=1):
        """Puts a request into the queue. Raises BlockingIOError when the queue is full."""
        self.send_raw(body(kind, mount_path, data), mtype)

    def pin(self, mount_path, paths):
        """Asks for files, given by their absolute paths, to be pinned."""
        self.send(PIN, mount_path, ";".join(paths))

    def unpin(self, mount_path, paths):
        """Asks for files to be released."""
        self.send(UNPIN, mount_path, ";".join(paths))

    def send_raw(self, raw, mtype=1):
        """Puts any body of any length into the queue."""
        message = struct.pack("@l", mtype) + raw
        libc.call("msgsnd", self.identifier, message, ctypes.c_size_t(len(raw)), _IPC_NOWAIT)

    def state(self):
        state = _QueueState()
        libc.call("msgctl", self.identifier, _IPC_STAT, ctypes.byref(state))
        return State(state.messages, state.bytes, state.limit, state.mode & 0o777, state.key)

    def until_empty(self):
        """Waits until every message was received."""
        journal.until(lambda: self.state().messages == 0, lambda: f"still waiting: {self.state()}")

    def remove(self):
        libc.call("msgctl", self.identifier, _IPC_RMID, None)


def remove_all():
    """Removes every queue of this environment, and the key file."""
    with open("/proc/sysvipc/msg", encoding="ascii") as table:
        for line in list(table)[1:]:
            Queue(int(line.split()[1])).remove()
    if os.path.exists(KEY_FILE):
        os.unlink(KEY_FILE)
