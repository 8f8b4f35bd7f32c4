# SPDX-License-Identifier: MIT
"""quorcachepinctl pin --link: names that no request can carry are pinned, shown and unpinned as they are."""
import os

import pytest

from lab import command, evidence

NAMES = ["my file", "a;b", "photos/#1.jpg", "my photos/x y;z#"]


def links(volume):
    """{name of a link: inode number of what it is}."""
    directory = volume.path(".quorcachepin")
    return {name: os.stat(f"{directory}/{name}").st_ino for name in os.listdir(directory)
            } if os.path.isdir(directory) else {}


def pinned(volume, paths):
    assert evidence.pinned_bits(volume.mount_path) == volume.cache.pinned() == evidence.units(paths)
    command.done("check")


@pytest.mark.parametrize("kind", ["ext4", "xfs"])
def test_a_file_with_such_a_name_is_pinned_and_unpinned(stage, kind):
    volume = stage.volume(kind=kind)
    paths = [volume.write(name, 300_000) for name in NAMES]
    stage.daemon()
    result = command.run("pin", *paths)
    assert result.status == 5 and "--link pins 4 of these files by a hard link" in result.talk
    assert command.report("pin", "--link", "--dry-run", *paths)["price"][0]["files"] == 4
    assert links(volume) == {}

    command.done("pin", "--link", "--wait", *paths)
    assert links(volume) == {str(os.stat(path).st_ino): os.stat(path).st_ino for path in paths}
    status = os.stat(volume.path(".quorcachepin"))
    assert (status.st_uid, status.st_mode & 0o777) == (0, 0o700)
    pinned(volume, paths)

    listed, = command.report("list")["volumes"]
    assert sorted(file["path"] for file in listed["files"]) == sorted(paths)
    assert {file["fate"] for file in listed["files"]} == {"there"}
    assert sorted(command.run("list", "-0").output.split("\0")[:-1]) == sorted(paths)
    assert sorted(command.done("list", "--paths")) == sorted(paths)
    checked, = command.report("check")["volumes"]
    assert sorted(file["path"] for file in checked["files"]) == sorted(paths)
    explained = command.report("explain", paths[0])["file"]
    assert (explained["path"], explained["pinned"]) == (paths[0], True)
    # Neither the links nor what they stand for are taken twice.
    volume.write("plain", 100_000)
    assert sorted(file["path"] for file in command.report("pin", "-r", "-n", volume.mount_path)["files"]
                  ) == sorted([*paths, volume.path("plain")])

    command.done("unpin", "--wait", paths[0])
    pinned(volume, paths[1:])
    command.done("unpin", "--wait", "-0", "-f", "-", given=command.run("list", "-0").output)
    pinned(volume, [])
    assert not os.path.exists(volume.path(".quorcachepin"))
    assert [os.stat(path).st_nlink for path in paths] == [1] * 4


def test_a_renamed_file_is_shown_by_its_new_name_and_a_removed_one_leaves_no_link(stage):
    volume = stage.volume()
    first, second = (volume.write(name, 300_000) for name in ("my file", "your file"))
    daemon = stage.daemon()
    command.done("pin", "--link", "--wait", first, second)
    moved = volume.path("other place/my file")
    os.mkdir(os.path.dirname(moved))
    os.rename(first, moved)
    assert sorted(command.done("list", "--paths")) == sorted([moved, second])
    command.done("check")

    os.unlink(second)
    report = command.report("check", "--repair", status=1)
    assert len(report["linksRemoved"]) == 1
    assert links(volume) == {str(os.stat(moved).st_ino): os.stat(moved).st_ino}
    # The entry itself no request takes off.
    daemon.stop()
    command.done("check", "--repair", "--config-path", daemon.configuration)
    daemon.start()
    assert command.done("list", "--paths") == [moved]
    pinned(volume, [moved])


def test_a_directory_that_is_not_roots_alone_is_refused(stage):
    volume = stage.volume()
    path = volume.write("my file", 300_000)
    stage.daemon()
    directory, elsewhere = volume.path(".quorcachepin"), volume.path("elsewhere")
    os.mkdir(elsewhere, 0o700)

    def refused(reason):
        result = command.run("pin", "--link", path)
        assert result.status == 5 and f"{directory}: {reason}" in result.talk, result
        assert os.stat(path).st_nlink == 1

    os.symlink(elsewhere, directory)
    refused("Not a directory")
    os.unlink(directory)
    os.mkdir(directory, 0o700)
    os.chown(directory, 1000, 1000)
    refused("is not root's alone")
    os.chown(directory, 0, 0)
    os.chmod(directory, 0o755)
    refused("is not root's alone")
    os.rmdir(directory)
    # What is refused for another reason leaves no link behind either.
    result = command.run("pin", "--link", path, volume.path("nothing"))
    assert result.status == 5 and not os.path.exists(directory)
    command.done("pin", "--link", "--wait", path)
    pinned(volume, [path])
