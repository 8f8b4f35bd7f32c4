# SPDX-License-Identifier: MIT
"""quorcachepinctl check: what changed since it was pinned is found, and set right."""
import contextlib
import os
import signal
import time

import pytest

from lab import command, evidence, journal, libc

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


@contextlib.contextmanager
def mounted(source, target, **options):
    """Something mounted at `target`, for so long."""
    os.makedirs(target, exist_ok=True)
    libc.mount(source, target, **options)
    try:
        yield
    finally:
        libc.unmount(target)


def test_a_volume_at_a_second_mount_point_keeps_its_pins(stage):
    volume = stage.volume()
    files = [volume.write(f"small/{n}", 6000) for n in range(20)]
    daemon = stage.daemon()
    command.done("pin", "--wait", *files)
    with mounted(volume.mount_path, "/mnt/again", flags=libc.MS_BIND):
        for words in ((), (volume.mount_path,), ("/mnt/again",)):
            report = command.report("check", "--repair", *words)
            assert [entry["unitsSurplus"] for entry in report["volumes"]] == [0]
        settled(volume, daemon, files)

        # Pinned by the other path too, and released there: it is still pinned by the first.
        twice = [f"/mnt/again/small/{n}" for n in range(3)]
        command.done("pin", "--wait", *twice)
        report = command.report("check")
        assert [entry["bitmapWith"] for entry in report["volumes"]].count(None) == 1
        command.done("unpin", "--wait", *twice)
        settled(volume, daemon, files)


def test_nothing_is_repaired_by_the_configuration_file_of_another(stage):
    volume = stage.volume()
    path = volume.write("a", 700_000)
    daemon = stage.daemon()
    command.done("pin", "--wait", path)
    before = evidence.bitmap_file(volume.mount_path)
    missing, other = "/tmp/lab/typo.conf", "/tmp/lab/other.conf"
    with open(other, "w", encoding="utf-8") as file:
        file.write("{}")
    for words in (("check", "--repair"), ("list",), ("pin", "--wait", path)):
        result = command.run(*words, "--config-path", missing)
        assert result.status == 3 and f"{missing}: No such file" in result.talk
    result = command.run("check", "--repair", "--config-path", other)
    assert result.status == 3
    assert "is not the configuration file of the service that runs" in result.talk
    result = command.run("pin", "--wait", "--config-path", other, path)
    assert result.status == 3
    assert "is not the configuration file of the service that runs" in result.talk
    command.done("reload", "--wait", volume.mount_path)
    assert evidence.bitmap_file(volume.mount_path) == before
    settled(volume, daemon, [path])


def test_what_lies_under_another_mount_is_not_gone(stage):
    volume = stage.volume()
    paths = [volume.write(name, 700_000) for name in ("t/sub/x", "t/y")]
    daemon = stage.daemon()
    command.done("pin", "--wait", *paths)
    before = evidence.bitmap_file(volume.mount_path)
    with mounted("none", volume.path("t/sub"), kind="tmpfs"):
        report = command.report("check", status=1)
        assert conditions(report) == {paths[0]: "unmappable", paths[1]: "good"}
        lines = command.run("check", "--repair").lines()
        assert any("no unit is cleared while it cannot be told where t/sub/x lies" in line
                   for line in lines)
        assert evidence.bitmap_file(volume.mount_path) == before
        with open(paths[0], "w", encoding="utf-8") as file:
            file.write("not on the volume")
        assert conditions(command.report("check", status=1))[paths[0]] == "unmappable"
        command.run("check", "--repair")
    settled(volume, daemon, paths)


def test_a_name_that_the_service_cut_at_a_blank_stays_pinned(stage):
    volume = stage.volume()
    path, other = volume.write("t/my file", 700_000), volume.write("t/b", 700_000)
    daemon, queue = stage.daemon(), stage.queue()
    queue.pin(volume.mount_path, [path])
    daemon.until_done("pinFiles")
    command.done("pin", "--wait", other)
    assert str(os.stat(path).st_ino) in evidence.pinned_files(daemon.configuration, volume.mount_path)
    for words in (("check",), ("check", "--repair")):
        report = command.report(*words)
        assert conditions(report) == {volume.path("t/my"): "under another name", other: "good"}
        assert report["volumes"][0]["unitsSurplus"] == 0
    units = evidence.units([path, other])
    assert evidence.pinned_bits(volume.mount_path) == volume.cache.pinned() == units
    os.rename(other, volume.path("t/c"))
    assert conditions(command.report("check"))[other] == "under another name"


def test_a_repair_that_is_not_waited_for_says_what_it_sent(stage):
    volume = stage.volume()
    path = volume.write("a", 700_000)
    daemon = stage.daemon()
    command.done("pin", "--wait", path)
    append(path, 3_000_000)
    os.kill(daemon.pid, signal.SIGSTOP)
    try:
        result = command.run("check", "--repair", "--timeout", "1")
    finally:
        os.kill(daemon.pid, signal.SIGCONT)
    assert result.status == 4
    assert "  repair: a: pinned again" in result.lines()
    assert result.lines()[-1] == "  1 request sent, not waited for to the end"
    daemon.until_done("pinFiles", 2)
    settled(volume, daemon, [path])


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
