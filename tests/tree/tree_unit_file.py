# SPDX-License-Identifier: MIT
"""What the packaged unit says about the service's end, as systemd reads it."""
import os
import re
import shutil
import subprocess

import pytest

from lab import namespaces, sandbox


def settings():
    """The unit's settings; where one is given again, the last."""
    with open(sandbox.UNIT, encoding="utf-8") as file:
        return dict(re.findall(r"^(\w+)=(.*)$", file.read(), re.M))


def test_every_end_is_followed_by_a_start_and_a_few_only():
    found = settings()
    # With both threads ended the exit status is 0: on-failure would leave it at that.
    assert found["Restart"] == "always"
    # Each start beside an unreadable store costs one message, so they must be few; and far enough
    # apart to count when it takes a while until the message comes.
    assert (found["StartLimitIntervalSec"], found["StartLimitBurst"]) == ("5min", "5")


def test_a_copy_of_the_list_is_kept_before_the_start_and_never_hinders_it():
    with open(sandbox.UNIT, encoding="utf-8") as file:
        before = re.findall(r"^ExecStartPre=(.*)$", file.read(), re.M)
    # Before the repair, which writes the list.
    assert before[0].startswith("-/usr/bin/quorcachepinctl keep-copy --config-path ")
    assert before[0].rpartition(" ")[2] == settings()["ExecStart"].rpartition(" ")[2]


def test_an_end_is_waited_for_five_seconds():
    assert settings()["TimeoutStopSec"] == "5s"


@pytest.mark.parametrize("name", ["quorcachepin-apply.service", "quorcachepin-apply.timer"])
def test_systemd_has_nothing_to_say_about_the_units_of_apply(tmp_path, name):
    if not shutil.which("systemd-analyze"):
        pytest.skip("no systemd-analyze")
    for one in ("quorcachepin-apply.service", "quorcachepin-apply.timer"):
        with open(os.path.join(os.path.dirname(sandbox.UNIT), f"quorcachepinctl.{one}"), encoding="utf-8") as file:
            text = file.read().replace("/usr/bin/quorcachepinctl", namespaces.program("quorcachepinctl"))
        (tmp_path / one).write_text(re.sub("^Documentation=.*$", "", text, flags=re.M), encoding="utf-8")
    done = subprocess.run(["systemd-analyze", "verify", "--recursive-errors=no", str(tmp_path / name)],
                          capture_output=True, text=True, check=False,
                          env={**os.environ, "LANG": "C", "SYSTEMD_UNIT_PATH": f"{tmp_path}:"})
    assert (done.returncode, done.stderr) == (0, "")


def test_systemd_has_nothing_to_say_about_it(tmp_path):
    if not shutil.which("systemd-analyze"):
        pytest.skip("no systemd-analyze")
    unit = tmp_path / "quorcachepinfiled.service"
    with open(sandbox.UNIT, encoding="utf-8") as file:
        text = file.read()
    for name in "/usr/sbin/quorcachepinfiled", "/usr/bin/quorcachepinctl":
        text = text.replace(name, namespaces.program(os.path.basename(name)))
    unit.write_text(text.replace("Documentation=man:quorcachepinfiled(8)\n", ""), encoding="utf-8")
    done = subprocess.run(["systemd-analyze", "verify", "--recursive-errors=no", str(unit)],
                          capture_output=True, text=True, check=False, env={**os.environ, "LANG": "C"})
    assert (done.returncode, done.stderr) == (0, "")
