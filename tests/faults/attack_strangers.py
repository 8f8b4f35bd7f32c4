# SPDX-License-Identifier: MIT
"""Another user tries everything that service, cache and command open, lock, create or follow."""
import ctypes
import errno
import fcntl
import os
import threading

from lab import daemon as daemons
from lab import command, evidence, libc, queue as queues

import ground as grounds

ABOUT = "another user"
SHORT, FULL = 3, 60  # rounds of swapped directories; all else is tried once
NOBODY = 65534
SETTINGS = "/tmp/quorcachepinfiletool.debug"
REGISTRY = "/run/quorsoftcache"
SECRET = "/tmp/secret"
DENIED = "EACCES"


def as_nobody(action):
    """Runs `action()` as the user nobody; returns "done", or the name of the error that it got."""
    child = os.fork()
    if child == 0:
        status = 255
        try:
            os.setgroups([])
            os.setresgid(NOBODY, NOBODY, NOBODY)
            os.setresuid(NOBODY, NOBODY, NOBODY)
            action()
            status = 0
        except OSError as error:
            status = error.errno
        finally:
            os._exit(status)
    status = os.waitstatus_to_exitcode(os.waitpid(child, 0)[1])
    return "done" if status == 0 else errno.errorcode.get(status, f"status {status}")


def opens(path, flags=os.O_RDONLY):
    return lambda: os.close(os.open(path, flags | os.O_NONBLOCK, 0o666))


def locks(path):
    return lambda: fcntl.flock(os.open(path, os.O_RDONLY), fcntl.LOCK_EX | fcntl.LOCK_NB)


def writes(path, raw):
    def act():
        with open(path, "wb") as file:
            file.write(raw)
    return act


def protects_regular():
    with open("/proc/sys/fs/protected_regular", encoding="ascii") as setting:
        return int(setting.read()) > 0


