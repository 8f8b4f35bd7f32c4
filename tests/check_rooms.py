#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Sees that the sources keep to their rooms: who may include whom, that there is no circle, that every
body of the command has a test file of its own, that no file is too long.

    check_rooms.py      first tries its own rules on made-up trees, then the tree; one line a finding
"""
import pathlib
import re
import sys

ROOT = pathlib.Path(__file__).resolve().parents[1]

# A room, and the rooms beside itself that it may include from. "platform" is the headers of the
# appliance's libraries, "platform/linux" what stands in for them on plain Linux.
MAY_INCLUDE = {
    "daemon": {"util", "platform"},
    "client": {"util", "platform"},
    "util": {"platform"},
    "softcache": {"platform"},
    "platform": set(),
    "platform/linux": {"platform"},
}
# The command's rooms from the top, which is client/ itself: an include arrow goes down or stays.
CLIENT_ROOMS = ["", "verbs", "request", "pins", "map", "service", "volume", "show"]
FOREIGN = re.compile(r"(libmount|blkid|fuse3?)/")  # headers for platform/linux and softcache alone
LONGEST = 280  # lines of a file
UNTESTED = {"client/quorcachepinctl.cpp"}  # main, which every story runs

INCLUDE = re.compile(r'^#include ["<]([^">]+)[">]', re.MULTILINE)


def read_tree():
    """{path from the root: text} of the product's sources and of the unit tests' files."""
    patterns = [f"{room}/**/*.{ending}" for room in MAY_INCLUDE for ending in ("h", "cpp")]
    patterns += ["tests/unit/**/*_test.cpp", "tests/unit/**/CMakeLists.txt"]
    return {str(path.relative_to(ROOT)): path.read_text(encoding="utf-8")
            for pattern in patterns for path in ROOT.glob(pattern)}


def room_of(path):
    """The room of a product's source, None of any other file."""
    room = path.split("/")[0]
    if path.startswith("platform/linux/"):
        return "platform/linux"
    return room if room in MAY_INCLUDE else None


def client_floor(path):
    """The place of a source of the command among CLIENT_ROOMS, None in a folder that is none."""
    folder = "/".join(path.split("/")[1:-1])
    return CLIENT_ROOMS.index(folder) if folder in CLIENT_ROOMS else None


def wrong_arrow(path, target):
    """Why `path` may not include `target`, or None."""
    here, there = room_of(path), room_of(target)
    if FOREIGN.match(target) and here not in ("platform/linux", "softcache"):
        return "is for platform/linux and softcache alone"
    if there and there != here and there not in MAY_INCLUDE[here]:
        return f"{here} includes nothing of {there}"
    if here == there == "client":
        floor, below = client_floor(path), client_floor(target)
        if floor is not None and below is not None and below < floor:
            return "goes back up: " + " > ".join(name or "top" for name in CLIENT_ROOMS)
    return None


def arrows(tree):
    """(path, what it includes) of every product source."""
    return [(path, target) for path, text in sorted(tree.items()) if room_of(path)
            for target in INCLUDE.findall(text)]


def circles(tree):
    """Circles among file pairs, each once, as lists of their names: a.h and a.cpp are one pair."""
    below = {}
    for path, target in arrows(tree):
        if target in tree and target.rpartition(".")[0] != path.rpartition(".")[0]:
            below.setdefault(path.rpartition(".")[0], set()).add(target.rpartition(".")[0])
    found, done = [], set()

    def visit(pair, trail):
        if pair in trail:
            found.append(trail[trail.index(pair):] + [pair])
        elif pair not in done:
            for other in sorted(below.get(pair, ())):
                visit(other, trail + [pair])
            done.add(pair)
    for pair in sorted(below):
        visit(pair, [])
    return found


