# SPDX-License-Identifier: MIT
# labels: concurrent
"""Intake, pending changes and the worker at once for half a minute; then everything still agrees."""
import random
import threading
import time

from lab import evidence, journal, queue as queues

SECONDS = 30
STORED = 3  # requests in the file at a time: the worker rests for a second after each


def queued(daemon):
    return (evidence.configuration(daemon.configuration) or {}).get("requestQueue") or []


def shake(mount_paths, end):
    """Makes volumes pending and releases them, and says so twice now and then, until `end`."""
    chance, queue = random.Random(1), queues.Queue.open()
    while time.monotonic() < end:
        try:
            queue.send(chance.choice((queues.ADD_PENDING, queues.REMOVE_PENDING)), chance.choice(mount_paths))
        except BlockingIOError:
            pass  # full: the next one finds room
        time.sleep(chance.random() / 100)


def until_idle(daemon, queue):
    queue.until_empty()
    journal.until(lambda: not queued(daemon), lambda: f"still queued: {queued(daemon)}")


def test_nothing_is_lost_in_the_crowd(stage):
    volumes = [stage.volume(name) for name in ("vol1", "vol2")]
    files = {volume: [volume.write(f"f{n}", 200_000 + n) for n in range(8)] for volume in volumes}
    daemon = stage.daemon(flags=(), wait_for="Start Service")
    queue, chance = stage.queue(), random.Random(2)
    for volume in volumes:
        volume.cache.control("delay-read 1")  # so that a release or a pending meets a read in its middle

    end = time.monotonic() + SECONDS
    crowd = threading.Thread(target=shake, args=([volume.mount_path for volume in volumes], end))
    crowd.start()
    sent = 0
    while time.monotonic() < end:
        if len(queued(daemon)) < STORED:
            volume = chance.choice(volumes)
            some = chance.sample(files[volume], 3)
            chance.choice((queue.pin, queue.unpin,
                           lambda path, _: queue.send(queues.RELOAD, path)))(volume.mount_path, some)
            sent += 1
        time.sleep(0.05)
    crowd.join()
    for volume in volumes:
        journal.until(lambda: queue.state().messages < 1000, "the queue stays full")
        queue.send(queues.REMOVE_PENDING, volume.mount_path)
    until_idle(daemon, queue)

    assert sent > STORED
    assert evidence.configuration(daemon.configuration)["nextRequestNum"] == sent
    daemon.wait_for(" OK ", sent)
    assert len(daemon.logged(" OK ")) == sent  # each once, however often it was interrupted
    for volume in volumes:
        assert volume.cache.pinned() == evidence.pinned_bits(volume.mount_path)

    # Whatever order the crowd left, the next requests find a service in good order.
    for volume in volumes:
        queue.unpin(volume.mount_path, files[volume])
        queue.pin(volume.mount_path, files[volume])
    until_idle(daemon, queue)
    daemon.wait_for(" OK ", sent + 4)
    for volume in volumes:
        assert volume.cache.pinned() == evidence.pinned_bits(volume.mount_path) == evidence.units(files[volume])
        assert evidence.pinned_files(daemon.configuration, volume.mount_path) == evidence.listing(
            volume.mount_path, files[volume])
        assert evidence.units(files[volume]) <= volume.cache.resident()
