# SPDX-License-Identifier: MIT
"""What it is for: PostgreSQL on a cached volume, while another program reads ten times the cache.

The same cluster, the same queries and the same other reader three times: its files pinned, not pinned,
and everything on the SSD. The backing answers like a disk, 6 ms a read; the machine's page cache is kept
out of it by a memory limit on the database and small shared buffers.
"""
import contextlib
import itertools
import json
import mmap
import os
import shutil
import statistics
import subprocess
import sys
import tempfile
import threading
import time
from typing import NamedTuple

from bench import memory, pairs
from lab import command, evidence, libc, namespaces
from lab.daemon import STARTING, Daemon
from lab.queue import Queue
from lab.volume import MIB, Volume

PROGRAMS = "/usr/lib/postgresql/15/bin"
USER = "postgres"
DISK_MS = 6
READERS = 8  # of the other program, side by side
CLIENTS = 4
SETTINGS = {"shared_buffers": "8MB", "max_connections": 20, "listen_addresses": "",
            "unix_socket_directories": "/tmp", "autovacuum": "off", "dynamic_shared_memory_type": "mmap",
            "jit": "off", "max_parallel_workers_per_gather": 0, "maintenance_work_mem": "16MB",
            "wal_level": "minimal", "max_wal_senders": 0, "min_wal_size": "32MB", "max_wal_size": "64MB"}
LIMIT = 64 * MIB
NAMES = ("files pinned", "files not pinned", "everything on the SSD")
KEYS = ("database", "database-restart", "database-unpinned")
RESULT = os.path.join(namespaces.ROOT, "build/database.json")


class Sizes(NamedTuple):
    scale: int    # of pgbench; 16 MB each
    cache: int    # bytes
    volume: int   # bytes
    seconds: int  # a measurement


FULL = Sizes(10, 256 * MIB, 5 << 30, 20)
QUICK = Sizes(1, 128 * MIB, 2 << 30, 3)


class Result(NamedTuple):
    name: str
    alone: list    # queries in each second, before the other reader comes
    beside: list   # the same beside it
    again: list    # the same right after the restart
    median: float  # latency of a query beside the other reader, milliseconds
    late: float    # its 99th percentile
    scan: float    # seconds for reading the whole table beside the other reader

    def rate(self, seconds):
        """Queries a second of one of the three lists."""
        return statistics.mean(getattr(self, seconds))

    def recovered(self):
        """After how many seconds it is at 0.9 of its speed again; None: not while it was watched."""
        wanted = 0.9 * statistics.median(self.alone)
        return next((second + 1 for second, rate in enumerate(self.again) if rate >= wanted), None)


class Cluster:
    """A PostgreSQL cluster in the directory `pg` of a mounted volume."""

    def __init__(self, volume, group):
        self.directory, self._group = volume.path("pg"), group

    def _run(self, program, *words):
        done = subprocess.run([f"{PROGRAMS}/{program}", *words], user=USER, group=USER, extra_groups=[],
                              cwd="/", check=False, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                              text=True)
        if done.returncode:
            raise RuntimeError(f"{program} failed: {done.stdout}")
        return done.stdout

    def make(self, scale):
        os.mkdir(self.directory, 0o700)
        shutil.chown(self.directory, USER, USER)
        self._run("initdb", "-D", self.directory, "-A", "trust", "--no-sync")
        with open(f"{self.directory}/postgresql.conf", "a", encoding="ascii") as file:
            file.writelines(f"{name} = '{value}'\n" for name, value in SETTINGS.items())
        with self.running():
            self._run("pgbench", "-h", "/tmp", "-i", "-q", "-s", str(scale), USER)
            self._run("psql", "-h", "/tmp", "-c", "vacuum freeze", "-c", "checkpoint", USER)

    @contextlib.contextmanager
    def running(self):
        log = f"{self.directory}/log"
        self._run("pg_ctl", "-D", self.directory, "-w", "-l", log, "start")
        with open(f"{self.directory}/postmaster.pid", encoding="ascii") as file:
            self._group.take(file.readline().strip())
        try:
            yield
        finally:
            self._run("pg_ctl", "-D", self.directory, "-w", "-m", "fast", "stop")

    def queries(self, seconds):
        """Runs pgbench -S; returns the latencies, in milliseconds, and the number of each second."""
        with contextlib.suppress(FileNotFoundError):
            shutil.rmtree("/tmp/bench")
        os.mkdir("/tmp/bench", 0o777)
        os.chmod("/tmp/bench", 0o777)
        self._run("pgbench", "-h", "/tmp", "-n", "-S", "-M", "prepared", "-c", str(CLIENTS), "-j", "2",
                  "-T", str(seconds), "-l", "--log-prefix=/tmp/bench/log", USER)
        latencies, ends = [], []
        for entry in os.scandir("/tmp/bench"):
            with open(entry.path, encoding="ascii") as file:
                for line in file:
                    _, _, microseconds, _, second, fraction = line.split()[:6]
                    latencies.append(int(microseconds) / 1000)
                    ends.append(int(second) + int(fraction) / 1e6)
        first = min(ends)
        rates = [0] * seconds
        for end in ends:
            rates[min(seconds - 1, int(end - first))] += 1
        return latencies, rates

    def scan(self):
        """Reads the whole table; returns the seconds it takes."""
        begin = time.monotonic()
        self._run("psql", "-h", "/tmp", "-c", "select sum(abalance) from pgbench_accounts", USER)
        return time.monotonic() - begin


