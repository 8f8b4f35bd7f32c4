# SPDX-License-Identifier: MIT
"""quorcachepinctl unpin: off the list, and what shared a unit with it pinned again."""
import os

from lab import command, evidence, libc


def neighbours(volume):
    """Small files, several of which share units with one another."""
    return [volume.write(f"small/{n}", 6000) for n in range(40)]


def test_what_is_unpinned_is_off_the_list_and_out_of_the_bitmap(stage):
    volume = stage.volume()
    kept, let_go = volume.write("kept", 3_000_000), volume.write("let-go", 2_000_000)
    daemon = stage.daemon()
    command.done("pin", "--wait", kept, let_go)
    report = command.report("unpin", "--wait", let_go)
    one, = report["holds"]
    assert one["unitsSet"] == one["unitsWithDriver"] == 0 and one["wrong"] == []
    assert evidence.pinned_bits(volume.mount_path) == volume.cache.pinned() == evidence.units([kept])
    assert evidence.pinned_files(daemon.configuration, volume.mount_path) == evidence.listing(
        volume.mount_path, [kept])


def test_files_that_lose_a_shared_unit_are_pinned_again(stage):
    volume = stage.volume()
    files = neighbours(volume)
    let_go, kept = files[10:15], files[:10] + files[15:]
    assert evidence.units(let_go) & evidence.units(kept)
    daemon = stage.daemon()
    command.done("pin", "--wait", *files)

    report = command.report("unpin", "--wait", *let_go)

    assert evidence.pinned_bits(volume.mount_path) == volume.cache.pinned() == evidence.units(kept)
    assert evidence.units(kept) <= volume.cache.resident()
    assert evidence.pinned_files(daemon.configuration, volume.mount_path) == evidence.listing(
        volume.mount_path, kept)
    sharers = [path for path in kept if evidence.units([path]) & evidence.units(let_go)]
    assert sorted(file["path"] for file in report["repinned"]) == sorted(sharers)
    assert report["repinnedHolds"][0]["wrong"] == []
    command.done("check")


def test_pinning_again_needs_no_wait(stage):
    volume = stage.volume()
    files = neighbours(volume)
    daemon = stage.daemon()
    command.done("pin", "--wait", *files)
    lines = command.done("unpin", files[10])
    assert lines[0] == f"{volume.mount_path}: unpin of 1 file sent in 1 request"
    assert "units with them; pinned again by 1 request" in lines[1]
    daemon.until_done("unpinFiles")
    daemon.until_done("pinFiles", 2)
    assert evidence.pinned_bits(volume.mount_path) == evidence.units(files[:10] + files[11:])


def test_without_pinning_again_the_services_own_rule_shows(stage):
    volume = stage.volume()
    files = neighbours(volume)
    stage.daemon()
    command.done("pin", "--wait", *files)
    command.report("unpin", "--wait", "--no-repin", files[10])
    assert evidence.pinned_bits(volume.mount_path) == (
        evidence.units(files) - evidence.units([files[10]]))
    assert command.run("check").status == 1


def test_what_is_only_queued_to_be_pinned_is_pinned_again_too(stage):
    volume = stage.volume()
    files = neighbours(volume)
    one, others = files[10], files[:10] + files[11:]
    daemon = stage.daemon()
    command.done("pin", "--wait", one)
    command.done("pend", volume.mount_path)
    command.done("pin", *others)
    daemon.wait_for("Signal a new request is added", 2)
    lines = command.done("unpin", one)
    assert lines[1].endswith("pinned again by 1 request")
    command.done("release", volume.mount_path)
    daemon.until_done("unpinFiles")
    daemon.until_done("pinFiles", 3)
    assert evidence.pinned_bits(volume.mount_path) == evidence.units(others)


def test_a_dry_run_says_what_would_be_pinned_again(stage):
    volume = stage.volume()
    files = neighbours(volume)
    stage.daemon()
    command.done("pin", "--wait", *files)
    price, = command.report("unpin", "--dry-run", files[10])["price"]
    sharers = [path for path in files if path != files[10]
               and evidence.units([path]) & evidence.units([files[10]])]
    assert price["repinnedFiles"] == len(sharers) > 0
    assert price["pinnedUnitsThen"] == len(evidence.units(files[:10] + files[11:]))
    assert evidence.pinned_bits(volume.mount_path) == evidence.units(files)


def test_a_driver_that_did_not_take_the_bitmap_is_not_called_unpinned(stage):
    volume = stage.volume()
    kept, let_go = volume.write("kept", 700_000), volume.write("let-go", 700_000)
    daemon = stage.daemon()
    daemon.expect("Ioctl Error: Send ioctl", "Ioctl error", "Can't send bitmap to driver",
                  "Handle request failed", "drop it.", "Remove pinned files from the config")
    command.done("pin", "--wait", kept, let_go)
    volume.cache.control("refuse-control 1")
    left = len(evidence.units([let_go]) - evidence.units([kept]))
    report = command.report("unpin", "--wait", "--no-repin", let_go, status=1)
    one, = report["holds"]
    assert one["unitsSet"] == 0 and one["unitsWithDriver"] == left
    assert f"{left} units still with the driver" in one["wrong"][0]["reason"]
    command.done("pin", "--wait", kept)  # the next request hands the bitmap over
    assert volume.cache.pinned() == evidence.units([kept])


