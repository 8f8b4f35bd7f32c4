# SPDX-License-Identifier: MIT
"""Files as they come: in hundreds of pieces, not yet on the device, with holes, allocated ahead."""
import os

import pytest

from lab import evidence

PIECES = 650
BLOCK = 4096
BATCH = 512


def write_in_pieces(path, pieces=PIECES):
    """A file of at least that many extents: every other block is left out (XFS fills some of them ahead)."""
    with open(path, "wb") as file:
        for piece in range(pieces):
            os.pwrite(file.fileno(), bytes([piece % 251]) * BLOCK, 2 * piece * BLOCK)
        os.fsync(file.fileno())
    assert len(evidence.extents(path)) >= pieces
    return path


@pytest.mark.parametrize("kind", ["ext4", "xfs"])
def test_a_file_in_hundreds_of_pieces(stage, kind):
    volume = stage.volume(kind=kind)
    path = write_in_pieces(volume.path("pieces"))
    daemon, queue = stage.daemon(), stage.queue()

    queue.pin(volume.mount_path, [path])
    daemon.until_done("pinFiles")
    units = evidence.units([path])
    assert evidence.pinned_bits(volume.mount_path) == volume.cache.pinned() == units
    written = {unit for extent in evidence.extents(path) if not extent.unwritten
               for unit in (extent.device_sector // evidence.UNIT_SECTORS,)}
    assert written <= volume.cache.resident()

    queue.unpin(volume.mount_path, [path])
    daemon.until_done("unpinFiles")
    assert volume.cache.pinned() == set()

    # A batch holds 512 ranges, and the range that is due when it is full is passed over.
    ranges = evidence.ranges([path])
    sent = [entry for index, entry in enumerate(ranges) if index % (BATCH + 1) != BATCH]
    batches = [["unpin", 0, len(sent[start:start + BATCH])] for start in range(0, len(sent), BATCH)]
    assert len(batches) >= 2
    assert [entry for entry in volume.cache.requests() if entry[0] == "unpin"] == batches
    assert volume.cache.stats()["releasedRanges"] == sent


@pytest.mark.parametrize("kind", ["ext4", "xfs"])
def test_a_fresh_file_gets_its_place_late(stage, kind):
    volume = stage.volume(kind=kind)
    path = volume.write("fresh", 5_000_000, sync=False)
    daemon, queue = stage.daemon(), stage.queue()
    assert evidence.extents(path) == []

    queue.pin(volume.mount_path, [path])

    daemon.until_done("pinFiles")
    assert len(daemon.logged("Do fsync")) == 1
    units = evidence.units([path])
    assert len(units) >= 5_000_000 // evidence.UNIT
    assert evidence.pinned_bits(volume.mount_path) == volume.cache.pinned() == units
    assert units <= volume.cache.resident()


@pytest.mark.parametrize("kind", ["ext4", "xfs"])
def test_a_hole_pins_nothing(stage, kind):
    volume = stage.volume(kind=kind)
    path = volume.path("holes")
    with open(path, "wb") as file:
        os.pwrite(file.fileno(), b"begin" * BLOCK, 0)
        os.pwrite(file.fileno(), b"end" * BLOCK, 100 << 20)
        os.fsync(file.fileno())
    daemon, queue = stage.daemon(), stage.queue()

    queue.pin(volume.mount_path, [path])

    daemon.until_done("pinFiles")
    units = evidence.units([path])
    assert len(units) <= 6
    assert evidence.pinned_bits(volume.mount_path) == volume.cache.pinned() == units
    assert units <= volume.cache.resident()


@pytest.mark.parametrize("kind", ["ext4", "xfs"])
def test_what_is_allocated_ahead_is_pinned_and_not_read(stage, kind):
    volume = stage.volume(kind=kind)
    path = volume.path("ahead")
    with open(path, "wb") as file:
        os.posix_fallocate(file.fileno(), 0, 8 << 20)
        os.fsync(file.fileno())
    extents = evidence.extents(path)
    assert extents and all(extent.unwritten for extent in extents)
    daemon, queue = stage.daemon(), stage.queue()
    read_before = volume.cache.stats()["reads"]

    queue.pin(volume.mount_path, [path])

    daemon.until_done("pinFiles")
    if len(extents) == 1:
        assert daemon.logged(f"Only get 1 unitilized entry from file ({path})")
    assert len(daemon.logged("Skip uninitialized range")) == len(extents)
    units = evidence.units([path])
    assert evidence.pinned_bits(volume.mount_path) == volume.cache.pinned() == units
    assert not daemon.logged("Read to null")
    assert volume.cache.stats()["reads"] - read_before < len(units)


def test_small_files_share_a_unit(stage):
    volume = stage.volume()
    paths = [volume.write(f"small-{n}", 1000) for n in range(6)]
    daemon, queue = stage.daemon(), stage.queue()
    queue.pin(volume.mount_path, paths)
    daemon.until_done("pinFiles")
    shared = evidence.units(paths[:1]) & evidence.units(paths[1:])
    assert shared

    queue.unpin(volume.mount_path, paths[:1])
    daemon.until_done("unpinFiles")

    # One bit a unit: it goes although other pinned files have data in it, and they stay listed.
    assert evidence.pinned_bits(volume.mount_path) == evidence.units(paths) - evidence.units(paths[:1])
    assert evidence.pinned_files(daemon.configuration, volume.mount_path) == evidence.listing(
        volume.mount_path, paths[1:])
