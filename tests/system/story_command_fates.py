# SPDX-License-Identifier: MIT
"""One fate for a listed file, whichever verb is asked: list, check, explain, unpin and repair agree, and what
they say is true by the service's list, the bitmap's bits and the driver's record."""
import os
import shutil
from typing import Callable, NamedTuple

import pytest

from lab import command, evidence, libc

SIZE = 700_000
THERE, GONE, REPLACED, RENAMED, UNKNOWN = "there", "gone", "replaced", "renamed", "cannot be looked at"


def fates_of(report):
    """{(path, inode): fate} of a list or a check."""
    return {(file["path"], file["inode"]): file["fate"]
            for volume in report["volumes"] for file in volume["files"]}


def fates_named(report):
    """The same of a verb that was given a path, as far as it names entries."""
    return {(entry["path"], entry["inode"]): entry["fate"] for entry in report.get("entries", [])}


def any_report(*words):
    """The document of a verb whose exit status is judged elsewhere."""
    return command.run(*words, "--json").report()


def told(path, inode, *, config=()):
    """What each verb says of the entry (path, inode), which must be one fate."""
    explained = any_report("explain", path, *config)
    unpinned = any_report("unpin", "--dry-run", path, *config)
    found = {"list": fates_of(any_report("list", *config)).get((path, inode)),
             "check": fates_of(any_report("check", *config)).get((path, inode))}
    file = explained.get("file", {})
    if file.get("inode") == inode:  # it lies there: explained, and unpinned unless there is nothing to unpin
        found["explain"] = file["fate"]
        refused = [one["reason"] for one in unpinned["refused"]]
        found["unpin"] = THERE if all(reason.startswith("is empty") for reason in refused) else refused[0]
    else:
        replaced = REPLACED if file.get("pathReplaced") else None
        found["explain"] = fates_named(explained).get((path, inode), replaced)
        found["unpin"] = fates_named(unpinned).get((path, inode))
    assert len(set(found.values())) == 1, found
    return found["list"]


def said_in_text(name, fate, *config):
    """Demands that list and check print the fate's word beside the file's name, and none when it is there."""
    for verb in ("list", "check"):
        lines = [line for line in command.run(verb, *config).lines() if name in line.split(":")[0].split()]
        assert any(fate in line for line in lines) == (fate != THERE), (verb, lines)


def truly_pinned(daemon, volume, paths):
    """Demands that exactly `paths` are pinned: on the list, in the bitmap file, with the driver."""
    assert evidence.pinned_files(daemon.configuration, volume.mount_path) == evidence.listing(
        volume.mount_path, paths)
    assert evidence.pinned_bits(volume.mount_path) == volume.cache.pinned() == evidence.units(paths)


def append(path):
    with open(path, "ab") as file:
        file.write(os.urandom(3_000_000))
        os.fsync(file.fileno())


def cut(path, size):
    os.truncate(path, size)
    libc.sync(path)


def replace(volume, path):
    os.rename(volume.write("new", 2 * SIZE), path)


def keep_other_name(volume, path):
    os.link(path, volume.path("other-name"))
    os.unlink(path)


class Change(NamedTuple):
    """What happens to the listed file, and what is then the case."""
    what: str
    act: Callable       # of (volume, the listed path, another volume)
    fate: str
    after: str | None   # the relative path that a repair leaves on the list in its place
    agrees: bool = False  # whether check finds nothing to repair


CHANGES = [
    Change("renamed within its directory", lambda v, p, o: os.rename(p, v.path("dir/b")), RENAMED, "dir/b"),
    Change("renamed across directories", lambda v, p, o: os.rename(p, v.path("b")), RENAMED, "b"),
    Change("only its other name stays", lambda v, p, o: keep_other_name(v, p), RENAMED, "other-name"),
    Change("given another name too", lambda v, p, o: os.link(p, v.path("too")), THERE, "dir/a", True),
    Change("grown", lambda v, p, o: append(p), THERE, "dir/a"),
    Change("shrunk", lambda v, p, o: cut(p, 100_000), THERE, "dir/a"),
    Change("emptied", lambda v, p, o: cut(p, 0), THERE, "dir/a"),
    Change("replaced", lambda v, p, o: replace(v, p), REPLACED, "dir/a"),
    Change("moved to another volume", lambda v, p, o: shutil.move(p, o.path("a")), GONE, None),
    Change("deleted", lambda v, p, o: os.unlink(p), GONE, None),
]


