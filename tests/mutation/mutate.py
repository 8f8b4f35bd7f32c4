#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Breaks the code on purpose, one change at a time, and sees that a unit test goes red for each.

The chosen changes are data: the *.mut files beside this one. An entry is

    @ daemon/worker.cpp: what a reader should know of it
    - the lines that stand in the file now, white space at their ends apart
    + the lines that replace them

Lines that begin with neither sign are comments. The old lines must stand in the file exactly once.

The mechanical changes (--systematic) are made by operators.py on every line of the rooms; a random N of
them with a number. What survives there is printed with its change: a test is missing, or the change
alters nothing and stands in accepted.txt, in the form of the above with the reason behind the file's
name. Those that do not compile count for nothing.

    mutate.py                           every chosen change
    mutate.py PATTERN...                those whose file, description or place holds one of the patterns
    mutate.py --systematic [N] [PATTERN...] [--seed S]
    mutate.py --list                    lists the changes, runs nothing
    mutate.py --check                   sees that each still applies, the accepted too; runs nothing
"""
import argparse
import collections
import random
import sys

import changes
import operators
import workshop

ACCEPTED = changes.HERE / "accepted.txt"


def choose(arguments):
    """The changes that are asked for, and what was said about which they are."""
    patterns = list(arguments.patterns)
    if arguments.systematic is None:
        chosen = changes.written()
    else:
        chosen = operators.every_change()
    if arguments.systematic and not arguments.systematic.isdecimal():
        patterns.append(arguments.systematic)
    chosen = [m for m in chosen if not patterns or any(p in f"{m.title()} {m.place}" for p in patterns)]
    if arguments.systematic and arguments.systematic.isdecimal():
        count = min(int(arguments.systematic), len(chosen))
        print(f"{count} of {len(chosen)}, seed {arguments.seed}", flush=True)
        chosen = random.Random(arguments.seed).sample(chosen, count)
    return chosen


def result_of(mutation):
    """The changed file's lines, without the white space at their ends."""
    text = changes.apply(mutation, (changes.ROOT / mutation.path).read_text())
    return [line.strip() for line in text.splitlines()]


def accepted():
    """What the accepted changes come to: (path, lines)."""
    return [(m.path, result_of(m)) for m in changes.parse(ACCEPTED)]


def show(mutation, outcome):
    print(f"{outcome:8}  {mutation.title()}  ({mutation.place})", flush=True)
    if outcome == "SURVIVED" and mutation.at is not None:
        print("\n".join([f"- {line}" for line in mutation.old] +
                        [f"+ {line.strip()}" for line in mutation.new]), flush=True)


def run(mutations, jobs):
    """Tries the changes and says what came of each; returns whether a test noticed every one."""
    counted = collections.Counter()
    equivalent = accepted()
    for mutation, outcome in workshop.try_all(mutations, jobs):
        if outcome == "SURVIVED" and (mutation.path, result_of(mutation)) in equivalent:
            outcome = "accepted"
        counted[outcome.split(" ")[0]] += 1
        # A mechanical change is worth a line only when it came through.
        if mutation.at is None or outcome == "SURVIVED":
            show(mutation, outcome)
    idle = counted["DOES"] if mutations[0].at is not None else 0
    tried = len(mutations) - idle
    print(f"{tried} changes, {counted['caught']} caught, {counted['accepted']} accepted, "
          f"{tried - counted['caught'] - counted['accepted']} not" +
          (f"; {idle} do not compile" if idle else ""))
    return counted["caught"] + counted["accepted"] == tried


def main():
    parser = argparse.ArgumentParser(description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("patterns", nargs="*")
    parser.add_argument("--systematic", nargs="?", const="", metavar="N")
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--list", action="store_true")
    parser.add_argument("--check", action="store_true")
    parser.add_argument("-j", "--jobs", type=int, default=2)
    arguments = parser.parse_args()
    mutations = choose(arguments)
    if not mutations:
        sys.exit("mutate: no change matches")
    if arguments.list:
        print("\n".join(f"{m.title()}  ({m.place})" for m in mutations))
        return 0
    if arguments.check:
        return 0 if changes.check(mutations + changes.parse(ACCEPTED)) else 1
    return 0 if run(mutations, arguments.jobs) else 1


if __name__ == "__main__":
    sys.exit(main())
