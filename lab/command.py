# SPDX-License-Identifier: MIT
"""quorcachepinctl as an operator runs it: its exit status, its results, its talk."""
import json
import os
import pty
import subprocess
from typing import NamedTuple

from lab import namespaces, processes


class Result(NamedTuple):
    status: int   # 0 done, 1 partly, 2 usage, 3 no service, 4 timed out, 5 refused
    output: str   # standard output
    talk: str     # standard error

    def lines(self):
        return self.output.splitlines()

    def report(self):
        """The document that --json printed."""
        return json.loads(self.output)


def arguments(*words):
    return [namespaces.program("quorcachepinctl"), *words]


def start(*words, **options):
    """Starts it with both streams in pipes; `finish` waits for it."""
    os.makedirs(processes.OUTPUT, exist_ok=True)
    return subprocess.Popen(arguments(*words), stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                            stdin=subprocess.PIPE, text=True, errors="surrogateescape", **options)


def finish(process, given=None):
    output, talk = process.communicate(given)
    return Result(process.returncode, output, talk)


def run(*words, given=None):
    """Runs it to its end. given: text for its standard input."""
    return finish(start(*words), given)


def done(*words, given=None):
    """Runs it and demands exit status 0; returns its standard output's lines."""
    result = run(*words, given=given)
    assert result.status == 0, result
    return result.lines()


def report(*words, status=0, given=None):
    """Runs it with --json and demands an exit status; returns the document."""
    result = run(*words, "--json", given=given)
    assert result.status == status, result
    found = result.report()
    assert (found["schema"], found["verb"], found["exitStatus"]) == (1, words[0], status)
    return found


def on_terminal(*words, columns=80, until=None):
    """Runs it with a terminal for its three streams, until it ends, or by Ctrl-C once it has written `until`;
    returns (exit status, what it wrote there)."""
    environment = {**os.environ, "TERM": "xterm", "LANG": "C.UTF-8", "COLUMNS": str(columns)}
    environment.pop("NO_COLOR", None)
    child, terminal = pty.fork()
    if child == 0:
        os.execve(arguments()[0], arguments(*words), environment)
    written = b""
    while True:
        try:
            piece = os.read(terminal, 65536)
        except OSError:  # what a terminal answers when nobody has it open any more
            break
        if not piece:
            break
        written += piece
        if until and until.encode() in written:
            os.write(terminal, b"\x03")
            until = None
    status = os.waitstatus_to_exitcode(os.waitpid(child, 0)[1])
    os.close(terminal)
    return status, written.decode(errors="replace")
