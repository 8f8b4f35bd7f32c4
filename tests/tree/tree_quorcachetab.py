# SPDX-License-Identifier: MIT
"""What the generator makes of the table of caches, and systemd of what it makes."""
import os
import shutil
import subprocess

import pytest

from lab import namespaces

BOOT = os.path.join(namespaces.ROOT, "packaging/boot")
SERVICE = "quorcachepinfiled.service"


@pytest.fixture
def generate(tmp_path):
    """Runs the generator on a table and an fstab; returns {file: text or link target}, and what it said."""
    if not shutil.which("systemd-escape"):
        pytest.skip("no systemd-escape")

    def run(table, fstab="", enabled=True):
        root, out = tmp_path / "root", tmp_path / "out"
        wants = root / "etc/systemd/system/multi-user.target.wants"
        shutil.rmtree(root, ignore_errors=True)
        shutil.rmtree(out, ignore_errors=True)
        wants.mkdir(parents=True)
        out.mkdir()
        if enabled:
            (wants / SERVICE).touch()
        (root / "etc/quorcachetab").write_text(table)
        (root / "etc/fstab").write_text(fstab)
        done = subprocess.run([f"{BOOT}/quorcachetab-generator", str(out), str(out), str(out)], text=True,
                              capture_output=True, check=True, env={**os.environ, "QUORCACHETAB_ROOT": str(root)})
        made = {str(path.relative_to(out)): os.readlink(path) if path.is_symlink() else path.read_text()
                for path in out.rglob("*") if path.is_symlink() or path.is_file()}
        return made, done.stderr
    return run


def test_a_line_becomes_a_service_that_is_ordered_like_an_encrypted_volume(generate):
    made, said = generate("# caches\n\npool UUID=ab-1 /dev/disk/by-id/nvme-x\n")
    assert said == ""
    conf = made["quorsoftcache@pool.service.d/50-quorcachetab.conf"]
    assert "Requires=dev-disk-by\\x2duuid-ab\\x2d1.device\nAfter=dev-disk-by\\x2duuid-ab\\x2d1.device\n" in conf
    assert "Requires=dev-disk-by\\x2did-nvme\\x2dx.device\n" in conf
    assert "Before=blockdev@dev-quorcache-pool.target\n" in conf and "Before=local-fs.target\n" in conf
    assert ("ExecStart=\nExecStart=/usr/bin/quorsoftcache --name %i --device --backing UUID=ab-1 "
            "--ssd /dev/disk/by-id/nvme-x\n") in conf
    assert conf.endswith(f"ExecStartPost=-/bin/systemctl reset-failed {SERVICE}\n")
    template = "/lib/systemd/system/quorsoftcache@.service"
    assert made["dev-quorcache-pool.device.requires/quorsoftcache@pool.service"] == template
    assert made["local-fs.target.wants/quorsoftcache@pool.service"] == template
    assert made["run-quorsoftcache-mount-pool.mount.d/50-quorcachetab.conf"] == "[Unit]\nDefaultDependencies=no\n"
    assert "PartOf=quorsoftcache@pool.service\n" in made[f"{SERVICE}.d/50-quorcachetab-pool.conf"]


def test_options(generate):
    made, said = generate("a /a /b size=20G,nofail\nb /a2 /b2 noauto\nc /a3 /b3 -\nd /a4 /b4 defaults,size=65536\n")
    assert said == ""
    assert "--ssd /b --ssd-size 20G\n" in made["quorsoftcache@a.service.d/50-quorcachetab.conf"]
    assert "Before=local-fs.target" not in made["quorsoftcache@a.service.d/50-quorcachetab.conf"]
    assert "RequiresMountsFor=/a\nRequiresMountsFor=/b\n" in made["quorsoftcache@a.service.d/50-quorcachetab.conf"]
    assert "local-fs.target.wants/quorsoftcache@b.service" not in made
    assert "dev-quorcache-b.device.requires/quorsoftcache@b.service" in made
    assert "local-fs.target.wants/quorsoftcache@c.service" in made
    assert "--ssd-size 65536\n" in made["quorsoftcache@d.service.d/50-quorcachetab.conf"]


