# SPDX-License-Identifier: MIT
"""quorcachepinctl check: what changed since it was pinned is found, and set right by requests or at rest."""
import contextlib
import fcntl
import os
import threading

import pytest

from lab import command, evidence, libc

UNIT = "quorcachepinfiled.service"


def fates(report, key="volumes"):
    """{file's path: its fate} of a check."""
    return {file["path"]: file["fate"] for volume in report[key] for file in volume["files"]}


def lacking(report):
    """The paths of a check's files that lack units."""
    return {file["path"] for volume in report["volumes"] for file in volume["files"] if file["unitsMissing"]}


def settled(volume, daemon, paths, resident=True):
    """Demands that exactly `paths` are pinned: on the list, in the file, with the driver."""
    units = evidence.units(paths)
    assert evidence.pinned_files(daemon.configuration, volume.mount_path) == evidence.listing(
        volume.mount_path, paths)
    assert evidence.pinned_bits(volume.mount_path) == units
    assert volume.cache.pinned() == units
    assert not resident or units <= volume.cache.resident()
    assert not [name for name in os.listdir(volume.mount_path) if name.startswith(".") or name.endswith(".new")]
    # Units that a repair at rest set wait for a reload.
    command.report("check", "--config-path", daemon.configuration,
                   status=0 if units <= volume.cache.resident() else 6)


def repair_at_rest(daemon, status=0):
    """Stops the daemon and repairs; returns the report."""
    daemon.stop()
    return command.report("check", "--repair", "--config-path", daemon.configuration, status=status)


def append(path, size):
    with open(path, "ab") as file:
        file.write(os.urandom(size))
        file.flush()
        os.fsync(file.fileno())


@pytest.mark.parametrize("kind", ["ext4", "xfs"])
def test_a_file_that_grew_is_pinned_again(stage, kind):
    volume = stage.volume(kind=kind)
    paths = [volume.write(name, 700_000) for name in "abc"]
    daemon = stage.daemon()
    command.done("pin", "--wait", *paths)
    command.done("check")
    before = evidence.units(paths)
    append(paths[1], 3_000_000)

    report = command.report("check", status=1)
    assert lacking(report) == {paths[1]} and set(fates(report).values()) == {"there"}
    assert report["volumes"][0]["unitsMissing"] == len(evidence.units(paths) - before)

    report = command.report("check", "--repair")
    assert report["repair"]["actions"] == [f"{paths[1]}: pinned again"]
    settled(volume, daemon, paths)


@pytest.mark.parametrize("kind", ["ext4", "xfs"])
def test_a_replaced_file_is_followed_and_the_rest_left_for_a_repair_at_rest(stage, kind):
    volume = stage.volume(kind=kind)
    paths = [volume.write(name, 700_000) for name in "abc"]
    daemon = stage.daemon()
    command.done("pin", "--wait", *paths)
    before, inode = evidence.units(paths), str(os.stat(paths[1]).st_ino)
    os.rename(volume.write("new", 1_500_000), paths[1])

    report = command.report("check", "--repair", status=1)
    assert report["repair"]["actions"] == [f"{paths[1]}: replaced, the file that is there now is pinned"]
    assert f"left for a repair at rest: {paths[1]}: replaced" in report["repair"]["left"]
    surplus = before - evidence.units([paths[0], paths[2]])
    assert evidence.pinned_bits(volume.mount_path) == evidence.units(paths) | surplus
    assert inode in evidence.pinned_files(daemon.configuration, volume.mount_path)
    assert command.report("check", "--repair", status=1)["repair"]["requests"] == 0

    report = repair_at_rest(daemon)
    assert report["repair"]["unitsCleared"] == len(surplus - evidence.units(paths))
    settled(volume, daemon, paths)


def test_gone_renamed_and_replaced_files_at_rest(stage):
    volume = stage.volume()
    paths = [volume.write(f"{name}/{name}", 700_000) for name in "abcd"]
    daemon = stage.daemon()
    command.done("pin", "--wait", *paths)
    os.unlink(paths[0])
    os.rmdir(os.path.dirname(paths[0]))
    os.rename(paths[1], volume.path("c/moved"))
    os.rename(volume.write("new", 1_500_000), paths[2])
    before = evidence.bitmap_file(volume.mount_path), evidence.configuration(daemon.configuration)
    report = command.report("check", "--repair", status=1)
    assert [fates(report)[path] for path in paths] == ["gone", "renamed", "replaced", "there"]
    assert evidence.configuration(daemon.configuration)["volumes"][volume.mount_path]["files"].items() >= \
        before[1]["volumes"][volume.mount_path]["files"].items(), "what is listed stays while the service runs"

    report = repair_at_rest(daemon)
    left = [volume.path("c/moved"), paths[2], paths[3]]
    assert set(fates(report, "volumesAfterRepair").values()) == {"there"}
    assert report["repair"]["left"] == []
    settled(volume, daemon, left)
    daemon.start()
    settled(volume, daemon, left)


