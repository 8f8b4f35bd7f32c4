# SPDX-License-Identifier: MIT
"""A cache, an SSD or a volume is not there: nothing is forgotten, and it is whole when it is back."""
import hashlib
import os
import re

from conftest import follow, set_up, write_files
from machine import MIB, until


def digest(path):
    with open(path, "rb") as file:
        return hashlib.sha256(file.read()).hexdigest()


def test_a_crash_of_the_cache_is_mended_without_an_operator(pool):
    before = pool.facts()
    first = pool.run("systemctl show -P MainPID quorsoftcache@pool").strip()
    # Somebody has a file open and requests are on their way.
    pool.run("(exec 3</mnt/pool/db/a; sleep 60) >/dev/null 2>&1 &")
    pool.run("kill -KILL " + first)
    until(lambda: pool.ask("systemctl show -P MainPID quorsoftcache@pool") not in ("0", first), "a new cache")
    until(lambda: pool.ask("systemctl is-active quorcachepinfiled mnt-pool.mount").split() == ["active"] * 2,
          f"mounted anew: {pool.log()[-3000:]}")
    pool.healthy("crash of the cache", before)
    assert pool.ask("cat /mnt/pool/db/a | wc -c") == "5000000"
    pool.reboot()
    pool.healthy("reboot after it", before)


def test_an_ssd_that_is_gone_holds_the_volume_back_until_it_is_replaced(pool):
    before = pool.facts()
    pool.off()
    ssd = pool.disks["nvme-SSD"]
    ssd.remove()
    pool.write_rules()
    pool.put("/etc/systemd/system.conf.d/soon.conf", "[Manager]\nDefaultDeviceTimeoutSec=10s\n")
    pool.boot()
    assert pool.ask("systemctl is-active mnt-pool.mount quorcachepinfiled").split() == ["inactive"] * 2
    lines = [line for line in pool.log().splitlines() if "not ready: " in line]
    assert len(lines) == 1 and "/mnt/pool is not mounted (2 pinned files, 0 queued requests)" in lines[0]
    pool.off()
    os.unlink(ssd.path)
    ssd.__init__(pool.state, "ssd", 96 * MIB)  # a new one, empty
    pool.write_rules()
    pool.boot()
    pool.healthy("SSD lost, and replaced by an empty one", before)


def test_the_service_waits_for_a_volume_that_does_not_come(pool):
    before = pool.facts()
    pool.run("sed -i 's/nofail/nofail,noauto/' /etc/fstab; sed -i 's/$/ noauto/' /etc/quorcachetab")
    pool.run("quorcachepinctl pend /mnt/pool && quorcachepinctl reload /mnt/pool")  # one is queued
    pool.reboot()
    assert pool.ask("systemctl is-active quorcachepinfiled") == "inactive"
    lines = [line for line in pool.log().splitlines() if "not ready: " in line]
    assert len(lines) == 1 and "/mnt/pool is not mounted (2 pinned files, 1 queued request)" in lines[0]
    # Started by hand it does not meet the volume either.
    pool.run("systemctl start quorcachepinfiled")
    assert pool.ask("systemctl is-active quorcachepinfiled") == "inactive"
    # The volume brings the service, whoever mounts it.
    pool.run("systemctl start quorsoftcache@pool && mount /mnt/pool")
    until(lambda: pool.ask("systemctl is-active quorcachepinfiled") == "active", "it is started")
    pool.healthy("volume that came late, a request queued", before)


def test_a_volume_that_has_grown_keeps_its_pins(pool):
    before = pool.facts()
    pool.off()
    disk = pool.disks["ata-DISK"]
    os.truncate(disk.path, 768 * MIB)
    disk.remove()
    disk.__init__(pool.state, "disk", 768 * MIB)
    pool.write_rules()
    pool.boot()
    follow(pool, "docs/operations.md", "A volume that has grown")
    assert int(pool.run("findmnt -b -n -o SIZE /mnt/pool")) > 600 * MIB
    until(lambda: pool.ask("systemctl is-active quorcachepinfiled") == "active", "the volume brings the service")
    write_files(pool, "/mnt/pool/grown", {"e": 1_000_000})
    pool.run("quorcachepinctl pin --wait /mnt/pool/grown/e")
    pool.pinned |= {"/mnt/pool/grown/e"}
    pool.healthy("volume grown by half", before)
    pool.reboot()
    pool.healthy("reboot after it", before)


