# SPDX-License-Identifier: MIT
"""Attacks the service and tells what came of it: attack.py [WORD...] [--full] [--points N] [--seed N]

Each attack_NAME.py is one attack; a WORD picks those whose name holds it. Every attack runs in an environment of
its own. The short form takes seconds; --full tries everything, and takes hours. Exit status: 0 when nothing
crashed, hung, was lost or was reported.
"""
import argparse
import glob
import importlib
import json
import os
import signal
import sys
import tempfile
import time
import traceback

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path[:0] = [os.path.dirname(os.path.dirname(HERE)), HERE]
from lab import namespaces  # noqa: E402  (found through the line above)

import outcome as outcomes  # noqa: E402
from ground import Ground  # noqa: E402


def names():
    return sorted(os.path.basename(path)[len("attack_"):-len(".py")]
                  for path in glob.glob(f"{HERE}/attack_*.py"))


def attack(name, options, answer):
    """Runs one attack in this environment and writes what came of it to the file `answer`."""
    module = importlib.import_module(f"attack_{name}")
    outcome = outcomes.Outcome(name, module.ABOUT)
    points = options.points or (module.FULL if options.full else module.SHORT)
    ground = Ground(outcome, points, options.seed)
    signal.signal(signal.SIGTERM, lambda number, frame: sys.exit(1))
    try:
        module.run(ground)
    except SystemExit:
        outcome.add("reports", "the attack itself", "cut short; what it had found so far is in the table")
    except Exception:  # the others are still to run; the table names it
        outcome.add("reports", "the attack itself", traceback.format_exc())
    finally:
        ground.close()
    with open(answer, "w", encoding="utf-8") as file:
        json.dump(outcome.tell(), file)


def build_of(name):
    """The build that the attack wants."""
    return getattr(importlib.import_module(f"attack_{name}"), "BUILD", "host")


def apart(name, options):
    """Runs one attack in an environment of its own; returns what came of it."""
    module = importlib.import_module(f"attack_{name}")
    os.environ.setdefault("QUOR_BUILD", f"build/{build_of(name)}")
    started = time.monotonic()
    with tempfile.TemporaryDirectory(dir=namespaces.build_directory()) as directory:
        answer = os.path.join(directory, "answer")
        namespaces.run(lambda: attack(name, options, answer))
        if os.path.exists(answer):
            with open(answer, encoding="utf-8") as file:
                told = json.load(file)
        else:
            lost = outcomes.Outcome(name, module.ABOUT)
            lost.add("reports", "the attack itself", "ended without an answer")
            told = lost.tell()
    print(f"{name}: {told['points']} points in {time.monotonic() - started:.0f} s", flush=True)
    return told


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n", 1)[0])
    parser.add_argument("words", nargs="*", metavar="WORD", help="attacks: " + ", ".join(names()))
    parser.add_argument("--full", action="store_true", help="everything; takes hours")
    parser.add_argument("--points", type=int, help="about so many points of each")
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--builds", action="store_true", help="only say which builds they need")
    options = parser.parse_args()
    chosen = [name for name in names() if not options.words or any(word in name for word in options.words)]
    if not chosen:
        parser.error("no such attack")
    if options.builds:
        print(*sorted(set(map(build_of, chosen))))
        return 0
    given = os.environ.get("QUOR_BUILD")
    tellings = []
    for name in chosen:
        if not given:
            os.environ.pop("QUOR_BUILD", None)
        tellings.append(apart(name, options))
    print(outcomes.table(tellings))
    return int(any(map(outcomes.failed, tellings)))


if __name__ == "__main__":
    sys.exit(main())
