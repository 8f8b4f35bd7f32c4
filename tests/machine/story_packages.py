# SPDX-License-Identifier: MIT
"""Packages upgraded and purged while everything runs."""
from machine import until


def test_an_upgrade_leaves_cache_and_volume_alone(pool):
    before = pool.facts()
    cache = pool.run("systemctl show -P MainPID quorsoftcache@pool")
    service = pool.run("systemctl show -P MainPID quorcachepinfiled")
    pool.run("(while :; do cat /mnt/pool/db/* >/dev/null || touch /tmp/wrong; done) >/dev/null 2>&1 &")
    pool.run("dpkg -i /packages/*.deb")
    assert pool.run("systemctl show -P MainPID quorsoftcache@pool") == cache
    until(lambda: pool.ask("systemctl is-active quorcachepinfiled") == "active", "it runs again")
    assert pool.run("systemctl show -P MainPID quorcachepinfiled") != service
    assert pool.ask("ls /tmp/wrong 2>/dev/null") == ""
    pool.healthy("upgrade with everything running", before)
    pool.reboot()
    pool.healthy("reboot after it", before)


def test_after_a_purge_the_volume_is_as_it_was(pool):
    pool.run("dpkg -P quorcachepinfiled quorcachepinctl quorsoftcache libquor-platform-linux")
    assert pool.ask("wc -c </mnt/pool/db/a") == "5000000"  # it is served until it is unmounted
    assert pool.ask("ls /etc/quorcachetab /var/lib/quorcachepinfiled /lib/systemd/system/quor* "
                    "/lib/udev/rules.d/*quor* 2>/dev/null") == ""
    pool.run("sed -i 's|^/dev/quorcache/pool|/dev/disk/by-id/ata-DISK|' /etc/fstab")
    pool.reboot()
    assert pool.ask("systemctl --failed --no-legend --plain; ls /tmp/quorcachepinfiletool.debug 2>/dev/null") == ""
    assert pool.ask("wc -c </mnt/pool/db/a") == "5000000"
    assert pool.run("findmnt -n -o FSTYPE /mnt/pool").strip() == "ext4"