def test_a_link_that_may_lead_to_the_cached_device_is_looked_up_by_what_it_says(generate):
    made, _ = generate("p /dev/disk/by-uuid/12 /dev/disk/by-label/fast\n")
    conf = made["quorsoftcache@p.service.d/50-quorcachetab.conf"]
    assert "--backing UUID=12 --ssd LABEL=fast\n" in conf and "dev-disk-by\\x2dlabel-fast.device" in conf


@pytest.mark.parametrize("line, why", [
    ("p /a", "a line has a name, a backing and an SSD"),
    ("-p /a /b", "a name has letters"),
    ("p/q /a /b", "a name has letters"),
    ("p /a /b - more", "more than four fields"),
    ("p a /b", "a is neither an absolute path nor UUID="),
    ("p UUID= /b", "UUID= is neither"),
    ("p /a%i /b", "a character that cannot stand here"),
    ("p /a$(reboot) /b", "a character that cannot stand here"),
    ("p /a /b size=12X", "options size=12X"),
    ("p /a /b ro", "options ro"),
    ("x" * 65 + " /a /b", "64 characters at most")])
def test_a_bad_line_is_named_and_costs_no_other(generate, line, why):
    made, said = generate(f"{line}\ngood /a /b\ngood /c /d\n")
    assert why in said and "good: there is such a cache already" in said and said.count("\n") == 2
    assert "local-fs.target.wants/quorsoftcache@good.service" in made
    assert not [name for name in made if "p.service" in name or "xxx" in name]


def test_mounts_of_the_volume_or_its_backing_go_through_the_cache(generate):
    fstab = ("/dev/quorcache/my-pool /mnt/a ext4 defaults 0 2\nUUID=ab-1 /mnt/my\\040pool ext4 defaults 0 2\n"
             "/dev/disk/by-uuid/ab-1 /mnt/c ext4 ro,noauto 0 2\nUUID=other /mnt/d ext4 defaults 0 2\n"
             "# UUID=ab-1 /mnt/e ext4\nUUID=ab-1 none swap\n")
    made, said = generate("my-pool UUID=ab-1 /ssd\n", fstab)
    assert said == ""
    mounts = {name for name in made if name.startswith("mnt-")}
    assert mounts == {f"mnt-{name}.mount.d/50-quorcachetab.conf" for name in ("a", "my\\x20pool", "c")}
    for name in mounts:
        assert "What=/dev/quorcache/my-pool\n" in made[name] and f"Wants={SERVICE}\n" in made[name]
        assert "Requires=quorsoftcache@my-pool.service\nAfter=quorsoftcache@my-pool.service\n" in made[name]
    started = made["quorsoftcache@my-pool.service.d/60-mnt-my\\x20pool.mount.conf"]
    assert started == "[Service]\nExecStartPost=-/bin/systemctl --no-block start mnt-my\\\\x20pool.mount\n"
    assert "quorsoftcache@my-pool.service.d/60-mnt-c.mount.conf" not in made
    check = made["systemd-fsck@dev-disk-by\\x2duuid-ab\\x2d1.service.d/50-quorcachetab.conf"]
    assert check.endswith("ExecStart=\nExecStart=/lib/systemd/systemd-fsck /dev/quorcache/my-pool\n")
    assert "dev-quorcache-my\\x2dpool.device.requires/quorsoftcache@my-pool.service" in made


def test_a_disabled_service_is_not_brought_by_its_volumes(generate):
    made, _ = generate("p /a /b\n", "/dev/quorcache/p /mnt/p ext4 defaults 0 2\n", enabled=False)
    assert "Wants=" not in made["mnt-p.mount.d/50-quorcachetab.conf"]


def test_without_a_table_nothing_is_made(tmp_path):
    done = subprocess.run([f"{BOOT}/quorcachetab-generator", str(tmp_path)], text=True, capture_output=True,
                          check=False, env={**os.environ, "QUORCACHETAB_ROOT": "/nonexistent"})
    assert (done.returncode, done.stdout, done.stderr, os.listdir(tmp_path)) == (0, "", "", [])
