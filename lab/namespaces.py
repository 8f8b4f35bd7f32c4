# SPDX-License-Identifier: MIT
"""An environment of its own: mounts, IPC, processes, /dev, /run, /tmp, /mnt and the system log.

It begins with its first process and ends with it: the kernel then ends all its processes, frees its
mounts and queues, and detaches its loop devices. Nothing of it is ever on the machine's own /dev.
"""
import os
import re
import signal
import stat
import subprocess
import sys
import traceback

from lab import journal, libc

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
QUEUE_BYTES = 1576960  # what the service asks for: 1024 requests of 1540 bytes
OWN = ("/run", "/tmp", "/mnt", "/dev")
LOOPS = 128  # nodes made at once; lab.loops makes others when the kernel hands them out

# name: major, minor of the character devices that the programs, and a person at a shell, need
_NODES = {"null": (1, 3), "zero": (1, 5), "full": (1, 7), "random": (1, 8), "urandom": (1, 9),
          "tty": (5, 0), "ptmx": (5, 2), "fuse": (10, 229), "loop-control": (10, 237)}
_LINKS = {"fd": "/proc/self/fd", "stdin": "fd/0", "stdout": "fd/1", "stderr": "fd/2"}


def build_directory():
    """Where the programs under test were built: QUOR_BUILD, else build/host of this tree."""
    return os.path.abspath(os.path.join(ROOT, os.environ.get("QUOR_BUILD") or "build/host"))


def program(name):
    return os.path.join(build_directory(), "bin", name)


def loop_node(number, directory="/dev"):
    """Path of loop device `number`, its node made when it is missing."""
    path = f"{directory}/loop{number}"
    if not os.path.exists(path):
        os.mknod(path, stat.S_IFBLK | 0o660, os.makedev(7, number))
    return path


def _make_dev(directory):
    libc.mount("dev", directory, "tmpfs", libc.MS_NOSUID, "mode=755")
    for name, (major, minor) in _NODES.items():
        os.mknod(f"{directory}/{name}", stat.S_IFCHR | 0o666, os.makedev(major, minor))
        os.chmod(f"{directory}/{name}", 0o666)
    for number in range(LOOPS):
        loop_node(number, directory)
    for name, target in _LINKS.items():
        os.symlink(target, f"{directory}/{name}")
    os.mkdir(f"{directory}/shm")
    os.chmod(f"{directory}/shm", 0o1777)
    os.mkdir(f"{directory}/pts")
    libc.mount("/dev/pts", f"{directory}/pts", flags=libc.MS_BIND)


def _inside(path, directory):
    return path == directory or path.startswith(directory + "/")


def _hold(paths):
    """Descriptors of those of `paths` that the new mounts would hide."""
    hidden = [path for path in paths if any(_inside(path, own) for own in OWN)]
    return {path: os.open(path, os.O_PATH | os.O_DIRECTORY) for path in hidden}


def _show_again(held):
    for path, descriptor in held.items():
        os.makedirs(path, exist_ok=True)
        libc.mount(f"/proc/self/fd/{descriptor}", path, flags=libc.MS_BIND | libc.MS_REC)
        os.close(descriptor)


def _furnish():
    """Gives this process's fresh namespaces their mounts, their queue limit and their log socket."""
    libc.mount("none", "/", flags=libc.MS_REC | libc.MS_PRIVATE)
    libc.mount("proc", "/proc", "proc", libc.MS_NOSUID | libc.MS_NODEV | libc.MS_NOEXEC)
    held = _hold(dict.fromkeys((ROOT, build_directory())))
    libc.mount("mnt", "/mnt", "tmpfs", 0, "mode=755")
    os.mkdir("/mnt/dev")
    _make_dev("/mnt/dev")
    libc.mount("/mnt/dev", "/dev", flags=libc.MS_MOVE)
    os.rmdir("/mnt/dev")
    libc.mount("run", "/run", "tmpfs", libc.MS_NOSUID | libc.MS_NODEV, "mode=755")
    libc.mount("tmp", "/tmp", "tmpfs", libc.MS_NOSUID | libc.MS_NODEV, "mode=1777,size=80%")
    if not os.path.samefile("/var/run", "/run"):
        libc.mount("/run", "/var/run", flags=libc.MS_BIND)
    _show_again(held)
    with open("/proc/sys/kernel/msgmnb", "w", encoding="ascii") as limit:
        limit.write(str(QUEUE_BYTES))
    return journal.listen()


