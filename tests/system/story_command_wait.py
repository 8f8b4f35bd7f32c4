# SPDX-License-Identifier: MIT
"""quorcachepinctl wait, and what progress and status tell of requests on their way."""
import re
import signal

from lab import command, evidence

MIB = 1 << 20


def test_a_wait_ends_when_nothing_is_queued(stage):
    one, two = stage.volume("one"), stage.volume("two")
    first, second = one.write("a", 500_000), two.write("b", 500_000)
    daemon = stage.daemon()
    assert command.done("wait") == ["nothing was queued"]
    command.done("pend", two.mount_path)
    command.done("pin", second)
    command.done("pin", first)

    report = command.report("wait", one.mount_path)
    assert (report["volume"], report["requests"], report["left"]) == (one.mount_path, 1, 1)
    assert evidence.units([first]) <= one.cache.resident()
    # The other volume's request is queued still, as its volume is pending.
    result = command.run("wait", "--timeout", "1")
    assert result.status == 4 and "the time is over; the requests stay queued" in result.talk

    waiting = command.start("wait", "--json")
    command.done("release", two.mount_path)
    result = command.finish(waiting)
    assert result.status == 0, result
    assert evidence.units([second]) <= two.cache.resident()
    assert evidence.configuration(daemon.configuration)["requestQueue"] in ([], None)


def test_a_wait_ends_by_a_signal_and_with_the_service(stage):
    volume = stage.volume()
    path = volume.write("a", 500_000)
    daemon = stage.daemon()
    command.done("pend", volume.mount_path)
    command.done("pin", path)
    daemon.wait_for("Signal a new request is added")
    waiting = command.start("wait", preexec_fn=lambda: signal.signal(signal.SIGINT, signal.SIG_DFL))
    # That it waits shows in its talk, at the latest five seconds later.
    assert "0 of 1 request done, 0 bytes of " in waiting.stderr.readline()
    waiting.send_signal(signal.SIGINT)
    assert command.finish(waiting).status == 128 + signal.SIGINT
    daemon.stop()
    assert command.run("wait", "--config-path", daemon.configuration).status == 3
    stage.daemon().until_done("pinFiles")


def test_progress_tells_what_goes_before(stage):
    volume = stage.volume()
    film, small = volume.write("film", 30 * MIB), volume.write("small", 500_000)
    daemon = stage.daemon()
    volume.cache.control("delay-read 20")
    command.done("pin", film)
    daemon.wait_for("Read to null")
    result = command.run("pin", "--wait", small)
    assert result.status == 0, result
    lines = re.findall(r"waits for the requests before it: 1, the first at (\d+)%", result.talk)
    shares = [int(share) for share in lines]
    assert shares == sorted(shares) and shares and shares[-1] <= 100
    daemon.until_done("pinFiles", 2)


def test_status_tells_how_far_the_request_is(stage):
    volume = stage.volume()
    film = volume.write("film", 30 * MIB)
    daemon = stage.daemon()
    volume.cache.control("delay-read 20")
    command.done("pin", film)
    daemon.wait_for("Read to null")
    request, = command.report("status", status=6)["requests"]
    assert request["bytes"] == 30 * MIB and request["ahead"] == 0
    assert 0 <= request["bytesRead"] <= 30 * MIB
    assert request["percent"] == request["bytesRead"] * 100 // (30 * MIB)

    # Watched on a terminal, until nothing is queued.
    status, watched = command.on_terminal("status", "--watch", until="none queued")
    assert status == 0
    shares = [int(share) for share in re.findall(r"running, (\d+)% of 30.0 MiB read", watched)]
    assert shares == sorted(shares) and len(shares) > 1
    assert watched.count("\033[H\033[J") > len(shares)
    daemon.until_done("pinFiles")


def test_the_long_list_tells_what_is_in_the_cache(stage):
    volume = stage.volume()
    small, large = volume.write("small", 100_000), volume.write("large", 3 * MIB)
    stage.daemon()
    command.done("pin", "--wait", small, large)
    files = command.report("list", "-l", "--sort", "size")["volumes"][0]["files"]
    assert [file["path"] for file in files] == [large, small]
    for file in files:
        units = len(evidence.units([file["path"]]))
        assert file["unitsWanted"] == file["unitsResident"] == units and file["percent"] == 100
