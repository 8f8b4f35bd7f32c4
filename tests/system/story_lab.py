# SPDX-License-Identifier: MIT
"""What every story leans on: the log is whole when it is judged, and its lines lead to their statements."""
import re
import socket
import types

from lab import journal, standing, statements
from lab.daemon import STARTING


def send(*texts):
    with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as endpoint:
        endpoint.connect(journal.SOCKET)
        for text in texts:
            endpoint.send(f"<11>Nov 21 03:24:00 somebody: {text}".encode())


def test_what_was_sent_before_is_there():
    for turn in range(200):
        begin = journal.position()
        texts = [f"{turn} {number}" for number in range(5)]
        send(*texts)
        assert [record.text for record in journal.records(begin)] == texts


def test_what_was_sent_before_belongs_to_the_one_before():
    for turn in range(200):
        send("late")
        begin = journal.position()
        send(f"{turn}")
        assert [record.text for record in journal.records(begin)] == [f"{turn}"]


def pattern(statement):
    """What the statement's texts look like, from the first literal in it."""
    if statement.text in ("LogEnter();", "LogLeave();"):
        return r"\+{5}" if statement.text == "LogEnter();" else "-{5}"
    literals = re.search(r'"(?:[^"\\]|\\.)*"(?:\s*"(?:[^"\\]|\\.)*")*', statement.text)[0]
    shown = re.sub(r'"\s*"', "", literals)[1:-1].replace('\\"', '"').replace("\\n", "\n")
    shown = shown.removeprefix("%s:%d ")  # the start-up line writes its place itself
    return ".*".join(map(re.escape, re.split(r"%[-#0 ]*\d*(?:\.\d+)?(?:ll|z|l)?[a-z]", shown)))


def test_every_log_line_leads_to_its_statement(stage):
    volume = stage.volume()
    path = volume.write("a", 100_000)
    daemon, queue = stage.daemon(flags=("--debug",)), stage.queue()
    queue.pin(volume.mount_path, [path])
    daemon.until_done("pinFiles")
    queue.unpin(volume.mount_path, [path])
    daemon.until_done("unpinFiles")

    known, seen = statements.every(), set()
    for text in daemon.logged("quorcachepinfile"):  # the platform's libraries log, too
        found = statements.behind(text, known)
        assert len(found) == 1, text
        assert re.fullmatch(rf"[\w.]+:\d+ (.* : (\*+ )?)?{pattern(found[0])}", text, re.S), (text, found[0])
        seen.add(found[0])
    assert len(seen) > 80 and {one.source for one in seen} == {"quorcachepinfiled.cpp", "quorcachepinfileutil.cpp"}


def test_what_who_played_with_it_did_is_no_complaint_when_it_is_taken_down(stage, monkeypatch, capsys):
    volume = stage.volume()
    daemon, queue = stage.daemon(STARTING, flags=()), stage.queue()
    monkeypatch.setattr(standing, "_ERRORS", "/tmp/errors")
    queue.pin(volume.mount_path, [volume.path("nothing")])
    daemon.wait_for("Can't add request to config")
    standing.strike(types.SimpleNamespace(daemon=daemon, end=lambda: (daemon.stop(), 0)))
    with open("/tmp/errors", encoding="utf-8") as file:
        assert [line.rstrip("\n") for line in file] == daemon.errors() != []
    assert capsys.readouterr() == ("", "")