def test_the_last_file_is_gone(stage):
    volume = stage.volume()
    path = volume.write("a", 700_000)
    daemon = stage.daemon()
    command.done("pin", "--wait", path)
    os.unlink(path)
    daemon.stop()
    lines = command.done("check", "--repair", "--config-path", daemon.configuration)
    assert f"  repair: {path}: gone, taken off the list" in lines
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
    assert lacking(report) == hurt

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
    libc.sync(volume.mount_path)
    filler = volume.write("filler", 3_000_000)
    append(paths[0], 2_500_000)
    assert filler and evidence.units(paths) - before and before - evidence.units(paths)
    report = repair_at_rest(daemon, status=6)
    assert report["repair"]["unitsSet"] == len(evidence.units(paths) - before)
    assert report["repair"]["unitsCleared"] == len(before - evidence.units(paths))
    assert any("reload reads them" in left for left in report["repair"]["left"])
    settled(volume, daemon, paths, resident=False)
    daemon.start()
    command.done("reload", "--wait", volume.mount_path)
    settled(volume, daemon, paths)


def test_a_bitmap_file_of_another_content_or_length(stage):
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
    assert command.report("check", status=1)["volumes"][0]["unitsDriverSurplus"] == 1
    command.report("check", "--repair")
    settled(volume, daemon, paths)
    append(volume.path(evidence.BITMAP_FILE), 10)
    assert command.report("check", "--repair", status=1)["repair"]["requests"] == 0
    repair_at_rest(daemon)
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
    report = command.report("check", status=6)
    assert report["volumes"][0]["unitsSurplus"] == 0
    assert report["volumes"][0]["requestsQueued"] == 1
    volume.cache.control("clear-faults")
    command.done("release", volume.mount_path)
    daemon.until_done("pinFiles")
    command.done("check")


def test_a_second_repair_is_refused_and_what_a_killed_one_left_is_no_obstacle(stage):
    volume = stage.volume()
    path = volume.write("a", 700_000)
    daemon = stage.daemon()
    command.done("pin", "--wait", path)
    os.unlink(path)
    daemon.stop()
    words = "check", "--repair", "--config-path", daemon.configuration
    before = evidence.configuration(daemon.configuration), evidence.bitmap_file(volume.mount_path)
    with open(f"{daemon.configuration}.lock", "w", encoding="ascii") as lock:
        fcntl.flock(lock, fcntl.LOCK_EX)
        result = command.run(*words)
        assert result.status == 5 and "another repair is at work" in result.talk
        assert (evidence.configuration(daemon.configuration), evidence.bitmap_file(volume.mount_path)) == before
    for name in f"{daemon.configuration}.new", volume.path(f"{evidence.BITMAP_FILE}.new"):
        append(name, 100)
    command.done(*words)
    settled(volume, daemon, [])


def test_volumes_that_are_not_mounted_stay_as_they_are(stage):
    first, second = stage.volume(), stage.volume("vol2")
    paths = [first.write("a", 700_000), second.write("b", 700_000)]
    daemon = stage.daemon()
    command.done("pin", "--wait", *paths)
    os.unlink(paths[0])
    listed = evidence.pinned_files(daemon.configuration, second.mount_path)
    bits = evidence.bitmap_file(second.mount_path)
    daemon.stop()
    second.unmount()
    report = command.report("check", "--repair", "--config-path", daemon.configuration, status=1)
    assert report["repair"]["left"] == [f"{second.mount_path}: not mounted, left as it is with its 1 file"]
    assert evidence.pinned_files(daemon.configuration, first.mount_path) == {}
    assert evidence.pinned_files(daemon.configuration, second.mount_path) == listed
    second.mount()
    assert evidence.bitmap_file(second.mount_path) == bits


def test_messages_sent_while_at_rest_are_carried_out_afterwards(stage):
    volume = stage.volume()
    paths = [volume.write(name, 700_000) for name in "abcd"]
    daemon, queue = stage.daemon(), stage.queue()
    command.done("pin", "--wait", *paths[:2])
    os.unlink(paths[0])
    daemon.stop()
    queue.pin(volume.mount_path, [paths[2]])
    command.report("check", "--repair", "--config-path", daemon.configuration)
    settled(volume, daemon, paths[1:2])
    queue.pin(volume.mount_path, [paths[3]])
    queue.unpin(volume.mount_path, [paths[1]])
    daemon.start()
    daemon.until_done("pinFiles", 2)
    daemon.until_done("unpinFiles")
    settled(volume, daemon, paths[2:])