def test_stopped_and_started_by_hand_all_of_it_goes_together(pool):
    before = pool.facts()
    pool.run("systemctl stop quorsoftcache@pool")
    assert pool.ask("systemctl is-active mnt-pool.mount quorcachepinfiled").split() == ["inactive"] * 2
    assert "pool" not in pool.ask("ls /dev/quorcache /run/quorsoftcache; losetup -l | grep quorsoftcache")
    pool.run("systemctl start mnt-pool.mount")  # and with it the cache
    until(lambda: pool.ask("systemctl is-active quorcachepinfiled") == "active", "it is started")
    pool.healthy("cache stopped and started by hand", before)
    for _ in range(3):
        pool.run("systemctl restart quorsoftcache@pool")
        until(lambda: pool.ask("systemctl is-active quorcachepinfiled mnt-pool.mount").split() == ["active"] * 2,
              f"all of it is back: {pool.log()[-3000:]}")
    pool.healthy("cache restarted by hand", before)


def test_an_ssd_of_another_volume_is_refused_and_costs_neither_anything(pool):
    pool.off()
    pool.plug("ata-OTHER", "disk2", 128 * MIB)
    pool.plug("nvme-OTHER", "ssd2", 32 * MIB)
    pool.boot()
    set_up(pool, "other", "/dev/disk/by-id/ata-OTHER", "/dev/disk/by-id/nvme-OTHER", {"f": 1_500_000})
    before = pool.healthy("a second cache and volume")
    table = pool.run("cat /etc/quorcachetab")
    mixed_up = table.replace("nvme-SSD", "X").replace("nvme-OTHER", "nvme-SSD").replace("X", "nvme-OTHER")
    pool.run("cat >/etc/quorcachetab", stdin=mixed_up)
    pool.off()
    ssds = [disk.path for name, disk in pool.disks.items() if name.startswith("nvme-")]
    kept = [digest(path) for path in ssds]

    pool.boot()
    assert pool.ask("systemctl is-active mnt-pool.mount mnt-other.mount quorcachepinfiled").split() == ["inactive"] * 3
    uuids = [pool.run(f"blkid -p -s UUID -o value /dev/disk/by-id/ata-{name}").strip() for name in ("OTHER", "DISK")]
    for cache, held, ssd, uuid in (("pool", "other", "OTHER", uuids[0]), ("other", "pool", "SSD", uuids[1])):
        said = pool.log(more=f"-u quorsoftcache@{cache}")
        assert re.search(rf"ssd /dev/disk/by-id/nvme-{ssd}: holds the cache {held} of \S+, UUID {uuid}; "
                         "--format overwrites it", said), said
    lines = [line for line in pool.log().splitlines() if "not ready: " in line]
    assert len(lines) == 1 and all(f"/mnt/{name} is not mounted" in lines[0] for name in ("other", "pool")), lines
    assert [digest(path) for path in ssds] == kept

    # As docs/operations.md says.
    pool.run("cat >/etc/quorcachetab", stdin=table)
    for name in ("pool", "other"):
        pool.run(f"systemctl reset-failed quorsoftcache@{name}")
        pool.run(f"systemctl daemon-reload && systemctl restart quorsoftcache@{name}")
    until(lambda: pool.ask("systemctl is-active quorcachepinfiled") == "active", f"it is started: {pool.log()[-3000:]}")
    assert pool.json("status")["volumes"][0]["unitsResident"] > 0
    pool.healthy("SSD of another volume, put right", before)
