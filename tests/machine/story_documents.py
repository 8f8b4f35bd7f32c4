# SPDX-License-Identifier: MIT
"""Every command of docs/operations.md and docs/fleet.md, as it stands there and in that order."""
import re

from conftest import follow, set_up, text_of, write_files
from machine import until


def commands_within(text):
    """The commands that stand within sentences and tables, none twice."""
    code = re.findall(r"`((?:quorcachepinctl|quorsoftcache|systemctl|journalctl) [^`]+)`", text)
    return list(dict.fromkeys(" ".join(one.split()) for one in code))


def lose_a_volume(m):
    """Gives the machine a volume /mnt/old with a pinned file and takes it away for good."""
    m.run("truncate -s 64M /var/old.disk; truncate -s 16M /var/old.ssd")
    set_up(m, "old", "/var/old.disk", "/var/old.ssd", {"f": 500_000})
    m.run("systemctl stop quorsoftcache@old")
    m.run("sed -i '/quorcache.old/d' /etc/fstab; sed -i '/^old/d' /etc/quorcachetab; systemctl daemon-reload")
    m.run("rm /var/old.*; systemctl start quorcachepinfiled")
    assert "/mnt/old is not mounted (1 pinned file" in m.ask("quorcachepinctl ready")
    assert m.ask("systemctl is-active quorcachepinfiled") == "inactive"
    m.pinned -= {"/mnt/old/f"}


def test_operations(pool):
    before = pool.facts()
    text = text_of("docs/operations.md")
    followed = 0
    for part in text.split("\n## ")[1:]:
        heading = part.split("\n", 1)[0]
        if heading == "A volume that was replaced, or is gone for good":
            lose_a_volume(pool)
        if "\n    # " in part:
            followed += follow(pool, "docs/operations.md", heading)
            until(lambda: pool.ask("systemctl is-active quorcachepinfiled") == "active", "the service runs")
    commands = re.findall(r"^    # (.*)", text, re.M)
    assert followed == len(commands) > 20
    # What a sentence names was run as well.
    assert [one for one in commands_within(text) if one not in commands] == []
    pool.healthy("the commands of docs/operations.md", before)


def test_fleet(pool):
    before = pool.facts()
    text = text_of("docs/fleet.md")
    play = re.search(r"^```yaml\n.*?^```$", text, re.M | re.S)[0]
    # The play's own command, those on lines of their own, those within sentences and tables.
    commands = re.findall(r"ansible.builtin.command: (.*)", play)
    commands += re.findall(r"^    (\w.*)", text.replace(play, ""), re.M) + commands_within(text)
    assert len(commands) > 7
    write_files(pool, "/mnt/pool/reports", {"r": 300_000})
    lines = "/mnt/pool/db\n/mnt/pool/reports\n"
    pool.put("/etc/quorcachepin.d/db.conf", lines)
    pool.put("/tmp/new.d/db.conf", lines)
    for command in commands:
        pool.run(command)
        # What the first one asks for.
        until(lambda: "/mnt/pool/reports/r" in pool.listed(), "the file of the new line is pinned")
        pool.until_warm()
    pool.pinned |= {"/mnt/pool/reports/r"}
    pool.healthy("the commands of docs/fleet.md", before)
