# SPDX-License-Identifier: MIT
"""quorcachepinctl apply: what its configuration says is pinned, and nothing is unpinned by accident."""
import os

from lab import command, evidence, journal

DIRECTORY = "/tmp/lab/quorcachepin.d"


def configure(**files):
    """Makes the directory hold exactly these files: name without ending = its lines."""
    os.makedirs(DIRECTORY, exist_ok=True)
    for name in os.listdir(DIRECTORY):
        os.unlink(os.path.join(DIRECTORY, name))
    for name, lines in files.items():
        with open(os.path.join(DIRECTORY, f"{name}.conf"), "w", encoding="utf-8") as file:
            file.write("".join(f"{line}\n" for line in lines))


def apply(*words, status=0):
    return command.report("apply", "--from", DIRECTORY, *words, status=status)


def paths(report, member):
    return [one["path"] for one in report[member]]


def pinned(volume, daemon, expected):
    """Demands that exactly these files are on the list, in the bitmap file, and in the driver's."""
    assert evidence.pinned_files(daemon.configuration, volume.mount_path) == evidence.listing(
        volume.mount_path, expected)
    assert evidence.pinned_bits(volume.mount_path) == volume.cache.pinned() == evidence.units(expected)


def test_what_is_missing_is_asked_for_and_what_is_pinned_by_hand_stays(stage):
    volume = stage.volume()
    top = volume.mount_path
    by_hand = volume.write("hand", 300_000)
    index = volume.write("db/index", 700_000)
    photos = [volume.write(f"photos/{name}", 200_000) for name in ("a.jpg", "b.jpg")]
    volume.write("photos/c.tmp", 100_000)
    volume.write("photos/raw/d.jpg", 100_000)
    volume.write("empty/none", 0)
    daemon = stage.daemon()
    command.done("pin", "--wait", by_hand)
    configure(db=["# the database", "", f"  {index}\t"],
              photos=[f"{top}/photos", "!*.tmp", f"!{top}/photos/raw"], rest=[f"{top}/empty/*"])

    report = apply("--dry-run")
    assert paths(report, "pins") == [index, *photos]
    assert (report["sent"], report["byHand"], report["requests"]) == (0, 1, 1)
    pinned(volume, daemon, [by_hand])

    apply("--wait")
    pinned(volume, daemon, [by_hand, index, *photos])
    report = apply()
    assert (report["held"], report["sent"], report["byHand"]) == (3, 0, 1)

    # A new file of the directory joins, one that grew is whole again.
    photos.append(volume.write("photos/new.jpg", 200_000))
    with open(index, "ab") as file:
        file.write(os.urandom(3_000_000))
        os.fsync(file.fileno())
    assert paths(apply("--wait"), "pins") == [index, photos[-1]]
    pinned(volume, daemon, [by_hand, index, *photos])

    # What no line wants any more leaves only when that is asked for.
    configure(db=[index])
    assert (apply()["byHand"], apply()["sent"]) == (4, 0)
    assert sorted(paths(apply("--prune", "--wait"), "unpins")) == sorted([by_hand, *photos])
    pinned(volume, daemon, [index])


def test_a_replaced_file_is_followed(stage):
    volume = stage.volume()
    path, other = volume.write("a", 700_000), volume.write("b", 300_000)
    daemon = stage.daemon()
    configure(one=[path, other])
    apply("--wait")
    os.rename(volume.write("a.new", 900_000), path)

    report = apply("--wait")
    assert paths(report, "pins") == paths(report, "replaced") == [path]
    assert evidence.units([path, other]) <= volume.cache.pinned()
    assert apply()["sent"] == 0
    # No request takes the old entry off; a repair at rest does.
    daemon.stop()
    command.done("check", "--repair", "--config-path", daemon.configuration)
    pinned(volume, daemon, [path, other])
    daemon.start()
    assert apply()["replaced"] == []


