# SPDX-License-Identifier: MIT
"""Intake stops for good at the first message that cannot be taken; what was stored is still done."""
import errno
import os
import struct

import pytest

from lab import evidence, journal, queue as queues

BODY = queues.BODY_BYTES


def until_intake_stopped(daemon, queue, volume):
    """The main thread has ended, the worker lives, and the next message stays where it is."""
    journal.until(lambda: not daemon.receiver_alive(), "the receiver is still there")
    assert daemon.worker_alive()
    waiting = queue.state().messages
    queue.send(queues.RELOAD, volume.mount_path)
    assert queue.state().messages == waiting + 1


# what the client sends, given the volume and a file of it, and the errors that come of it
BAD_MESSAGES = {
    "pin-without-files": (lambda volume, path: (queues.PIN, volume.mount_path, ""),
                          ["Should provide file paths", "Get wrong message format"]),
    "unpin-without-files": (lambda volume, path: (queues.UNPIN, volume.mount_path, ""),
                            ["Should provide file paths", "Get wrong message format"]),
    "no-mount-path": (lambda volume, path: (queues.PIN, "", path),
                      ["Space UUID is not set", "Get wrong message format"]),
    "reload-of-nothing": (lambda volume, path: (queues.RELOAD, "", ""),
                          ["Space UUID is not set", "Get wrong message format"]),
    "outside-the-volume": (lambda volume, path: (queues.PIN, volume.mount_path, "/etc/passwd"),
                           ["Failed to Get relative path (Volume path=/mnt/vol1 File path=/etc/passwd",
                            "Get relative paths failed"]),
    "the-volume-itself": (lambda volume, path: (queues.PIN, volume.mount_path, volume.mount_path + "/"),
                          ["Failed to Get relative path (", "Get relative paths failed"]),
    "no-such-file": (lambda volume, path: (queues.PIN, volume.mount_path, f"{path};{path}x"),
                     ["Stat file /mnt/vol1/ax error", "Cant' get inode number of file (/mnt/vol1/ax)",
                      "Get relative paths failed"]),
    "type-without-a-name": (lambda volume, path: (7, volume.mount_path, path),
                            ["Convert request type to string errror"]),
    "type-below-all-names": (lambda volume, path: (-1, volume.mount_path, path),
                             ["Convert request type to string errror"]),
    "mount-path-of-512-characters": (lambda volume, path: (queues.PIN, "/" + "m" * 511, path),
                                     ["Failed to Get relative path (", "Get relative paths failed"]),
    "mount-path-of-511-characters": (lambda volume, path: (queues.PIN, "/" + "m" * 510, path),
                                     ["Failed to Get relative path (", "Get relative paths failed"]),
    "mount-path-with-a-conversion": (lambda volume, path: (queues.PIN, "/mnt/%n%n%s%s", path),
                                     ["Failed to Get relative path (Volume path=/mnt/%n%n%s%s",
                                      "Get relative paths failed"]),
    "data-without-an-end": (lambda volume, path: (queues.PIN, volume.mount_path, f"{path};{'x' * 1100}"[:1024]),
                            ["Failed to Get relative path (", "Get relative paths failed"]),
}


@pytest.mark.parametrize("name", BAD_MESSAGES)
def test_a_bad_message(stage, name):
    make, errors = BAD_MESSAGES[name]
    volume = stage.volume()
    path = volume.write("a", 100_000)
    daemon, queue = stage.daemon(), stage.queue()
    queue.send(queues.ADD_PENDING, volume.mount_path)
    queue.pin(volume.mount_path, [path])
    daemon.wait_for("is pending")
    before = evidence.configuration(daemon.configuration)
    daemon.expect(*errors)
    if errors[-1] != "Get wrong message format":
        daemon.expect("Can't add request to json", f"Can't add request to config ({daemon.configuration})")

    queue.send(*make(volume, path))

    until_intake_stopped(daemon, queue, volume)
    assert evidence.configuration(daemon.configuration) == before

    # The next start forgets what was pending, does what was stored, and takes what has come since.
    assert daemon.stop() == 0
    again = stage.daemon()
    again.until_done("pinFiles")
    again.until_done("reloadPinBlocks")
    assert volume.cache.pinned() == evidence.units([path])


def test_what_is_stored_for_two_volumes_is_done_after_intake_has_stopped(stage):
    first, second = stage.volume("vol1"), stage.volume("vol2")
    paths = {volume: [volume.write(name, 300_000) for name in ("a", "b", "c")] for volume in (first, second)}
    daemon, queue = stage.daemon(), stage.queue()
    daemon.expect("Should provide file paths", "Get wrong message format")
    first.cache.control("delay-read 3600000")  # keeps the worker at the first request

    for one, other in zip(paths[first], paths[second]):
        queue.pin(first.mount_path, [one])
        queue.pin(second.mount_path, [other])
    queue.unpin(first.mount_path, paths[first][2:])
    queue.send(queues.PIN, first.mount_path, "")
    journal.until(lambda: not daemon.receiver_alive(), "the receiver is still there")
    assert len(evidence.configuration(daemon.configuration)["requestQueue"]) == 7
    first.cache.control("clear-faults")

    daemon.until_done("pinFiles", 6)
    daemon.until_done("unpinFiles")
    assert daemon.worker_alive()
    for volume, listed in ((first, paths[first][:2]), (second, paths[second])):
        assert volume.cache.pinned() == evidence.units(listed) == evidence.pinned_bits(volume.mount_path)
        assert evidence.pinned_files(daemon.configuration, volume.mount_path) == evidence.listing(
            volume.mount_path, listed)
    journal.until(lambda: evidence.configuration(daemon.configuration)["requestQueue"] is None,
                  "a request is still queued")


