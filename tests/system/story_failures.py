# SPDX-License-Identifier: MIT
"""A request that fails is dropped, says why, and leaves what had been done before it failed."""
import os

import pytest

from lab import evidence, journal, queue as queues

DEBUG_FILE = "/tmp/quorcachepinfiletool.debug"
DROPPED = ("Handle request failed", "drop it.")
REFUSED = ("Ioctl Error: Send ioctl",)


def one_pinned_file(stage):
    """A volume with one pinned file and one that is not; its daemon and queue."""
    volume = stage.volume()
    pinned, other = volume.write("pinned", 500_000), volume.write("other", 700_000)
    daemon, queue = stage.daemon(), stage.queue()
    queue.pin(volume.mount_path, [pinned])
    daemon.until_done("pinFiles")
    return volume, daemon, queue, pinned, other


def until_dropped(daemon, number, kind):
    daemon.wait_for(f"Handle request error (num = {number}, type = {kind}), drop it.")
    journal.until(lambda: evidence.configuration(daemon.configuration)["requestQueue"] is None,
                  "the request is still queued")


def test_a_mapping_made_to_fail(stage):
    volume, daemon, queue, pinned, other = one_pinned_file(stage)
    with open(DEBUG_FILE, "w", encoding="utf-8") as file:
        file.write(other + "\n")
    daemon.expect(f"Simulate {other} get mapping failed", "Get mapping result fail.",
                  f"Can't add file ({other}) inode", *DROPPED)
    third = volume.write("third", 100_000)

    queue.pin(volume.mount_path, [third, other])

    until_dropped(daemon, 1, "pinFiles")
    assert evidence.pinned_bits(volume.mount_path) == volume.cache.pinned() == evidence.units([pinned])
    assert evidence.configuration(daemon.configuration) == {
        "nextRequestNum": 2, "requestQueue": None, "requests": {},
        "volumes": {volume.mount_path: {"files": evidence.listing(volume.mount_path, [pinned])}}}


def test_the_driver_refuses_the_bitmap_of_a_pin(stage):
    volume, daemon, queue, pinned, other = one_pinned_file(stage)
    daemon.expect(*REFUSED, "Ioctl error", "Can't send bitmap to driver", *DROPPED)
    volume.cache.control("refuse-control 1")

    queue.pin(volume.mount_path, [other])

    until_dropped(daemon, 1, "pinFiles")
    assert evidence.pinned_bits(volume.mount_path) == evidence.units([pinned, other])
    assert volume.cache.pinned() == evidence.units([pinned])
    assert evidence.pinned_files(daemon.configuration, volume.mount_path) == evidence.listing(
        volume.mount_path, [pinned])
    assert volume.cache.requests()[-1][:2] == ["bitmap", -5]


@pytest.mark.parametrize("refused, error", [(1, "Can't send bitmap to driver"),
                                            (2, "Can't send unpin information to driver")])
def test_the_driver_refuses_an_unpin(stage, refused, error):
    volume, daemon, queue, pinned, _ = one_pinned_file(stage)
    daemon.expect(*REFUSED, error, *DROPPED, "Remove pinned files from the config file if possible",
                  "Ioctl error" if refused == 1 else "Send unpin inctl to driver failed")
    volume.cache.control(f"refuse-control {refused}")

    queue.unpin(volume.mount_path, [pinned])

    until_dropped(daemon, 1, "unpinFiles")
    assert evidence.pinned_bits(volume.mount_path) == set()
    assert volume.cache.pinned() == (evidence.units([pinned]) if refused == 1 else set())
    assert volume.cache.stats()["releasedRanges"] == []
    # The file leaves the list although the driver was not told everything.
    assert evidence.configuration(daemon.configuration) == {
        "nextRequestNum": 2, "requestQueue": None, "requests": {}, "volumes": {}}


def test_a_read_error_in_mid_warming(stage):
    volume, daemon, queue, pinned, other = one_pinned_file(stage)
    extent = evidence.extents(other)[0]
    begin = extent.device_sector * evidence.SECTOR
    daemon.expect("Read block error (seek = ",
                  f"Read fd to null failed (disk start sector = {extent.device_sector} "
                  f"num sectors = {extent.sectors})", f"Can't read file ({other}) to cache", *DROPPED)
    volume.cache.control(f"fail-read {begin + 100_000} 4096")

    queue.pin(volume.mount_path, [other])

    until_dropped(daemon, 1, "pinFiles")
    # The pinning stays in file and driver; only the list does not have the file.
    units = evidence.units([pinned, other])
    assert evidence.pinned_bits(volume.mount_path) == volume.cache.pinned() == units
    assert evidence.pinned_files(daemon.configuration, volume.mount_path) == evidence.listing(
        volume.mount_path, [pinned])


def test_a_reload_with_a_read_error(stage):
    volume, daemon, queue, pinned, _ = one_pinned_file(stage)
    daemon.expect("Read block error (seek = ", "Read range to cache failed", *DROPPED)
    first = min(evidence.units([pinned]))
    volume.cache.control(f"fail-read {first * evidence.UNIT} 1")

    queue.send(queues.RELOAD, volume.mount_path)

    until_dropped(daemon, 1, "reloadPinBlocks")
    assert evidence.configuration(daemon.configuration)["requestQueue"] is None


