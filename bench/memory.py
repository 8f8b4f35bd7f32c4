# SPDX-License-Identifier: MIT
"""A limit on the memory, page cache included, of some processes."""
import contextlib
import os
import tempfile

OLD, NEW = "/sys/fs/cgroup/memory", "/sys/fs/cgroup"


def _limit():
    """(the directory of all groups, the name of a group's limit)."""
    if os.path.exists(f"{OLD}/memory.limit_in_bytes"):
        return OLD, "memory.limit_in_bytes"
    return NEW, "memory.max"


def can_be_limited():
    """Whether control groups that limit memory can be made here; in many containers they cannot."""
    parent, limit = _limit()
    try:
        probe = tempfile.mkdtemp(prefix="quor-bench.", dir=parent)
    except OSError:
        return False
    try:
        return os.access(f"{probe}/{limit}", os.W_OK)
    finally:
        os.rmdir(probe)


class Group:
    def __init__(self, directory):
        self.directory = directory

    def take(self, pid):
        """Moves a process into it; those that it starts from now on are in it as well."""
        with open(f"{self.directory}/cgroup.procs", "w", encoding="ascii") as file:
            file.write(str(pid))


@contextlib.contextmanager
def limited(size):
    """A control group whose processes have `size` bytes of memory, gone with the `with`."""
    parent, limit = _limit()
    group = Group(tempfile.mkdtemp(prefix="quor-bench.", dir=parent))
    try:
        with open(f"{group.directory}/{limit}", "w", encoding="ascii") as file:
            file.write(str(size))
        yield group
    finally:
        os.rmdir(group.directory)
