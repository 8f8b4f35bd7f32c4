# SPDX-License-Identifier: MIT
"""The service's log statements, and what each prints as its source and line: `./run where`.

Which source name a file's lines bear, and which base they count from, is read from the commands that
the build compiles it with (build/host/compile_commands.json).
"""
import json
import os
import re
from typing import NamedTuple

from lab import namespaces

ROOMS = ("daemon", "util")
_HEAD = re.compile(r"\b(?:Log(?:Error|Notice|Verbose|Debug|Enter|Leave)|syslog)\(")
_UNREAD = re.compile(r"^[ \t]*(?://|#)(?:\\\n|.)*", re.M)  # comments and macros with a line of their own
_PIECE = re.compile(r'"(?:[^"\\\n]|\\.)*"|//[^\n]*|[()]', re.S)  # what decides where a statement ends
_DEFINED = re.compile(r'-DLOG_(SOURCE|BASE)=(?:\\")?([\w.]+)')
_PLACE = re.compile(r"([\w.]+):(\d+)\b")


class Statement(NamedTuple):
    source: str  # the name that its lines bear, "quorcachepinfiled.cpp"
    base: int    # what its file adds to the number of a line
    path: str    # the file, from the top of the tree
    first: int   # the lines that it stands on; compilers differ in which of them they print
    last: int
    text: str    # the whole statement as it is written

    def prints(self, source, line):
        """Whether this is the statement behind SOURCE:LINE."""
        return source == self.source and self.first <= line - self.base <= self.last


def _end(code, begin):
    """Where the call whose "(" is at `begin` ends."""
    depth = 0
    for piece in _PIECE.finditer(code, begin):
        depth += {"(": 1, ")": -1}.get(piece[0], 0)
        if depth == 0:
            return piece.end()
    raise ValueError(f"no end of {code[begin:begin + 40]!r}")


def calls(code):
    """(first line, last line, text) of the log statements in a file's text."""
    shown = _UNREAD.sub(lambda found: re.sub(r"[^\n]", " ", found[0]), code)
    found = []
    for head in _HEAD.finditer(shown):
        end = _end(code, head.end() - 1)
        first, last = (code.count("\n", 0, at) + 1 for at in (head.start(), end))
        text = code[head.start():end] + ";"
        if head[0] != "syslog(" or "LOG_SOURCE" in text:
            found.append((first, last, text))
    return found


def files():
    """{path from the top of the tree: (source name, base)} of the service's files, as they are built."""
    with open(f"{namespaces.build_directory()}/compile_commands.json", encoding="utf-8") as file:
        commands = json.load(file)
    found = {}
    for row in commands:
        path = os.path.relpath(row["file"], namespaces.ROOT)
        if path.split(os.sep)[0] in ROOMS:
            defined = dict(_DEFINED.findall(row["command"]))
            if defined:
                found[path] = defined["SOURCE"], int(defined["BASE"])
    return found


def read(path):
    with open(os.path.join(namespaces.ROOT, path), encoding="utf-8") as file:
        return file.read()


def every():
    """All of them, in the order of their files."""
    return [Statement(source, base, path, *call)
            for path, (source, base) in files().items() for call in calls(read(path))]


def behind(place, statements=None):
    """The statements behind a place "SOURCE:LINE", or behind the first one in a whole log line."""
    found = _PLACE.search(place)
    if not found:
        raise SystemExit(f"run: {place!r} holds no SOURCE:LINE, such as quorcachepinfiled.cpp:7154")
    return [one for one in (every() if statements is None else statements)
            if one.prints(found[1], int(found[2]))]


def main(words):
    """Says which statement a log line comes from; returns the exit status."""
    found = behind(" ".join(words))
    if not found:
        raise SystemExit(f"run: no statement of this tree prints {' '.join(words)}")
    for one in found:
        print(f"{one.path}:{one.first}\n    {one.text}")
    return 0