@pytest.mark.parametrize("change", CHANGES, ids=lambda change: change.what.replace(" ", "-"))
def test_one_fate_and_a_repair_at_rest(stage, change):
    volume = stage.volume()
    other = stage.volume("vol2") if "volume" in change.what else None
    path, kept = volume.write("dir/a", SIZE), volume.write("dir/kept", SIZE)
    daemon = stage.daemon()
    command.done("pin", "--wait", path, kept)
    inode, listed = os.stat(path).st_ino, evidence.pinned_files(daemon.configuration, volume.mount_path)
    bits = evidence.pinned_bits(volume.mount_path)
    change.act(volume, path, other)

    assert told(path, inode) == change.fate
    assert told(kept, os.stat(kept).st_ino) == THERE
    said_in_text("dir/a", change.fate)
    assert any_report("check")["exitStatus"] == (0 if change.agrees else 1)
    status, = [one for one in any_report("status")["volumes"] if one["volume"] == volume.mount_path]
    assert (status["files"], status["unitsSet"]) == (len(listed), len(bits))
    # Asking changed nothing.
    assert evidence.pinned_files(daemon.configuration, volume.mount_path) == listed
    assert evidence.pinned_bits(volume.mount_path) == volume.cache.pinned() == bits

    assert daemon.stop() == 0
    config = ("--config-path", daemon.configuration)
    assert told(path, inode, config=config) == change.fate
    stay = [kept] + ([volume.path(change.after)] if change.after else [])
    # Units that a repair at rest set wait for a reload.
    command.report("check", "--repair", *config,
                   status=0 if evidence.units(stay) <= volume.cache.resident() else 6)
    truly_pinned(daemon, volume, stay)
    assert set(fates_of(any_report("list", *config)).values()) == {THERE}

    daemon.start()
    command.done("reload", "--wait", volume.mount_path)
    if change.what != "emptied":  # an empty file is refused
        command.done("pin", "--wait", *stay)
    truly_pinned(daemon, volume, stay)
    assert evidence.units(stay) <= volume.cache.resident()
    command.done("check")


@pytest.mark.parametrize("change", [one for one in CHANGES if one.fate in (GONE, RENAMED, REPLACED)],
                         ids=lambda change: change.what.replace(" ", "-"))
def test_unpin_sends_nothing_for_a_file_that_does_not_lie_there(stage, change):
    volume = stage.volume()
    other = stage.volume("vol2") if "volume" in change.what else None
    path = volume.write("dir/a", SIZE)
    daemon = stage.daemon()
    command.done("pin", "--wait", path)
    listed, bits = evidence.configuration(daemon.configuration), evidence.pinned_bits(volume.mount_path)
    change.act(volume, path, other)
    result = command.run("unpin", "--wait", path)
    assert result.status != 0 and change.fate in result.talk, result
    assert evidence.configuration(daemon.configuration) == listed
    assert evidence.pinned_bits(volume.mount_path) == volume.cache.pinned() == bits


def test_a_volume_that_is_not_mounted(stage):
    volume, there = stage.volume(), stage.volume("vol2")
    path, beside = volume.write("a", SIZE), there.write("b", SIZE)
    inode = os.stat(path).st_ino
    daemon = stage.daemon()
    command.done("pin", "--wait", path)
    command.done("pin", "--wait", beside)
    listed, bits = evidence.configuration(daemon.configuration), evidence.pinned_bits(volume.mount_path)
    volume.unmount()

    assert told(path, inode) == UNKNOWN
    for verb in ("list", "check"):
        assert UNKNOWN in command.run(verb).output
    assert told(beside, os.stat(beside).st_ino) == THERE
    assert command.run("unpin", path).status != 0

    assert daemon.stop() == 0
    result = command.run("check", "--repair", "--config-path", daemon.configuration)
    assert result.status == 1 and volume.mount_path in result.output + result.talk, result
    assert evidence.configuration(daemon.configuration)["volumes"] == listed["volumes"]
    volume.mount()
    assert evidence.pinned_bits(volume.mount_path) == volume.cache.pinned() == bits
    daemon.start()
    assert told(path, inode) == THERE
    command.done("check")


def test_a_volume_at_two_mount_points(stage):
    volume = stage.volume()
    path, kept = volume.write("a", SIZE), volume.write("kept", SIZE)
    inode, again = os.stat(path).st_ino, "/mnt/again"
    daemon = stage.daemon()
    command.done("pin", "--wait", path, kept)
    os.makedirs(again, exist_ok=True)
    libc.mount(volume.mount_path, again, flags=libc.MS_BIND)
    try:
        assert told(path, inode) == THERE
        one, = [one for one in command.report("check")["volumes"] if one["files"]]
        assert sorted(one["mountPaths"]) == sorted([volume.mount_path, again])
        # By the other mount path it is the same file with the same units, listed under the first.
        file = command.report("explain", f"{again}/a")["file"]
        assert file["inode"] == inode and file["unitsSet"] == file["unitsWithDriver"] == file["units"]
        os.rename(f"{again}/a", f"{again}/b")
        assert told(path, inode) == RENAMED

        assert daemon.stop() == 0
        command.done("check", "--repair", "--config-path", daemon.configuration)
        truly_pinned(daemon, volume, [volume.path("b"), kept])
        daemon.start()
        command.done("check")
    finally:
        libc.unmount(again)
    truly_pinned(daemon, volume, [volume.path("b"), kept])
