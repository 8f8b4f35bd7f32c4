# SPDX-License-Identifier: MIT
"""quorcachepinctl metrics, read by promtool and by a Prometheus with the packaged rules and dashboard."""
import fcntl
import http.server
import json
import os
import re
import shutil
import socket
import struct
import subprocess
import threading
import urllib.parse
import urllib.request

import pytest

from lab import command, evidence, journal, libc, namespaces, processes, queue as queues

MONITORING = os.path.join(namespaces.ROOT, "packaging/monitoring")
_CLONE_NEWNET, _SIOCSIFFLAGS, _IFF_UP = 0x40000000, 0x8914, 1
ODD = '/mnt/o"d\\d {ä="1"} 7'


def samples(text):
    """{(name, mount path or None): value} of the text format."""
    found = {}
    for line in text.splitlines():
        if not line.startswith("#"):
            name, label, value = re.fullmatch(r'(\w+)(?:\{\w+="(.*)"\})? (\d+)', line).groups()
            plain = label and label.replace("\\\\", "\0").replace('\\"', '"').replace("\\n", "\n").replace("\0", "\\")
            assert (name, plain) not in found
            found[name, plain] = int(value)
    return found


def measured():
    return samples(command.run("metrics").output)


def test_the_numbers_are_those_of_cache_list_and_queue(stage):
    volume, odd = stage.volume(), stage.volume("odd", mount_path=ODD)
    path = volume.write("a", 500_000)
    odd.write("b", 100_000)
    daemon = stage.daemon()
    command.done("pin", "--wait", path)
    volume.read([path])
    found, stats = measured(), volume.cache.stats()
    units = len(evidence.units([path]))
    mine = {name[len("quorcachepin_"):]: value for (name, of), value in found.items() if of == volume.mount_path}
    assert {name: mine[name] for name in ("volume_mounted", "volume_cached", "pinned_files", "requests_queued",
                                          "pinned_units", "pinned_driver_units", "pinned_resident_units")} == {
        "volume_mounted": 1, "volume_cached": 1, "pinned_files": 1, "requests_queued": 0,
        "pinned_units": units, "pinned_driver_units": units, "pinned_resident_units": units}
    assert stats["hits"] > 0 and stats["misses"] > 0
    for name, counter in {"hits": "hits", "misses": "misses", "bypasses": "bypasses",
                          "ssd_errors": "ssdErrors", "reads": "reads"}.items():
        assert mine[f"cache_{name}_total"] == stats[counter], name
    assert (mine["cache_slots"], mine["cache_retired_slots"]) == (stats["cacheUnits"], stats["retiredUnits"])
    for name in "service_up", "intake_alive", "worker_alive", "store_readable":
        assert found[f"quorcachepin_{name}", None] == 1, name
    assert found["quorcachepin_volume_cached", ODD] == 1 and found["quorcachepin_pinned_units", ODD] == 0

    # A volume that nobody may work on keeps its requests.
    command.done("pend", volume.mount_path)
    command.done("reload", volume.mount_path)
    journal.until(lambda: ("quorcachepin_requests_oldest_number", None) in measured(), "it is queued")
    found = measured()
    assert found["quorcachepin_requests_queued", volume.mount_path] == 1
    number = found["quorcachepin_requests_oldest_number", None]
    assert found["quorcachepin_requests_stored_total", None] == number + 1
    command.done("release", volume.mount_path)
    daemon.until_done("reloadPinBlocks")


def test_a_service_of_which_a_part_has_ended(stage):
    volume = stage.volume()
    daemon, queue = stage.daemon(), stage.queue()
    daemon.expect("Space UUID is not set", "Get wrong message format")
    queue.send(queues.RELOAD)
    daemon.wait_for("Get wrong message format")
    journal.until(lambda: measured()["quorcachepin_intake_alive", None] == 0, "the intake has ended")
    found = measured()
    assert [found[f"quorcachepin_{name}", None] for name in ("service_up", "worker_alive")] == [1, 1]
    daemon.stop()
    found = measured()
    assert [found[f"quorcachepin_{name}", None] for name in ("service_up", "intake_alive", "worker_alive")] == [0] * 3
    assert found["quorcachepin_volume_cached", volume.mount_path] == 1


def test_promtool_has_nothing_to_say(stage):
    if not shutil.which("promtool"):
        pytest.skip("no promtool: apt-get install prometheus")
    volume = stage.volume("odd", mount_path=ODD)
    path = volume.write("a", 500_000)
    stage.daemon()
    command.run("pin", "--wait", path)
    text = command.run("metrics").output
    done = subprocess.run(["promtool", "check", "metrics"], input=text, capture_output=True, text=True, check=False)
    assert (done.returncode, done.stdout, done.stderr) == (0, "", "")


@pytest.fixture
def loopback():
    """A network of this story's own, with a loopback."""
    libc.unshare(_CLONE_NEWNET)
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as any_socket:
        fcntl.ioctl(any_socket, _SIOCSIFFLAGS, struct.pack("16sh14x", b"lo", _IFF_UP))


