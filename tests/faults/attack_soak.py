# SPDX-License-Identifier: MIT
# not sanitized: the sanitizer keeps what was freed
"""Requests without end: what the service holds of memory, descriptors and threads stays as it is."""
import os

from lab import daemon as daemons
from lab import evidence, journal, queue as queues

import ground as grounds

ABOUT = "soak"
SHORT, FULL = 400, 1_000_000  # requests
LOOKS = 20
FILES = 24
KNOWN = 0.3     # the part of all requests after which it holds what it will hold
SLACK = 512     # KiB, of an allocator's own
QUEUED = 40     # requests sent ahead
PLOT = 50       # columns


def held(daemon):
    """(KiB of its own memory, descriptors, threads)."""
    with open(f"/proc/{daemon.pid}/smaps_rollup", encoding="ascii") as file:
        memory = sum(int(line.split()[1]) for line in file if line.startswith("Private_Dirty:"))
    return memory, len(os.listdir(f"/proc/{daemon.pid}/fd")), len(daemon.threads())


def plot(looks):
    most = max(memory for _, (memory, _, _) in looks)
    for count, (memory, descriptors, threads) in looks:
        print(f"{count:9} {memory:7} KiB {descriptors:3} descriptors {threads} threads "
              f"{'#' * (PLOT * memory // most)}")


def send(ground, queue, volume, paths):
    kind = ground.random.choice((queues.PIN, queues.PIN, queues.UNPIN, queues.UNPIN, queues.RELOAD,
                                 queues.ADD_PENDING))
    if kind == queues.ADD_PENDING:
        queue.send(queues.ADD_PENDING, volume.mount_path)
        queue.send(queues.REMOVE_PENDING, volume.mount_path)
    else:
        chosen = ground.random.sample(paths, ground.random.randint(1, 5))
        queue.send(kind, volume.mount_path, "" if kind == queues.RELOAD else ";".join(chosen))


def run(ground):
    volume = ground.volume()
    paths = [volume.write(f"photos/{n:02}", 5_000 * n + 1) for n in range(FILES)]
    daemon, looks = ground.daemon(wait_for=daemons.STARTING, flags=()), []
    queue, every = queues.Queue.open(), max(1, ground.wanted // LOOKS)
    for count in range(1, ground.wanted + 1):
        send(ground, queue, volume, paths)
        ground.outcome.points += 1
        if count % QUEUED == 0 or count % every == 0:
            if not ground.rest(daemon, f"request {count}"):
                break
        if count % every == 0:
            looks.append((count, held(daemon)))
            os.truncate(journal.FILE, 0)
    queue.pin(volume.mount_path, paths)
    ground.rest(daemon, "the last request")
    whole = grounds.whole(daemon)
    errors = daemon.errors()
    ground.end(daemon, "the end")
    plot(looks)
    settled = [look for count, look in looks if count >= KNOWN * ground.wanted]
    first = settled[0]
    if any(look[0] > first[0] + SLACK or look[1:] != first[1:] for look in settled) or not whole or errors:
        ground.outcome.add("losses", "what it holds", f"{looks}, {errors[:3]}, both threads: {whole}")
    units = evidence.units(paths)
    if not evidence.pinned_bits(volume.mount_path) == volume.cache.pinned() == units:
        ground.outcome.add("losses", "the end", "bitmap, driver and files differ")