def test_a_file_in_the_place_of_a_listed_one_is_named_and_not_sent(stage):
    volume = stage.volume()
    other, path = volume.write("other", 700_000), volume.write("a", 700_000)
    daemon = stage.daemon()
    command.done("pin", "--wait", other, path)
    inode = os.stat(path).st_ino
    os.rename(volume.write("a.new", 500_000), path)

    report = command.report("unpin", "--wait", path, other, status=1)

    assert [file["path"] for file in report["files"]] == [other]
    entry, = report["entries"]
    assert (entry["path"], entry["volume"], entry["inode"], entry["fate"]) == (
        path, volume.mount_path, inode, "replaced")
    refused, = report["refused"]
    assert refused["path"] == path and "check --repair follows it" in refused["reason"]
    assert evidence.pinned_files(daemon.configuration, volume.mount_path) == {str(inode): "a"}
    assert command.done("list", "--paths") == [path]
    assert command.run("unpin", path).status == 1


def test_what_is_listed_and_gone_is_refused_with_the_remedy(stage):
    volume = stage.volume()
    paths = [volume.write(f"{name}/{name}", 700_000) for name in "abcd"]
    gone, emptied, renamed, there = paths
    daemon, queue = stage.daemon(), stage.queue()
    command.done("pin", "--wait", *paths)
    os.unlink(gone)
    os.rmdir(os.path.dirname(gone))
    os.truncate(emptied, 0)
    os.rename(renamed, volume.path("away"))
    listed = command.run("list", "-0", volume.mount_path).output

    report = command.report("unpin", "-0", "-f", "-", given=listed, status=5)
    assert report["sent"] == 0 and queue.state().messages == 0
    shown = {refusal["path"]: refusal["reason"] for refusal in report["refused"]}
    assert shown[gone] == "is on the service's list and gone; check --repair takes it off"
    assert shown[renamed] == f"is on the service's list and renamed: lies at {volume.path('away')}"
    assert shown[emptied].startswith("is empty")
    assert {entry["path"]: entry["fate"] for entry in report["entries"]} == {
        gone: "gone", emptied: "there", renamed: "renamed"}

    result = command.run("unpin", "--wait", "--keep-going", "-0", "-f", "-", given=listed)
    assert result.status == 1 and there not in result.talk
    command.done("unpin", "--wait", volume.path("away"))
    left = evidence.pinned_files(daemon.configuration, volume.mount_path)
    assert sorted(left.values()) == ["a/a", "b/b"]


def test_an_emptied_file_is_taken_off_the_list_while_no_service_runs(stage):
    volume = stage.volume()
    path, kept = volume.write("a", 300_000), volume.write("kept", 300_000)
    daemon = stage.daemon()
    command.done("pin", "--wait", path, kept)
    os.truncate(path, 0)
    libc.sync(volume.mount_path)
    refused = command.run("unpin", path)
    assert refused.status == 5 and "while no service runs" in refused.talk, refused
    assert evidence.pinned_files(daemon.configuration, volume.mount_path) == evidence.listing(
        volume.mount_path, [path, kept])

    assert daemon.stop() == 0
    config = ("--config-path", daemon.configuration)
    assert f"{path}: empty, taken off the list" in command.done("unpin", path, *config)
    assert evidence.pinned_files(daemon.configuration, volume.mount_path) == evidence.listing(
        volume.mount_path, [kept])
    command.done("check", "--repair", *config)
    assert evidence.pinned_bits(volume.mount_path) == volume.cache.pinned() == evidence.units([kept])
    daemon.start()
    command.done("check")


def test_what_was_not_pinned_is_told(stage):
    volume = stage.volume()
    pinned, other = volume.write("a", 700_000), volume.write("b", 700_000)
    stage.daemon()
    command.done("pin", "--wait", pinned)
    result = command.run("unpin", "--wait", pinned, other)
    assert result.status == 0
    assert f"{other} was not pinned" in result.talk and f"{pinned} was not" not in result.talk
    assert "1 of them was not pinned before" in result.lines()
    command.done("check")


def test_without_the_list_nothing_is_sent_unless_nothing_is_to_be_pinned_again(stage):
    volume = stage.volume()
    path = volume.write("a", 700_000)
    daemon, queue = stage.daemon(), stage.queue()
    command.done("pin", "--wait", path)
    daemon.stop()
    result = command.run("unpin", path)
    assert result.status == 3 and "nothing was sent" in result.talk
    assert queue.state().messages == 0
    for words in (("--no-repin",), ("--config-path", daemon.configuration)):
        result = command.run("unpin", *words, path)
        assert result.status == 3 and "the requests wait until it is started" in result.talk
    assert queue.state().messages == 2
