# SPDX-License-Identifier: MIT
"""A Debian machine of its own, booted by systemd, with a disk, an SSD and the packages installed.

It lives in namespaces: its files are an overlay on what root.sh made, its disks are loop devices, its
udev hears of the kernel's devices but has nodes of its own disks alone. Nothing of it is left behind.
"""
import json
import os
import shutil
import signal
import stat
import subprocess
import tempfile
import time

HERE = os.path.dirname(os.path.abspath(__file__))
MIB = 1 << 20
PATIENCE = 120.0  # seconds; a deadline only for what will never come

_NODES = {"null": (1, 3), "zero": (1, 5), "full": (1, 7), "random": (1, 8), "urandom": (1, 9),
          "tty": (5, 0), "fuse": (10, 229), "loop-control": (10, 237), "kmsg": (1, 3)}
_LINKS = {"fd": "/proc/self/fd", "stdin": "fd/0", "stdout": "fd/1", "stderr": "fd/2"}


def until(condition, what):
    """Waits until it holds; returns what it returned."""
    end = time.monotonic() + PATIENCE
    while True:
        found = condition()
        if found:
            return found
        assert time.monotonic() < end, f"never: {what}"
        time.sleep(0.1)


class Disk:
    """A disk of the machine: a loop device on a sparse file, there from construction to `remove`."""

    def __init__(self, directory, name, size):
        self.path = os.path.join(directory, name)
        with open(self.path, "ab") as file:
            file.truncate(size)
        self.node = subprocess.run(["losetup", "--find", "--show", self.path], check=True,
                                   capture_output=True, text=True).stdout.strip()
        self.number = os.stat(self.node).st_rdev

    def remove(self):
        """Takes it away; whoever has it open keeps it until then."""
        if self.node:
            subprocess.run(["losetup", "--detach", self.node], check=False)
            self.node = None


class Machine:
    """One machine, off at first. Names that its disks have in it: /dev/disk/by-id/ata-DISK, .../nvme-SSD."""

    boots = 0  # of all machines

    def __init__(self, root, packages=None, disk=512 * MIB, ssd=96 * MIB, udev=True):
        self.root, self.udev = root, udev
        self.state = tempfile.mkdtemp(prefix="machine-")
        self.disks = {}
        self.process = self.init = None
        if packages:
            shutil.copytree(packages, f"{self.state}/packages")
        self.plug("ata-DISK", "disk", disk)
        self.plug("nvme-SSD", "ssd", ssd)

    def plug(self, name, file, size):
        """Gives the machine, which is off, another disk."""
        self.disks[name] = Disk(self.state, file, size)
        self.write_rules()

    def write_rules(self):
        rules = "".join(f'KERNEL=="{os.path.basename(disk.node)}", SYMLINK+="disk/by-id/{name}"\n'
                        for name, disk in self.disks.items() if disk.node)
        self.put("/etc/udev/rules.d/10-disks.rules", rules)

    def put(self, path, text):
        """Writes a file of the machine; it may be off."""
        if self.init:
            self.run(f"mkdir -p {os.path.dirname(path)}; cat >{path}", stdin=text)
            return
        place = f"{self.state}/upper{path}"
        os.makedirs(os.path.dirname(place), exist_ok=True)
        with open(place, "w", encoding="utf-8") as file:
            file.write(text)

    def _make_dev(self):
        dev = f"{self.state}/dev"
        shutil.rmtree(dev, ignore_errors=True)
        os.mkdir(dev)
        for name, (major, minor) in _NODES.items():
            os.mknod(f"{dev}/{name}", stat.S_IFCHR | 0o666, os.makedev(major, minor))
            os.chmod(f"{dev}/{name}", 0o666)
        for name, target in _LINKS.items():
            os.symlink(target, f"{dev}/{name}")
        for disk in self.disks.values():
            if disk.node:
                os.mknod(dev + "/" + os.path.basename(disk.node), stat.S_IFBLK | 0o660, disk.number)

    def boot(self, wait=True):
        """Switches it on; with `wait`, until it has come up or said that something failed."""
        Machine.boots += 1
        self._make_dev()
        environment = {**os.environ, "MACHINE_SYS": "" if self.udev else "ro"}
        self.process = subprocess.Popen(
            ["unshare", "-m", "-i", "-p", "-u", "-n", "-C", "--fork", "--kill-child",
             f"{HERE}/boot.sh", self.root, self.state], env=environment, stdin=subprocess.DEVNULL,
            stderr=subprocess.DEVNULL)
        pid = self.process.pid

        def child():
            assert self.process.poll() is None, self.console()
            with open(f"/proc/{pid}/task/{pid}/children", encoding="ascii") as children:
                return children.read().split()
        self.init = int(until(child, "it starts")[0])
        until(lambda: os.readlink(f"/proc/{self.init}/exe").endswith("systemd"), "systemd runs")
        if wait:
            self.until_up()
        return self

    def until_up(self):
        """Waits until nothing is left to be started; returns "running", or "degraded"."""
        return until(lambda: self.ask("systemctl is-system-running") in ("running", "degraded")
                     and self.ask("systemctl is-system-running"), "it is up")

    def console(self):
        with open(f"{self.state}/console", encoding="utf-8", errors="replace") as file:
            return file.read()

    def run(self, command, check=True, stdin=None):
        """Runs a shell command in the machine; returns its standard output and error."""
        done = subprocess.run(
            ["nsenter", "-t", str(self.init), "-m", "-p", "-i", "-u", "-n", "-C", "-r", "-w", "env", "-i",
             "PATH=/usr/sbin:/usr/bin:/sbin:/bin", "HOME=/root", "LANG=C.UTF-8", "PAGER=cat",
             "DEBIAN_FRONTEND=noninteractive", "sh", "-c", command], input=stdin, text=True, check=False,
            stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
        assert not check or done.returncode == 0, f"{command}: {done.returncode}\n{done.stdout}\n{self.log()}"
        return done.stdout

    def ask(self, command):
        """The same, whatever its exit status; without the last newline."""
        return self.run(command, check=False).rstrip("\n")

    def json(self, command):
        """The JSON that a verb of quorcachepinctl prints, whatever its exit status."""
        return json.loads(self.ask(f"quorcachepinctl {command} --json 2>/dev/null"))

    def log(self, boot=0, more=""):
        """The journal of a boot: 0 this one, -1 the one before."""
        command = ["journalctl", "-q", "--no-pager", "-o", "short-monotonic", "-b", str(boot)]
        return self.ask(" ".join(command) + " " + more) if self.init else ""

    def _gone(self):
        try:
            self.process.wait(PATIENCE)
        except subprocess.TimeoutExpired:
            self.cut()
            raise AssertionError("it does not end:\n" + self.console()[-3000:]) from None
        self.process = self.init = None

    def off(self, command="poweroff"):
        """Switches it off in order."""
        self.ask(f"systemctl {command}")
        self._gone()

    def reboot(self, wait=True):
        self.off("reboot")
        return self.boot(wait)

    def cut(self):
        """Takes its power away."""
        if self.init:
            os.kill(self.init, signal.SIGKILL)
            self.process.wait()
            self.process = self.init = None

    def remove(self):
        """Ends it and takes away all that it was."""
        self.cut()
        for disk in self.disks.values():
            disk.remove()
        shutil.rmtree(self.state, ignore_errors=True)
