# SPDX-License-Identifier: MIT
"""A machine without udev, whose systemd knows no devices, as a container is."""
import subprocess

from conftest import Pool
from machine import until


def test_without_udev_the_cache_comes_up_and_the_volume_is_mounted_by_name(prepared):
    m = Pool(udev=False)
    try:
        uuid = subprocess.run(["blkid", "-s", "UUID", "-o", "value", m.disks["ata-DISK"].path], check=True,
                              capture_output=True, text=True).stdout.strip()
        m.put("/etc/quorcachetab", f"pool UUID={uuid} {m.disks['nvme-SSD'].node}\n")
        m.boot()
        assert m.ask("systemctl is-active systemd-udevd") == "inactive"
        assert m.ask("systemctl is-active quorsoftcache@pool quorcachepinfiled").split() == ["active", "inactive"]
        before = (2, 123, 123)
        m.run("mount /mnt/pool")
        until(lambda: m.ask("systemctl is-active quorcachepinfiled") == "active", "the volume brings the service")
        m.healthy("without udev, mounted by name", before)
        m.off()
    finally:
        m.remove()