class Reader:
    """Another program that reads other data of the volume, unit by unit, for as long as it is there."""

    def __init__(self, volume, spare):
        units = [unit for unit in range(volume.size // evidence.UNIT) if unit not in spare]
        self._ended = threading.Event()
        self._threads = [threading.Thread(target=self._read, args=(volume, units[number::READERS], number))
                         for number in range(READERS)]
        self._read_by = [0] * READERS  # bytes, of each thread

    def bytes(self):
        return sum(self._read_by)

    def _read(self, volume, units, number):
        device = os.open(volume.block_device, os.O_RDONLY | os.O_DIRECT)
        with mmap.mmap(-1, evidence.UNIT) as room:
            for unit in itertools.cycle(units):
                if self._ended.is_set():
                    break
                self._read_by[number] += os.preadv(device, [room], unit * evidence.UNIT)
                if volume.cache is None:  # this one reads a disk beside the SSD
                    time.sleep(DISK_MS / 1000)
        os.close(device)

    def __enter__(self):
        for thread in self._threads:
            thread.start()
        return self

    def __exit__(self, *_):
        self._ended.set()
        for thread in self._threads:
            thread.join()


def _percentile(values, part):
    return sorted(values)[int(len(values) * part)]


def _slow_disk(volume):
    if volume.cache:
        volume.cache.control(f"delay-backing {DISK_MS}")


def _files(directory):
    return [os.path.join(path, name) for path, _, names in os.walk(directory) for name in names]


def _reboot(volume, daemon):
    """Everything of the machine ends in order and comes up again."""
    daemon.stop()
    volume.unmount()
    if volume.cache:
        volume.cache.stop()
        volume.cache.start()
    volume.mount()
    libc.sync(volume.mount_path)
    daemon.start(STARTING)
    _slow_disk(volume)


def _tell(name, step):
    print(f"database, {name}: {step}", file=sys.stderr, flush=True)


def _measure_one(name, sizes, group, place):
    volume = Volume("db", size=sizes.volume, cache_size=sizes.cache, cached=name != NAMES[2], place=place)
    daemon = Daemon(flags=()).start(STARTING)
    try:
        Queue.open()
        cluster = Cluster(volume, group)
        cluster.make(sizes.scale)
        spare = evidence.units(_files(cluster.directory))
        if name == NAMES[0]:
            command.done("pin", "--wait", "-r", cluster.directory)
        _slow_disk(volume)
        _tell(name, "alone")
        with cluster.running():
            cluster.queries(max(1, sizes.seconds // 5))
            _, alone = cluster.queries(sizes.seconds)
            _tell(name, "beside another reader")
            with Reader(volume, spare) as reader:
                while reader.bytes() < 2 * sizes.cache:
                    time.sleep(0.1)
                latencies, beside = cluster.queries(sizes.seconds)
                scan = cluster.scan()
                _tell(name, f"scanned in {scan:.1f} s, {reader.bytes() >> 20} MiB")
                while reader.bytes() < 10 * sizes.cache:
                    time.sleep(0.1)
        _tell(name, "restart")
        _reboot(volume, daemon)
        _tell(name, "again")
        with cluster.running():
            _, again = cluster.queries(sizes.seconds)
        return Result(name, alone, beside, again, statistics.median(latencies), _percentile(latencies, 0.99),
                      scan)
    finally:
        daemon.stop()
        volume.close()


def measure(quick):
    """The rows, and what they are made of: a Result each for pinned, not pinned and SSD."""
    sizes = QUICK if quick else FULL
    if not memory.can_be_limited():
        print("database: left out, as no control group can limit memory here", flush=True)
        return []
    with memory.limited(LIMIT) as group, tempfile.TemporaryDirectory(dir="/var/tmp") as place:
        results = [_measure_one(name, sizes, group, place) for name in NAMES]
    pinned, loose, ssd = results
    with open(RESULT, "w", encoding="utf-8") as file:
        json.dump(results, file)

    def row(key, ours, seconds):
        return pairs.of(key, sizes.scale, [1 / ours.rate(seconds)], [1 / ssd.rate(seconds)])
    return [row("database", pinned, "beside"), row("database-restart", pinned, "again"),
            row("database-unpinned", loose, "beside")]


def last():
    """The results of the last measurement, in the order of NAMES."""
    with open(RESULT, encoding="utf-8") as file:
        return [Result(*result) for result in json.load(file)]


def lines(results):
    """The results as a table in Markdown."""
    yield ("| the database | queries a second | beside the other reader | median | 99th percentile | "
           "scan of the table | after the restart |")
    yield "|---|---|---|---|---|---|---|"
    for result in results:
        back = result.recovered()
        yield (f"| {result.name} | {result.rate('alone'):,.0f} | {result.rate('beside'):,.0f} | "
               f"{result.median:.2f} ms | {result.late:.2f} ms | {result.scan:.1f} s | "
               f"{result.rate('again'):,.0f}, {f'at its speed within {back} s' if back else 'not at its speed'} |")
