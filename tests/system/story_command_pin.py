# SPDX-License-Identifier: MIT
"""quorcachepinctl pin: checked, priced, sent, waited for, and then what really holds."""
import os
import re
import signal

import pytest

from lab import command, evidence, libc, queue as queues

MIB = 1 << 20


def holds(report):
    """The figures that --wait ends with, of the one volume."""
    one, = report["holds"]
    return one["units"], one["unitsSet"], one["unitsWithDriver"], one["unitsResident"]


def test_a_name_that_is_not_utf8_is_kept_byte_for_byte(stage):
    volume = stage.volume()
    path = volume.write("caf\udce9.jpg", 300_000)
    daemon = stage.daemon()

    command.done("pin", "--wait", path)
    assert evidence.pinned_files(daemon.configuration, volume.mount_path) == evidence.listing(
        volume.mount_path, [path])
    assert evidence.pinned_bits(volume.mount_path) == evidence.units([path])
    command.done("check")

    command.done("unpin", "--wait", path)
    assert evidence.pinned_files(daemon.configuration, volume.mount_path) == {}
    assert evidence.pinned_bits(volume.mount_path) == set()


@pytest.mark.parametrize("kind", ["ext4", "xfs"])
def test_waiting_ends_with_what_holds(stage, kind):
    volume = stage.volume(kind=kind)
    paths = [volume.write(f"photos/{n}.jpg", size)
             for n, size in (("a", 1), ("b", 300_000), ("c", 65536), ("d", 9_000_001))]
    daemon = stage.daemon()

    report = command.report("pin", "--wait", *paths)

    units = evidence.units(paths)
    assert holds(report) == (len(units),) * 4
    assert evidence.pinned_bits(volume.mount_path) == volume.cache.pinned() == units
    assert units <= volume.cache.resident()
    assert evidence.pinned_files(daemon.configuration, volume.mount_path) == evidence.listing(
        volume.mount_path, paths)
    assert [file["path"] for file in report["files"]] == paths
    assert report["refused"] == report["repinned"] == []

    lines = command.done("pin", "--wait", *paths)
    assert lines[0] == f"{volume.mount_path}: pinned 4 files, {lines[0].rpartition(', ')[2]}"
    assert lines[1] == (f"  units  {len(units)}, set {len(units)}, with the driver "
                        f"{len(units)}, in the cache {len(units)}")


def test_without_waiting_it_says_what_was_sent(stage):
    volume = stage.volume()
    paths = [volume.write(name, 100_000) for name in ("a", "b")]
    daemon = stage.daemon()
    assert command.done("pin", "-r", volume.mount_path) == [
        f"{volume.mount_path}: pin of 2 files sent in 1 request"]
    daemon.until_done("pinFiles")
    assert evidence.pinned_bits(volume.mount_path) == evidence.units(paths)


def test_a_dry_run_costs_nothing_and_is_right(stage):
    volume = stage.volume(cache_size=4 * MIB)
    first, second = volume.write("a", 1_000_000), volume.write("b", 5_000_000)
    daemon = stage.daemon()
    command.done("pin", "--wait", first)
    before = evidence.configuration(daemon.configuration), evidence.bitmap_file(volume.mount_path)

    price, = command.report("pin", "--dry-run", second)["price"]

    units = evidence.units([second])
    size = sum(extent.sectors for extent in evidence.extents(second)) * evidence.SECTOR
    assert price["units"] == len(units)
    assert price["extents"] == len(evidence.extents(second))
    assert price["bytes"] == size
    assert price["roundingBytes"] == len(units) * evidence.UNIT - size
    assert price["unitsSet"] == len(units & evidence.units([first]))
    assert price["pinnedUnitsNow"] == len(evidence.units([first]))
    assert price["pinnedUnitsThen"] == len(evidence.units([first, second]))
    assert price["cacheBytes"] == 4 * MIB
    assert price["requests"] == 1
    share = f"{price['pinnedUnitsThen'] * evidence.UNIT / (4 * MIB):.1%}".replace("%", " %")
    assert any(f"afterwards {share}  more than the cache holds" in line
               for line in command.done("pin", "--dry-run", second))
    assert (evidence.configuration(daemon.configuration),
            evidence.bitmap_file(volume.mount_path)) == before
    assert queues.Queue.open().state().messages == 0


