# SPDX-License-Identifier: MIT
"""quorcachepinctl reload, pend and release."""
import os

from lab import command, evidence


def test_reload_reads_what_is_pinned_again(stage):
    volume = stage.volume()
    path = volume.write("a", 3_000_000)
    daemon = stage.daemon()
    command.done("pin", "--wait", path)
    units = evidence.units([path])

    report = command.report("reload", "--wait", volume.path("a"))

    assert report["volume"] == volume.mount_path
    assert report["unitsSet"] == report["unitsWithDriver"] == report["unitsResident"] == len(units)
    daemon.until_done("reloadPinBlocks")
    assert command.done("reload", "--wait", volume.mount_path + "//") == [
        f"{volume.mount_path}: reloaded",
        f"  units  {len(units)}, set {len(units)}, with the driver {len(units)}, "
        f"in the cache {len(units)}"]


def test_a_volume_is_named_as_the_service_knows_it(stage):
    volume = stage.volume()
    volume.write("photos/a", 5000)
    daemon = stage.daemon()
    for given in (volume.mount_path, volume.mount_path + "/", volume.path("photos"),
                  volume.path("photos/../photos/a")):
        assert command.done("pend", given) == [f"{volume.mount_path}: pend sent"]
        assert command.done("release", given) == [f"{volume.mount_path}: release sent"]
    daemon.wait_for(f"Remove pending space ({volume.mount_path})", 4)
    assert len(daemon.logged(f"Add pending space = {volume.mount_path}")) == 4


def test_what_is_no_volume_is_refused(stage):
    volume = stage.volume()
    stage.daemon()
    os.mkdir("/run/elsewhere")
    for verb in ("reload", "pend", "release"):
        for given in ("", "/nothing/there", "/run/elsewhere", volume.mount_path + "x"):
            assert command.report(verb, given, status=5)["sent"] == 0


def test_a_reload_that_would_cost_the_list_is_refused(stage):
    volume = stage.volume()
    path = volume.write("a", 100_000)
    daemon = stage.daemon()
    command.done("pin", "--wait", path)
    volume.cache.control("support-pin 0")
    assert "forget the volume's pinned files" in command.run("reload", volume.mount_path).talk
    assert command.run("reload", volume.mount_path).status == 5
    assert command.run("unpin", path).status == 5
    assert evidence.pinned_files(daemon.configuration, volume.mount_path) != {}
    volume.cache.control("support-pin 1")
    command.done("reload", "--wait", volume.mount_path)
