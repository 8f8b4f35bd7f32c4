# SPDX-License-Identifier: MIT
# timeout: 900
"""Two thousand files from a list are pinned, and unpinned again with nothing left over."""
import os

from lab import command, evidence, libc


def test_two_thousand_files(stage):
    volume = stage.volume("v")
    os.mkdir(volume.path("m"))
    paths = [volume.path(f"m/{n:04}") for n in range(2000)]
    for number, path in enumerate(paths):
        with open(path, "wb") as file:
            file.write(os.urandom(3000 + number * 37 % 9000))
    libc.sync(volume.mount_path)
    daemon = stage.daemon(wait_for="Start Service", flags=())
    stage.queue()  # published, so that the command finds it

    result = command.run("pin", "--json", "--wait", "-f", "-", given="\r\n".join(["# all of them", *paths]))

    assert result.status == 0, result
    pinned = result.report()
    assert result.talk.startswith(f"quorcachepinctl: {pinned['requests']} requests take about "), result.talk
    assert [file["path"] for file in pinned["files"]] == paths
    assert pinned["requests"] == pinned["sent"] < 50
    assert pinned["holds"][0]["wrong"] == []
    units = evidence.units(paths)
    assert evidence.pinned_bits(volume.mount_path) == volume.cache.pinned() == units
    assert evidence.pinned_files(daemon.configuration, volume.mount_path) == evidence.listing(
        volume.mount_path, paths)
    command.done("check")
    again = command.run("pin", "-n", paths[5], paths[7])
    assert f"{paths[5]} and 1 more are pinned already" in again.talk, again

    listed = command.run("list", "-0")
    assert sorted(listed.output.split("\0")[:-1]) == paths
    report = command.report("unpin", "--wait", "-0", "-f", "-", given=listed.output)

    assert report["holds"][0]["wrong"] == report["repinned"] == []
    assert evidence.pinned_bits(volume.mount_path) == volume.cache.pinned() == set()
    assert evidence.configuration(daemon.configuration) == {
        "nextRequestNum": pinned["sent"] + report["sent"], "requestQueue": None, "requests": {},
        "volumes": {}}
    assert sorted(volume.cache.stats()["releasedRanges"]) == sorted(evidence.ranges(paths))
    assert command.done("list") == ["nothing is pinned"]