class Prometheus:
    """A Prometheus that collects a file once a second and knows the packaged rules."""

    ADDRESS = "127.0.0.1:9090"

    def __init__(self, directory, port):
        self.output = f"{directory}/prometheus.out"
        with open(f"{directory}/prometheus.yml", "w", encoding="utf-8") as file:
            json.dump({"global": {"scrape_interval": "1s", "evaluation_interval": "1s"},
                       "rule_files": [f"{MONITORING}/quorcachepin.rules.yml"],
                       "scrape_configs": [{"job_name": "node", "metrics_path": "/quorcachepin.prom",
                                           "static_configs": [{"targets": [f"127.0.0.1:{port}"]}]}]}, file)
        self.process = processes.start(
            ["prometheus", f"--config.file={directory}/prometheus.yml", f"--storage.tsdb.path={directory}/tsdb",
             f"--web.listen-address={self.ADDRESS}"], self.output)

    def ask(self, what, **parameters):
        """The data of an answer of its interface; None while there is none."""
        url = f"http://{self.ADDRESS}/api/v1/{what}?{urllib.parse.urlencode(parameters)}"
        try:
            with urllib.request.urlopen(url, timeout=10) as answer:
                return json.load(answer)["data"]
        except urllib.error.HTTPError as error:
            if error.code != 503:  # it is starting
                raise AssertionError(f"{url}: {error.read().decode()}") from error
        except urllib.error.URLError:
            assert self.process.poll() is None, processes.text_of(self.output)
        return None

    def result(self, expression):
        return (self.ask("query", query=expression) or {"result": []})["result"]

    def until(self, expression, what):
        return journal.until(lambda: self.result(expression), lambda: f"{what}: {processes.text_of(self.output)}")


class Served(http.server.SimpleHTTPRequestHandler):
    def __init__(self, *arguments):
        super().__init__(*arguments, directory="/tmp/served")

    def log_message(self, *_):
        pass


def dashboard_expressions():
    with open(f"{MONITORING}/quorcachepin-dashboard.json", encoding="utf-8") as file:
        panels = json.load(file)["panels"]
    for panel in panels:
        for target in panel["targets"]:
            yield (panel["title"], target["expr"].replace("$__rate_interval", "1m")
                   .replace("$instance", ".*").replace("$volume", ".*"))


def test_a_prometheus_sees_what_rules_and_dashboard_name(stage, loopback):
    if not shutil.which("prometheus"):
        pytest.skip("no Prometheus: apt-get install prometheus")
    volume = stage.volume("odd", mount_path=ODD)
    plain = stage.volume("plain")
    path = plain.write("a", 500_000)
    daemon, queue = stage.daemon(), stage.queue()
    command.done("pin", "--wait", path)
    with open(path, "ab") as file:
        file.write(bytes(300_000))
        file.flush()
        os.fsync(file.fileno())
    command.done("check", "--repair")  # pins what it has grown by
    command.done("keep-copy")
    command.done("pend", plain.mount_path)
    command.done("reload", plain.mount_path)
    journal.until(lambda: command.report("status")["requests"], "the request is stored")
    os.mkdir("/tmp/served")
    assert command.done("metrics", "-o", "/tmp/served/quorcachepin.prom") == []
    server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Served)
    threading.Thread(target=server.serve_forever, daemon=True).start()
    prometheus = Prometheus("/tmp/served", server.server_port)
    try:
        # Twice, so that there are rates.
        prometheus.until("count_over_time(quorcachepin_service_up[1m]) >= 2", "it has collected")
        here = {one["metric"]["__name__"] for one in prometheus.result('{__name__=~"quorcachepin_.*"}')}
        named = set(re.findall(r"quorcachepin_\w+", "".join(
            open(f"{MONITORING}/{name}", encoding="utf-8").read()
            for name in ("quorcachepin.rules.yml", "quorcachepin-dashboard.json"))))
        assert named - here == set() and len(here) > 25
        assert {one["metric"]["volume"] for one in prometheus.result("quorcachepin_volume_mounted")} == {
            ODD, plain.mount_path} and volume.mount_path == ODD
        for title, expression in dashboard_expressions():
            assert prometheus.result(expression), (title, expression)
        rules = journal.until(lambda: [rule for group in (prometheus.ask("rules") or {"groups": []})["groups"]
                                       for rule in group["rules"] if rule["health"] != "unknown"], "rules were asked")
        assert [rule["name"] for rule in rules if rule["health"] != "ok"] == [] and len(rules) == 13
        assert [one["labels"]["alertname"] for one in prometheus.ask("alerts")["alerts"]] == []

        # What goes wrong comes through to the alerts.
        daemon.expect("Space UUID is not set", "Get wrong message format")
        queue.send(queues.RELOAD)
        daemon.wait_for("Get wrong message format")
        journal.until(lambda: measured()["quorcachepin_intake_alive", None] == 0, "the intake has ended")
        command.done("metrics", "-o", "/tmp/served/quorcachepin.prom")
        prometheus.until('ALERTS{alertname="QuorcachepinIntakeStopped",alertstate="pending"}', "the alert is seen")
    finally:
        processes.stop(prometheus.process)
        server.shutdown()
        server.server_close()
