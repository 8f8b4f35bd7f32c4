# SPDX-License-Identifier: MIT
"""quorcachepinctl explain: one file, and why it is where it is."""
import os

from lab import command, evidence


def why(path):
    return command.report("explain", path)["file"]["whyNotResident"]


def test_the_facts_are_the_kernels(stage):
    volume = stage.volume()
    files = [volume.write(f"small/{n}", 6000) for n in range(40)]
    stage.daemon()
    command.done("pin", "--wait", *files)
    path = files[11]
    told = command.report("explain", path)["file"]
    assert (told["path"], told["inode"], told["size"]) == (path, os.stat(path).st_ino, 6000)
    assert told["pinned"] and told["whyNotResident"] is None
    assert [(e["fileSector"], e["deviceSector"], e["sectors"], not e["written"])
            for e in told["extents"]] == [tuple(extent) for extent in evidence.extents(path)]
    units = {unit for first, last in told["unitRuns"] for unit in range(first, last + 1)}
    assert units == evidence.units([path])
    assert told["units"] == told["unitsSet"] == told["unitsWithDriver"] == told["unitsResident"] == len(units)
    assert {row["path"]: row["units"] for row in told["shares"]} == {
        other: len(units & evidence.units([other])) for other in files
        if other != path and units & evidence.units([other])}


def test_each_reason_is_told(stage):
    volume = stage.volume()
    path = volume.write("a", 700_000)
    other = volume.write("b", 3_000_000)
    volume.flood(evidence.units([path, other]))
    daemon = stage.daemon()
    assert why(path) == "it is not pinned, so nothing keeps it there"

    command.done("pend", volume.mount_path)
    command.done("pin", path)
    daemon.wait_for("Signal a new request is added")
    assert why(path) == "its request is not done yet"
    assert command.report("explain", path)["file"]["queued"] == ["request 0 (pinFiles), place 1 of 1"]
    command.done("release", volume.mount_path)
    daemon.until_done("pinFiles")
    assert why(path) is None

    with open(path, "ab") as file:
        file.write(os.urandom(2_000_000))
        file.flush()
        os.fsync(file.fileno())
    assert "not set: it grew, was rewritten, or a unit it shares was cleared" in why(path)

    os.rename(other, path)
    assert why(path).startswith("the file that was pinned at this path was replaced by this one")

    os.symlink("a", volume.path("link"))
    result = command.run("explain", volume.path("link"))
    assert result.status == 5 and "symbolic link" in result.talk

    daemon.stop()
    result = command.run("explain", path)
    assert result.status == 3 and "whether it is pinned is not known" in result.output
