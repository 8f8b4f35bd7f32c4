# SPDX-License-Identifier: MIT
"""A volume without a cache that pins: its requests are dropped, and its pinned files forgotten."""
from lab import evidence, queue as queues


def test_requests_are_dropped_when_the_cache_stops_pinning(stage):
    lost, kept = stage.volume("lost"), stage.volume("kept")
    lost_path, kept_path = lost.write("a", 100_000), kept.write("a", 100_000)
    daemon, queue = stage.daemon(), stage.queue()
    queue.pin(lost.mount_path, [lost_path])
    queue.pin(kept.mount_path, [kept_path])
    daemon.until_done("pinFiles", 2)
    lost.cache.control("support-pin 0")

    queue.send(queues.RELOAD, lost.mount_path)
    queue.pin(lost.mount_path, [lost_path])

    daemon.wait_for("Drop requests finish")
    daemon.wait_for("Remove request (3)")
    queue.send(queues.RELOAD, kept.mount_path)
    daemon.until_done("reloadPinBlocks")
    assert len(daemon.logged("Handle request (type=")) == 3
    assert evidence.configuration(daemon.configuration) == {
        "nextRequestNum": 5, "requestQueue": None, "requests": {},
        "volumes": {kept.mount_path: {"files": evidence.listing(kept.mount_path, [kept_path])}}}
    assert lost.cache.pinned() == evidence.units([lost_path])  # the driver is not told anything


def test_a_pending_volume_stays_pending_when_its_cache_is_lost(stage):
    volume = stage.volume()
    path = volume.write("a", 100_000)
    daemon, queue = stage.daemon(), stage.queue()
    queue.send(queues.ADD_PENDING, volume.mount_path)
    volume.cache.control("support-pin 0")
    queue.pin(volume.mount_path, [path])
    daemon.wait_for("Drop requests finish")
    volume.cache.control("support-pin 1")

    queue.pin(volume.mount_path, [path])

    # Meant: the field that is asked whether the dropped request's volume is pending is always empty.
    daemon.wait_for("is pending")
    assert not daemon.logged("from pending list") and not daemon.logged("Handle request (type=")
    queue.send(queues.REMOVE_PENDING, volume.mount_path)
    queue.send(queues.RELOAD, volume.mount_path)
    daemon.until_done("pinFiles")


def test_a_cache_that_is_still_being_built_does_not_pin(stage):
    volume = stage.volume()
    path = volume.write("a", 100_000)
    daemon, queue = stage.daemon(), stage.queue()
    volume.cache.control("state 2")

    queue.pin(volume.mount_path, [path])

    daemon.wait_for("Drop requests finish")
    assert evidence.configuration(daemon.configuration) == {
        "nextRequestNum": 1, "requestQueue": None, "requests": {}, "volumes": None}
    assert volume.cache.requests() == []


def test_a_volume_that_never_had_a_cache(stage):
    volume = stage.volume(cached=False)
    path = volume.write("a", 100_000)
    daemon, queue = stage.daemon(), stage.queue()

    queue.pin(volume.mount_path, [path])

    daemon.wait_for("Drop requests finish")
    assert daemon.logged("doesn't has cache")
    assert evidence.configuration(daemon.configuration) == {
        "nextRequestNum": 1, "requestQueue": None, "requests": {}, "volumes": None}
    assert evidence.bitmap_file(volume.mount_path) is None


def test_a_mount_path_that_is_no_volume(stage):
    volume = stage.volume()
    path = volume.write("dir/a", 100_000)
    daemon, queue = stage.daemon(), stage.queue()
    daemon.expect(f"Can't get space uuid from mount path ({volume.mount_path}/dir)")

    queue.pin(volume.mount_path + "/dir", [path])

    daemon.wait_for("Drop requests finish")
    assert volume.cache.requests() == []