def test_a_wrong_line_is_named_and_nothing_is_unpinned_by_it(stage):
    volume = stage.volume()
    first, second = volume.write("a", 300_000), volume.write("b", 300_000)
    by_hand = volume.write("hand", 300_000)
    daemon = stage.daemon()
    command.done("pin", "--wait", by_hand)
    configure(one=[first, "relative/path", f"{volume.mount_path}/nothing"], two=[second])
    result = command.run("apply", "--from", DIRECTORY, "--prune", "--wait")
    assert result.status == 1
    assert f"wrong {DIRECTORY}/one.conf:2: is no absolute path" in result.talk
    assert f"refused {DIRECTORY}/one.conf:3: {volume.mount_path}/nothing: No such file" in result.talk
    assert "nothing is unpinned, as not every line could be read" in result.talk
    pinned(volume, daemon, [by_hand, first, second])

    # A file that cannot be read costs nothing either, nor does a directory that was emptied.
    configure(one=[first])
    os.symlink("/tmp/lab/not-there", f"{DIRECTORY}/two.conf")
    report = apply("--prune", status=1)
    assert [one["line"] for one in report["wrong"]] == [f"{DIRECTORY}/two.conf"]
    assert report["pruneHeldBack"] and report["sent"] == 0
    configure()
    assert apply("--prune", status=1)["sent"] == 0
    result = command.run("apply", "--from", "/tmp/lab/missing", "--prune")
    assert result.status == 5 and "/tmp/lab/missing: No such file or directory" in result.talk
    pinned(volume, daemon, [by_hand, first, second])


def test_a_volume_that_is_not_mounted_is_left_alone(stage):
    volume, other = stage.volume(), stage.volume("vol2")
    path, absent = volume.write("a", 300_000), other.write("b", 300_000)
    daemon = stage.daemon()
    configure(one=[path, absent])
    apply("--wait")
    before = evidence.pinned_files(daemon.configuration, other.mount_path)
    other.unmount()
    report = apply("--prune", status=1)
    assert report["notMounted"] == [{"line": f"{DIRECTORY}/one.conf:2", "path": absent,
                                     "reason": f"its volume {other.mount_path} is not mounted"}]
    assert (report["sent"], report["refused"], report["left"]) == (0, [], [])
    assert evidence.pinned_files(daemon.configuration, other.mount_path) == before
    other.mount()
    assert apply("--prune")["held"] == 2


def test_a_line_that_allows_links_pins_by_them_and_follows_a_replaced_file(stage):
    volume = stage.volume()
    first, second = volume.write("my photos/#1.jpg", 300_000), volume.write("my photos/2.jpg", 200_000)
    daemon = stage.daemon()
    configure(photos=[f"{volume.mount_path}/my photos"])
    assert sorted(paths(apply(status=1), "refused")) == [first, second]
    assert not os.path.exists(volume.path(".quorcachepin"))

    configure(photos=[f"link {volume.mount_path}/my photos"])
    assert sorted(paths(apply("--dry-run"), "pins")) == [first, second]
    assert not os.path.exists(volume.path(".quorcachepin"))
    apply("--wait")
    assert sorted(command.done("list", "--paths")) == [first, second]
    assert volume.cache.pinned() == evidence.units([first, second])
    report = apply()
    assert (report["held"], report["sent"]) == (2, 0)

    # Replaced: the new file gets a link of its own; a repair at rest takes away what is left of the old one.
    old = os.stat(first).st_ino
    os.rename(volume.write("new", 500_000), first)
    assert paths(apply("--wait"), "pins") == [first]
    assert evidence.units([first, second]) <= volume.cache.pinned()
    daemon.stop()
    command.done("check", "--repair", "--config-path", daemon.configuration)
    assert not os.path.exists(volume.path(f".quorcachepin/{old}"))
    assert volume.cache.pinned() == evidence.units([first, second])
    daemon.start()
    assert sorted(command.done("list", "--paths")) == [first, second]

    # What no line wants loses its link with its pin, at once after a wait and else in the next repair at rest.
    configure(photos=[f"link {first}"])
    assert paths(apply("--prune", "--wait"), "unpins") == [second]
    assert [os.stat(path).st_nlink for path in (first, second)] == [2, 1]
    command.done("unpin", first)
    daemon.until_done("unpinFiles", 2)
    journal.until(lambda: not evidence.configuration(daemon.configuration)["requestQueue"], "it is unpinned")
    assert os.stat(first).st_nlink == 2
    daemon.stop()
    command.done("check", "--repair", "--config-path", daemon.configuration)
    assert os.stat(first).st_nlink == 1 and not os.path.exists(volume.path(".quorcachepin"))
