# SPDX-License-Identifier: MIT
"""The few C library calls that Python does not offer. A call that fails raises OSError."""
import ctypes
import os

_library = ctypes.CDLL(None, use_errno=True)
_library.mount.argtypes = [ctypes.c_char_p] * 3 + [ctypes.c_ulong, ctypes.c_char_p]

MS_NOSUID, MS_NODEV, MS_NOEXEC = 2, 4, 8
MS_BIND, MS_MOVE, MS_REC, MS_PRIVATE, MS_SHARED = 0x1000, 0x2000, 0x4000, 0x40000, 0x100000
MNT_DETACH = 2
CLONE_NEWNS, CLONE_NEWCGROUP, CLONE_NEWIPC, CLONE_NEWPID = 0x20000, 0x2000000, 0x8000000, 0x20000000
_PR_SET_PDEATHSIG = 1


def call(name, *arguments):
    """The result of the library's function `name`; -1 becomes an OSError."""
    result = getattr(_library, name)(*arguments)
    if result == -1:
        code = ctypes.get_errno()
        raise OSError(code, f"{name}: {os.strerror(code)}")
    return result


def mount(source, target, kind=None, flags=0, options=None):
    def text(value):
        return None if value is None else os.fsencode(value)
    try:
        call("mount", text(source), text(target), text(kind), flags, text(options))
    except OSError as error:
        raise OSError(error.errno, f"mount {source} on {target}: {error.strerror}") from None


def unmount(target, flags=0):
    try:
        call("umount2", os.fsencode(target), flags)
    except OSError as error:
        raise OSError(error.errno, f"unmount {target}: {error.strerror}") from None


def sync(path):
    """Brings the file system of `path` to its device, and no other: a test beside this one may want its
    own files unwritten.
    """
    file = os.open(path, os.O_RDONLY)
    try:
        call("syncfs", file)
    finally:
        os.close(file)


def unshare(flags):
    call("unshare", flags)


def die_with_parent(signal):
    """This process gets `signal` when the process that forked it ends."""
    call("prctl", _PR_SET_PDEATHSIG, signal, 0, 0, 0)