def test_what_the_service_would_stumble_over_is_refused_before_anything_is_sent(stage):
    volume = stage.volume()
    good = volume.write("good", 100_000)
    for name in ("my file", "a;b", "a#1", "b\udce4 r"):
        with open(volume.path(name), "wb") as file:
            file.write(b"x")
    os.symlink("good", volume.path("link"))
    os.mkdir(volume.path("directory"))
    with open(volume.path("hole"), "wb") as file:
        file.truncate(MIB)
    open(volume.path("empty"), "wb").close()
    bad = [volume.path(name) for name in ("my file", "a;b", "a#1", "b\udce4 r", "link", "directory",
                                          "hole", "empty", "missing")] + ["/proc/version"]
    daemon = stage.daemon()

    report = command.report("pin", good, *bad, status=5)

    assert report["sent"] == 0
    shown = {refusal["path"]: refusal["reason"] for refusal in report["refused"]}
    assert sorted(shown) == sorted(path.replace("\udce4", "\\xe4") for path in bad)
    assert shown[volume.path("link")] == "is a symbolic link to good; name the file that it leads to"
    assert shown["/proc/version"] == "lies on no volume that the service knows"
    assert evidence.configuration(daemon.configuration) is None
    for path in bad:
        assert command.run("pin", path).status == 5

    result = command.run("pin", "--wait", "--keep-going", good, *bad)
    assert result.status == 1
    assert len(re.findall("refused", result.talk)) == len(bad)
    assert evidence.pinned_bits(volume.mount_path) == evidence.units([good])
    assert daemon.receiver_alive()


def test_odd_names_that_the_service_can_store_are_pinned(stage):
    volume = stage.volume(mount_path="/mnt/my %n pool")
    paths = [volume.write(name, 70_000) for name in ("%s%n", "ä€🐻", "a\"b\\c", "a\x01b", "'$(x)'")]
    daemon = stage.daemon()
    report = command.report("pin", "--wait", *paths)
    assert [file["path"] for file in report["files"]] == paths
    assert evidence.pinned_bits(volume.mount_path) == evidence.units(paths)
    assert evidence.pinned_files(daemon.configuration, volume.mount_path) == evidence.listing(
        volume.mount_path, paths)
    shown = "\n".join(command.done("list"))
    assert "a\\x01b" in shown and "\x01" not in shown


def test_waiting_goes_on_through_an_interruption(stage):
    volume = stage.volume()
    paths = [volume.write(f"film-{n:02}", 2_000_000) for n in range(12)]
    volume.flood(evidence.units(paths))
    daemon = stage.daemon()
    volume.cache.control("delay-read 20")

    waiting = command.start("pin", "--wait", "--json", *paths)
    daemon.wait_for("Read to null")
    command.done("pend", volume.mount_path)
    daemon.wait_for("Handle request (0). Get interrupted !")
    daemon.wait_for("Request num (0) volume (/mnt/vol1) is pending", 2)
    assert waiting.poll() is None
    volume.cache.control("clear-faults")
    command.done("release", volume.mount_path)
    result = command.finish(waiting)

    assert result.status == 0, result
    units = evidence.units(paths)
    assert holds(result.report()) == (len(units),) * 4
    assert units <= volume.cache.resident()


def test_a_wait_can_be_bounded_and_ended(stage):
    volume = stage.volume()
    path = volume.write("a", 500_000)
    daemon = stage.daemon()
    command.done("pend", volume.mount_path)

    result = command.run("pin", "--wait", "--timeout", "1", path)
    assert result.status == 4
    assert "the time is over; the requests stay queued" in result.talk

    waiting = command.start("pin", "--wait", path)
    daemon.wait_for("Signal a new request is added", 2)
    waiting.send_signal(signal.SIGINT)
    assert command.finish(waiting).status == 128 + signal.SIGINT
    assert evidence.configuration(daemon.configuration)["requestQueue"] == ["0", "1"]

    command.done("release", volume.mount_path)
    daemon.until_done("pinFiles", 2)


def start_waiting(stage):
    """A pin that waits for its request, which is stored, and whose volume is pending."""
    volume = stage.volume()
    path = volume.write("a", 500_000)
    daemon = stage.daemon()
    command.done("pend", volume.mount_path)
    waiting = command.start("pin", "--wait", path)
    daemon.wait_for("Signal a new request is added")
    return volume, path, daemon, waiting


def test_a_hang_up_ends_a_wait_in_order(stage):
    volume, _, daemon, waiting = start_waiting(stage)
    waiting.send_signal(signal.SIGHUP)
    result = command.finish(waiting)
    assert result.status == 128 + signal.SIGHUP
    assert "interrupted; the requests stay queued" in result.talk
    command.done("release", volume.mount_path)
    daemon.until_done("pinFiles")


