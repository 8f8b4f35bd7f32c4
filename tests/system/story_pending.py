# SPDX-License-Identifier: MIT
# labels: concurrent
"""A volume that is being changed is left alone, and its requests are taken up when it is released."""
from lab import evidence, journal, queue as queues

FILE_BYTES = 2_000_000


def stored(daemon):
    """The numbers of the requests that are queued, in order."""
    return evidence.configuration(daemon.configuration)["requestQueue"] or []


def test_a_pin_is_interrupted_and_taken_up_after_the_release(stage):
    volume = stage.volume()
    paths = [volume.write(f"film-{n:02}", FILE_BYTES) for n in range(12)]
    volume.flood(evidence.units(paths))
    daemon, queue = stage.daemon(), stage.queue()
    volume.cache.control("delay-read 20")

    queue.pin(volume.mount_path, paths)
    daemon.wait_for("Read to null")
    queue.send(queues.ADD_PENDING, volume.mount_path)

    daemon.wait_for("Handle request (0). Get interrupted !")
    assert daemon.logged("Space is pending, Interrupted")
    units = evidence.units(paths)
    assert evidence.pinned_bits(volume.mount_path) == volume.cache.pinned() == units
    assert not units <= volume.cache.resident()
    assert stored(daemon) == ["0"]
    assert evidence.pinned_files(daemon.configuration, volume.mount_path) == {}
    daemon.wait_for("Request num (0) volume (/mnt/vol1) is pending", 2)  # asked again, left alone
    assert not daemon.logged("Handle request (type=")

    volume.cache.control("clear-faults")
    queue.send(queues.REMOVE_PENDING, volume.mount_path)

    daemon.until_done("pinFiles")
    assert units <= volume.cache.resident()
    assert stored(daemon) == []
    assert evidence.pinned_files(daemon.configuration, volume.mount_path) == evidence.listing(
        volume.mount_path, paths)


def test_a_reload_is_interrupted_too(stage):
    volume = stage.volume()
    paths = [volume.write(f"film-{n:02}", 300_000) for n in range(10)]
    gaps = [volume.write(f"gap-{n:02}", 300_000) for n in range(10)]
    daemon, queue = stage.daemon(), stage.queue()
    queue.pin(volume.mount_path, paths)
    daemon.until_done("pinFiles")
    assert gaps
    volume.cache.control("delay-read 100")

    queue.send(queues.RELOAD, volume.mount_path)
    daemon.wait_for("Start to read blocks")
    queue.send(queues.ADD_PENDING, volume.mount_path)
    daemon.wait_for("Interrupted due to space is pending")
    daemon.wait_for("Handle request (1). Get interrupted !")
    assert stored(daemon) == ["1"]

    volume.cache.control("clear-faults")
    queue.send(queues.REMOVE_PENDING, volume.mount_path)
    daemon.until_done("reloadPinBlocks")
    assert stored(daemon) == []


def test_another_volume_overtakes(stage):
    held, free = stage.volume("held"), stage.volume("free")
    held_path, free_path = held.write("a", FILE_BYTES), free.write("a", FILE_BYTES)
    daemon, queue = stage.daemon(), stage.queue()

    queue.send(queues.ADD_PENDING, held.mount_path)
    queue.pin(held.mount_path, [held_path])
    queue.pin(free.mount_path, [free_path])

    daemon.until_done("pinFiles")
    assert stored(daemon) == ["0"]
    assert held.cache.requests() == [] and evidence.bitmap_file(held.mount_path) is None
    assert free.cache.pinned() == evidence.units([free_path])

    queue.send(queues.REMOVE_PENDING, held.mount_path)
    daemon.until_done("pinFiles", 2)
    assert held.cache.pinned() == evidence.units([held_path])
    assert evidence.configuration(daemon.configuration)["volumes"] == {
        volume.mount_path: {"files": evidence.listing(volume.mount_path, [path])}
        for volume, path in ((held, held_path), (free, free_path))}


def test_adding_twice_and_releasing_what_is_not_pending_are_no_errors(stage):
    volume = stage.volume()
    path = volume.write("a", 1000)
    daemon, queue = stage.daemon(), stage.queue()

    for _ in range(2):
        queue.send(queues.ADD_PENDING, volume.mount_path)
    daemon.wait_for(f"Space ({volume.mount_path}) is already in pending list")
    queue.send(queues.REMOVE_PENDING, volume.mount_path + "/")  # another text, another space
    daemon.wait_for(f"Space ({volume.mount_path}/) is not in pending list. Could be a new space")
    queue.send(queues.REMOVE_PENDING, volume.mount_path)
    queue.send(queues.REMOVE_PENDING, volume.mount_path)
    daemon.wait_for(f"Space ({volume.mount_path}) is not in pending list. Could be a new space")

    queue.pin(volume.mount_path, [path])
    daemon.until_done("pinFiles")


def test_pending_spaces_are_forgotten_at_a_restart(stage):
    volume = stage.volume()
    path = volume.write("a", 1000)
    daemon, queue = stage.daemon(), stage.queue()
    queue.send(queues.ADD_PENDING, volume.mount_path)
    queue.pin(volume.mount_path, [path])
    daemon.wait_for("is pending")
    assert daemon.stop() == 0
    assert stored(daemon) == ["0"]

    again = stage.daemon()

    again.until_done("pinFiles")
    assert stored(again) == []
    journal.until(lambda: volume.cache.pinned() == evidence.units([path]), "the file is not pinned")
