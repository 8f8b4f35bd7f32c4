# SPDX-License-Identifier: MIT
"""`./run demo`: files are pinned in a real cache and stay there while everything else goes by."""
import os
import subprocess
import time

from lab import evidence, journal, namespaces, scene, screen


class Judge:
    """Collects what is not as it should be."""

    def __init__(self):
        self.wrong = []

    def expect(self, right, complaint):
        if not right:
            self.wrong.append(complaint)
        return right


def _run(*arguments, why=""):
    """Shows a quorcachepinctl command and what it says; its progress too, on a terminal."""
    screen.command("quorcachepinctl " + " ".join(arguments), why)
    told = subprocess.run([namespaces.program("quorcachepinctl"), *arguments], text=True, check=False,
                          stdout=subprocess.PIPE)
    for line in told.stdout.splitlines():
        screen.say("  " + screen.clip(line, screen.width() - 2))
    if told.returncode:
        raise SystemExit(f"run: quorcachepinctl ended with {told.returncode}")


def _few(lines, shown=4):
    """The first lines, and how many more there are."""
    more = len(lines) - shown
    return lines if more <= 1 else [*lines[:shown], f"... and {more} more"]


def _list(label, lines):
    for line in _few(lines):
        screen.fact(label, line)
        label = ""


def _set_the_scene():
    screen.progress("volume", "copying files of this machine onto it ...")
    stage = scene.Scene()
    screen.clear()
    volume = stage.volume
    size = sum(map(os.path.getsize, stage.keep + stage.rest))
    screen.fact("volume", f"{volume.mount_path}: {volume.kind}, {screen.mib(volume.size)}, on {volume.block_device}"
                          " on the cached device")
    screen.fact("cache", f"{screen.mib(volume.cache.size)}, units of 64 KiB, the one used longest ago goes first")
    screen.fact("files", f"{screen.mib(size)} copied from /usr in two equal sets:"
                         f" {len(stage.keep)} files in keep/, {len(stage.rest)} in rest/")
    screen.fact("daemon", f"quorcachepinfiled --config-path {stage.daemon.configuration}, process"
                          f" {stage.daemon.pid}")
    return stage


def _pin(stage, judge):
    mount_path = stage.volume.mount_path
    _run("pin", "--wait", "-r", f"{mount_path}/{scene.KEEP}")
    done = stage.daemon.until_done("pinFiles")
    _list("log", [line.split(" ", 1)[1] for line in done])
    listed = evidence.pinned_files(stage.daemon.configuration, mount_path)
    judge.expect(listed == evidence.listing(mount_path, stage.keep), "the list of pinned files is not keep/")
    _list("pinned", [f"inode {inode:>4}  {path}" for inode, path in listed.items()])
    units = evidence.units(stage.keep)
    same = judge.expect(units == evidence.pinned_bits(mount_path) == stage.volume.cache.pinned(),
                        "the bits of the extents, of the bitmap file and of the driver differ")
    screen.fact("bitmap", f"{len(units):,} bits set, " + (
        "the same in the files' extents, in the bitmap file and in the driver" if same else "WRONG"))


def _flood(stage, spare):
    volume = stage.volume
    total = screen.mib(10 * volume.cache.size)
    screen.say()
    shown = [0.0]

    def progress(done):
        if time.monotonic() - shown[0] > 0.1:
            shown[0] = time.monotonic()
            screen.progress("flood", f"{screen.mib(done)} of {total}")
    begin = time.monotonic()
    done = volume.flood(spare, progress=progress)
    screen.clear()
    screen.fact("flood", f"{screen.mib(done)} of other data, ten times the cache, read through it in"
                         f" {time.monotonic() - begin:.1f} s")