class Strangers:
    def __init__(self, ground):
        self.ground, self.outcome, self.volume = ground, ground.outcome, ground.volume()
        self.mount, self.bitmap = self.volume.mount_path, self.volume.path(evidence.BITMAP_FILE)
        self.photo = self.volume.write("photos/a.jpg", 70_000)
        with open(SECRET, "wb") as file:
            file.write(b"print_level=debug\n" + bytes(5000))
        os.chmod(SECRET, 0o600)

    def must(self, what, found, wanted):
        self.outcome.points += 1
        if found != wanted:
            self.outcome.add("reports", what, f"{found}, not {wanted}")

    def at_the_doors(self):
        """What stands about while service and cache run: told by its rights alone."""
        daemon, queue = self.ground.daemon(), queues.Queue.open()
        queue.pin(self.mount, [self.photo])
        daemon.until_done("pinFiles")
        key, cache, directory = queues.KEY_FILE, self.volume.cache.mount, self.volume.directory
        entry = f"{REGISTRY}/vol1.json"
        identifier, body = queue.identifier, ctypes.create_string_buffer(8192)
        rows = [
            ("read the key file", opens(key), "done"),
            ("write the key file", opens(key, os.O_WRONLY), DENIED),
            ("take the key file away", lambda: os.unlink(key), DENIED),
            ("put another key file in its place", lambda: os.rename(key, key + ".old"), DENIED),
            ("make a file beside the key file", opens("/run/other.key", os.O_CREAT | os.O_WRONLY), DENIED),
            ("open the queue", lambda: libc.call("msgget", queue.state().key, 0), "done"),
            ("send a request", lambda: queue.pin(self.mount, [self.photo]), DENIED),
            ("remove the queue", queue.remove, "EPERM"),
            # The queue's mode gives everybody the right to read: see SECURITY.md.
            ("receive what waits", lambda: libc.call("msgrcv", identifier, body, 8000, 0, 0o4000), "ENOMSG"),
            ("read the configuration", opens(daemons.CONFIGURATION), "done"),
            ("write the configuration", opens(daemons.CONFIGURATION, os.O_WRONLY), DENIED),
            ("replace the configuration", lambda: os.unlink(daemons.CONFIGURATION), DENIED),
            ("read the bitmap file", opens(self.bitmap), "done"),
            ("write the bitmap file", opens(self.bitmap, os.O_WRONLY), DENIED),
            ("read a registry entry", opens(entry), "done"),
            ("write a registry entry", opens(entry, os.O_WRONLY), DENIED),
            ("add a registry entry", opens(f"{REGISTRY}/own.json", os.O_CREAT | os.O_WRONLY), DENIED),
            ("lock a cache's lock", locks(f"{REGISTRY}/vol1.lock"), DENIED),
            ("lock the lock of all caches", locks(f"{REGISTRY}/.lock"), DENIED),
            ("read the cached device", opens(f"{cache}/device"), DENIED),
            ("write the cached device", opens(f"{cache}/device", os.O_WRONLY), DENIED),
            ("order a fault", opens(f"{cache}/control", os.O_WRONLY), DENIED),
            ("read the counters", opens(f"{cache}/stats.json"), "done"),
            ("read the SSD", opens(f"{directory}/ssd"), DENIED),
            ("signal the service", lambda: os.kill(daemon.pid, 15), "EPERM"),
            ("trace the service", opens(f"/proc/{daemon.pid}/mem"), DENIED)]
        for what, action, wanted in rows:
            self.must(what, as_nobody(action), wanted)
        self.locked_entry(daemon, queue, entry)
        self.ground.end(daemon, "the doors")
        queues.remove_all()

    def locked_entry(self, daemon, queue, entry):
        """Whoever can read an entry can lock it; nobody waits for that lock."""
        holder = os.open(entry, os.O_RDONLY)
        fcntl.flock(holder, fcntl.LOCK_EX)
        queue.unpin(self.mount, [self.photo])
        rested = self.ground.rest(daemon, "a locked entry")
        self.must("a request while an entry is locked", (rested, self.volume.cache.pinned()), (True, set()))
        os.close(holder)

    def served(self, what, wanted, *errors):
        """A start and a pin; `wanted` tells whether the file is then pinned, and `errors` what is said."""
        daemon, queue = self.ground.daemon(), queues.Queue.open()
        queue.pin(self.mount, [self.photo])
        self.ground.rest(daemon, what)
        said = [text for text in errors if any(text in line for line in daemon.errors())]
        pinned = evidence.units([self.photo]) <= self.volume.cache.pinned()
        queue.unpin(self.mount, [self.photo])
        self.ground.rest(daemon, what)
        self.ground.end(daemon, what)
        queues.remove_all()
        self.must(what, (pinned, said), (wanted, list(errors)))
        with open(SECRET, "rb") as file:
            self.must(f"{what}: another's file", file.read(), b"print_level=debug\n" + bytes(5000))

    def in_tmp(self):
        """The settings file in /tmp, which anybody may make."""
        rows = [("a FIFO", lambda: os.mkfifo(SETTINGS), True), ("a directory", lambda: os.mkdir(SETTINGS), True),
                ("a link to a secret", lambda: os.symlink(SECRET, SETTINGS), True),
                ("a link to itself", lambda: os.symlink(SETTINGS, SETTINGS), True),
                ("a link to endless zeros", lambda: os.symlink("/dev/zero", SETTINGS), True),
                ("a huge file", lambda: (opens(SETTINGS, os.O_CREAT | os.O_WRONLY)(), os.truncate(SETTINGS, 1 << 40)),
                 True)]
        for what, action, wanted in rows:
            assert as_nobody(action) == "done", what
            self.served(f"settings: {what}", wanted)
            (os.rmdir if os.path.isdir(SETTINGS) and not os.path.islink(SETTINGS) else os.unlink)(SETTINGS)
        # Accepted: whoever may write to /tmp may make the mapping of one file fail.
        assert as_nobody(writes(SETTINGS, os.fsencode(self.photo))) == "done"
        self.served("settings: a file's name", False, "Simulate", "drop it.")
        os.unlink(SETTINGS)

    def on_the_volume(self):
        """The bitmap file's place, where the top of the volume is everybody's."""
        os.chmod(self.mount, 0o1777)
        rows = [("a link to a secret", lambda: os.symlink(SECRET, self.bitmap), False),
                ("a link to nothing", lambda: os.symlink("/tmp/nothing", self.bitmap), False),
                ("a FIFO", lambda: os.mkfifo(self.bitmap), False),
                ("a directory", lambda: os.mkdir(self.bitmap), False),
                # Many kernels refuse root to create over another's file in a sticky directory.
                ("a file of one's own", writes(self.bitmap, b"\xff"), not protects_regular())]
        for what, action, wanted in rows:
            grounds.forget(self.bitmap)
            assert as_nobody(action) == "done", what
            self.served(f"bitmap: {what}", wanted, *([] if wanted else ["drop it."]))
            self.must(f"bitmap: {what}: what it led to", os.path.exists("/tmp/nothing"), False)
            if os.path.isdir(self.bitmap) and not os.path.islink(self.bitmap):
                os.rmdir(self.bitmap)
        grounds.forget(self.bitmap)

    def swapped(self):
        """`pin -r` while another swaps its directory for a link to one outside: nothing of that is sent."""
        tree, outside = self.volume.path("tree"), "/tmp/outside"
        for top in (f"{tree}/in", outside):
            for number in range(30):
                os.makedirs(f"{top}/{number}")
                with open(f"{top}/{number}/x", "wb") as file:
                    file.write(bytes(5000))
        libc.sync(tree)
        owned = {str(os.stat(f"{tree}/in/{number}/x").st_ino): f"tree/in/{number}/x" for number in range(30)}
        daemon, ended = self.ground.daemon(), threading.Event()

        def swap():
            while not ended.is_set():
                os.rename(f"{tree}/in", f"{tree}/aside")
                os.symlink(outside, f"{tree}/in")
                ended.wait(0.0003)
                os.unlink(f"{tree}/in")
                os.rename(f"{tree}/aside", f"{tree}/in")
                ended.wait(0.0003)
        swapper = threading.Thread(target=swap)
        swapper.start()
        for number in range(self.ground.wanted):
            result = command.run("pin", "-r", tree)
            if result.status not in (0, 1, 5):
                self.outcome.add("crashes" if result.status < 0 else "reports", f"pin -r {number}", str(result))
            self.outcome.note(f"runs of pin -r ended with status {result.status}")
            self.outcome.points += 1
        ended.set()
        swapper.join()
        self.ground.rest(daemon, "pin -r")
        listed = evidence.pinned_files(daemons.CONFIGURATION, self.mount)
        self.must("pin -r: listed", {inode: name for inode, name in listed.items() if owned.get(inode) != name}, {})
        units = evidence.units([self.volume.path(name) for name in owned.values()])
        self.must("pin -r: bits", self.volume.cache.pinned() - units, set())
        self.ground.end(daemon, "pin -r")


def run(ground):
    strangers = Strangers(ground)
    strangers.at_the_doors()
    strangers.in_tmp()
    strangers.on_the_volume()
    strangers.swapped()
