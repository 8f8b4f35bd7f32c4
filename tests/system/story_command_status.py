# SPDX-License-Identifier: MIT
"""quorcachepinctl list and status: what the service keeps, and whether it works."""
import os

from lab import command, evidence, queue as queues


def test_what_is_pinned_is_listed_by_volume(stage):
    one, two = stage.volume("one"), stage.volume("two")
    paths = [one.write("b", 5000), one.write("a", 70_000), two.write("c", 5000)]
    stage.daemon()
    assert command.done("list") == ["nothing is pinned"]
    command.done("pin", "--wait", *paths)
    assert command.done("list", "--paths") == [paths[1], paths[0], paths[2]]
    assert command.run("list", "-0", two.mount_path).output == paths[2] + "\0"
    os.unlink(paths[0])
    os.rename(one.write("new", 5000), paths[1])
    states = {file["relativePath"]: file["fate"] for volume in command.report("list")["volumes"]
              for file in volume["files"]}
    assert states == {"a": "replaced", "b": "gone", "c": "there"}
    assert command.done("list", two.mount_path)[0] == f"{two.mount_path}: 1 file pinned"
    assert command.run("list", "/nothing").status == 5


def test_the_queue_is_shown_in_order_with_what_runs(stage):
    held, free = stage.volume("held"), stage.volume("free")
    first = held.write("a", 500_000)
    film = free.write("film", 12_000_000)
    daemon = stage.daemon()
    free.cache.control("delay-read 50")
    command.done("pend", held.mount_path)
    command.done("pin", first)
    command.done("pin", film)
    command.done("reload", free.mount_path)
    daemon.wait_for("Read to null")

    # What is still being read is pinned and not in the cache yet.
    requests = command.report("status", status=6)["requests"]

    assert [(row["number"], row["type"], row["volume"], row["files"]) for row in requests] == [
        ("0", "pinFiles", held.mount_path, 1), ("1", "pinFiles", free.mount_path, 1),
        ("2", "reloadPinBlocks", free.mount_path, 0)]
    assert [row["state"] for row in requests] == [
        "waiting (overtaken: its volume was pending)", "running", "waiting"]
    extent, = evidence.extents(film)
    start = extent.device_sector * evidence.SECTOR
    assert start <= requests[1]["devicePosition"] <= start + extent.sectors * evidence.SECTOR

    free.cache.control("clear-faults")
    command.done("release", held.mount_path)
    daemon.until_done("pinFiles", 2)
    daemon.until_done("reloadPinBlocks")


def test_a_service_that_works_and_one_that_does_not(stage):
    volume = stage.volume()
    path = volume.write("a", 500_000)
    assert command.run("status").status == 3
    daemon, queue = stage.daemon(), stage.queue()
    command.done("pin", "--wait", path)
    report = command.report("status")
    service, = report["services"]
    assert (service["pid"], service["intakeAlive"], service["workerAlive"]) == (daemon.pid, True, True)
    assert report["configPath"] == service["configPath"] == daemon.configuration
    assert report["queue"]["limitBytes"] == 1576960
    one, = report["volumes"]
    units = len(evidence.units([path]))
    assert (one["files"], one["unitsSet"], one["unitsResident"]) == (1, units, units)

    # A bad message ends the intake; what is sent from now on waits for a restart.
    daemon.expect("Space UUID is not set", "Get wrong message format")
    queue.send(queues.RELOAD)
    daemon.wait_for("Get wrong message format")
    service, = command.report("status", status=3)["services"]
    assert (service["intakeAlive"], service["workerAlive"]) == (False, True)
    result = command.run("unpin", path)
    assert result.status == 3 and "the service's intake has stopped" in result.talk
    assert command.report("status", status=3)["queue"]["messages"] == 1
    assert command.run("pin", "--wait", path).status == 3

    daemon.stop()
    assert command.report("status", status=3)["services"] == []
    assert command.report("list", "--config-path", daemon.configuration)["volumes"][0]["files"]
    again = stage.daemon()
    again.until_done("unpinFiles")
    again.until_done("pinFiles")


def test_a_worker_that_has_ended_is_noticed(stage):
    volume = stage.volume()
    path = volume.write("a", 500_000)
    daemon = stage.daemon()
    daemon.expect("Can't find request number (9) in config", "Get request error")
    with open(daemon.configuration, "w", encoding="utf-8") as file:
        file.write('{"requestQueue": ["9"], "requests": {}}')
    result = command.run("pin", "--wait", path)
    assert result.status == 3
    assert "worker has ended" in result.talk  # seen at once, or while waiting
    report = command.report("status", status=3)
    assert [service["workerAlive"] for service in report["services"]] == [False]
    assert report["defects"] == ["request 9 is queued and not stored: it ends the worker"]
