# SPDX-License-Identifier: MIT
"""Loop devices that the kernel detaches by itself when their last user has gone."""
import contextlib
import errno
import fcntl
import os
import struct

from lab import namespaces

_GET_FREE, _CONFIGURE, _GET_STATUS = 0x4C82, 0x4C0A, 0x4C05
_AUTOCLEAR = 4
_DIRECT_IO = 16  # as the cache attaches its own; where the file has none the kernel does without
# struct loop_config: file descriptor, block size, struct loop_info64 (232 bytes), 8 reserved words
_CONFIG = struct.Struct("=II 5Q 4I 64s 64s 32s 2Q 8Q")
_INFO = struct.Struct("=2Q 216x")  # struct loop_info64, of which the backing's device and inode are first


def backing(node):
    """What the loop device at `node` is attached to, as (device, inode); None: nothing.

    A number that was let go may at once be another environment's, with another backing.
    """
    with open(node, "rb") as device:
        try:
            return _INFO.unpack(fcntl.ioctl(device, _GET_STATUS, bytes(_INFO.size)))
        except OSError as error:
            if error.errno != errno.ENXIO:
                raise
            return None


@contextlib.contextmanager
def attached(path):
    """A loop device on the file `path`, as a `with` gives it: the path of its node.

    The device stays attached for as long as anything, such as a mount made within the `with`, uses it.
    Numbers are the whole machine's: another environment may take the free one first, so it is tried again.
    """
    backing = os.open(path, os.O_RDWR)
    device = -1
    try:
        while device < 0:
            with open("/dev/loop-control", "rb") as control:
                node = namespaces.loop_node(fcntl.ioctl(control, _GET_FREE))
            device = os.open(node, os.O_RDWR)
            name = os.fsencode(path)[-63:]
            config = _CONFIG.pack(backing, 0, *[0] * 8, _AUTOCLEAR | _DIRECT_IO, name, b"", b"", *[0] * 10)
            try:
                fcntl.ioctl(device, _CONFIGURE, config)
            except OSError as error:
                os.close(device)
                device = -1
                if error.errno != errno.EBUSY:
                    raise
        yield node
    finally:
        if device >= 0:
            os.close(device)
        os.close(backing)
