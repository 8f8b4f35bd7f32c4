# SPDX-License-Identifier: MIT
"""What the command tells is true: what is pinned and not in the cache, not in force, too much; without root's rights."""
import os

from lab import command, evidence, queue as queues

MIB = 1 << 20
NOBODY = 65534


def as_nobody(*words):
    return command.finish(command.start(*words, user=NOBODY, group=NOBODY, extra_groups=[]))


def states(status, *words):
    """What check and status call the one volume; both must end with this exit status."""
    named = {command.report(verb, *words, status=status)["volumes"][0]["state"] for verb in ("check", "status")}
    assert len(named) == 1
    return named.pop()


def test_what_is_pinned_and_not_in_the_cache_is_not_good(stage):
    volume = stage.volume(cache_size=4 * MIB)
    path = volume.write("a", 1_000_000)
    stage.daemon()
    command.done("pin", "--wait", path)
    assert states(0) == "pinned and in the cache"
    assert command.run("doctor").status == 0
    units = len(evidence.units([path]))

    volume.unmount()
    volume.cache.stop()
    volume.cache.start(cache_size=5 * MIB)  # cold
    volume.mount()

    assert states(6) == "pinned, not in the cache yet"
    assert command.run("doctor").status == 6
    lines = command.run("check").lines()
    assert f": 0 of 1 file good, {units} units set" in lines[0]
    assert lines[1:] == [f"  {units} units of {units} not in the cache",
                         "  remedy: quorcachepinctl reload --missing"]
    command.done("reload", "--missing", "--wait")
    assert states(0) == "pinned and in the cache"


def test_pins_that_no_cache_keeps_are_not_in_force(stage):
    volume = stage.volume()
    path = volume.write("a", 500_000)
    stage.daemon()
    command.done("pin", "--wait", path)
    volume.cache.control("support-pin 0")
    assert states(8) == "pinned, not in force"
    assert "the cache does not serve now, or does not keep pins" in command.run("check").output
    assert command.run("doctor").status == 8
    volume.cache.control("support-pin 1")
    assert states(0) == "pinned and in the cache"


def test_more_than_the_cache_holds_is_refused_unless_it_is_meant(stage):
    volume = stage.volume(cache_size=4 * MIB)
    first, second = volume.write("a", 3_000_000), volume.write("b", 3_000_000)
    daemon = stage.daemon()
    command.done("pin", "--wait", first)
    refused = command.report("pin", second, status=5)
    assert refused["sent"] == 0
    assert evidence.pinned_bits(volume.mount_path) == evidence.units([first])
    command.done("pin", "--overcommit", second)
    daemon.until_done("pinFiles", 2)
    assert states(7) == "more pinned than the cache holds"
    assert command.run("doctor").status == 7


def test_with_nobody_to_take_it_a_request_is_not_said_to_be_done(stage):
    volume = stage.volume()
    path = volume.write("a", 500_000)
    daemon, queue = stage.daemon(), stage.queue()
    with daemon.suspended():
        result = command.run("pin", path)
        assert (result.status, command.run("status").status) == (3, 3)
    assert "was stopped by a signal; the requests wait" in result.talk
    daemon.until_done("pinFiles")

    daemon.stop()
    result = command.run("reload", volume.mount_path)
    assert result.status == 3 and "does not run here; the requests wait" in result.talk
    assert queue.state().messages == 1


def test_without_roots_rights_what_can_be_read_is_shown_and_the_rest_said_to_need_root(stage):
    volume = stage.volume()
    path = volume.write("a", 500_000)
    daemon = stage.daemon()
    command.done("pin", "--wait", path)

    # Without udev's links the volume cannot be told from others.
    for words in (("explain", path), ("pin", path), ("map", volume.mount_path)):
        result = as_nobody(*words)
        assert result.status == 5 and "needs root" in result.talk, result
    shown = as_nobody("list")
    assert shown.status == 0 and "needs root" in shown.output and path.rpartition("/")[2] in shown.output
    status = as_nobody("status").output
    assert f"process {daemon.pid} of root" in status and "takes requests: yes" in status

    device = os.stat(volume.mount_path).st_dev
    node, = [entry.path for entry in os.scandir("/dev") if os.stat(entry.path).st_rdev == device]
    os.makedirs("/dev/disk/by-uuid", exist_ok=True)
    os.symlink(node, "/dev/disk/by-uuid/12345678-0000-4000-8000-000000000000")
    for verb in ("check", "status"):
        result = as_nobody(verb)
        assert result.status == 0 and "pinned and in the cache" in result.output, result
    assert as_nobody("list").lines()[0] == f"{volume.mount_path}: 1 file pinned"
    os.chmod(path, 0o600)
    secret = as_nobody("check")
    assert secret.status == 1 and "its extents cannot be read: that needs root" in secret.output, secret


def test_what_is_not_there_is_said_in_fitting_words(stage):
    volume = stage.volume()
    path = volume.write("dir/a", 5_000_000)
    daemon = stage.daemon()
    command.done("pin", "--wait", path)
    units = len(evidence.units([path]))
    explained = command.run("explain", os.path.dirname(path))
    assert explained.status == 5 and "is a directory; list and check" in explained.talk, explained
    daemon.stop()
    volume.cache.control("support-pin 0")
    volume.unmount()
    listed = command.done("list", "--config-path", daemon.configuration)
    assert listed[0] == f"{volume.mount_path}: 1 file pinned, the volume is not mounted"
    assert "gone" not in listed[1]
    volume.mount()
    words = command.done("explain", "--config-path", daemon.configuration, path)
    assert f"{units}, set {units}" in "".join(words) and "device's end" not in "".join(words)


def test_the_doctor_notices_a_debug_file_and_a_list_that_lost_files(stage):
    volume = stage.volume()
    path = volume.write("a", 500_000)
    daemon, queue = stage.daemon(), stage.queue()
    command.done("pin", "--wait", path)
    command.done("keep-copy")
    with open("/tmp/quorcachepinfiletool.debug", "w", encoding="utf-8") as file:
        file.write(path)
    findings = {row["subject"]: row for row in command.report("doctor", status=1)["findings"]}
    assert f"names {path}:" in findings["debug settings"]["text"]
    os.unlink("/tmp/quorcachepinfiletool.debug")

    volume.cache.control("support-pin 0")
    queue.send(queues.RELOAD, volume.mount_path)
    daemon.wait_for("Drop requests finish")
    volume.cache.control("support-pin 1")
    found = {row["subject"]: row for row in command.run("doctor", "--json").report()["findings"]}
    assert f"lists 1 file that the list has not: 1 on {volume.mount_path}" in found["list"]["text"]
    assert found["list"]["remedy"].endswith("quorcachepinctl restore 1")
