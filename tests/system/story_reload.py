# SPDX-License-Identifier: MIT
"""A cache that begins anew is filled again: a reload reads what the volume's bitmap says."""
from lab import evidence, queue as queues


def restart_cache(volume):
    """The cache ends and begins again, cold, as it got another size; the bitmap it was given it knows still."""
    volume.unmount()
    assert volume.cache.stop() == 0
    volume.cache.start(volume.cache.size * 2)
    volume.mount()


def test_a_reload_reads_every_pinned_unit(stage):
    volume = stage.volume()
    paths = [volume.write(name, size) for name, size in (("a", 3_000_000), ("b", 65536), ("c", 700_000))]
    daemon, queue = stage.daemon(), stage.queue()
    queue.pin(volume.mount_path, paths)
    daemon.until_done("pinFiles")
    units = evidence.units(paths)
    restart_cache(volume)
    assert not units <= volume.cache.resident()
    before = volume.cache.stats()["controlRequests"]

    queue.send(queues.RELOAD, volume.mount_path, "what stands here does not matter")

    line, = daemon.until_done("reloadPinBlocks")
    assert line.endswith("Handle request (type=reloadPinBlocks) OK ")
    assert units <= volume.cache.resident()
    assert volume.cache.stats()["controlRequests"] == before  # nothing is sent to the driver
    volume.flood(units)
    assert units <= volume.cache.resident()
    assert evidence.configuration(daemon.configuration)["requestQueue"] is None
    assert evidence.pinned_files(daemon.configuration, volume.mount_path) == evidence.listing(
        volume.mount_path, paths)


def test_a_volume_without_pinned_files_has_nothing_to_reload(stage):
    volume = stage.volume()
    daemon, queue = stage.daemon(), stage.queue()

    queue.send(queues.RELOAD, volume.mount_path)

    daemon.until_done("reloadPinBlocks")
    assert daemon.logged("No pin blocks, no need to reload")
    assert evidence.bitmap_file(volume.mount_path) is None
    assert volume.cache.requests() == []