def test_a_wait_goes_on_through_signals_that_were_ignored_before(stage):
    volume = stage.volume()
    path = volume.write("a", 500_000)
    daemon = stage.daemon()
    command.done("pend", volume.mount_path)
    ignored = (signal.SIGINT, signal.SIGTERM, signal.SIGHUP)
    waiting = command.start("pin", "--wait", "--json", path, preexec_fn=lambda: [
        signal.signal(number, signal.SIG_IGN) for number in ignored])
    daemon.wait_for("Signal a new request is added")
    for number in ignored:
        waiting.send_signal(number)
    command.done("release", volume.mount_path)
    result = command.finish(waiting)
    assert result.status == 0, result
    assert holds(result.report()) == (len(evidence.units([path])),) * 4


def test_a_dropped_request_is_not_called_done(stage):
    volume = stage.volume()
    path = volume.write("a", 500_000)
    daemon = stage.daemon()
    daemon.expect("Ioctl Error", "Ioctl error", "Can't send bitmap to driver", "Handle request failed",
                  "Handle request error (num = 0, type = pinFiles), drop it.")
    volume.cache.control("refuse-control 1")
    report = command.report("pin", "--wait", path, status=1)
    wrong, = report["holds"][0]["wrong"]
    assert wrong["path"] == path
    assert wrong["reason"].startswith("is not on the service's list: its request was dropped")
    assert command.report("pin", "--wait", path)["holds"][0]["wrong"] == []


def test_the_end_of_the_service_ends_the_wait(stage):
    _, path, daemon, waiting = start_waiting(stage)
    assert daemon.stop() == 0
    result = command.finish(waiting)
    assert result.status == 3
    # Which of the two it says depends on whether it had found the service before its end.
    assert "the service has ended" in result.talk or "the service does not run here" in result.talk
    assert command.run("pin", "--wait", path).status == 3


def test_a_full_queue_is_not_waited_for_for_ever(stage):
    volume = stage.volume()
    paths = [volume.write(f"{n:03}-{'n' * 200}", 4096, sync=False) for n in range(60)]
    libc.sync(volume.mount_path)
    daemon, queue = stage.daemon(), stage.queue()
    daemon.stop(signal.SIGTERM)
    for _ in range(1022):
        queue.send(queues.RELOAD, volume.mount_path)
    result = command.run("pin", "--send-timeout", "1", *paths)
    assert result.status == 4
    assert "the queue stayed full for 1 second" in result.talk
    assert "; 2 of 15 requests sent" in result.talk
    assert queue.state().messages == 1024


def test_the_terminal_gets_a_bar_and_no_terminal_gets_lines(stage):
    volume = stage.volume()
    path = volume.write("film", 30 * MIB)
    daemon = stage.daemon()
    volume.cache.control("delay-read 4")
    status, shown = command.on_terminal("pin", "--wait", path)
    assert status == 0
    bars = [line for line in re.split("[\r\n]", shown) if re.match(r"\[#*\.*\] \d+% ", line)]
    shares = [int(line.partition("] ")[2].partition("%")[0]) for line in bars]
    assert shares == sorted(shares) and 0 < max(shares) < 100
    assert all(len(line.replace("\033[K", "")) < 80 for line in bars)
    assert any("/s, " in line and " left, reading" in line for line in bars)
    assert shown.rstrip().endswith(f"in the cache {len(evidence.units([path]))}")

    volume.cache.control("clear-faults")
    command.done("unpin", "--wait", path)
    volume.cache.control("delay-read 20")
    result = command.run("pin", "--wait", path)
    assert "\r" not in result.talk and "\033" not in result.talk + result.output
    assert re.search(r"^quorcachepinctl: 0 of 1 request done, .* of 30.0 MiB read; reading$",
                     result.talk, re.M)
    daemon.until_done("pinFiles", 2)


def test_files_that_the_service_cannot_tell_from_one_another_are_not_both_pinned(stage):
    """Of inode numbers it keeps 32 bits; on a large XFS the parts of the device differ above these."""
    volume = stage.volume(kind="xfs", size=4 << 40, mkfs=["-l", "size=64m"])
    daemon = stage.daemon()
    paths = [volume.write(f"{number}/file", 100_000) for number in range(12)]
    by_bits = {}
    for path in paths:
        by_bits.setdefault(os.stat(path).st_ino % 2**32, []).append(path)
    first, second = next(same for same in by_bits.values() if len(same) > 1)[:2]

    reason = f"has an inode number whose low 32 bits, which are what the service keeps, are those of {first}"
    result = command.run("pin", first, second)
    assert result.status == 5 and f"refused {second}: {reason}" in result.talk
    command.done("pin", "--wait", first)
    result = command.run("pin", second)
    assert result.status == 5 and f"refused {second}: {reason}" in result.talk
    assert len(daemon.logged("Handle request (type=pinFiles")) == 1
    assert volume.cache.pinned() == evidence.units([first])
