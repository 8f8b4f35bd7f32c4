# SPDX-License-Identifier: MIT
"""Reboots of all kinds: what was asked for is done, what was pinned is pinned."""
import time

from conftest import write_files
from machine import until

COMPLAINTS = ("Failed to unmount", "Failed unmounting", "target is busy", "fuse:", "Transport endpoint",
              "Found ordering cycle", "Timed out waiting for device", "I/O error", "Dependency failed",
              "was changed since the cache stopped")


def clean(log):
    """Nothing that concerns the cache went wrong on the way down."""
    wrong = [line for line in log.splitlines() if any(text in line for text in COMPLAINTS)]
    assert not wrong, "\n".join(wrong)


def test_two_reboots_in_order(pool):
    before = pool.facts()
    for _ in range(2):
        pool.reboot()
        clean(pool.log(-1) + pool.log())
        pool.healthy("reboot in order", before)
    pool.off()
    clean(pool.console())


def test_requests_that_were_queued_are_done_after_the_boot(pool):
    before = pool.facts()
    write_files(pool, "/mnt/pool/more", {"c": 2_000_000, "d": 1_000_000})
    # Left alone, as when the power goes while the service is at work on others.
    pool.run("quorcachepinctl pend /mnt/pool && quorcachepinctl pin -r /mnt/pool/more")
    pool.run("quorcachepinctl unpin /mnt/pool/db/b")
    queued = len(pool.json("status")["requests"])
    assert queued >= 2
    pool.reboot()
    pool.pinned = {"/mnt/pool/db/a", "/mnt/pool/more/c", "/mnt/pool/more/d"}
    pool.healthy(f"reboot with {queued} requests queued", before)


def test_the_power_goes_while_requests_are_queued(pool):
    before = pool.facts()
    write_files(pool, "/mnt/pool/more", {"c": 2_000_000, "d": 1_000_000})
    pool.run("quorcachepinctl pend /mnt/pool && quorcachepinctl pin -r /mnt/pool/more")
    pool.run("quorcachepinctl unpin /mnt/pool/db/b")
    until(lambda: len(pool.json("status")["requests"]) >= 2 and
          pool.ask("ipcs -q | awk '$6 > 0 && $2 ~ /[0-9]/'") == "", "what was asked for is stored")
    queued = len(pool.json("status")["requests"])
    pool.cut()
    pool.boot()
    pool.pinned = {"/mnt/pool/db/a", "/mnt/pool/more/c", "/mnt/pool/more/d"}
    pool.healthy(f"power cut with {queued} requests queued", before)


def test_the_power_goes_under_load(pool):
    before = pool.facts()
    pool.run("mkdir /mnt/pool/load; (while :; do head -c 3000000 /dev/urandom >/mnt/pool/load/$$; "
             "cat /mnt/pool/load/* /mnt/pool/db/* >/dev/null; done) >/dev/null 2>&1 &")
    time.sleep(2)
    pool.cut()
    pool.boot()
    pool.healthy("power cut under load", before)
    assert pool.ask("cat /mnt/pool/db/a | wc -c") == "5000000"


def test_a_reboot_under_load(pool):
    before = pool.facts()
    pool.run("mkdir /mnt/pool/load; (while :; do head -c 3000000 /dev/urandom >/mnt/pool/load/$$; "
             "cat /mnt/pool/load/* >/dev/null; done) >/dev/null 2>&1 &")
    time.sleep(1)
    pool.reboot()
    clean(pool.log(-1) + pool.log())
    pool.healthy("reboot under load", before)


def test_a_volume_named_by_uuid_is_mounted_and_checked_through_its_cache(pool):
    before = pool.facts()
    uuid = pool.run("blkid -s UUID -o value /dev/quorcache/pool").strip()
    pool.run(f"sed -i 's|^/dev/quorcache/pool|UUID={uuid}|' /etc/fstab; "
             f"sed -i 's|/dev/disk/by-id/ata-DISK|UUID={uuid}|' /etc/quorcachetab")
    for _ in range(2):
        pool.reboot()
        clean(pool.log(-1) + pool.log())
        pool.healthy("volume and backing named by UUID", before)
        source = pool.run("findmnt -n -o MAJ:MIN /mnt/pool").strip()
        assert source == pool.run("lsblk -n -o MAJ:MIN /dev/quorcache/pool").strip()
    assert "/dev/quorcache/pool" in pool.run("systemctl cat systemd-fsck@*by*uuid*.service | tail -n 5")
    # By hand as well; the device manager's link leads to the cached device while that is there.
    pool.run(f"umount /mnt/pool && mount UUID={uuid} /mnt/pool")
    assert pool.run("findmnt -n -o MAJ:MIN /mnt/pool").strip() == pool.run(
        "lsblk -n -o MAJ:MIN /dev/quorcache/pool").strip()
