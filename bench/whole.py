# SPDX-License-Identifier: MIT
"""The rows of whole programs: the operator's command and the service beside common tools."""
import json
import os
import re
import subprocess
import time

from bench import cache, database, pairs
from lab import command, evidence, libc
from lab.daemon import CONFIGURATION, STARTING, Daemon
from lab.queue import Queue
from lab.volume import Volume

TIB = 1 << 40


def _quiet(*words):
    """An action: a program run to its end, its output thrown away."""
    def action():
        subprocess.run(words, check=True, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    return action


def _files(volume, directory, count):
    """Makes `count` files of a few bytes in a directory of the volume; returns its path."""
    top = volume.path(directory)
    os.mkdir(top)
    for number in range(count):
        with open(f"{top}/{number:06}", "w", encoding="ascii") as file:
            file.write("x")
    libc.sync(top)
    return top


def directory(quick):
    """`pin -n -r` of all files of one directory, beside filefrag of each."""
    sizes = (10, 100) if quick else (10, 100, 1000, 10000, 20000, 100000)
    volume = Volume("bench", size=TIB, mkfs=["-i", "1048576"])
    daemon = Daemon(flags=()).start(wait_for=STARTING)
    rows = []
    try:
        Queue.open()
        for size in sizes:
            top = _files(volume, f"d{size}", size)
            frag = _quiet("sh", "-c", f"find {top} -type f -printf '%i\\n' && "
                          f"find {top} -type f -print0 | xargs -0 -r filefrag")
            rows.append(pairs.turns("directory", size, _quiet(*command.arguments("pin", "-n", "-r", top)),
                                    frag, 3 if size < 50000 else 1))
    finally:
        daemon.stop()
        volume.close()
    return rows


def _pinned(volume, size):
    """A volume of which `size` files are pinned, as if the service had done it."""
    top = _files(volume, f"p{size}", size)
    paths = sorted(entry.path for entry in os.scandir(top))
    units = evidence.units(paths)
    bits = bytearray(volume.size >> 19)
    for unit in units:
        bits[unit // 8] |= 1 << unit % 8
    with open(f"{volume.mount_path}/{evidence.BITMAP_FILE}", "wb") as file:
        file.write(bits)
    files = {str(entry.inode()): os.path.relpath(entry.path, volume.mount_path) for entry in os.scandir(top)}
    with open(CONFIGURATION, "w", encoding="utf-8") as file:
        json.dump({"nextRequestNum": 0, "requestQueue": None, "requests": {},
                   "volumes": {volume.mount_path: {"files": files}}}, file, indent=3)
    return top


def lists(quick):
    """What the command says of many pinned files, beside jq on the list and filefrag of the files."""
    rows = []
    for size in (10, 100) if quick else (10, 1000, 10000, 100000):
        volume = Volume("bench", size=(1 << 30) if quick else 4 * TIB,
                        mkfs=() if quick else ["-i", "1048576"])
        try:
            os.makedirs(os.path.dirname(CONFIGURATION), exist_ok=True)
            top = _pinned(volume, size)
            daemon = Daemon(flags=()).start(wait_for=STARTING)
            Queue.open()
            count = ".volumes[].files | length"
            jq = _quiet("jq", count, CONFIGURATION)
            frag = _quiet("sh", "-c", f"find {top} -type f -print0 | xargs -0 -r filefrag")
            turns = 1 if size > 50000 else 3
            rows.append(pairs.turns("list", size, _any(command.arguments("list")), jq, turns))
            looks = _quiet("sh", "-c", f"jq '{count}' {CONFIGURATION} && find {top} -type f -printf '%s\n'")
            rows.append(pairs.turns("list-looks", size, _any(command.arguments("list")), looks, turns))
            rows.append(pairs.turns("status", size, _any(command.arguments("status")), jq, turns))
            rows.append(pairs.turns("map", size, _any(command.arguments("map", volume.mount_path)), jq, turns))
            rows.append(pairs.turns("check", size, _any(command.arguments("check")), frag, turns))
            daemon.stop()
        finally:
            volume.close()
    return rows


def _any(words):
    """An action: a program that may end with any status, as some verbs tell their findings by it."""
    words = [*words, "--config-path", CONFIGURATION]

    def action():
        status = subprocess.run(words, check=False, stdout=subprocess.DEVNULL).returncode
        assert status in (0, 1, 8), (words, status)  # the driver has none of these bits
    return action


def _memory(pid, field):
    with open(f"/proc/{pid}/status", encoding="utf-8") as status:
        return int(re.search(rf"^{field}:\s+(\d+)", status.read(), re.MULTILINE)[1]) * 1024


def _switches(pid):
    total = 0
    for thread in os.listdir(f"/proc/{pid}/task"):
        with open(f"/proc/{pid}/task/{thread}/status", encoding="utf-8") as status:
            total += int(re.search(r"^voluntary_ctxt_switches:\s+(\d+)", status.read(), re.MULTILINE)[1])
    return total


def idle(quick):
    """The daemon with nothing to do, beside vmtouch's that keeps the same files in memory."""
    seconds = 2 if quick else 20
    volume = Volume("bench")
    paths = [volume.write(f"f{number}", 1 << 20) for number in range(16)]
    if os.path.exists(CONFIGURATION):
        os.unlink(CONFIGURATION)  # another row's
    daemon = Daemon(flags=()).start(wait_for=STARTING)
    pidfile = "/tmp/vmtouch.pid"
    rows = []
    try:
        requests = Queue.open()
        requests.pin(volume.mount_path, paths)
        daemon.until_done("pinFiles")
        subprocess.run(["vmtouch", "-q", "-d", "-l", "-w", "-P", pidfile, *paths], check=True)
        with open(pidfile, encoding="ascii") as file:
            other = int(file.read())
        time.sleep(2)  # the pause behind a request
        before = _switches(daemon.pid), _switches(other)
        time.sleep(seconds)
        after = _switches(daemon.pid), _switches(other)
        a_minute = [(new - old) * 60 / seconds for new, old in zip(after, before)]
        rows.append(pairs.Row("idle-wakeups", 16, a_minute[0], a_minute[1], 0, "a minute"))
        rows.append(pairs.of("idle-memory", 16, [_memory(daemon.pid, "VmRSS")], [_memory(other, "VmRSS")],
                             "bytes"))
        os.kill(other, 15)
    finally:
        daemon.stop()
        volume.close()
    return rows


# what measures some rows, and their keys
GROUPS = ((directory, ("directory",)), (lists, ("list", "list-looks", "status", "map", "check")),
          (idle, ("idle-wakeups", "idle-memory")), (cache.measure, cache.KEYS),
          (database.measure, database.KEYS))
KEYS = {key for _, keys in GROUPS for key in keys}


def measure(words, quick):
    """The rows whose key is one of `words`, all without words."""
    rows = []
    for action, keys in GROUPS:
        if not words or set(words) & set(keys):
            rows += [row for row in action(quick) if not words or row.key in words]
    return rows
