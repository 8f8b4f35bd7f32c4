# SPDX-License-Identifier: MIT
"""A cache with a block device of its own: there when it says so, and taken away without a loss."""
import os
import select
import signal
import socket
import subprocess

import pytest

from lab import journal, libc, loops, namespaces, processes

LINK, VOLUME, DIRECTORY = "/dev/quorcache/own", "/mnt/own", "/tmp/own"


class Own:
    """The cache `own`, started as its unit starts it; what it tells the service manager is kept."""

    def __init__(self):
        os.makedirs(DIRECTORY, exist_ok=True)
        os.makedirs(VOLUME, exist_ok=True)
        self.output = f"{DIRECTORY}/out"
        self.before = len(processes.text_of(self.output))  # what earlier ones said
        for name, size in (("disk", 200 << 20), ("ssd", 32 << 20)):
            with open(f"{DIRECTORY}/{name}", "ab") as file:
                file.truncate(size)
        with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as manager:
            if os.path.exists(f"{DIRECTORY}/notify"):
                os.unlink(f"{DIRECTORY}/notify")
            manager.bind(f"{DIRECTORY}/notify")
            self.process = processes.start(
                [namespaces.program("quorsoftcache"), "--name", "own", "--backing", f"{DIRECTORY}/disk",
                 "--ssd", f"{DIRECTORY}/ssd", "--distrust", f"{DIRECTORY}/distrust", "--device"], self.output,
                {"NOTIFY_SOCKET": f"{DIRECTORY}/notify"})
            journal.until(lambda: select.select([manager], [], [], 0)[0] or self.process.poll() is not None,
                          "the cache does not get ready")
            assert self.process.poll() is None, processes.text_of(self.output)
            self.told = manager.recv(4096).decode()
        self.node = os.path.realpath(LINK)

    def says(self, text):
        return text in processes.text_of(self.output)[self.before:]


@pytest.fixture
def own():
    made = Own()
    subprocess.run(["mkfs.ext4", "-q", "-F", LINK], check=True)
    yield made
    if os.path.ismount(VOLUME):
        libc.unmount(VOLUME)
    assert processes.stop(made.process) in (0, -signal.SIGKILL)
    assert not os.path.lexists(LINK) or made.process.returncode != 0
    assert not processes.take_reports()


def write_and_leave_dirty(content):
    with open(f"{VOLUME}/file", "wb") as file:
        file.write(content)


def test_the_manager_is_told_when_the_device_can_be_opened(own):
    assert own.told == f"READY=1\nSTATUS=own ready on {own.node}"
    assert os.path.isdir("/run/quorsoftcache/mount/own")


def test_an_orderly_end_leaves_nothing(own):
    backing = loops.backing(own.node)
    assert processes.stop(own.process) == 0
    assert not os.path.lexists(LINK) and not os.path.ismount("/run/quorsoftcache/mount/own")
    assert not os.path.exists("/run/quorsoftcache/own.json")
    assert backing is not None and loops.backing(own.node) != backing


def test_a_mounted_volume_is_served_until_it_is_let_go(own):
    content = os.urandom(5_000_000)
    libc.mount(LINK, VOLUME, "ext4")
    write_and_leave_dirty(content)
    own.process.send_signal(signal.SIGTERM)
    journal.until(lambda: own.says(f"own: {own.node} is still in use; served until it is let go"), "says so")
    assert not os.path.lexists(LINK) and os.path.exists("/run/quorsoftcache/own.json")
    assert own.process.poll() is None
    libc.unmount(VOLUME)
    assert processes.wait(own.process) == 0
    again = Own()
    libc.mount(LINK, VOLUME, "ext4")
    with open(f"{VOLUME}/file", "rb") as file:
        assert file.read() == content
    libc.unmount(VOLUME)
    assert processes.stop(again.process) == 0


def test_a_second_signal_ends_the_wait(own):
    libc.mount(LINK, VOLUME, "ext4")
    own.process.send_signal(signal.SIGTERM)
    journal.until(lambda: own.says("still in use"), "says so")
    assert processes.stop(own.process) == 0


def take_over(kind="ext4"):
    """A cache after one that was killed: the volume is there, and the SSD is still taken for its own."""
    subprocess.run(["umount", "/run/quorsoftcache/mount/own"], check=False)
    again = Own()
    libc.mount(LINK, VOLUME, kind)
    libc.unmount(VOLUME)
    assert processes.stop(again.process) == 0


def test_a_killed_cache_is_replaced_once_its_volume_is_let_go(own):
    libc.mount(LINK, VOLUME, "ext4")
    own.process.kill()
    own.process.wait()
    libc.unmount(VOLUME)
    take_over()


@pytest.mark.parametrize("kind", ["ext4", "btrfs"])
def test_a_volume_made_anew_is_known_after_a_crash_at_once(own, kind):
    subprocess.run([f"mkfs.{kind}", "-q", "-f" if kind == "btrfs" else "-F", LINK], check=True)
    own.process.kill()
    own.process.wait()
    take_over(kind)