class Systemctl:
    """A program in systemctl's place that stops and starts the lab's daemon as the unit's process."""

    def __init__(self, daemon, directory="/tmp/lab/unit"):
        self.daemon, self.asked = daemon, []
        os.makedirs(directory, exist_ok=True)
        self.ask, self.answer = f"{directory}/ask", f"{directory}/answer"
        for name in self.ask, self.answer:
            os.mkfifo(name)
        with open(f"{directory}/systemctl", "w", encoding="ascii") as file:
            file.write(f'#!/bin/sh\necho "$@" >{self.ask}\nread status text <{self.answer}\n'
                       'echo "$text"\nexit "$status"\n')
        os.chmod(f"{directory}/systemctl", 0o755)
        self.environment = {**os.environ, "PATH": f"{directory}:{os.environ['PATH']}"}
        threading.Thread(target=self._serve, daemon=True).start()

    def _serve(self):
        while True:
            with open(self.ask, encoding="ascii") as file:
                words = file.read().split()
            text = ""
            if words[0] == "show":
                text = str(self.daemon.pid)
            elif words[0] == "stop":
                self.daemon.stop()
            else:
                self.daemon.start()
            self.asked.append(words[0])
            with open(self.answer, "w", encoding="ascii") as file:
                file.write(f"{0 if words[-1] == UNIT else 1} {text}\n")

    def run(self, *words):
        return command.finish(command.start(*words, env=self.environment))


def test_restart_repairs_between_a_stop_and_a_start(stage):
    volume = stage.volume()
    paths = [volume.write(name, 700_000) for name in "ab"]
    daemon = stage.daemon()
    command.done("pin", "--wait", *paths)
    os.unlink(paths[0])
    result = command.run("check", "--repair", "--restart")
    assert result.status == 5 and "nothing was changed" in result.talk, "no unit's process"
    assert daemon.alive()
    unit = Systemctl(daemon)
    result = unit.run("check", "--repair", "--restart")
    assert result.status == 0, result
    assert unit.asked == ["show", "stop", "start"] and daemon.alive()
    settled(volume, daemon, paths[1:])

    # A repair that is refused leaves no service stopped.
    os.unlink(paths[1])
    with open(f"{daemon.configuration}.lock", "w", encoding="ascii") as lock:
        fcntl.flock(lock, fcntl.LOCK_EX)
        result = unit.run("check", "--repair", "--restart")
    assert result.status == 5 and "another repair is at work" in result.talk
    assert unit.asked[3:] == ["show", "stop", "start"] and daemon.alive()


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
        twice = [f"/mnt/again/small/{n}" for n in range(3)]
        command.done("pin", "--wait", *twice)
        os.unlink(files[0])
        report = repair_at_rest(daemon)
        assert report["repair"]["actions"][:2] == [
            f"{path}: gone, taken off the list" for path in (files[0], twice[0])]
        assert evidence.pinned_files(daemon.configuration, "/mnt/again") == evidence.listing(
            "/mnt/again", twice[1:])
        settled(volume, daemon, files[1:])
    daemon.start()


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
    before = evidence.bitmap_file(volume.mount_path), evidence.configuration(daemon.configuration)
    with mounted("none", volume.path("t/sub"), kind="tmpfs"):
        for content in None, "not on the volume":
            if content:
                with open(paths[0], "w", encoding="utf-8") as file:
                    file.write(content)
            assert fates(command.report("check", "--repair", status=1)) == {
                paths[0]: "cannot be looked at", paths[1]: "there"}
        report = repair_at_rest(daemon, status=1)
        assert any(left.startswith(f"{paths[0]}: cannot be looked at") for left in report["repair"]["left"])
        assert (evidence.bitmap_file(volume.mount_path), evidence.configuration(daemon.configuration)) == before
    settled(volume, daemon, paths)


def test_a_name_that_the_service_cut_at_a_blank_stays_pinned(stage):
    volume = stage.volume()
    path, other = volume.write("t/my file", 700_000), volume.write("t/b", 700_000)
    daemon, queue = stage.daemon(), stage.queue()
    queue.pin(volume.mount_path, [path])
    daemon.until_done("pinFiles")
    command.done("pin", "--wait", other)
    report = command.report("check", "--repair", status=1)
    assert fates(report) == {volume.path("t/my"): "renamed", other: "there"}
    assert report["volumes"][0]["unitsSurplus"] == 0
    repair_at_rest(daemon)
    settled(volume, daemon, [path, other])


def test_a_repair_that_is_not_waited_for_says_what_it_sent(stage):
    volume = stage.volume()
    path = volume.write("a", 700_000)
    daemon = stage.daemon()
    command.done("pin", "--wait", path)
    append(path, 3_000_000)
    with daemon.suspended():
        result = command.run("check", "--repair", "--timeout", "1")
    assert result.status == 3 and "was stopped by a signal" in result.talk
    assert f"  repair: {path}: pinned again" in result.lines()
    assert result.lines()[-1] == "  1 request sent, not waited for to the end"
    daemon.until_done("pinFiles", 2)
    settled(volume, daemon, [path])