def _compare(stage, judge):
    """The figures of both sets around the flood, as the table that all this is about."""
    cache = stage.volume.cache
    keep = evidence.units(stage.keep)
    stage.volume.read(stage.rest, keep)  # the other set is read once too, so that both start alike
    sets = [("pinned", stage.keep, keep), ("not pinned", stage.rest, evidence.units(stage.rest) - keep)]
    before = [len(units & cache.resident()) for _, _, units in sets]
    _flood(stage, sets[0][2] | sets[1][2])
    after = [len(units & cache.resident()) for _, _, units in sets]
    rows, wrong = [], set()
    for row, (name, paths, units) in enumerate(sets):
        wanted = len(units)
        hits, asked = stage.volume.read(paths, spare=keep - units)
        kept, again = (after[row] == wanted, hits == asked) if row == 0 else (
            after[row] * 10 < wanted, hits * 10 < asked)
        for column, right in ((3, before[row] == wanted), (4, kept), (5, again and asked == wanted)):
            if not judge.expect(right, f"{name}: a figure is not what it should be"):
                wrong.add((row, column))
        rows.append((name, f"{len(paths)}", f"{wanted:,}", f"{before[row]:,}", f"{after[row]:,}",
                     f"{hits:,} of {asked:,}"))
    screen.say()
    screen.table([("", "files", "units", "resident", "resident", "hits when"),
                  ("", "", "wanted", "before flood", "after flood", "read again")], rows, wrong)


def _queued_files(stage):
    """How many files the stored requests name."""
    document = evidence.configuration(stage.daemon.configuration) or {}
    return sum(len(document["requests"][number]["data"].split(";"))
               for number in document.get("requestQueue") or [])


def _unpin(stage, judge):
    """Releases the set, the volume pending meanwhile so that the queue can be seen."""
    volume, keep = stage.volume, stage.keep
    already = len(volume.cache.stats()["releasedRanges"])
    _run("pend", volume.mount_path, why="its requests wait, so that the queue can be seen")
    _run("unpin", "-r", f"{volume.mount_path}/{scene.KEEP}")
    journal.until(lambda: _queued_files(stage) == len(keep), "the requests were not stored")
    queued = len(evidence.configuration(stage.daemon.configuration)["requestQueue"])
    _run("status")
    _run("release", volume.mount_path)
    stage.daemon.until_done("unpinFiles", queued)
    released = volume.cache.stats()["releasedRanges"][already:]
    size = sum(sectors for _, sectors in released) * evidence.SECTOR
    exact = judge.expect(sorted(released) == sorted(evidence.ranges(keep)),
                         "the released ranges are not the files' extents")
    judge.expect(not volume.cache.pinned() and not evidence.pinned_bits(volume.mount_path),
                 "bits are left after the release")
    judge.expect(not evidence.pinned_files(stage.daemon.configuration, volume.mount_path),
                 "files are left on the list after the release")
    screen.fact("driver", f"{len(released)} ranges released, {screen.mib(size)}: "
                          + ("exactly the files' extents" if exact else "NOT the files' extents"))
    _list("", [f"sectors {start:>8,} to {start + sectors - 1:>8,}" for start, sectors in released])


def _show():
    begin = time.monotonic()
    judge = Judge()
    screen.say(screen.style("Pinned files stay in the cache, whatever else is read", "bold"))
    screen.say()
    stage = _set_the_scene()
    _pin(stage, judge)
    _compare(stage, judge)
    _run("check", stage.volume.mount_path)
    _run("map", stage.volume.mount_path, "--width", "80")
    _unpin(stage, judge)
    try:
        stage.close()
    except AssertionError as complaint:
        judge.wrong.append(str(complaint))
    screen.say()
    for complaint in dict.fromkeys(judge.wrong):
        screen.say(screen.style(f"wrong: {complaint}", "red", "bold"))
    if not judge.wrong:
        screen.say(screen.style("Every figure is what it should be", "green", "bold")
                   + f"; {time.monotonic() - begin:.0f} s, and nothing is left behind.")
    return 1 if judge.wrong else 0


def main():
    return namespaces.run(_show)
