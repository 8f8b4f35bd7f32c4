# SPDX-License-Identifier: MIT
"""Files are pinned: the driver keeps all of their units, whatever else is read."""
import os

import pytest

from lab import evidence


@pytest.mark.parametrize("kind", ["ext4", "xfs"])
def test_pinned_files_stay_in_the_cache(stage, kind):
    volume = stage.volume(kind=kind)
    chosen = [volume.write(f"photos/{n}.jpg", size)
              for n, size in (("a", 1), ("b", 300_000), ("c", 65536), ("d", 9_000_001))]
    others = [volume.write(f"films/{n}.mkv", 5_000_000) for n in "xy"]
    volume.read(others)
    daemon, queue = stage.daemon(), stage.queue()
    assert evidence.configuration(daemon.configuration) is None
    assert evidence.bitmap_file(volume.mount_path) is None

    queue.pin(volume.mount_path, chosen)

    # The log tells what was done, with the request in its stored form.
    stored = ";".join(f"{os.path.relpath(path, volume.mount_path)}#{os.stat(path).st_ino}"
                      for path in chosen)
    line, = daemon.until_done("pinFiles")
    assert line.endswith(f"Handle request (type=pinFiles files={stored}) OK ")

    # The same bits in the extents, in the file and in the driver; nobody else's.
    units = evidence.units(chosen)
    assert evidence.pinned_bits(volume.mount_path) == units
    assert volume.cache.pinned() == units
    assert len(evidence.bitmap_file(volume.mount_path)) == evidence.bitmap_bytes(volume.size)
    assert volume.cache.pinned_bytes() == evidence.bitmap_file(volume.mount_path)
    assert volume.cache.requests() == [["bitmap", 0, evidence.bitmap_bytes(volume.size)]]

    # Nothing is left to do, and the files are on the volume's list.
    assert evidence.configuration(daemon.configuration) == {
        "nextRequestNum": 1, "requestQueue": None, "requests": {},
        "volumes": {volume.mount_path: {"files": evidence.listing(volume.mount_path, chosen)}}}

    # They are in the cache, and ten times the cache's size of other data does not move them.
    assert units <= volume.cache.resident()
    volume.flood(spare=units | evidence.units(others))
    assert units <= volume.cache.resident()
    assert not evidence.units(others) & volume.cache.resident()
    hits, _ = volume.read(chosen)
    assert hits >= len(units)  # more in pieces; others may look at all devices, so not every read is ours


def test_a_second_request_adds_to_the_first(stage):
    volume = stage.volume()
    first, second = volume.write("a", 700_000), volume.write("b", 900_000)
    daemon, queue = stage.daemon(), stage.queue()

    queue.pin(volume.mount_path, [first])
    queue.pin(volume.mount_path, [second])
    daemon.until_done("pinFiles", 2)

    assert evidence.pinned_bits(volume.mount_path) == evidence.units([first, second])
    assert volume.cache.pinned() == evidence.units([first, second])
    assert evidence.configuration(daemon.configuration) == {
        "nextRequestNum": 2, "requestQueue": None, "requests": {},
        "volumes": {volume.mount_path: {"files": evidence.listing(volume.mount_path, [first, second])}}}
