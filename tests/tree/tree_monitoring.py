# SPDX-License-Identifier: MIT
"""The alert rules, the dashboard, and the units that write numbers and ask after the service's health."""
import json
import os
import re
import shutil
import subprocess

import pytest

from lab import namespaces

MONITORING = os.path.join(namespaces.ROOT, "packaging/monitoring")
RULES = os.path.join(MONITORING, "quorcachepin.rules.yml")
DASHBOARD = os.path.join(MONITORING, "quorcachepin-dashboard.json")


def text_of(*path):
    with open(os.path.join(namespaces.ROOT, *path), encoding="utf-8") as file:
        return file.read()


def promtool(*arguments):
    if not shutil.which("promtool"):
        pytest.skip("no promtool: apt-get install prometheus")
    done = subprocess.run(["promtool", *arguments], capture_output=True, text=True, check=False)
    assert done.returncode == 0, done.stdout + done.stderr
    return done.stdout


def test_the_rules_are_rules():
    found = promtool("check", "rules", RULES)
    assert f"{text_of(RULES).count('- alert: ')} rules found" in found


def test_each_rule_fires_when_it_should_and_none_when_all_is_well(tmp_path):
    for path in RULES, os.path.join(namespaces.ROOT, "tests/tree/quorcachepin.rules.test.yml"):
        shutil.copy(path, tmp_path)
    promtool("test", "rules", str(tmp_path / "quorcachepin.rules.test.yml"))
    tried = text_of("tests/tree/quorcachepin.rules.test.yml")
    assert [name for name in re.findall(r"- alert: (\w+)", text_of(RULES)) if f'"{name}"' not in tried] == []


def test_rules_dashboard_and_manual_name_what_the_command_prints():
    printed = set(re.findall(r'"(quorcachepin_\w+)"', text_of("client/verbs/metrics_verb.cpp")))
    assert len(printed) > 25
    named = set(re.findall(r"quorcachepin_\w+", text_of(RULES) + text_of(DASHBOARD)))
    assert named - printed == set()
    # Whatever is printed is shown, but for what is there to join with.
    assert printed - named == {"quorcachepin_build_info"}
    manual = text_of("docs/man/quorcachepinctl.1.scd").split("\n# METRICS\n")[1].split("\n# ")[0]
    described = {"quorcachepin_" + name for name in re.findall(r"_([a-z][a-z_]*[a-z])_", manual)}
    assert printed - described == set()


def test_the_dashboard_has_a_place_and_a_number_for_each_panel():
    with open(DASHBOARD, encoding="utf-8") as file:
        dashboard = json.load(file)
    panels = dashboard["panels"]
    assert len({panel["id"] for panel in panels}) == len(panels) > 10
    taken = set()
    for panel in panels:
        place = panel["gridPos"]
        cells = {(x, y) for x in range(place["x"], place["x"] + place["w"])
                 for y in range(place["y"], place["y"] + place["h"])}
        assert place["x"] + place["w"] <= 24 and not cells & taken, panel["title"]
        taken |= cells
        assert panel["targets"] and all(target["expr"] for target in panel["targets"])


@pytest.mark.parametrize("package, name", [("quorcachepinctl", "quorcachepin-metrics"),
                                           ("quorcachepinfiled", "quorcachepin-health")])
def test_systemd_has_nothing_to_say_about_the_units(tmp_path, package, name):
    if not shutil.which("systemd-analyze"):
        pytest.skip("no systemd-analyze")
    for kind in "service", "timer":
        text = text_of("packaging/debian", f"{package}.{name}.{kind}")
        text = text.replace("/usr/bin/quorcachepinctl", namespaces.program("quorcachepinctl"))
        (tmp_path / f"{name}.{kind}").write_text(re.sub("^Documentation=.*$", "", text, flags=re.M),
                                                 encoding="utf-8")
    for kind in "service", "timer":
        done = subprocess.run(["systemd-analyze", "verify", "--recursive-errors=no", str(tmp_path / f"{name}.{kind}")],
                              capture_output=True, text=True, check=False,
                              env={**os.environ, "LANG": "C", "SYSTEMD_UNIT_PATH": f"{tmp_path}:"})
        assert (done.returncode, done.stderr) == (0, "")


def test_every_timer_is_packaged():
    rules = text_of("packaging/debian/rules")
    assert rules.count("\noverride_dh_installsystemd:") == 1  # make takes the last of two
    timers = [name.split(".")[1] for name in os.listdir(os.path.join(namespaces.ROOT, "packaging/debian"))
              if name.endswith(".timer")]
    assert sorted(timers) == ["quorcachepin-apply", "quorcachepin-health", "quorcachepin-metrics"]
    for name in timers:
        assert f"--name={name} " in rules
