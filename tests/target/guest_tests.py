# SPDX-License-Identifier: MIT
"""Runs the tests inside the virtual machine, two at a time: guest_tests.py [NAME...].

First the unit test programs, whole: user-mode emulation leaves out what it cannot pass on to a
kernel. Then every story that tests/target/left-out does not name. A failing test prints what it
prints on any other machine. Ends with the line `N passed, N failed`.
"""
import concurrent.futures
import glob
import os
import resource
import subprocess
import sys
import time

HERE = os.path.dirname(os.path.abspath(__file__))
TREE = os.path.dirname(os.path.dirname(HERE))
BUILD = os.environ["QUOR_BUILD"]
SECONDS = 1200  # a test; the machine itself ends by its own limit
SKIPPED = 77


def lines(name):
    """The lines of a file beside this one, without comments."""
    with open(os.path.join(HERE, name), encoding="utf-8") as file:
        return [line.strip() for line in file if line.strip() and not line.startswith("#")]


def left_out():
    """{story: why it is not run here}"""
    return dict(line.split(None, 1) for line in lines("left-out"))


def filter_of(program):
    """What of a unit test program is not run here, as GoogleTest wants it."""
    rows = [line.split(None, 3) for line in lines("unit-left-out")]
    patterns = [row[2] for row in rows if row[:2] == ["machine", program]]
    return "--gtest_filter=-" + ":".join(patterns)


def commands(wanted):
    """[(name, command)], the longest first as far as file sizes tell."""
    units = [(os.path.basename(path), [path, "--gtest_brief=1", filter_of(os.path.basename(path))])
             for path in sorted(glob.glob(os.path.join(BUILD, "bin/*_test")))]
    stories = sorted(glob.glob(os.path.join(TREE, "tests/system/story_*.py")), key=os.path.getsize)
    runner = [sys.executable, "-B", os.path.join(TREE, "tests/system/run_story.py")]
    found = units + [(os.path.basename(path)[:-3], [*runner, path]) for path in reversed(stories)]
    return [(name, command) for name, command in found if not wanted or name in wanted]


def run(item):
    name, command = item
    begin = time.monotonic()
    try:
        done = subprocess.run(command, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                              stderr=subprocess.STDOUT, timeout=SECONDS, check=False)
        status, output = done.returncode, done.stdout
    except subprocess.TimeoutExpired as late:
        status, output = f"none after {SECONDS} s", late.stdout or b""
    return name, status, output.decode(errors="replace"), time.monotonic() - begin


def main():
    wanted = sys.argv[1:]
    # The unit tests' regular expressions recurse once a character of a long line.
    resource.setrlimit(resource.RLIMIT_STACK, (64 << 20, resource.RLIM_INFINITY))
    without = {} if wanted else left_out()
    passed, failed = 0, 0
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        todo = [item for item in commands(wanted) if item[0] not in without]
        for done in concurrent.futures.as_completed([pool.submit(run, item) for item in todo]):
            name, status, output, took = done.result()
            good = status == 0
            passed, failed = passed + good, failed + (not good)
            word = "passed" if good else "skipped" if status == SKIPPED else "FAILED"
            print(f"{word:8} {name:40} {took:6.1f} s", flush=True)
            if not good:
                print(f"{output}exit status {status}", flush=True)
    for name, reason in without.items():
        print(f"left out {name:40} {reason}")
    print(f"{passed} passed, {failed} failed")
    return 1 if failed or not passed else 0


if __name__ == "__main__":
    sys.exit(main())