def findings(tree):
    """One line for each thing that is wrong."""
    wrong = [f"{path}: {target} {why}" for path, target in arrows(tree)
             if (why := wrong_arrow(path, target))]
    wrong += ["a circle: " + " > ".join(circle) for circle in circles(tree)]
    for path, text in sorted(tree.items()):
        folder, _, name = path.rpartition("/")
        if room_of(path) and text.count("\n") > LONGEST:
            wrong.append(f"{path}: {text.count(chr(10))} lines, more than {LONGEST}")
        if room_of(path) == "client" and client_floor(path) is None:
            wrong.append(f"{path}: lies in none of the command's rooms")
        if room_of(path) == "client" and name.endswith(".cpp") and path not in UNTESTED:
            test = f"tests/unit/{path[:-len('.cpp')]}_test.cpp"
            wrong += [] if test in tree else [f"{path}: has no {test}"]
        if name.endswith("_test.cpp"):
            lists = [text for other, text in tree.items() if other.endswith("CMakeLists.txt")
                     and path.startswith(other[:-len("CMakeLists.txt")])]
            wrong += [] if any(name in text for text in lists) else [f"{path}: is in no CMakeLists.txt"]
    return wrong


def including(*targets):
    return "".join(f'#include "{target}"\n' for target in targets)


# What a made-up tree holds, and the text that its only finding contains ("" = there is none).
PROOF = [
    ({"client/verbs/a.h": including("client/pins/b.h"), "client/pins/b.h": ""}, ""),
    ({"client/pins/a.h": including("client/pins/b.h"), "client/pins/b.h": ""}, ""),
    ({"client/pins/a.h": including("client/verbs/b.h"), "client/verbs/b.h": ""}, "goes back up"),
    ({"client/map/a.h": including("client/pins/b.h"), "client/pins/b.h": ""}, "goes back up"),
    ({"client/show/a.h": including("client/help.h"), "client/help.h": ""}, "goes back up"),
    ({"client/pins/a.h": including("client/pins/b.h"), "client/pins/b.h": including("client/pins/a.h")},
     "a circle: client/pins/a > client/pins/b > client/pins/a"),
    ({"daemon/a.cpp": including("daemon/b.h"), "daemon/b.h": "", "daemon/b.cpp": including("daemon/a.h"),
      "daemon/a.h": ""}, "a circle"),
    ({"daemon/a.cpp": including("daemon/a.h"), "daemon/a.h": including("util/b.h")}, ""),
    ({"util/a.h": including("daemon/b.h")}, "util includes nothing of daemon"),
    ({"daemon/a.h": including("client/help.h")}, "daemon includes nothing of client"),
    ({"client/help.h": including("daemon/b.h")}, "client includes nothing of daemon"),
    ({"util/a.h": including("platform/linux/b.h")}, "util includes nothing of platform/linux"),
    ({"util/a.h": "#include <libmount/libmount.h>\n"}, "is for platform/linux and softcache"),
    ({"platform/linux/a.h": "#include <blkid/blkid.h>\n"}, ""),
    ({"client/other/a.h": ""}, "lies in none of the command's rooms"),
    ({"client/show/a.cpp": ""}, "has no tests/unit/client/show/a_test.cpp"),
    ({"client/show/a.cpp": "", "tests/unit/client/show/a_test.cpp": "",
      "tests/unit/client/CMakeLists.txt": "show/a_test.cpp"}, ""),
    ({"tests/unit/util/a_test.cpp": "", "tests/unit/util/CMakeLists.txt": "b_test.cpp"},
     "is in no CMakeLists.txt"),
    ({"util/a.h": "\n" * (LONGEST + 1)}, "lines, more than"),
]


def main():
    for tree, expected in PROOF:
        found = findings(tree)
        assert len(found) == bool(expected) and all(expected in line for line in found), (tree, found)
    wrong = findings(read_tree())
    print("\n".join(wrong) or "every file keeps to its room")
    return 1 if wrong else 0


if __name__ == "__main__":
    sys.exit(main())
