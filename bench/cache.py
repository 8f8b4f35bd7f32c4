# SPDX-License-Identifier: MIT
"""The rows of the cache, by fio: beside a plain loop device on the SSD's file, and beside nbdkit's cache.

All of it lies on a real disk and is read through loop devices, past the page cache; nbdkit alone uses that for
its files.
"""
import contextlib
import json
import os
import shutil
import subprocess
import tempfile
from typing import NamedTuple

from bench import pairs
from lab import journal, loops
from lab.cache import Cache

MIB = 1 << 20


class Load(NamedTuple):
    key: str
    words: tuple  # for fio


LOADS = (Load("hits-64k", ("--rw=read", "--bs=64k", "--ioengine=psync")),
         Load("hits-1m", ("--rw=read", "--bs=1m", "--ioengine=libaio", "--iodepth=4")),
         Load("hits-4k", ("--rw=randread", "--bs=4k", "--ioengine=psync")),
         Load("hits-4k-16", ("--rw=randread", "--bs=4k", "--ioengine=libaio", "--iodepth=16")))
KEYS = [load.key + behind for load in LOADS for behind in ("", "-nbdkit")] + ["misses-nbdkit", "late-4k"]


class Sizes(NamedTuple):
    resident: int    # bytes that are in the cache
    piece: int       # bytes of a measurement of misses
    turns: int
    warmed: int      # bytes that are taken in while something else is read; holes, as the SSD is what counts
    seconds: float   # a measurement of hits


FULL = Sizes(256 * MIB, 64 * MIB, 3, 5 << 30, 2)
QUICK = Sizes(8 * MIB, 4 * MIB, 1, 256 * MIB, 0.2)


def _fio(device, *words):
    """Runs one job; returns what fio tells of its reads."""
    told = subprocess.run(["fio", "--name=bench", f"--filename={device}", "--direct=1", "--output-format=json",
                           *words], check=True, stdout=subprocess.PIPE).stdout
    return json.loads(told)["jobs"][0]["read"]


def _hits(device, load, sizes):
    """The seconds that a read of bytes in the cache takes."""
    return 1 / _fio(device, *load.words, f"--size={sizes.resident}", "--time_based",
                    f"--runtime={sizes.seconds}")["iops"]


def _pass(device, begin, size):
    """Reads a range once, as the service reads a file that is pinned; returns the seconds it takes."""
    return _fio(device, "--rw=read", "--bs=64k", "--ioengine=psync", f"--offset={begin}",
                f"--size={size}")["runtime"] / 1000


def _random_file(path, size):
    with open(path, "wb") as file:
        for _ in range(0, size, MIB):
            file.write(os.urandom(MIB))
    return path


@contextlib.contextmanager
def _nbdkit(backing, directory):
    """nbdkit's cache filter on the backing, as a file of nbdfuse; its cache lies in `directory`."""
    point = os.path.join(directory, "nbd")
    os.mkdir(point)
    process = subprocess.Popen(
        ["nbdfuse", f"{point}/device", "--command", "nbdkit", "-s", "--filter=cache", "file", backing,
         "cache=writethrough", "cache-on-read=true", "cache-min-block-size=64K"],
        env={**os.environ, "TMPDIR": directory})
    try:
        journal.until(lambda: os.path.exists(f"{point}/device"), "nbdfuse does not serve")
        yield f"{point}/device"
    finally:
        subprocess.run(["umount", point], check=False)
        process.wait()


@contextlib.contextmanager
def _devices(directory, sizes):
    """Three loop devices: the cache's, nbdkit's, and that on a plain file as large as what is in the cache."""
    backing = _random_file(f"{directory}/backing", sizes.resident + sizes.turns * sizes.piece)
    os.truncate(backing, os.path.getsize(backing) + sizes.warmed)
    plain = _random_file(f"{directory}/plain", sizes.resident)
    cache = Cache("bench", backing, directory, 2 * os.path.getsize(backing))
    try:
        with contextlib.ExitStack() as stack:
            other = stack.enter_context(_nbdkit(backing, directory))
            yield [stack.enter_context(loops.attached(path)) for path in (cache.device, other, plain)]
    finally:
        cache.stop()


def _taken_in(ours, others, sizes):
    """Misses: each piece is read for the first time. Before the rest, so that the others' data is warm, too."""
    times = [[_pass(device, sizes.resident + turn * sizes.piece, sizes.piece) for device in (ours, others)]
             for turn in range(sizes.turns)]
    return pairs.of("misses-nbdkit", sizes.piece, [row[0] for row in times], [row[1] for row in times])


def _late(device, sizes):
    """The 99th percentile of reads of the cache while other data is being taken in, and without that."""
    def percentile():
        told = _fio(device, *LOADS[2].words, f"--size={sizes.resident}", "--time_based", f"--runtime={sizes.seconds}")
        return told["clat_ns"]["percentile"]["99.000000"] / 1e9

    quiet = percentile()
    reader = subprocess.Popen(["dd", f"if={device}", "of=/dev/null", "bs=64k", "iflag=direct", "status=none",
                               f"skip={(sizes.resident + sizes.turns * sizes.piece) >> 16}"])
    busy = percentile()
    reader.terminate()
    reader.wait()
    return pairs.of("late-4k", sizes.resident, [busy], [quiet])


def measure(quick):
    """The rows of the cache."""
    sizes = QUICK if quick else FULL
    directory = tempfile.mkdtemp(dir="/var/tmp")
    try:
        with _devices(directory, sizes) as (ours, others, plain):
            rows = [_taken_in(ours, others, sizes)]
            for device in (ours, others, plain):
                _pass(device, 0, sizes.resident)
            for load in LOADS:
                times = [[_hits(device, load, sizes) for device in (ours, others, plain)]
                         for _ in range(sizes.turns)]
                mine, theirs, bare = zip(*times)
                rows += [pairs.of(load.key, sizes.resident, mine, bare),
                         pairs.of(f"{load.key}-nbdkit", sizes.resident, mine, theirs)]
            return rows + [_late(ours, sizes)]
    finally:
        shutil.rmtree(directory)
