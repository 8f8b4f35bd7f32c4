# SPDX-License-Identifier: MIT
"""Files are released: their bits go, the driver hears exactly their extents, and the cache lets go."""
import pytest

from lab import evidence


@pytest.mark.parametrize("kind", ["ext4", "xfs"])
def test_released_files_may_leave_the_cache(stage, kind):
    volume = stage.volume(kind=kind)
    kept = [volume.write(f"kept/{n}", 3_000_000) for n in range(3)]
    let_go = [volume.write(f"let-go/{n}", 2_000_000 + n) for n in range(3)]
    daemon, queue = stage.daemon(), stage.queue()
    queue.pin(volume.mount_path, kept + let_go)
    daemon.until_done("pinFiles")
    assert volume.cache.pinned() == evidence.units(kept + let_go)

    queue.unpin(volume.mount_path, let_go)
    daemon.until_done("unpinFiles")

    # A unit that a released file shares with a pinned one loses its bit too: there is one bit a unit.
    left = evidence.units(kept) - evidence.units(let_go)
    assert evidence.pinned_bits(volume.mount_path) == left
    assert volume.cache.pinned() == left

    # The bitmap first, then the exact extents, in the order of the request.
    size = evidence.bitmap_bytes(volume.size)
    ranges = evidence.ranges(let_go)
    assert volume.cache.requests() == [["bitmap", 0, size], ["bitmap", 0, size],
                                       ["unpin", 0, len(ranges)]]
    assert volume.cache.stats()["releasedRanges"] == ranges

    assert evidence.configuration(daemon.configuration) == {
        "nextRequestNum": 2, "requestQueue": None, "requests": {},
        "volumes": {volume.mount_path: {"files": evidence.listing(volume.mount_path, kept)}}}

    # What stays pinned stays in the cache; what was released goes when other data wants its place.
    spare = evidence.units(kept + let_go)
    volume.flood(spare)
    assert left <= volume.cache.resident()
    assert not (spare - left) & volume.cache.resident()


def test_the_last_file_takes_the_volume_off_the_list(stage):
    volume = stage.volume()
    path = volume.write("only", 500_000)
    daemon, queue = stage.daemon(), stage.queue()
    queue.pin(volume.mount_path, [path])
    queue.unpin(volume.mount_path, [path])
    daemon.until_done("unpinFiles")

    assert evidence.pinned_bits(volume.mount_path) == set()
    assert volume.cache.pinned() == set()
    assert evidence.configuration(daemon.configuration) == {
        "nextRequestNum": 2, "requestQueue": None, "requests": {}, "volumes": {}}