def test_a_file_that_was_replaced_is_not_pinned_by_its_old_identity(stage):
    volume, daemon, queue, pinned, other = one_pinned_file(stage)
    queue.send(queues.ADD_PENDING, volume.mount_path)
    queue.pin(volume.mount_path, [other])
    daemon.wait_for("is pending")
    os.rename(volume.write("new", 300_000), other)
    daemon.expect("Get mapping result fail.", f"Can't add file ({other}) inode", *DROPPED)

    queue.send(queues.REMOVE_PENDING, volume.mount_path)

    daemon.wait_for("Handle request error (num = 1, type = pinFiles), drop it.")
    assert volume.cache.pinned() == evidence.units([pinned])


def test_a_bitmap_file_larger_than_the_bitmap(stage):
    volume, daemon, queue, pinned, other = one_pinned_file(stage)
    size = evidence.bitmap_bytes(volume.size)
    raw = evidence.bitmap_file(volume.mount_path) + b"\xff"
    with open(volume.path(evidence.BITMAP_FILE), "wb") as file:
        file.write(raw)
    daemon.expect(f"Incorrect bitmap size ({size}), file size ({size + 1})", "Allocate bitmap failed",
                  "drop it.")

    queue.pin(volume.mount_path, [other])

    daemon.wait_for("drop it.")
    assert evidence.bitmap_file(volume.mount_path) == raw
    assert volume.cache.pinned() == evidence.units([pinned])


def test_a_bitmap_file_that_cannot_be_read(stage):
    volume, daemon, queue, pinned, other = one_pinned_file(stage)
    path = volume.path(evidence.BITMAP_FILE)
    daemon.expect(f"Read bitmap file ({path}) error", "Read bitmap file to bitmap memory error",
                  "Allocate bitmap failed", "drop it.")
    with open(path, "rb") as file:
        os.fsync(file.fileno())
        os.posix_fadvise(file.fileno(), 0, 0, os.POSIX_FADV_DONTNEED)
        extent, = evidence.extents(path)
    volume.cache.control(f"fail-read {extent.device_sector * evidence.SECTOR} 1")

    queue.pin(volume.mount_path, [other])

    until_dropped(daemon, 1, "pinFiles")
    volume.cache.control("clear-faults")
    assert volume.cache.pinned() == evidence.pinned_bits(volume.mount_path) == evidence.units([pinned])


NOT_READ = ("Read bitmap file to bitmap memory error", "Allocate bitmap failed")
NOT_WRITTEN = ("Write bitmap failed", "Handle request failed")


@pytest.mark.parametrize("make, errors", [
    (os.mkfifo, ("Write bitmap file (/mnt/vol1/quorcachepinfile.bitmap) error", *NOT_WRITTEN)),
    (lambda path: os.symlink("/tmp/elsewhere", path), ("Can't open bitmap file (", *NOT_READ)),
    (lambda path: os.symlink("/tmp/nowhere", path), ("Can't open bitmap file (", *NOT_WRITTEN)),
], ids=["fifo", "link", "dangling"])
def test_what_stands_in_the_place_of_the_bitmap_file_is_not_followed(stage, make, errors):
    volume = stage.volume()
    other = volume.write("other", 100_000)
    make(volume.path(evidence.BITMAP_FILE))
    os.chmod(volume.mount_path, 0o1777)  # where others may make such a thing
    with open("/tmp/elsewhere", "wb") as file:
        file.write(b"untouched")
    daemon, queue = stage.daemon(), stage.queue()
    daemon.expect(*errors, "drop it.")
    if os.path.islink(volume.path(evidence.BITMAP_FILE)):
        daemon.expect("is a symbolic link that others than root can change")
    if not os.path.islink(volume.path(evidence.BITMAP_FILE)) or os.path.exists(volume.path(evidence.BITMAP_FILE)):
        daemon.expect("Bitmap size changed. Could be due to volume expansion")

    queue.pin(volume.mount_path, [other])

    until_dropped(daemon, 0, "pinFiles")
    assert volume.cache.requests() == []
    assert not os.path.exists("/tmp/nowhere")
    with open("/tmp/elsewhere", "rb") as file:
        assert file.read() == b"untouched"
    os.unlink("/tmp/elsewhere")


def test_a_link_that_is_roots_alone_is_followed(stage):
    volume = stage.volume()
    path = volume.write("photo", 100_000)
    os.symlink("/tmp/elsewhere", volume.path(evidence.BITMAP_FILE))
    daemon, queue = stage.daemon(), stage.queue()

    queue.pin(volume.mount_path, [path])

    daemon.until_done("pinFiles")
    assert evidence.pinned_bits(volume.mount_path) == volume.cache.pinned() == evidence.units([path])
    assert os.path.islink(volume.path(evidence.BITMAP_FILE))
    assert os.path.getsize("/tmp/elsewhere") == evidence.bitmap_bytes(volume.size)
    os.unlink("/tmp/elsewhere")


def test_a_shorter_bitmap_file_is_a_grown_volume(stage):
    volume, daemon, queue, pinned, other = one_pinned_file(stage)
    raw = evidence.bitmap_file(volume.mount_path).rstrip(b"\0")
    with open(volume.path(evidence.BITMAP_FILE), "wb") as file:
        file.write(raw)
    daemon.expect("Bitmap size changed. Could be due to volume expansion")

    queue.pin(volume.mount_path, [other])

    daemon.until_done("pinFiles", 2)
    assert len(evidence.bitmap_file(volume.mount_path)) == evidence.bitmap_bytes(volume.size)
    assert evidence.pinned_bits(volume.mount_path) == evidence.units([pinned, other])
