# SPDX-License-Identifier: MIT
"""quorcachepinctl health: what it says on a terminal, and in the journal when a unit runs it."""
import os
import re
import socket
import subprocess

from lab import command, journal, namespaces, queue as queues


def the_id():
    with open(os.path.join(namespaces.ROOT, "docs/man/quorcachepinctl.1.scd"), encoding="utf-8") as file:
        return re.search(r"MESSAGE_ID=([0-9a-f]{32})\b", file.read())[1]


def records_of(*words):
    """Runs the command as a unit does, its errors going to the journal; returns (status, errors, records)."""
    directory = "/run/systemd/journal"
    os.makedirs(directory, exist_ok=True)
    with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as endpoint, open("/tmp/errors", "w+b") as errors:
        endpoint.bind(f"{directory}/socket")
        facts = os.fstat(errors.fileno())
        done = subprocess.run(command.arguments(*words), stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                              stderr=errors, check=False,
                              env={**os.environ, "JOURNAL_STREAM": f"{facts.st_dev}:{facts.st_ino}"})
        endpoint.setblocking(False)
        records = []
        try:
            while True:
                lines = endpoint.recv(65536).decode().splitlines()
                records.append(dict(line.split("=", 1) for line in lines))
        except BlockingIOError:
            pass
        os.unlink(f"{directory}/socket")
        errors.seek(0)
        return done.returncode, errors.read().decode(), records


def test_a_service_that_works_is_not_talked_about(stage):
    stage.daemon()
    assert command.done("health") == ["the service takes requests and carries them out"]
    assert records_of("health") == (0, "", [])


def test_an_ended_intake_is_one_record_with_its_fields(stage):
    daemon, queue = stage.daemon(), stage.queue()
    daemon.expect("Space UUID is not set", "Get wrong message format")
    queue.send(queues.RELOAD)
    daemon.wait_for("Get wrong message format")
    journal.until(lambda: command.run("health").status == 3, "the intake has ended")
    text = f"the service (process {daemon.pid}) takes no more requests: its intake has ended"
    assert command.run("health").talk == f"quorcachepinctl: {text}\n"
    status, errors, records = records_of("health")
    assert (status, errors, len(records)) == (3, "", 1)
    wanted = {"MESSAGE": f"quorcachepinctl: {text}", "MESSAGE_ID": the_id(), "PRIORITY": "3",
              "SYSLOG_IDENTIFIER": "quorcachepinctl", "OBJECT_PID": str(daemon.pid), "QUORCACHEPIN_RUNS": "yes",
              "QUORCACHEPIN_INTAKE_ALIVE": "no", "QUORCACHEPIN_WORKER_ALIVE": "yes",
              "QUORCACHEPIN_STANDS_STILL": "no"}
    assert {name: records[0].get(name) for name in wanted} == wanted
    # It is no unit here, so nobody starts it again.
    assert command.run("health", "--restart").talk == (
        f"quorcachepinctl: {text}; it is not quorcachepinfiled.service, and is not started again\n")
    assert daemon.alive()


def test_an_ended_worker_is_told_too(stage):
    daemon, queue = stage.daemon(), stage.queue()
    volume = stage.volume()
    daemon.expect("Can't find request number (9) in config", "Get request error")
    with open(daemon.configuration, "w", encoding="utf-8") as file:
        file.write('{"requestQueue": ["9"], "requests": {}}')
    queue.send(queues.RELOAD, volume.mount_path)
    daemon.wait_for("Get request error")
    journal.until(lambda: command.run("health").status == 3, "the worker has ended")
    _, _, records = records_of("health")
    assert [(record["QUORCACHEPIN_INTAKE_ALIVE"], record["QUORCACHEPIN_WORKER_ALIVE"]) for record in records] == [
        ("yes", "no")]
    assert "its worker has ended" in records[0]["MESSAGE"]
    assert command.report("health", status=3)["restarted"] is False


def test_a_service_that_does_not_run(stage):
    daemon = stage.daemon()
    daemon.stop()
    status, errors, records = records_of("health", "--config-path", daemon.configuration)
    assert (status, errors, len(records)) == (3, "", 1)
    assert records[0]["MESSAGE"] == "quorcachepinctl: the service does not run here"
    assert records[0]["QUORCACHEPIN_RUNS"] == "no" and "OBJECT_PID" not in records[0]
