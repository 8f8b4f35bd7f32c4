#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Breaks the code on purpose, one change at a time, and sees that a unit test goes red for each.

The changes are data: the *.mut files beside this one. An entry is

    @ daemon/worker.cpp: what a reader should know of it
    - the lines that stand in the file now, white space at their ends apart
    + the lines that replace them

Lines that begin with neither sign are comments. The old lines must stand in the file exactly once.

    mutate.py                 every change
    mutate.py PATTERN...      those whose file or description holds one of the patterns
    mutate.py --list          lists the changes, runs nothing
    mutate.py --check         sees that each change still applies, runs nothing
"""

import argparse
import concurrent.futures
import dataclasses
import os
import pathlib
import queue
import shutil
import signal
import subprocess
import sys
import tempfile

ROOT = pathlib.Path(__file__).resolve().parents[2]
COPIED = ["CMakeLists.txt", "CMakePresets.json", "cmake", "platform", "util", "daemon",
          "tests/CMakeLists.txt", "tests/unit/CMakeLists.txt", "tests/unit/support", "tests/unit/util",
          "tests/unit/daemon"]
CLIENT = ["client", "tests/unit/client", "docs/man"]  # copied and built only for changes of the command
TESTS_OF = {"util": ["util_test", "daemon_test"], "daemon": ["daemon_test", "util_test"],
            "client": ["client_test"]}
TEST_SECONDS = 45  # they take one or two; a change that makes them hang is caught too


@dataclasses.dataclass
class Mutation:
    """One deliberate change of one file."""
    place: str  # where the change is written, as file:line
    path: str
    why: str
    old: list
    new: list

    def tests(self):
        """The programs of which one must go red, the likeliest first."""
        return TESTS_OF.get(self.path.split("/")[0], ["util_test", "daemon_test"])

    def title(self):
        return f"{self.path}: {self.why}"


def parse(path):
    """Returns the changes of one data file, in order."""
    mutations = []
    for number, line in enumerate(path.read_text().splitlines(), start=1):
        if line.startswith("@ "):
            target, _, why = line[2:].partition(": ")
            mutations.append(Mutation(f"{path.name}:{number}", target, why, [], []))
        elif line.startswith("-"):
            mutations[-1].old.append(line[1:].strip())
        elif line.startswith("+"):
            mutations[-1].new.append(line[1:].strip())
    return mutations


def apply(mutation, text):
    """Returns the changed text; raises ValueError when the old lines do not stand there once."""
    lines = text.splitlines()
    stripped = [line.strip() for line in lines]
    size = len(mutation.old)
    places = [i for i in range(len(lines) - size + 1) if stripped[i:i + size] == mutation.old]
    if size == 0 or len(places) != 1:
        raise ValueError(f"the old lines stand in the file {len(places)} times")
    lines[places[0]:places[0] + size] = mutation.new
    return "\n".join(lines) + "\n"


class Workshop:
    """A copy of the sources with a build of its own, in which one change at a time is tried.

    tests: the programs that the changes need.
    """

    def __init__(self, directory, tests):
        self.source = directory / "source"
        self.build = directory / "build"
        for name in COPIED + (CLIENT if "client_test" in tests else []):
            source, target = ROOT / name, self.source / name
            target.parent.mkdir(parents=True, exist_ok=True)
            if source.is_dir():
                shutil.copytree(source, target)
            elif source.exists():
                shutil.copy2(source, target)
        self.run_or_die("cmake", "-S", self.source, "-B", self.build, "-G", "Ninja",
                        "-DCMAKE_BUILD_TYPE=Debug", "-DCMAKE_CXX_FLAGS=-O0 -g0 -w -D_GLIBCXX_ASSERTIONS",
                        "--compile-no-warning-as-error")
        self.run_or_die("ninja", "-C", self.build, "-j1", *tests)
        for test in tests:
            if not self.passes(test):
                sys.exit(f"mutate: {test} fails on the unchanged sources")

    def run_or_die(self, *command):
        done = subprocess.run([str(c) for c in command], stdin=subprocess.DEVNULL,
                              capture_output=True, text=True)
        if done.returncode != 0:
            sys.exit(f"mutate: {' '.join(map(str, command))}\n{done.stdout}{done.stderr}")

    def passes(self, test):
        """In a session of its own, so that nothing of it is left and its signals reach nobody."""
        program = next(p for p in self.build.rglob(test) if p.is_file())
        running = subprocess.Popen([program, "--gtest_fail_fast", "--gtest_brief=1"], cwd=self.build,
                                   stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                                   stderr=subprocess.DEVNULL, start_new_session=True)
        try:
            return running.wait(TEST_SECONDS) == 0
        except subprocess.TimeoutExpired:
            return False
        finally:
            try:
                os.killpg(running.pid, signal.SIGKILL)
            except ProcessLookupError:
                pass
            running.wait()

    def try_out(self, mutation):
        """Returns "caught", "SURVIVED", or what kept the change from being tried."""
        path = self.source / mutation.path
        original = path.read_text()
        try:
            path.write_text(apply(mutation, original))
        except ValueError as error:
            return f"STALE ({error})"
        try:
            for test in mutation.tests():
                built = subprocess.run(["ninja", "-C", self.build, "-j1", test],
                                       stdin=subprocess.DEVNULL, capture_output=True)
                if b"static assertion failed" in built.stdout:
                    return "caught"
                if built.returncode != 0:
                    return "DOES NOT COMPILE"
                if not self.passes(test):
                    return "caught"
            return "SURVIVED"
        finally:
            path.write_text(original)


def choose(patterns):
    mutations = [m for path in sorted(pathlib.Path(__file__).parent.glob("*.mut"))
                 for m in parse(path)]
    return [m for m in mutations if not patterns or any(p in m.title() for p in patterns)]


def check(mutations):
    stale = 0
    for mutation in mutations:
        try:
            apply(mutation, (ROOT / mutation.path).read_text())
        except (ValueError, OSError) as error:
            print(f"{mutation.place}: {mutation.title()}: {error}")
            stale += 1
    print(f"{len(mutations) - stale} of {len(mutations)} changes apply")
    return stale == 0


def run(mutations, jobs):
    outcomes = {}
    with tempfile.TemporaryDirectory(prefix="mutate.") as directory:
        workshops = queue.Queue()

        def work(mutation):
            workshop = workshops.get()
            try:
                return mutation, workshop.try_out(mutation)
            finally:
                workshops.put(workshop)

        with concurrent.futures.ThreadPoolExecutor(jobs) as pool:
            places = [pathlib.Path(directory) / str(job) for job in range(jobs)]
            tests = sorted({test for mutation in mutations for test in mutation.tests()})
            for workshop in pool.map(lambda place: Workshop(place, tests), places):
                workshops.put(workshop)
            for mutation, outcome in pool.map(work, mutations):
                outcomes.setdefault(outcome.split(" ")[0], []).append(mutation)
                print(f"{outcome:8}  {mutation.title()}  ({mutation.place})", flush=True)
    caught = len(outcomes.get("caught", []))
    print(f"{len(mutations)} changes, {caught} caught, {len(mutations) - caught} not")
    return caught == len(mutations)


def main():
    parser = argparse.ArgumentParser(description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("patterns", nargs="*")
    parser.add_argument("--list", action="store_true")
    parser.add_argument("--check", action="store_true")
    parser.add_argument("-j", "--jobs", type=int, default=2)
    arguments = parser.parse_args()
    mutations = choose(arguments.patterns)
    if not mutations:
        sys.exit("mutate: no change matches")
    if arguments.list:
        print("\n".join(f"{m.title()}  ({m.place})" for m in mutations))
        return 0
    if arguments.check:
        return 0 if check(mutations) else 1
    return 0 if run(mutations, arguments.jobs) else 1


if __name__ == "__main__":
    sys.exit(main())
