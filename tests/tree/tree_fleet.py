# SPDX-License-Identifier: MIT
"""The play of docs/fleet.md is one, and what it says of the command is so."""
import os
import re
import subprocess

from lab import namespaces

DOCUMENT = os.path.join(namespaces.ROOT, "docs/fleet.md")


def text():
    with open(DOCUMENT, encoding="utf-8") as file:
        return file.read()


def test_the_plays_syntax(tmp_path):
    plays = re.findall(r"^```yaml\n(.*?)^```$", text(), re.M | re.S)
    assert len(plays) == 1
    play = tmp_path / "play.yml"
    play.write_text(plays[0], encoding="utf-8")
    done = subprocess.run(
        ["ansible-playbook", "--syntax-check", "-i", "localhost,", str(play)], cwd=tmp_path,
        capture_output=True, text=True, check=False,
        env={**os.environ, "LC_ALL": "C.UTF-8", "HOME": str(tmp_path), "ANSIBLE_NOCOLOR": "1"})
    assert done.returncode == 0, done.stdout + done.stderr


def test_its_members_are_those_of_the_manual():
    with open(os.path.join(namespaces.ROOT, "docs/man/quorcachepinctl.1.scd"), encoding="utf-8") as file:
        manual = file.read()
    table = re.findall(r"^\|[^|]*\|([^|]*)\|", text(), re.M)
    members = {word for cell in table[2:] for quoted in re.findall(r"`([^`]+)`", cell)
               for word in re.findall(r"\w+", quoted)}
    assert len(members) > 12
    assert [word for word in sorted(members) if f"_{word}_" not in manual] == []
