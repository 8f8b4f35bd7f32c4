# SPDX-License-Identifier: MIT
"""A service of which a thread has ended: systemd calls it active, the health timer does not."""
import json
import re

from conftest import TREE
from machine import until

MALFORMED = ("""perl -e 'open(K, "/run/quorcachepinfile-msg-server.key"); $id = msgget(int(<K>), 0); """
             """msgsnd($id, pack("l! l x1536", 1, 6), 0) or die $!'""")  # a reload of no volume


def records(pool):
    """The journal's records of the health check, found as a program finds them."""
    with open(f"{TREE}/docs/man/quorcachepinctl.1.scd", encoding="utf-8") as file:
        message = re.search(r"MESSAGE_ID=([0-9a-f]{32})\b", file.read())[0]
    return [json.loads(line) for line in
            pool.ask(f"journalctl -q -o json --no-pager {message}").splitlines()]


def process(pool):
    return pool.ask("systemctl show -P MainPID quorcachepinfiled")


def test_an_ended_intake_is_said_in_one_record_and_the_service_started_again(pool):
    before, first = pool.facts(), process(pool)
    assert pool.ask("systemctl is-active quorcachepin-health.timer quorcachepin-apply.timer").split() == ["active"] * 2
    assert pool.ask("systemctl is-active quorcachepin-metrics.timer") == "inactive"
    pool.run("echo HEALTH_OPTIONS=--restart >/etc/default/quorcachepinfiled")
    pool.run(MALFORMED)
    until(lambda: process(pool) not in ("0", first), "it is started again")
    found = records(pool)
    assert [(one["OBJECT_PID"], one["QUORCACHEPIN_INTAKE_ALIVE"], one["QUORCACHEPIN_WORKER_ALIVE"])
            for one in found] == [(first, "no", "yes")]
    assert found[0]["MESSAGE"] == (f"quorcachepinctl: the service (process {first}) takes no more requests: its "
                                   "intake has ended; it is started again")
    # It is among what the service's own unit said, and the only line of the health unit.
    assert found[0]["MESSAGE"] in pool.ask("journalctl -q --no-pager -o cat -u quorcachepinfiled")
    assert found[0]["_SYSTEMD_UNIT"] == "quorcachepin-health.service"
    assert len(pool.ask("journalctl -q --no-pager -o cat -u quorcachepin-health.service").splitlines()) == 1
    until(lambda: pool.ask("systemctl is-active quorcachepinfiled") == "active", "it is up")
    pool.healthy("intake ended, restarted by the health check", before)


def test_an_ended_worker_is_said_and_left_alone_unless_configured(pool):
    before, first = pool.facts(), process(pool)
    store = "/var/lib/quorcachepinfiled/quorcachepinfile.conf"
    pool.run(f"cp {store} /root/store && sed -i 's/\"requestQueue\" : null/\"requestQueue\" : [\"9\"]/' {store}")
    assert pool.ask(f"grep -c '\"9\"' {store}") == "1"
    pool.run("quorcachepinctl reload /mnt/pool")
    found = until(lambda: records(pool), "it is said")
    assert (found[0]["QUORCACHEPIN_INTAKE_ALIVE"], found[0]["QUORCACHEPIN_WORKER_ALIVE"]) == ("yes", "no")
    assert "its worker has ended" in found[0]["MESSAGE"] and "started again" not in found[0]["MESSAGE"]
    assert process(pool) == first
    assert pool.ask("systemctl --failed --no-legend --plain") == ""
    # One that was stopped is not talked about.
    pool.run("systemctl stop quorcachepinfiled")
    said = len(records(pool))
    pool.run("systemctl start quorcachepin-health")
    assert len(records(pool)) == said
    pool.run(f"cp /root/store {store} && systemctl start quorcachepinfiled")
    pool.healthy("worker ended, store mended by hand", before)


def test_numbers_are_written_for_who_collects_them(pool):
    prom = "/var/lib/prometheus/node-exporter/quorcachepin.prom"
    pool.run("systemctl start quorcachepin-metrics")
    assert pool.ask(f"ls {prom} 2>&1; systemctl --failed --no-legend --plain").endswith("No such file or directory")
    pool.run(f"mkdir -p $(dirname {prom}) && systemctl enable --now quorcachepin-metrics.timer")
    text = until(lambda: pool.ask(f"cat {prom} 2>/dev/null"), "they are written")
    assert 'quorcachepin_pinned_files{volume="/mnt/pool"} 2' in text.splitlines()
    assert "quorcachepin_worker_alive 1" in text.splitlines()
    assert pool.ask(f"stat -c %a {prom}") == "644"
    pool.run("dpkg -P quorcachepinfiled quorcachepinctl")
    assert pool.ask(f"ls {prom} 2>/dev/null") == ""
