# SPDX-License-Identifier: MIT
"""quorcachepinctl check: what changed since it was pinned is found, and set right."""
import os
import signal
import time

import pytest

from lab import command, evidence, journal

# What the service logs when an entry whose file is gone is taken off its list.
STALE_ENTRY = ("Get mapping result fail.", "Get mapping table of file", "Unset bitmap and append unpin",
               "Handle request failed", "Handle request error", "Remove pinned files from the config")


def conditions(report, key="volumes"):
    """{file's path: its condition} of a check."""
    return {file["path"]: file["condition"] for volume in report[key] for file in volume["files"]}


def settled(volume, daemon, paths):
    """Demands that exactly `paths` are pinned: on the list, in the file, with the driver."""
    units = evidence.units(paths)
    assert evidence.pinned_files(daemon.configuration, volume.mount_path) == evidence.listing(
        volume.mount_path, paths)
    assert evidence.pinned_bits(volume.mount_path) == units
    assert volume.cache.pinned() == units
    assert units <= volume.cache.resident()
    assert not [name for name in os.listdir(volume.mount_path) if name.startswith(".")]
    command.done("check")


def append(path, size):
    with open(path, "ab") as file:
        file.write(os.urandom(size))
        file.flush()
        os.fsync(file.fileno())


@pytest.mark.parametrize("kind", ["ext4", "xfs"])
def test_a_file_that_grew(stage, kind):
    volume = stage.volume(kind=kind)
    paths = [volume.write(name, 700_000) for name in "abc"]
    daemon = stage.daemon()
    command.done("pin", "--wait", *paths)
    command.done("check")
    before = evidence.units(paths)
    append(paths[1], 3_000_000)

    report = command.report("check", status=1)
    assert conditions(report) == {paths[0]: "good", paths[1]: "missing bits", paths[2]: "good"}
    assert report["volumes"][0]["unitsMissing"] == len(evidence.units(paths) - before)

    report = command.report("check", "--repair")
    assert set(conditions(report, "volumesAfterRepair").values()) == {"good"}
    settled(volume, daemon, paths)


@pytest.mark.parametrize("kind", ["ext4", "xfs"])
def test_a_file_that_was_replaced_by_a_rename(stage, kind):
    volume = stage.volume(kind=kind)
    paths = [volume.write(name, 700_000) for name in "abc"]
    daemon = stage.daemon()
    daemon.expect(*STALE_ENTRY)
    command.done("pin", "--wait", *paths)
    before, inode = evidence.units(paths), os.stat(paths[1]).st_ino
    os.rename(volume.write("new", 1_500_000), paths[1])

    report = command.report("check", status=1)
    assert conditions(report) == {paths[0]: "good", paths[1]: "replaced", paths[2]: "good"}
    surplus = before - evidence.units([paths[0], paths[2]])
    assert report["volumes"][0]["unitsSurplus"] == len(surplus) > 0

    report = command.report("check", "--repair")
    assert report["repair"]["unitsCleared"] == len(surplus)
    assert str(inode) not in evidence.pinned_files(daemon.configuration, volume.mount_path)
    settled(volume, daemon, paths)


def test_files_that_are_gone(stage):
    volume = stage.volume()
    paths = [volume.write(f"{name}/{name}", 700_000) for name in "abcd"]
    daemon = stage.daemon()
    daemon.expect(*STALE_ENTRY)
    command.done("pin", "--wait", *paths)
    for path in paths[:3]:
        os.unlink(path)
    os.rmdir(os.path.dirname(paths[0]))
    report = command.report("check", status=1)
    assert [conditions(report)[path] for path in paths] == ["gone", "gone", "gone", "good"]
    command.report("check", "--repair")
    settled(volume, daemon, paths[3:])


def test_the_last_file_is_gone(stage):
    volume = stage.volume()
    path = volume.write("a", 700_000)
    daemon = stage.daemon()
    daemon.expect(*STALE_ENTRY)
    command.done("pin", "--wait", path)
    os.unlink(path)
    lines = command.done("check", "--repair")
    assert "  a: gone" in lines
    assert lines[-1] == "nothing is pinned, nothing to check"
    assert evidence.configuration(daemon.configuration)["volumes"] == {}
    assert evidence.pinned_bits(volume.mount_path) == volume.cache.pinned() == set()


def test_a_shared_unit_that_another_unpin_cleared(stage):
    volume = stage.volume()
    files = [volume.write(f"small/{n}", 6000) for n in range(40)]
    daemon, queue = stage.daemon(), stage.queue()
    command.done("pin", "--wait", *files)
    queue.unpin(volume.mount_path, [files[10]])
    daemon.until_done("unpinFiles")
    left = files[:10] + files[11:]
    hurt = {path for path in left if evidence.units([path]) & evidence.units([files[10]])}
    assert hurt

    report = command.report("check", status=1)
    assert {path for path, how in conditions(report).items() if how == "missing bits"} == hurt

    report = command.report("check", "--repair")
    assert report["repair"]["requests"] == 1
    settled(volume, daemon, left)