def test_a_message_too_long_stays_and_is_met_again(stage):
    volume = stage.volume()
    daemon, queue = stage.daemon(), stage.queue()
    daemon.expect(f"Receive messaged failed: {os.strerror(errno.E2BIG)}")

    queue.send_raw(queues.body(queues.PIN, volume.mount_path, "x") + b"x")

    until_intake_stopped(daemon, queue, volume)
    assert queue.state().messages == 2
    assert daemon.stop() == 0
    again = stage.daemon(wait_for="Receive messaged failed")
    again.expect("Receive messaged failed")
    assert queue.state().messages == 2


def test_a_short_message_ends_like_the_one_before_it(stage):
    volume = stage.volume()
    first, second = volume.write("a", 100_000), volume.write("b", 100_000)
    daemon, queue = stage.daemon(), stage.queue()
    queue.pin(volume.mount_path, [first, second])
    daemon.until_done("pinFiles")

    queue.send_raw(struct.pack("=i", queues.UNPIN) + os.fsencode(volume.mount_path) + b"\0")

    line, = daemon.until_done("unpinFiles")
    assert "a#" in line and "b#" in line
    assert volume.cache.pinned() == set()


def test_messages_of_other_types_are_left_alone(stage):
    volume = stage.volume()
    path = volume.write("a", 100_000)
    daemon, queue = stage.daemon(), stage.queue()

    queue.send(queues.PIN, volume.mount_path, path, mtype=2)
    queue.pin(volume.mount_path, [path])

    daemon.until_done("pinFiles")
    assert queue.state().messages == 1
    assert daemon.receiver_alive()


def test_an_acknowledgement_is_stored_and_dropped(stage):
    volume = stage.volume()
    daemon, queue = stage.daemon(), stage.queue()
    daemon.expect("Get unhandle request (ack)", "Handle request error (num = 0, type = ack), drop it.")

    queue.send(queues.ACK, volume.mount_path, "anything")

    daemon.wait_for("drop it.")
    queue.send(queues.RELOAD, volume.mount_path)
    daemon.until_done("reloadPinBlocks")
    document = evidence.configuration(daemon.configuration)
    assert (document["requestQueue"], document["requests"]) == (None, {})


def test_a_request_of_no_type_ends_the_worker_at_every_start(stage):
    volume = stage.volume()
    daemon, queue = stage.daemon(), stage.queue()
    daemon.expect("Can't get correct request type", "Get request error")

    queue.send(0, volume.mount_path)

    daemon.wait_for("Get request error")
    journal.until(lambda: not daemon.worker_alive(), "the worker is still there")
    assert daemon.receiver_alive()
    queue.send(queues.RELOAD, volume.mount_path)
    daemon.wait_for("Signal a new request is added", 2)
    assert evidence.configuration(daemon.configuration)["requestQueue"] == ["0", "1"]
    assert evidence.configuration(daemon.configuration)["requests"]["0"]["type"] == "unknown"
    assert daemon.stop() == 0

    again = stage.daemon(wait_for="Get request error")
    again.expect("Can't get correct request type", "Get request error")
    assert evidence.configuration(daemon.configuration)["requestQueue"] == ["0", "1"]


def test_a_list_that_does_not_fit_ends_before_the_first_file_that_does_not(stage):
    volume = stage.volume(mount_path="/srv")  # a short mount path, and below it inode numbers of five digits
    os.mkdir(volume.path("x"))
    for number in range(10000):
        os.mknod(volume.path(f"x/{number}"))
    names = [chr(first) + chr(second) for first in range(97, 109) for second in range(97, 107)]
    paths = [volume.write(name, 10) for name in names]
    entries = [f"{name}#{os.stat(path).st_ino}" for name, path in zip(names, paths)]
    fits = max(count for count in range(len(entries)) if len(";".join(entries[:count])) <= 1023)
    assert len(";".join(paths)) <= 1023 < len(";".join(entries))
    daemon, queue = stage.daemon(), stage.queue()
    daemon.expect(f"File list is too long to store, it ends before file ({paths[fits]})")

    queue.pin(volume.mount_path, paths)

    line, = daemon.until_done("pinFiles")
    assert line.endswith(f"files={';'.join(entries[:fits])}) OK ")
    assert evidence.pinned_files(daemon.configuration, volume.mount_path) == evidence.listing(
        volume.mount_path, paths[:fits])
    assert daemon.receiver_alive()


def test_long_paths(stage):
    volume = stage.volume()
    directory = "d" * 250 + "/" + "e" * 240
    fits = volume.write(directory + "/" + "f" * (511 - len(volume.path(directory)) - 1), 10)
    too_long = volume.write(directory + "/" + "f" * (512 - len(directory) - 1), 10)
    assert len(fits) == 511 and len(os.path.relpath(too_long, volume.mount_path)) == 512
    daemon, queue = stage.daemon(), stage.queue()
    queue.pin(volume.mount_path, [fits])
    daemon.until_done("pinFiles")
    assert volume.cache.pinned() == evidence.units([fits])
    daemon.expect("Parse file inode from string (", "Can't parse file inodes from request's data (", "drop it.")

    queue.pin(volume.mount_path, [too_long])

    daemon.wait_for("drop it.")
    journal.until(lambda: evidence.configuration(daemon.configuration)["requestQueue"] is None,
                  "the request is still queued")
    assert volume.cache.pinned() == evidence.units([fits])
    assert daemon.receiver_alive() and daemon.worker_alive()
