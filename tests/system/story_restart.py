# SPDX-License-Identifier: MIT
"""What was stored is done, whatever ended the service in between."""
import signal

import pytest

from lab import evidence, queue as queues

FILES = 8


def test_a_stored_queue_is_run_in_order(stage):
    volume = stage.volume()
    paths = [volume.write(f"a{n}", 200_000) for n in range(FILES)]
    daemon, queue = stage.daemon(), stage.queue()
    queue.send(queues.ADD_PENDING, volume.mount_path)
    for path in paths:
        queue.pin(volume.mount_path, [path])
    queue.unpin(volume.mount_path, paths[:1])
    queue.until_empty()
    daemon.wait_for("Signal a new request is added", FILES + 1)
    assert daemon.stop() == 0
    numbers = [str(n) for n in range(FILES + 1)]
    assert evidence.configuration(daemon.configuration)["requestQueue"] == numbers

    again = stage.daemon()
    again.until_done("unpinFiles")

    done = [line.split("[")[1] for line in again.logged("Handle request (num = ")]
    assert len(done) == FILES + 1
    assert [line.split("num = ")[1].rstrip(")") for line in
            again.logged("Handle request (num = ")] == numbers
    left = evidence.units(paths[1:]) - evidence.units(paths[:1])
    assert evidence.pinned_bits(volume.mount_path) == volume.cache.pinned() == left
    assert evidence.configuration(again.configuration) == {
        "nextRequestNum": FILES + 1, "requestQueue": None, "requests": {},
        "volumes": {volume.mount_path: {"files": evidence.listing(volume.mount_path, paths[1:])}}}


@pytest.mark.parametrize("number", [signal.SIGTERM, signal.SIGINT, signal.SIGQUIT, signal.SIGKILL])
def test_a_request_that_was_cut_short_runs_again(stage, number):
    volume = stage.volume()
    paths = [volume.write(f"a{n}", 2_000_000) for n in range(FILES)]
    volume.flood(evidence.units(paths))
    daemon, queue = stage.daemon(), stage.queue()
    volume.cache.control("delay-read 20")
    queue.pin(volume.mount_path, paths)
    daemon.wait_for("Read to null")

    assert daemon.stop(number) == (-9 if number == signal.SIGKILL else 0)

    if number != signal.SIGKILL:
        assert daemon.logged(f"Get signal = {int(number)}")
    assert evidence.configuration(daemon.configuration)["requestQueue"] == ["0"]
    assert not evidence.units(paths) <= volume.cache.resident()
    volume.cache.control("clear-faults")

    again = stage.daemon()
    again.until_done("pinFiles")
    units = evidence.units(paths)
    assert units <= volume.cache.resident()
    assert evidence.pinned_bits(volume.mount_path) == volume.cache.pinned() == units
    assert evidence.configuration(again.configuration)["requestQueue"] is None