def test_a_file_that_was_rewritten_in_place(stage):
    volume = stage.volume()
    paths = [volume.write(name, 2_000_000) for name in "ab"]
    daemon = stage.daemon()
    command.done("pin", "--wait", *paths)
    before = evidence.units(paths)
    os.truncate(paths[0], 0)
    os.sync()
    filler = volume.write("filler", 3_000_000)
    append(paths[0], 2_500_000)
    assert filler and evidence.units(paths) - before and before - evidence.units(paths)
    report = command.report("check", status=1)
    assert report["volumes"][0]["unitsMissing"] == len(evidence.units(paths) - before)
    assert report["volumes"][0]["unitsSurplus"] == len(before - evidence.units(paths))
    command.report("check", "--repair")
    settled(volume, daemon, paths)


def test_a_driver_that_has_another_bitmap_than_the_file(stage):
    volume = stage.volume()
    paths = [volume.write(name, 700_000) for name in "ab"]
    daemon = stage.daemon()
    command.done("pin", "--wait", *paths)
    lost = min(evidence.units(paths))
    with open(volume.path(evidence.BITMAP_FILE), "r+b") as file:
        file.seek(lost // 8)
        byte = file.read(1)[0]
        file.seek(lost // 8)
        file.write(bytes([byte & ~(1 << lost % 8)]))
    report = command.report("check", status=1)
    assert report["volumes"][0]["unitsDriverSurplus"] == 1
    command.report("check", "--repair")
    settled(volume, daemon, paths)


def test_what_an_interrupted_request_has_set_is_not_taken_for_surplus(stage):
    volume = stage.volume()
    paths = [volume.write(f"film-{n}", 2_000_000) for n in range(6)]
    volume.flood(evidence.units(paths))
    daemon = stage.daemon()
    volume.cache.control("delay-read 20")
    command.done("pin", *paths)
    daemon.wait_for("Read to null")
    command.done("pend", volume.mount_path)
    daemon.wait_for("Handle request (0). Get interrupted !")
    assert evidence.pinned_bits(volume.mount_path) == evidence.units(paths)
    report = command.report("check")
    assert report["volumes"][0]["unitsSurplus"] == 0
    assert report["volumes"][0]["requestsQueued"] == 1
    volume.cache.control("clear-faults")
    command.done("release", volume.mount_path)
    daemon.until_done("pinFiles")
    command.done("check")


def test_without_a_service_nothing_is_repaired(stage):
    volume = stage.volume()
    path = volume.write("a", 700_000)
    daemon = stage.daemon()
    command.done("pin", "--wait", path)
    append(path, 3_000_000)
    daemon.stop()
    assert command.run("check").status == 3
    before = evidence.bitmap_file(volume.mount_path)
    result = command.run("check", "--repair", "--config-path", daemon.configuration)
    assert result.status == 3 and "--repair: the service does not run" in result.talk
    assert evidence.bitmap_file(volume.mount_path) == before


def test_a_hang_up_leaves_no_directory_behind_and_one_left_by_a_kill_is_removed(stage):
    volume = stage.volume()
    paths = [volume.write(name, 700_000) for name in "abc"]
    daemon = stage.daemon()
    daemon.expect(*STALE_ENTRY)
    command.done("pin", "--wait", *paths)

    def left():
        return [name for name in os.listdir(volume.mount_path) if name.startswith(".quor")]

    def end_by(number):
        """Ends a repair by a signal while its requests wait in a stopped service's queue."""
        os.kill(daemon.pid, signal.SIGSTOP)
        process = command.start("check", "--repair")
        journal.until(left, lambda: "no directory of links")
        time.sleep(1)
        process.send_signal(number)
        result = command.finish(process)
        kept = left()
        os.kill(daemon.pid, signal.SIGCONT)
        return result, kept
    os.unlink(paths[0])
    result, kept = end_by(signal.SIGHUP)
    assert result.status == 128 + signal.SIGTERM and "the directory must stay" in result.talk
    assert kept == left() and len(kept) == 1
    listed = evidence.listing(volume.mount_path, paths[1:])
    journal.until(lambda: evidence.pinned_files(daemon.configuration, volume.mount_path) == listed,
                  lambda: "the entry stays on the list")
    assert kept == left()
    assert command.run("pin", "--dry-run", "-r", volume.mount_path).status == 0

    time.sleep(7)
    os.unlink(paths[1])
    command.done("check", "--repair")
    settled(volume, daemon, paths[2:])
