# SPDX-License-Identifier: MIT
"""quorcachepinctl keep-copy and restore: the list of pinned files survives its file."""
import json
import os

import pytest

from lab import command, evidence, journal
from story_command_check import Systemctl


def keep(daemon, status=0):
    return command.report("keep-copy", "--config-path", daemon.configuration, status=status)


def copies(daemon):
    """{number of a copy: how many files it lists}, as restore tells it."""
    report = command.report("restore", "--config-path", daemon.configuration)
    return {copy["number"]: copy["files"] for copy in report["copies"]}


def pin_and_keep(stage, count=2):
    """A volume with pinned files, and a copy of the list; the daemon runs."""
    volume = stage.volume()
    paths = [volume.write(f"f{n}", 300_000) for n in range(count)]
    daemon = stage.daemon()
    command.done("pin", "--wait", *paths)
    assert keep(daemon)["kept"] == 1
    return volume, daemon, paths


def holds(volume, daemon, paths):
    assert evidence.pinned_files(daemon.configuration, volume.mount_path) == evidence.listing(
        volume.mount_path, paths)
    command.done("check", "--config-path", daemon.configuration)


def write(path, content):
    with open(path, "wb") as file:
        file.write(content)


@pytest.mark.parametrize("damage", [
    lambda content: b"", lambda content: content[:len(content) // 2], lambda content: b"\0" * 4096,
    lambda content: b"[]\n", lambda content: b'{"volumes": 7}',
], ids=["empty", "half", "zeros", "array", "other"])
def test_a_store_that_cannot_be_read_is_put_aside_before_the_start(stage, damage):
    volume, daemon, paths = pin_and_keep(stage)
    # While the service runs nothing is put in its file's place.
    daemon.stop()
    with open(daemon.configuration, "rb") as file:
        bad = damage(file.read())
    write(daemon.configuration, bad)

    result = command.run("keep-copy", "--config-path", daemon.configuration)
    aside = f"{daemon.configuration}.unreadable-1"
    assert result.status == 1
    line, = result.talk.splitlines()
    assert f"is damaged; it is now {aside}, and copy 1 of " in line
    assert "which lists 2 files, has taken its place" in line
    with open(aside, "rb") as file:
        assert file.read() == bad
    holds(volume, daemon, paths)

    daemon.start()
    paths.append(volume.write("more", 300_000))
    command.done("pin", "--wait", paths[-1])
    holds(volume, daemon, paths)


def test_a_copy_is_made_when_the_list_differs_and_five_are_kept(stage):
    volume, daemon, paths = pin_and_keep(stage, 4)
    assert keep(daemon)["kept"] is None
    command.done("reload", "--wait", volume.mount_path)
    assert keep(daemon)["kept"] is None, "the numbers of requests do not count"
    for number, path in enumerate(paths[:3], 2):
        command.done("unpin", "--wait", path)
        keep(daemon)
    for number in range(5, 8):
        paths.append(volume.write(f"g{number}", 100_000))
        command.done("pin", "--wait", paths[-1])
        report = keep(daemon)
        assert (report["kept"], report["lost"]) == (number, None)
    # The first is the only one with four files until copy 7 has as many.
    assert copies(daemon) == {7: 4, 6: 3, 5: 2, 4: 1, 3: 2}


def test_a_list_that_was_lost_is_told_once_and_put_back(stage):
    volume, daemon, paths = pin_and_keep(stage)
    # As a service leaves it that met the volume without its cache.
    daemon.stop()
    document = evidence.configuration(daemon.configuration)
    lost = {**document, "volumes": {}}
    write(daemon.configuration, json.dumps(lost).encode())
    result = command.run("keep-copy", "--config-path", daemon.configuration)
    assert result.status == 0
    assert "lists 0 files on 0 volumes, and listed 2 files on 1 volume in copy 1; if that" in result.talk
    assert evidence.configuration(daemon.configuration) == lost, "it may be what was meant"
    assert command.run("keep-copy", "--config-path", daemon.configuration).talk == ""

    daemon.start()
    result = command.run("restore", "1")
    assert result.status == 5 and "the service runs; stop it, or give --restart" in result.talk
    unit = Systemctl(daemon)
    result = unit.run("restore", "1", "--restart")
    assert result.status == 0, result
    assert unit.asked == ["show", "stop", "start"] and daemon.alive()
    holds(volume, daemon, paths)
    assert copies(daemon) == {2: 0, 1: 2}


def test_what_is_queued_stays_queued(stage):
    volume, daemon, paths = pin_and_keep(stage)
    command.done("unpin", "--wait", paths[0])
    command.done("pend", volume.mount_path)
    command.done("pin", paths[0])
    journal.until(lambda: evidence.configuration(daemon.configuration)["requestQueue"], "a queued request")
    daemon.stop()
    queue = evidence.configuration(daemon.configuration)["requestQueue"]
    command.done("restore", "1", "--config-path", daemon.configuration)
    assert evidence.configuration(daemon.configuration)["requestQueue"] == queue
    assert copies(daemon) == {2: 1, 1: 2}, "the list that was there is kept too"
    daemon.start()
    daemon.until_done("pinFiles")
    holds(volume, daemon, paths)


def test_without_a_copy_or_a_store_nothing_is_made_up(stage):
    daemon = stage.daemon()
    daemon.stop()
    os.makedirs(os.path.dirname(daemon.configuration), exist_ok=True)
    write(daemon.configuration, b"{")
    result = command.run("keep-copy", "--config-path", daemon.configuration)
    assert result.status == 1 and "stays as it is: there is no copy of it" in result.talk
    os.unlink(daemon.configuration)
    result = command.run("keep-copy", "--config-path", daemon.configuration)
    assert (result.status, result.talk) == (0, "")
    assert command.done("restore", "--config-path", daemon.configuration) == [
        f"there are no copies of {daemon.configuration}"]
    assert command.run("restore", "3", "--config-path", daemon.configuration).status == 5