def unmount_volumes():
    """Unmounts what is left on /mnt and /tmp, newest first, while the caches under it still serve."""
    with open("/proc/self/mountinfo", "rb") as table:
        points = [os.fsdecode(re.sub(rb"\\(\d{3})", lambda octal: bytes([int(octal[1], 8)]),
                                     line.split(b" ")[4])) for line in table]
    for point in reversed(points):
        if point not in OWN and (_inside(point, "/mnt") or _inside(point, "/tmp")):
            try:
                libc.unmount(point)
            except OSError:
                pass  # busy or already gone: the kernel frees it with the namespace


def _attempt(main):
    """Runs `main()` as a process does: its result, or a traceback and 1. Never returns."""
    status = 1
    try:
        status = main() or 0
    except SystemExit as leave:
        status = leave.code if isinstance(leave.code, int) else int(leave.code is not None)
    except KeyboardInterrupt:
        status = 130
    except BaseException:
        traceback.print_exc()
    finally:
        sys.stdout.flush()
        sys.stderr.flush()
        os._exit(status)


def _status(code):
    return os.WEXITSTATUS(code) if os.WIFEXITED(code) else 128 + os.WTERMSIG(code)


def _fork(main):
    sys.stdout.flush()
    sys.stderr.flush()
    child = os.fork()
    if child == 0:
        _attempt(main)
    return child


def _pass_on(child):
    """SIGTERM goes on to `child`; an interrupt from the terminal reaches it without us."""
    signal.signal(signal.SIGTERM, lambda number, frame: os.kill(child, number))
    signal.signal(signal.SIGINT, signal.SIG_IGN)


def _first_process(main, become):
    """Process 1: furnishes, runs `main` in a child, reaps whatever is orphaned, ends with the child."""
    libc.die_with_parent(signal.SIGKILL)
    endpoint = _furnish()
    if become:
        become(endpoint)

    def body():
        signal.signal(signal.SIGINT, signal.default_int_handler)
        endpoint.close()
        return main()
    child = _fork(body)
    _pass_on(child)
    journal.serve(endpoint)
    while True:
        ended, code = os.wait()
        if ended == child:
            unmount_volumes()
            return _status(code)


def _outer(main, started, become):
    libc.die_with_parent(signal.SIGKILL)
    libc.unshare(libc.CLONE_NEWNS | libc.CLONE_NEWIPC | libc.CLONE_NEWPID)
    child = _fork(lambda: _first_process(main, become))
    _pass_on(child)
    started(child)
    return _status(os.waitpid(child, 0)[1])


def run(main, started=lambda first: None, become=None):
    """Runs `main()` in an environment of its own; returns its exit status (128 + n for a signal).

    started: told the first process's id, as the machine sees it, for `enter`.
    become: takes over the first process, with the system log's socket, in the place of `main`.

    The environment is gone when this returns, also when `main` was killed; and it ends at once, by
    the kernel's hand, when the calling process does.
    """
    child = _fork(lambda: _outer(main, started, become))
    before = [signal.getsignal(number) for number in (signal.SIGTERM, signal.SIGINT)]
    _pass_on(child)
    try:
        return _status(os.waitpid(child, 0)[1])
    finally:
        signal.signal(signal.SIGTERM, before[0])
        signal.signal(signal.SIGINT, before[1])


def enter(first, command):
    """Runs a command in the environment of the first process `first`; returns its exit status."""
    doors = [os.open(f"/proc/{first}/ns/{kind}", os.O_RDONLY) for kind in ("ipc", "pid", "mnt")]
    for door in doors:
        libc.call("setns", door, 0)
    os.chdir(ROOT)
    os.environ["PATH"] = f"{build_directory()}/bin:{os.environ['PATH']}"
    try:
        return subprocess.run(command, check=False).returncode
    except FileNotFoundError as error:
        raise SystemExit(f"run: {error.filename}: not found") from None
